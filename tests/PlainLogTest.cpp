#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "platform/utils/Log.h"

// The log of builds without log4cxx.

namespace {

constexpr const char* kPlainSource = "base/instrumentcenter/Example";

struct SinkLine {
    int level;
    std::string text;
    std::string file;
    std::string function;
    int line;
};

class PlainLog : public ::testing::Test {
protected:
    PlainLog() {
        keepFrom(utils::kLogInfo);
        utils::CLogCenter::setLogEnabled(true);
    }
    ~PlainLog() override {
        utils::CLogCenter::setLogEnabled(false);
        utils::setLogSink(nullptr);
    }

    void keepFrom(int lowest) {
        utils::setLogSink(
            [this](int level, const std::string& text, const char* file, const char* function, int line) {
                lines_.push_back({level, text, file, function, line});
            },
            lowest);
    }

    std::vector<SinkLine> lines_;
};

TEST_F(PlainLog, SinkTakesLinesOfItsLevelsWithTheirPlaces) {
    PM_LOG(utils::kLogInfo, kPlainSource, "loaded");
    ASSERT_EQ(lines_.size(), 1U);
    EXPECT_EQ(lines_[0].level, utils::kLogInfo);
    EXPECT_EQ(lines_[0].text, "loaded");
    EXPECT_EQ(lines_[0].file, kPlainSource);
    EXPECT_NE(lines_[0].function.find("TestBody"), std::string::npos) << lines_[0].function;
    EXPECT_GT(lines_[0].line, 0);
    keepFrom(utils::kLogError);
    PM_LOG(utils::kLogInfo, kPlainSource, "too low");
    PM_LOG(utils::kLogError, kPlainSource, "failed");
    utils::CLogCenter::setLogEnabled(false);
    PM_LOG(utils::kLogError, kPlainSource, "switched off");
    ASSERT_EQ(lines_.size(), 2U);
    EXPECT_EQ(lines_[1].text, "failed");
}

TEST_F(PlainLog, SinkMayLogSetAnotherAndThrow) {
    utils::setLogSink([this](int, const std::string& text, const char*, const char*, int) {
        if (text == "first") {
            keepFrom(utils::kLogInfo);
            PM_LOG(utils::kLogInfo, kPlainSource, "from within");
        }
        throw std::runtime_error("disk full");
    });
    EXPECT_NO_THROW(PM_LOG(utils::kLogInfo, kPlainSource, "first"));
    PM_LOG(utils::kLogInfo, kPlainSource, "second");
    ASSERT_EQ(lines_.size(), 2U);
    EXPECT_EQ(lines_[0].text, "from within");
    EXPECT_EQ(lines_[1].text, "second");
}

TEST_F(PlainLog, WithoutASinkLinesGoToStandardErrorAndWaitWhileTheyShould) {
    utils::setLogSink(nullptr);
    ::testing::internal::CaptureStderr();
    {
        const utils::LogDelay delay;
        PM_LOG(utils::kLogError, kPlainSource, "not stored");
        EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
        ::testing::internal::CaptureStderr();
    }
    const std::string written = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(written.substr(0, written.find_first_of("\r\n")), "ERROR not stored");
}

}  // namespace
