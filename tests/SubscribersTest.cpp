#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <stdexcept>
#include <thread>
#include <utility>

#include "tests/ChangesFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/WatchedThread.h"
#include "tests/model/Answers.h"
#include "tests/model/RecordMaker.h"

// Who hears of loads and changes, in both centers.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

template <class Kind>
class Subscribing : public CenterTest<Kind> {};
TYPED_TEST_SUITE(Subscribing, BothCenterKinds);

/// A record in a few letters, so that a failure can be read.
std::string brief(const InstrumentPtr& record) {
    return record ? record->market + std::to_string(utils::hash(model::imageOf(record))) : "none";
}

/// The listing as a subscriber keeps it, from nothing but what it is told.
class Mirror {
public:
    void hear(const CatalogueChange& change) {
        EXPECT_GT(change.version, version_) << "in the order of versions";
        version_ = change.version;
        for (const CatalogueChange::Item& item : change.instruments) {
            ASSERT_TRUE(item.before || item.after);
            const std::string key = keyOf(item.after ? *item.after : *item.before);
            EXPECT_EQ(item.before ? brief(item.before) : "", images_[key]) << key;
            EXPECT_TRUE(kNamedPlatformOnly || brief(item.before) != brief(item.after)) << key;
            images_[key] = item.after ? brief(item.after) : "";
        }
        ++calls_;
    }
    std::map<std::string, std::string> images() const {
        std::map<std::string, std::string> present = images_;
        std::erase_if(present, [](const auto& entry) { return entry.second.empty(); });
        return present;
    }
    int calls() const { return calls_; }

    static std::string keyOf(const CInstrumentDetail& record) {
        return folded(utils::ovStockKey(record.market, record.code));
    }

private:
    std::uint64_t version_ = 0;
    int calls_ = 0;
    std::map<std::string, std::string> images_;
};

/// Whatever is loaded, replaced, removed and changed: who applies what is told has what the center lists.
TYPED_TEST(Subscribing, IsEnoughToKeepAMirror) {
    const unsigned seed = seedOfRun();
    SCOPED_TRACE(seed);
    model::Maker maker(seed);
    Mirror mirror;
    const std::list<std::string> lists(kChangedMarkets.begin(), kChangedMarkets.end());
    const Subscription subscription =
        this->center().subscribe([&](const CatalogueChange& change) { mirror.hear(change); });
    Instruments known;  // handed in again now and then, as copies
    const auto batchOf = [&](const std::vector<std::string>& markets) {
        Instruments records;
        for (std::size_t i = maker.below(30); i > 0; --i) {
            const bool again = !known.empty() && !maker.chance(3);
            const InstrumentPtr record =
                again ? model::clone(known[maker.below(known.size())]) : maker.instrument(maker.oneOf(markets)).real;
            record->combinedConnectFlags = 7;  // else a load would fill them in, in the record that is listed already
            known.push_back(record);
            records.push_back(model::clone(record));
        }
        return records;
    };
    for (int round = 0; round < 60 && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::vector<std::string> markets;
        for (std::size_t i = maker.below(4) + 1; i > 0; --i) {
            markets.push_back(maker.oneOf(kChangedMarkets));
        }
        const std::size_t operation = maker.below(5);
        SCOPED_TRACE(testing::PrintToString(markets) + std::to_string(operation));
        switch (operation) {
            case 0:
                this->center().initInstruments(markets, batchOf(markets));
                break;
            case 1:
                this->center().replaceInstruments(markets, batchOf(markets));
                break;
            case 2:
                this->center().removeMarkets(markets);
                break;
            case 3:
                this->center().clearDatas(markets);
                break;
            default:
                this->center().applyChanges(batchOf(markets), {markets.front() + maker.oneOf(model::kCodes)});
        }
        std::map<std::string, std::string> listed;
        // Market by market: the list of everything also has what a reload has left behind.
        for (const auto& [text, record] : this->asked().getInstruments(lists)) {
            listed[Mirror::keyOf(*record)] = brief(record);
        }
        EXPECT_EQ(mirror.images(), listed);
    }
    EXPECT_GT(mirror.calls(), 20);
    EXPECT_LE(mirror.calls(), 60) << "once a call";
}

/// A handler may do what any caller may, and what it does itself is told after it has returned.
TYPED_TEST(Subscribing, LetsAHandlerAskAndLoad) {
    std::vector<std::vector<std::string>> told;
    int depth = 0;
    Subscription subscription = this->center().subscribe([&](const CatalogueChange& change) {
        EXPECT_EQ(++depth, 1);
        told.push_back(change.markets);
        EXPECT_EQ(this->asked().getInstruments(change.markets.front()).size(), change.instruments.size());
        if (told.size() == 1) {
            this->load({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2")});
        } else {
            subscription = {};
        }
        --depth;
    });
    this->load({"SH"}, {instrument("SH", "1")});
    EXPECT_THAT(told, ElementsAre(ElementsAre("SH"), ElementsAre("SZ")));
    this->load({"BJ"}, {instrument("BJ", "1")});
    EXPECT_EQ(told.size(), 2U) << "unsubscribed";
}

TYPED_TEST(Subscribing, TellsTheOthersWhereOneThrows) {
    std::vector<std::string> told;
    const LogCapture capture;
    const Subscription bad =
        this->center().subscribe([](const CatalogueChange&) { throw std::runtime_error("subscriber's own"); });
    const Subscription none = this->center().subscribe({});
    Subscription good = this->center().subscribe([&](const CatalogueChange& change) {
        told.insert(told.end(), change.catalogues.begin(), change.catalogues.end());
    });
    const Subscription moved = std::move(good);
    this->asked().initBonds({{"1", boost::make_shared<CBondInfoDetail>()}});
    this->asked().initCounterpartys({});
    EXPECT_THAT(told, ElementsAre("bonds", "counterparties"));
    EXPECT_GE(capture.count("[inscenter] a subscriber failed: subscriber's own"), 2U);
}

/// Where an executor runs the handler, the load does not, and nothing runs after the end of the subscription.
TYPED_TEST(Subscribing, TellsWhereTheExecutorSays) {
    std::vector<std::function<void()>> tasks;
    int calls = 0;
    Subscription subscription = this->center().subscribe([&](const CatalogueChange&) { ++calls; },
                                                         [&](std::function<void()> task) { tasks.push_back(task); });
    this->load({"SH"}, {instrument("SH", "1")});
    this->load({"SZ"}, {instrument("SZ", "1")});
    EXPECT_EQ(calls, 0);
    ASSERT_EQ(tasks.size(), 2U);
    tasks[0]();
    EXPECT_EQ(calls, 1);
    subscription = Subscription();
    tasks[1]();
    EXPECT_EQ(calls, 1);
}

TYPED_TEST(Subscribing, EndsWhenTheCallOfAnotherThreadHasEnded) {
    std::promise<void> entered;
    std::promise<void> release;
    std::atomic<bool> left{false};
    Subscription subscription = this->center().subscribe([&](const CatalogueChange&) {
        entered.set_value();
        release.get_future().wait();
        left = true;
    });
    std::thread load([&] { this->load({"SH"}, {instrument("SH", "1")}); });
    entered.get_future().wait();
    bool leftBefore = false;
    {
        const WatchedThread unsubscribe([&] {
            subscription = Subscription();
            leftBefore = left;
        });
        if (WatchedThread::canBeWatched()) {
            EXPECT_TRUE(unsubscribe.waitsForALock());
        }
        release.set_value();
    }
    load.join();
    EXPECT_TRUE(leftBefore);
}

/// Loads and changes of several threads are told one at a time, each on what the one before has told; under a sanitizer
/// this finds races.
TYPED_TEST(Subscribing, TellsOfManyThreadsOneAfterTheOther) {
    std::atomic<int> inside{0};
    Mirror mirror;
    const Subscription subscription = this->center().subscribe([&](const CatalogueChange& change) {
        EXPECT_EQ(++inside, 1);
        mirror.hear(change);
        --inside;
    });
    const std::vector<std::string> markets{"SH", "SZ", "SHFE"};
    const auto code = [](int number) { return std::to_string(number % 7); };
    const auto make = [&](const std::string& market, int number) {
        InstrumentPtr record = instrument(market, code(number));
        record->name = std::to_string(number);
        record->mainContractFlag = number % 3;
        record->productId = "p" + std::to_string(number % 2);
        return record;
    };
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 15; ++i) {
                const std::string& market = markets[static_cast<std::size_t>(i + thread) % markets.size()];
                const Subscription passing = this->center().subscribe([](const CatalogueChange&) {});
                if (thread == 0 && i % 3 == 0) {
                    this->center().replaceInstruments(markets, {make(market, i), make(market, i + 1)});
                } else if (thread == 0) {
                    this->load(markets, {make(market, i)});
                } else {
                    this->center().applyChanges({make(market, 20 * thread + i)}, {market + code(i)});
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::map<std::string, std::string> listed;
    for (const auto& [text, record] :
         this->asked().getInstruments(std::list<std::string>(markets.begin(), markets.end()))) {
        listed[Mirror::keyOf(*record)] = brief(record);
    }
    EXPECT_EQ(mirror.images(), listed);
}

/// A load of another center from within a line of this one's is told when this one has ended, and what a subscriber
/// held goes with the subscription.
TYPED_TEST(Subscribing, TellsOfAnotherCenterAfterTheLoadAroundIt) {
    CServerInstrumentCenter other("other");
    int told = 0;
    const auto held = std::make_shared<int>();
    {
        const Subscription subscription = other.subscribe([&told, held](const CatalogueChange&) { ++told; });
        bool loaded = false;
        LogCapture capture;
        capture.onLine([&](const std::string&) {
            if (!std::exchange(loaded, true)) {
                other.initInstruments({"SZ"}, {instrument("SZ", "1")});
            }
        });
        this->center().applyChanges({instrument("SH", "1")}, {});
        this->load({"SH"}, {instrument("SH", "1")});
        EXPECT_TRUE(loaded);
        EXPECT_EQ(told, 1);
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST(ChangedFields, AreThoseThatDiffer) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "no named operation compares records";
    }
    const auto before = instrument("SH", "1");
    auto after = model::clone(before);
    EXPECT_THAT(changedFields(*before, *after), IsEmpty());
    after->lotSize = 100;
    after->name = "other";
    EXPECT_THAT(changedFields(*before, *after), UnorderedElementsAre("name", "lotSize"));
    const std::vector<std::string> all = changedFields(*before, CCounterpartyDetail());
    EXPECT_THAT(all, testing::IsSupersetOf({"market", "id"})) << "of different classes";
}

}  // namespace
}  // namespace mxservice
