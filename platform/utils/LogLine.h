#pragma once

#include <string>
#include <vector>

#include "platform/Export.h"
#include "platform/utils/LogCenter.h"

// How the libraries log; knows no logging library. Hosts reach the logger itself through platform/utils/Log.h.

namespace utils {

/// Levels by the values that log4cxx gives them.
constexpr int kLogInfo = 20000;
constexpr int kLogError = 40000;

/// Whether a line of this level would reach the logger: the log switch is on and the logger is enabled for it.
PM_PLATFORM_API bool logReaches(int level);

/// Hands one finished line to the logger. `file` and `function` must live as long as the process. Never throws: what an
/// appender throws is swallowed, because a catalogue that cannot log still answers.
PM_PLATFORM_API void logLine(int level, const std::string& text, const char* file, const char* function,
                             int line) noexcept;

/// While it lives, lines of the calling thread wait; those that came meanwhile are handed to the logger, in their
/// order, when the outermost one is destroyed. For a thread that takes a lock in between and calls what may log: an
/// appender is the host's own code, and may ask or load from within the line. A line for which there is no memory is
/// lost.
class PM_PLATFORM_API LogDelay {
public:
    /// Lines wait from now on.
    LogDelay();
    ~LogDelay();
    LogDelay(const LogDelay&) = delete;
    LogDelay& operator=(const LogDelay&) = delete;

private:
    friend struct DelayedLines;
    struct Line {
        int level;
        std::string text;
        const char* file;
        const char* function;
        int line;
    };
    static LogDelay*& ofThread();

    LogDelay* const outer_;
    std::vector<Line> lines_;
};

}  // namespace utils

/// The full signature of the function around it.
#if defined(_MSC_VER)
#define PM_FUNCTION __FUNCSIG__
#else
#define PM_FUNCTION __PRETTY_FUNCTION__
#endif

/// Logs `text` with the place of the call as its location; `text` is evaluated only when the line will be written.
#define PM_LOG(level, file, text)                                             \
    do {                                                                      \
        if (::utils::logReaches(level)) {                                     \
            ::utils::logLine((level), (text), (file), PM_FUNCTION, __LINE__); \
        }                                                                     \
    } while (false)
