#include "platform/utils/Log.h"

#ifndef PM_PLAIN_LOG
#include <log4cxx/helpers/loglog.h>
#include <log4cxx/level.h>
#include <log4cxx/spi/location/locationinfo.h>
#endif

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#ifndef PM_PLAIN_LOG
log4cxx::LoggerPtr g_MXStdLogger = log4cxx::Logger::getLogger("MXStdLogger");
#endif

namespace utils {
namespace {

#ifndef PM_PLAIN_LOG

bool takes(int level) {
    return g_MXStdLogger && g_MXStdLogger->isEnabledFor(log4cxx::Level::toLevel(level));
}

void write(int level, const std::string& text, const char* file, const char* function, int line) {
    const log4cxx::spi::LocationInfo location(file, log4cxx::spi::LocationInfo::calcShortFileName(file), function,
                                              line);
    g_MXStdLogger->forcedLog(log4cxx::Level::toLevel(level), text, location);
}

/// The library makes some of its static objects when they are first used.
void makeStatics() {
    for (const int level : {kLogInfo, kLogError}) {
        log4cxx::Level::toLevel(level);
    }
    log4cxx::helpers::LogLog::debug("");
}

#else

std::atomic<int> lowest{kLogInfo};
std::mutex sinkLock;
std::shared_ptr<const LogSink> currentSink;

bool takes(int level) {
    return level >= lowest.load(std::memory_order_relaxed);
}

/// Without the lock: a sink is the host's code, and may log or set another.
void write(int level, const std::string& text, const char* file, const char* function, int line) {
    std::shared_ptr<const LogSink> sink;
    {
        const std::lock_guard guard(sinkLock);
        sink = currentSink;
    }
    if (sink) {
        (*sink)(level, text, file, function, line);
    } else {
        std::fprintf(stderr, "%s %s\n", level >= kLogError ? "ERROR" : "INFO", text.c_str());
    }
}

void makeStatics() {}

#endif

std::atomic<bool> enabledSwitch{false};
std::atomic<int> callsUnderWay{0};

/// One call into the logging library. Threads that still run when the process exits must not be inside while the
/// library's static objects are destroyed.
class Call {
public:
    Call() { callsUnderWay.fetch_add(1, std::memory_order_seq_cst); }
    ~Call() { callsUnderWay.fetch_sub(1, std::memory_order_release); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    /// Asked once the call is counted: from then on the exit waits for it.
    bool isAllowed() const { return enabledSwitch.load(std::memory_order_seq_cst); }
};

/// Turns the log off for good and lets the calls under way end. An appender that never returns, or that exits the
/// process itself, holds the exit up for a second and no longer.
void endLogging() {
    constexpr int kMostWaits = 1000;
    enabledSwitch.store(false, std::memory_order_seq_cst);
    for (int i = 0; i < kMostWaits && callsUnderWay.load(std::memory_order_seq_cst) != 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// What is made before this object is destroyed after it.
struct EndLoggingAtExit {
    EndLoggingAtExit() { makeStatics(); }
    ~EndLoggingAtExit() { endLogging(); }
    EndLoggingAtExit(const EndLoggingAtExit&) = delete;
    EndLoggingAtExit& operator=(const EndLoggingAtExit&) = delete;
} const endLoggingAtExit;

/// The same for what the first line has made.
void endLoggingBeforeWhatTheFirstLineMade() {
    static std::once_flag once;
    std::call_once(once, [] { std::atexit(endLogging); });
}

}  // namespace

bool CLogCenter::logEnabled() {
    return enabledSwitch.load(std::memory_order_relaxed);
}

void CLogCenter::setLogEnabled(bool enabled) {
    enabledSwitch.store(enabled, std::memory_order_seq_cst);
}

#ifdef PM_PLAIN_LOG
void setLogSink(LogSink sink, int lowestLevel) {
    std::shared_ptr<const LogSink> next = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
    lowest.store(lowestLevel, std::memory_order_relaxed);
    const std::lock_guard guard(sinkLock);
    currentSink.swap(next);  // the former one is destroyed after the lock is given back
}
#endif

bool logReaches(int level) {
    if (!CLogCenter::logEnabled()) {
        return false;
    }
    const Call call;
    return call.isAllowed() && takes(level);
}

LogDelay*& LogDelay::ofThread() {
    static thread_local LogDelay* outermost = nullptr;
    return outermost;
}

LogDelay::LogDelay() : outer_(ofThread()) {
    if (outer_ == nullptr) {
        ofThread() = this;
    }
}

LogDelay::~LogDelay() {
    if (outer_ == nullptr) {
        ofThread() = nullptr;  // first: what an appender logs itself from within a line goes straight out
        for (const Line& line : lines_) {
            logLine(line.level, line.text, line.file, line.function, line.line);
        }
    }
}

/// What logLine() sees of a delay. A type, because a function that is a friend loses its mark as imported on Windows.
struct DelayedLines {
    /// Whether the thread's lines wait, and this one with them.
    static bool keep(int level, const std::string& text, const char* file, const char* function, int line) {
        LogDelay* const delay = LogDelay::ofThread();
        if (delay != nullptr) {
            delay->lines_.push_back({level, text, file, function, line});
        }
        return delay != nullptr;
    }
};

void logLine(int level, const std::string& text, const char* file, const char* function, int line) noexcept {
    try {
        if (DelayedLines::keep(level, text, file, function, line)) {
            return;
        }
        const Call call;
        if (!call.isAllowed()) {
            return;
        }
        write(level, text, file, function, line);
        endLoggingBeforeWhatTheFirstLineMade();
    } catch (...) {
        // The line is lost; the operation that wanted to log it is not.
    }
}

}  // namespace utils
