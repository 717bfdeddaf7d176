#include <fcntl.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "tools/inscenter/System.h"

namespace inscenter {
namespace {

extern "C" void endQuietly(int /*signal*/) {
    // Not exit(): a handler may interrupt anything, also what its destructors would tear down.
    _exit(0);
}

/// A line of /proc/self/status, which counts in units of 1024 bytes.
std::uint64_t bytesIn(const std::string& line) {
    const std::size_t digits = line.find_first_of("0123456789");
    std::uint64_t units = 0;
    if (digits != std::string::npos) {
        std::from_chars(line.data() + digits, line.data() + line.size(), units);
    }
    return units * 1024;
}

}  // namespace

std::optional<TerminalState> terminalOf(Standard stream) {
    constexpr std::array kDescriptors{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    const int descriptor = kDescriptors.at(static_cast<std::size_t>(stream));
    if (isatty(descriptor) != 1) {
        return std::nullopt;
    }
    winsize size{};
    // A serial line or an editor may say 0 columns, which means the same as no answer: as wide as it takes.
    const bool known = ioctl(descriptor, TIOCGWINSZ, &size) == 0;
    return TerminalState{known ? size.ws_col : std::size_t{0}, true};
}

StandardStreams::StandardStreams() {
    std::signal(SIGPIPE, endQuietly);
    std::ios::sync_with_stdio(false);
}

// What ends here has been written: whoever looks at the exit code next finds the whole answer.
StandardStreams::~StandardStreams() {
    std::cout.flush();
}

std::vector<std::string> commandWords(int argc, const char* const* argv) {
    return {argv, argv + argc};
}

MemoryUse memoryUse() {
    MemoryUse use;
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS")) {
            use.now = bytesIn(line);
        } else if (line.starts_with("VmHWM")) {
            use.most = bytesIn(line);
        }
    }
    return use;
}

bool mayWrite(const std::filesystem::path& path) {
    return ::access(path.c_str(), W_OK) == 0;
}

std::string makeTemporaryDirectory() {
    std::string name = (std::filesystem::temp_directory_path() / "inscenter-XXXXXX").string();
    if (::mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error(name + ": cannot be made: " + std::generic_category().message(errno));
    }
    return name;
}

void makePrivateFile(const std::filesystem::path& path) {
    // With its rights from the first moment on: between making it and taking rights away somebody may open it.
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0) {
        throw std::runtime_error(path.string() + ": cannot be made: " + std::generic_category().message(errno));
    }
    ::close(file);
}

}  // namespace inscenter
