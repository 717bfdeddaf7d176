#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <array>
#include <atomic>
#include <ctime>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "platform/net/RPCEngine.h"
#include "platform/record/Records.h"
#include "platform/utils/Utils.h"

#ifndef _WIN32

namespace {

/// What the clock shows; 0: what it shows by itself.
std::atomic<std::time_t> shownTime{0};

}  // namespace

/// Stands before the C library's for the libraries, too.
extern "C" __attribute__((visibility("default"))) std::time_t time(std::time_t* result) noexcept {
    std::time_t now = shownTime.load();
    if (now == 0) {
        timespec real{};
        ::clock_gettime(CLOCK_REALTIME, &real);
        now = real.tv_sec;
    }
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

#endif

namespace {

TEST(Hash, IsTheStoredOneForAnyBytes) {
    EXPECT_EQ(utils::hash("SH600000"), 0xd3e40800bbabda73U);
    EXPECT_EQ(utils::hash("HK"), 0x3f34329ce3e707f8U);
    EXPECT_EQ(utils::hash(""), 0x2d06800538d394c2U);
    const std::string withNul("SH\0X", 4);
    EXPECT_NE(utils::hash(withNul), utils::hash("SH"));
    EXPECT_EQ(utils::ovStockKey("SH", std::string("6\0", 2)), std::string("SH6\0", 4));
}

TEST(Calendar, PinnedDayDecidesWhatIsToday) {
    utils::setToday("20260302");
    EXPECT_TRUE(utils::isToday("20260302"));
    for (const char* const other : {"20260303", "2026032", "", "2026-3-2", "202603020", "CME"}) {
        EXPECT_FALSE(utils::isToday(other)) << other;
    }
    for (const char* const none : {"2 March", "20261301", "20260229", "00000000"}) {
        EXPECT_THROW(utils::setToday(none), std::invalid_argument) << none;
    }
    EXPECT_EQ(utils::today(), "20260302");
    utils::setToday("");
    EXPECT_FALSE(utils::isToday("20260302"));
}

#ifndef _WIN32  // where libraries do not take the program's clock for the system's
TEST(Calendar, FollowsTheLocalDateAndNoticesMidnight) {
    struct Midnight {
        std::array<int, 3> day;
        const char* before;
        const char* after;
    };
    for (const auto& [day, before, after] :
         {Midnight{{2026, 1, 31}, "20260131", "20260201"}, Midnight{{2028, 2, 28}, "20280228", "20280229"},
          Midnight{{2026, 12, 31}, "20261231", "20270101"}}) {
        std::tm lastSecond{};
        lastSecond.tm_year = day[0] - 1900;
        lastSecond.tm_mon = day[1] - 1;
        lastSecond.tm_mday = day[2];
        lastSecond.tm_hour = 23;
        lastSecond.tm_min = lastSecond.tm_sec = 59;
        lastSecond.tm_isdst = -1;
        shownTime = std::mktime(&lastSecond);
        EXPECT_EQ(utils::today(), before);
        EXPECT_TRUE(utils::isToday(before) && !utils::isToday(after));
        ++shownTime;
        EXPECT_EQ(utils::today(), after);
        EXPECT_TRUE(utils::isToday(after) && !utils::isToday(before));
    }
    shownTime = 0;
    const auto localDate = [] {
        const std::time_t now = std::time(nullptr);
        std::array<char, 16> text{};
        return std::string(text.data(), std::strftime(text.data(), text.size(), "%Y%m%d", std::localtime(&now)));
    };
    const std::string before = localDate();
    const std::string today = utils::today();
    EXPECT_TRUE(today == before || today == localDate()) << today;
}
#endif

TEST(RPCEngine, OneNameGivesOneStrandThatRunsHandlersInTurn) {
    net::RPCEngine* const engine = utils::CSingletonT<net::RPCEngine>::instance();
    ASSERT_EQ(engine, net::RPCEngine::instance());
    const auto strand = engine->getStrand("load");
    EXPECT_EQ(strand, engine->getStrand("load"));
    EXPECT_NE(strand, engine->getStrand("other"));

    int running = 0;
    bool overlapped = false;
    constexpr int kHandlers = 1000;
    int ran = 0;
    for (int i = 0; i < kHandlers; ++i) {
        boost::asio::post(*strand, [&] {
            overlapped = overlapped || ++running != 1;
            ++ran;
            --running;
        });
    }
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([engine] { engine->ioContext().run(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(ran, kHandlers);
    EXPECT_FALSE(overlapped);
}

TEST(RecordHelpers, AnswerForRecordsAndForNone) {
    using namespace mxservice;
    const auto option = boost::make_shared<CInstrumentDetail>();
    option->market = "DCE";
    EXPECT_FALSE(CFtOptionDataHelper::isFtOptionInstrument(option));
    option->optionType = 2;
    EXPECT_TRUE(CFtOptionDataHelper::isFtOptionInstrument(option));
    option->optionType = 3;
    EXPECT_FALSE(CFtOptionDataHelper::isFtOptionInstrument(option));
    option->optionType = 1;
    option->market = "SHO";
    EXPECT_FALSE(CFtOptionDataHelper::isFtOptionInstrument(option));
    EXPECT_FALSE(CFtOptionDataHelper::isFtOptionInstrument(nullptr));
    EXPECT_FALSE(isIssueAdditionalStock(nullptr));
    EXPECT_FALSE(COutterFutureHelper::isCommdityGroup(nullptr));
    EXPECT_TRUE(isSpecifiedValue("0123456", 6, '6'));
    EXPECT_FALSE(isSpecifiedValue("0123456", 7, '7'));
    EXPECT_FALSE(isSpecifiedValue("0123456", -1, '6'));
}

}  // namespace
