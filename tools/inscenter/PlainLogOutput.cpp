#include <fmt/chrono.h>
#include <fmt/format.h>

#include <chrono>
#include <iostream>
#include <mutex>

#include "platform/utils/Log.h"
#include "tools/inscenter/LogOutput.h"

namespace inscenter {

struct LogOutput::State {};

LogOutput::LogOutput() {
    // Through the stream, which knows what a terminal takes. Lines may come from several threads.
    utils::setLogSink([lock = std::make_shared<std::mutex>()](int level, const std::string& text, const char* /*file*/,
                                                              const char* /*function*/, int /*line*/) {
        const auto now = std::chrono::time_point_cast<std::chrono::milliseconds>(std::chrono::system_clock::now());
        const auto second = std::chrono::time_point_cast<std::chrono::seconds>(now);
        const std::string line =
            fmt::format("{:%H:%M:%S}.{:03} {:5} {}\n", fmt::localtime(std::chrono::system_clock::to_time_t(now)),
                        (now - second).count(), level >= utils::kLogError ? "ERROR" : "INFO", text);
        const std::lock_guard guard(*lock);
        std::cerr << line;
    });
    utils::CLogCenter::setLogEnabled(true);
}

LogOutput::~LogOutput() {
    utils::CLogCenter::setLogEnabled(false);
    utils::setLogSink(nullptr);
}

}  // namespace inscenter
