#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <malloc.h>

#include <fstream>
#include <random>

#include "tests/CenterFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/SecondaryRecords.h"

// A process that lives for months: what it takes of the system levels off.

namespace mxservice {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kTimes = kSanitized ? 14 : 60;

/// What the process takes of the system.
struct Taken {
    std::uint64_t memory = 0;
    std::uint64_t store = 0;
    std::ptrdiff_t files = 0;
    std::ptrdiff_t threads = 0;

    static std::ptrdiff_t entriesOf(const char* directory) {
        return std::distance(fs::directory_iterator(directory), fs::directory_iterator());
    }

    explicit Taken(const fs::path& root) {
        ::malloc_trim(0);
        std::uint64_t pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> pages;
        memory = pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
        files = entriesOf("/proc/self/fd");
        threads = entriesOf("/proc/self/task");
        if (fs::exists(root)) {
            for (const auto& entry : fs::recursive_directory_iterator(root)) {
                store += entry.is_regular_file() ? entry.file_size() : 0;
            }
        }
    }
};

void expectLevel(const Taken& before, const Taken& after) {
    constexpr std::ptrdiff_t kOpenForWriting = 4;  // as many databases have one more, by what the last load wrote
    EXPECT_LE(after.files, before.files + kOpenForWriting);
    EXPECT_EQ(after.threads, before.threads);
    EXPECT_LE(after.store, before.store + before.store / 10);
    if (!kSanitized) {
        constexpr std::uint64_t kNoise = 3U << 20U;
        EXPECT_LE(after.memory, before.memory + before.memory / 20 + kNoise);
    }
}

/// A day of other codes, names and sizes each time; the codes are drawn from a number that does not grow.
template <class Center>
void loadAnotherDay(Center& center, std::mt19937_64& random) {
    const std::vector<std::string> markets{"SH", "SZ", "HGT", "HK", "DCE"};
    Instruments records;
    for (const std::string& market : markets) {
        for (std::uint64_t i = 200 + random() % 200; i > 0; --i) {
            const InstrumentPtr record = instrument(market, std::to_string(random() % 600));
            record->name = std::string(random() % 300, 'n');
            record->productId = "p" + std::to_string(random() % 20);
            record->mainContractFlag = static_cast<std::int32_t>(random() % 2);
            records.push_back(record);
        }
    }
    center.initInstruments(markets, records);
    std::vector<boost::shared_ptr<CETFDetail>> funds;
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
    for (std::uint64_t i = random() % 40; i > 0; --i) {
        const std::string code = std::to_string(random() % 60);
        funds.push_back(etf("SH", "51" + code, "52" + code));
        addComponent(*funds.back(), "SH", code, "");
        bonds[code] = bond("24" + code, "01" + code);
        plans.push_back(plan("P" + code, 1, std::string(random() % 100, 'p')));
    }
    center.initEtfs(funds);
    center.initBonds(bonds);
    center.initOtcInstruments(plans);
}

/// Questions of every kind, so that caches fill and databases are opened.
void ask(IInstrumentCenter& center) {
    for (int i = 0; i < 600; i += 7) {
        center.getInstrument("SZ" + std::to_string(i));
        center.getBond("BANK24" + std::to_string(i % 60));
        center.getOtcInstrument("SOTCP" + std::to_string(i % 60));
    }
    center.getInstruments();
    center.getEtfs();
    center.getFutureMainInstruments("DCE");
    center.getProductMainInstruments();
    center.getProductInstruments("p1");
}

template <class Kind>
class Endurance : public testing::Test {
protected:
    Endurance() { TemporaryStore::service().setRootPath(root()); }
    ~Endurance() override { TemporaryStore::service().setRootPath(""); }
    fs::path root() const { return directory_.path() / "store"; }

private:
    const TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
};

TYPED_TEST_SUITE(Endurance, BothCenterKinds);

TYPED_TEST(Endurance, ReloadsOfOtherContentTakeNoMoreAndMore) {
    const std::uint64_t reloads = fromEnvironment<std::uint64_t>("PM_RELOADS", kTimes);
    const std::uint64_t seed = seedOfRun();
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    typename TypeParam::Center center;
    const auto run = [&](std::uint64_t times) {
        for (; times > 0; --times) {
            loadAnotherDay(center, random);
            ask(center);
        }
        return Taken(this->root());
    };
    const Taken early = run(reloads / 2);
    expectLevel(early, run(reloads - reloads / 2));
}

TYPED_TEST(Endurance, CentersComeAndGoWithoutATraceInTheSystemOrTheLog) {
    const std::uint64_t centers = fromEnvironment<std::uint64_t>("PM_CENTERS", kTimes);
    std::mt19937_64 random(1);
    const auto run = [&](std::uint64_t times) {
        for (; times > 0; --times) {
            const LogCapture capture;
            std::size_t lines = 0;
            {
                typename TypeParam::Center one;
                typename TypeParam::Center other;
                loadAnotherDay(one, random);
                ask(one);
                ask(other);
                lines = capture.lines().size();
                EXPECT_GT(lines, 0U);
            }
            EXPECT_EQ(capture.lines().size(), lines) << "a destructor has logged";
        }
        return Taken(this->root());
    };
    const Taken early = run(centers / 2);
    expectLevel(early, run(centers - centers / 2));
}

/// Writes each line to standard error.
class Printed : public log4cxx::AppenderSkeleton {
protected:
    void append(const log4cxx::spi::LoggingEventPtr& event, log4cxx::helpers::Pool& /*pool*/) override {
        std::cerr << "line: " << event->getMessage() << '\n';
    }
    void close() override {}
    bool requiresLayout() const override { return false; }
};

TEST(EnduranceDeathTest, NothingIsLoggedWhenTheProcessExits) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const TemporaryDirectory directory;
    EXPECT_EXIT(
        {
            persist::CPersistService::instance()->setRootPath(directory.path() / "store");
            g_MXStdLogger->setAdditivity(false);
            g_MXStdLogger->setLevel(log4cxx::Level::getAll());
            g_MXStdLogger->addAppender(std::make_shared<Printed>());
            utils::CLogCenter::setLogEnabled(true);
            OpenServerCenter().initInstruments({}, {});  // what the first line makes is destroyed after the centers
            static OpenClientCenter client;
            static OpenServerCenter server;
            client.initInstruments({"SZ"}, {instrument("SZ", "1")});
            server.initInstruments({"SZ"}, {instrument("SZ", "1")});
            std::cerr << "main ends\n";
            std::exit(0);
        },
        testing::ExitedWithCode(0), testing::AllOf(testing::HasSubstr("line: "), testing::EndsWith("main ends\n")));
}

}  // namespace
}  // namespace mxservice
