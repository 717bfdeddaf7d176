#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <optional>

#include "tests/ChildProgram.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/StoredDay.h"
#include "tests/TemporaryStore.h"

namespace mxservice {
namespace {

/// A process that works on a store until it is killed.
class Worker {
public:
    /// Loads, numbered upwards from `first`; clears the store over and over without it.
    Worker(const std::filesystem::path& root, std::optional<int> first)
        : program_({PM_STORE_WRITER, sys::textOf(root), first ? "load" : "clear", std::to_string(first.value_or(0))}) {}

    /// Waits until it has begun so many steps.
    void await(int steps) {
        while (steps_ < steps && program_.read()) {
            ++steps_;
        }
        EXPECT_EQ(steps_, steps) << "it ended by itself";
    }
    /// How many steps it has begun; the last one may be done or not.
    int kill() {
        EXPECT_TRUE(program_.kill()) << "it ended by itself";
        while (program_.read()) {
            ++steps_;
        }
        return steps_;
    }

private:
    ChildProgram program_;
    int steps_ = 0;
};

class Kill : public testing::Test {
protected:
    /// Lets the workers work on for a while; how long is of no importance, only that it differs.
    void letWork(unsigned atMostMicroseconds) {
        std::promise<void>().get_future().wait_for(std::chrono::microseconds(random_() % atMostMicroseconds));
    }
    /// The first load of the next center.
    int nextLoad() { return ++centers_ * kLoadsOfACenter; }

    /// A new center's load of a whole day, after which each database holds that load; nothing is logged as an error.
    int loadAndCheck() {
        const int number = nextLoad();
        const LogCapture capture;
        TemporaryStore::service().setRootPath(sys::textOf(store_.path()));
        CClientInstrumentCenter center("test", 10, 10, 10);
        IInstrumentCenter& asked = center;
        load(center, number);
        EXPECT_EQ(asked.getInstruments("DCE").size(), static_cast<std::size_t>(kStoredCodes));
        EXPECT_EQ(asked.getInstrument("SZ7")->name, std::to_string(number));
        EXPECT_TRUE(asked.getEtf("SH510051") && asked.getBond("BANK240001") && asked.getOtcInstrument("SOTCP1"));
        TemporaryStore::service().setRootPath("");
        for (const std::string& db : storedDatabases()) {
            const auto loads = storedLoads(store_.path(), db);
            EXPECT_EQ(notOneOf({number}, db, loads.value_or(StoredLoads{})), "");
        }
        for (const LogCapture::Line& line : capture.lines()) {
            EXPECT_LT(line.level, utils::kLogError) << line.text;
        }
        return number;
    }

    TemporaryStore store_;
    const int kills_ = fromEnvironment("PM_KILLS", 25);
    const unsigned seed_ = seedOfRun();
    std::mt19937_64 random_{seed_};

private:
    int centers_ = 0;
};

TEST_F(Kill, AtAnyMomentOfALoadLeavesTheOldOrTheNewBatchInEachDatabase) {
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed_));
    std::optional<int> before;  // the load that every database holds when the writer starts
    int amid = 0;
    for (int round = 0; round < kills_ && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const int first = nextLoad();
        Worker writer(store_.path(), first);
        writer.await(1 + static_cast<int>(random_() % 3));
        letWork(100000);
        const int begun = first + writer.kill() - 1;
        int done = 0;
        int undone = 0;
        for (const std::string& db : storedDatabases()) {
            std::set<int> allowed{lastLoadOf(db, begun)};
            if (begun > first) {
                allowed.insert(lastLoadOf(db, begun - 1));
            } else if (before) {
                allowed.insert(*before);
            }
            const auto loads = storedLoads(store_.path(), db);
            if (lastLoadOf(db, begun) == begun) {
                ++(loads && loads->newest() == begun ? done : undone);
            }
            if (before || begun > first || (loads && !loads->documents.empty())) {
                EXPECT_EQ(notOneOf(allowed, db, loads.value_or(StoredLoads{})), "");
            }
        }
        amid += done > 0 && undone > 0 ? 1 : 0;
        before = loadAndCheck();
    }
    EXPECT_TRUE(amid > 0 || kills_ < 20) << "no process was killed between its first write and its last";
}

TEST_F(Kill, WhileAnotherProcessClearsTheStoreLeavesWholeBatches) {
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed_));
    for (int round = 0; round < kills_ && !HasFailure(); ++round) {
        SCOPED_TRACE(round);
        const int before = loadAndCheck();
        const int first = nextLoad();
        Worker writer(store_.path(), first);
        writer.await(1);
        Worker clearer(store_.path(), std::nullopt);
        clearer.await(1);
        writer.await(1 + static_cast<int>(random_() % 5));  // so that a market's write may fail twice in a row
        letWork(20000);
        clearer.kill();
        letWork(10000);
        const int begun = first + writer.kill() - 1;
        std::set<int> allowed{before};
        for (int number = first; number <= begun; ++number) {
            allowed.insert(number);
        }
        for (const std::string& db : storedDatabases()) {
            // A market whose write failed because it was cleared meanwhile is derived from as of its failure before
            // that, or not at all. So the derived databases may hold two loads, but one of each market.
            const bool derived = db == "OvIns_FUMAIN" || db == "OvIns_FUPROD";
            for (const std::string& market : derived ? futureMarkets() : std::set<std::string>{""}) {
                const auto loads = storedLoads(store_.path(), db, market);
                if (loads && (!loads->documents.empty() || !loads->problem.empty())) {
                    EXPECT_EQ(notOneOf(allowed, db, *loads), "") << market;
                }
            }
        }
    }
    loadAndCheck();
}

}  // namespace
}  // namespace mxservice
