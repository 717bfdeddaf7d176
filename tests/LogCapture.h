#pragma once

#ifndef PM_PLAIN_LOG
#include <log4cxx/appenderskeleton.h>
#include <log4cxx/level.h>
#include <log4cxx/spi/loggingevent.h>
#endif

#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/utils/Log.h"

/// While it lives, the log switch is on and every line of the platform's logger is kept here.
class LogCapture {
public:
    struct Line {
        int level;
        std::string text;
        std::string file;
        std::string function;
        int line;
    };

#ifndef PM_PLAIN_LOG
    LogCapture() : appender_(std::make_shared<Appender>()), levelBefore_(g_MXStdLogger->getLevel()) {
        g_MXStdLogger->setAdditivity(false);
        g_MXStdLogger->setLevel(log4cxx::Level::getAll());
        g_MXStdLogger->addAppender(appender_);
        utils::CLogCenter::setLogEnabled(true);
    }
    ~LogCapture() {
        utils::CLogCenter::setLogEnabled(false);
        g_MXStdLogger->removeAppender(appender_);
        g_MXStdLogger->setLevel(levelBefore_);
        g_MXStdLogger->setAdditivity(true);
    }
#else
    LogCapture() : appender_(std::make_shared<Appender>()) {
        utils::setLogSink(
            [kept = appender_](int level, const std::string& text, const char* file, const char* function, int line) {
                kept->keep({level, text, file, function, line});
            });
        utils::CLogCenter::setLogEnabled(true);
    }
    ~LogCapture() {
        utils::CLogCenter::setLogEnabled(false);
        utils::setLogSink({});
    }
#endif
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Called with each line's text once it is kept, on the thread that logs.
    void onLine(std::function<void(const std::string& text)> call) {
        appender_->call = std::move(call);
    }

    std::vector<Line> lines() const {
        const std::lock_guard guard(appender_->lock);
        return appender_->lines;
    }
    std::vector<std::string> texts() const {
        std::vector<std::string> texts;
        for (const Line& line : lines()) {
            texts.push_back(line.text);
        }
        return texts;
    }
    std::size_t count(const std::string& text) const {
        const std::vector<std::string> all = texts();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
    }

private:
    struct Kept {
        mutable std::mutex lock;
        std::vector<Line> lines;
        std::function<void(const std::string& text)> call;

        void keep(const Line& line) {
            {
                const std::lock_guard guard(lock);
                lines.push_back(line);
            }
            if (call) {
                call(line.text);
            }
        }
    };

#ifndef PM_PLAIN_LOG
    class Appender : public log4cxx::AppenderSkeleton, public Kept {
    protected:
        void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& /*pool*/) override {
            const log4cxx::spi::LocationInfo& where = event->getLocationInformation();
            keep({event->getLevel()->toInt(), event->getMessage(), where.getFileName(), where.getMethodName(),
                  where.getLineNumber()});
        }
        void close() override {}
        bool requiresLayout() const override { return false; }
    };
#else
    using Appender = Kept;
#endif

    std::shared_ptr<Appender> appender_;
#ifndef PM_PLAIN_LOG
    log4cxx::LevelPtr levelBefore_;
#endif
};
