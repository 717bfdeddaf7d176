#include <gtest/gtest.h>
#include <log4cxx/appenderskeleton.h>
#include <log4cxx/spi/loggingevent.h>

#include <stdexcept>

#include "platform/utils/Log.h"
#include "tests/LogCapture.h"

namespace {

constexpr const char* kSource = "base/instrumentcenter/Example";

void logFrom(int level) {
    PM_LOG(level, kSource, "a line");
}

TEST(Logging, LinesCarryFileFunctionAndLineOnlyWhileSwitchedOn) {
    LogCapture capture;
    logFrom(utils::kLogInfo);
    ASSERT_EQ(capture.lines().size(), 1U);
    const LogCapture::Line line = capture.lines().front();
    EXPECT_EQ(line.text, "a line");
    EXPECT_EQ(line.level, utils::kLogInfo);
    EXPECT_EQ(line.file, kSource);
    EXPECT_NE(line.function.find("logFrom"), std::string::npos) << line.function;
    EXPECT_GT(line.line, 0);

    utils::CLogCenter::setLogEnabled(false);
    logFrom(utils::kLogError);
    EXPECT_EQ(capture.lines().size(), 1U);

    utils::CLogCenter::setLogEnabled(true);
    g_MXStdLogger->setLevel(log4cxx::Level::getError());
    logFrom(utils::kLogInfo);
    EXPECT_EQ(capture.lines().size(), 1U);
    logFrom(utils::kLogError);
    EXPECT_EQ(capture.lines().size(), 2U);
}

TEST(Logging, TextIsNotMadeForALineThatIsNotWritten) {
    utils::CLogCenter::setLogEnabled(false);
    bool made = false;
    PM_LOG(utils::kLogError, kSource, (made = true, "text"));
    EXPECT_FALSE(made);
}

class ThrowingAppender : public log4cxx::AppenderSkeleton {
protected:
    void append(const log4cxx::spi::LoggingEventPtr& /*event*/, log4cxx::helpers::Pool& /*pool*/) override {
        throw std::runtime_error("disk full");
    }
    void close() override {}
    bool requiresLayout() const override { return false; }
};

TEST(Logging, AnAppenderThatThrowsDoesNotReachTheCaller) {
    const LogCapture capture;
    const auto throwing = std::make_shared<ThrowingAppender>();
    g_MXStdLogger->addAppender(throwing);
    EXPECT_NO_THROW(logFrom(utils::kLogError));
    g_MXStdLogger->removeAppender(throwing);
}

}  // namespace
