#include "Conditions.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sys/utsname.h>

#include <ctime>
#include <fstream>
#include <iostream>
#include <thread>

namespace bench {
namespace {

/// What stands behind the colon in the first line of the file that begins with `name`.
std::string systemValue(const char* path, const std::string& name) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::size_t colon = line.find(':');
        if (line.compare(0, name.size(), name) == 0 && colon != std::string::npos) {
            return line.substr(line.find_first_not_of(" \t", colon + 1));
        }
    }
    return "";
}

double memoryValue(const char* name) {
    constexpr double kKilobyte = 1024;
    return kKilobyte * std::strtod(systemValue("/proc/meminfo", name).c_str(), nullptr);
}

std::string buildDescription() {
#ifdef NDEBUG
    return fmt::format("GCC {}, no asserts", __VERSION__);
#else
    std::cerr << "center_bench: built with asserts; the numbers say little\n";
    return fmt::format("GCC {}, asserts", __VERSION__);
#endif
}

}  // namespace

Conditions conditionsOfNow(bool quick) {
    Conditions conditions;
    conditions.quick = quick;
    conditions.build = buildDescription();
    conditions.day = fmt::format("{:%Y-%m-%d}", fmt::gmtime(std::time(nullptr)));
    conditions.processor = systemValue("/proc/cpuinfo", "model name");
    conditions.processors = std::thread::hardware_concurrency();
    conditions.memoryBytes = memoryValue("MemTotal");
    utsname system{};
    if (::uname(&system) == 0) {
        conditions.system = fmt::format("{} {}", system.sysname, system.release);
    }
    return conditions;
}

double availableBytes() {
    return memoryValue("MemAvailable");
}

}  // namespace bench
