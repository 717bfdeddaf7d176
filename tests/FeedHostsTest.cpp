#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "feed/Host.h"
#include "tests/FeedFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/SecondaryRecords.h"

// What the centers of hosts come to have, whatever they had and whenever they came.

namespace mxservice::feed {
namespace {

using FeedHostsTest = FeedTest;

/// Days in many loads, Hong Kong and Shanghai in parts among them, with changes that meet what other loads file.
class RandomDays {
public:
    explicit RandomDays(unsigned seed) : random_(seed) {}

    Day day() {
        Day loads;
        const bool parts = chance(2);
        if (parts) {
            std::vector<std::string> order{"HGT", "SGT", "HK"};
            std::shuffle(order.begin(), order.end(), random_);
            order.resize(1 + random_() % 3);
            order.push_back("SGT");  // a first time or corrected
            for (const std::string& part : order) {
                loads.initInstruments({part}, records(part));
            }
        }
        std::vector<std::string> markets{"SZ"};
        for (const char* const market : {"SH", "SHFI", "HGT", "HK"}) {
            if (market[0] == 'S' ? !chance(3) : !parts && !chance(3)) {
                markets.emplace_back(market);
            }
        }
        Instruments together;
        for (const std::string& market : markets) {
            const Instruments some = records(market);
            together.insert(together.end(), some.begin(), some.end());
        }
        loads.initInstruments(markets, together);
        for (const char* const market : {"SZ", "SHFI", "SH"}) {
            if (chance(4)) {
                loads.initInstruments({market}, records(market));
            }
        }
        for (auto times = random_() % 3; times > 0; --times) {
            loads.initEtfs(funds());
        }
        if (chance(2)) {
            loads.initBonds({{"k", bond(code())}});
            known_.insert("BANK0");
        }
        return loads;
    }

    Change change() {
        Change change;
        for (auto left = random_() % 6; left > 0; --left) {
            change.upserts.push_back(record(oneOf({"HGT", "SGT", "HK", "SH", "SHFI", "SZ", "BANK"}), code()));
        }
        for (auto left = random_() % 3; left > 0; --left) {
            change.removedKeys.push_back(oneOf({"HGT", "HK", "SH", "SZ", "BANK", "ETFINSTS6"}) + code());
        }
        return change;
    }

    bool chance(unsigned in) { return random_() % in == 0; }

    /// What a center answers about every key that there ever was: lists alone would not tell of one that has been left
    /// behind.
    std::map<std::string, std::string> answersOf(IInstrumentCenter& center) const {
        std::map<std::string, std::string> answers;
        for (const std::string& key : known_) {
            if (const InstrumentPtr record = center.getInstrument(key)) {
                std::ostringstream text;
                text << *record;
                answers[key] = text.str();
            }
        }
        for (const auto& [key, record] : center.getInstruments()) {
            answers["listed " + key] = record->name;
        }
        // One by one: the persisted center lists funds of former days, too.
        for (int code = 0; code < 6; ++code) {
            const std::string key = "SH5" + std::to_string(code);
            if (center.hasEtf(key) && center.getEtf(key)) {
                answers["fund " + key] = "there";
            }
        }
        return answers;
    }

private:
    std::string oneOf(const std::vector<std::string>& texts) { return texts[random_() % texts.size()]; }
    std::string code() { return std::to_string(random_() % 6); }

    InstrumentPtr record(const std::string& market, const std::string& code) {
        auto made = named(market, code, market + std::to_string(++number_));
        made->connectFlagValue = static_cast<std::int32_t>(random_() % 4);
        known_.insert(market + code);
        return made;
    }
    Instruments records(const std::string& market) {
        Instruments some;
        for (int code = 0; code < 6; ++code) {
            if (!chance(3)) {
                some.push_back(record(market, std::to_string(code)));
            }
        }
        return some;
    }
    std::vector<boost::shared_ptr<CETFDetail>> funds() {
        std::vector<boost::shared_ptr<CETFDetail>> some;
        for (int code = 0; code < 6; ++code) {
            if (chance(2)) {
                some.push_back(etf("SH", "5" + std::to_string(code), "6" + std::to_string(code)));
            }
            known_.insert("ETFINSTS6" + std::to_string(code));
        }
        return some;
    }

    std::mt19937 random_;
    int number_ = 0;
    std::set<std::string> known_;
};

Day copyOf(const Day& day) {
    Day copy;
    for (Day::Call call : day.calls()) {
        for (auto& record : call.records) {
            record = record->copy();
        }
        copy.add(std::move(call));
    }
    return copy;
}

using Answers = std::map<std::string, std::string>;

void expectAmong(const Answers& some, const Answers& all, const char* which) {
    for (const auto& [key, answer] : some) {
        const auto found = all.find(key);
        EXPECT_TRUE(found != all.end() && found->second == answer)
            << key << ": " << answer << ", " << which << (found == all.end() ? "nothing" : found->second);
    }
}

/// What a center has that takes the loads and changes one by one. Not what a load has brought and a later one of the
/// day left out: that would lend its flags to a change.
template <class Center>
Answers answersLoadByLoad(const Day& day, const std::vector<Change>& changes, const RandomDays& random) {
    Answers loaded;
    {
        const TemporaryStore store;
        Center center;
        hostOf(center)->load(copyOf(day), {});
        loaded = random.answersOf(center);
    }
    const TemporaryStore store;
    Center center;
    day.loadInto(center);
    std::vector<std::string> left;
    for (const auto& [key, answer] : random.answersOf(center)) {
        if (loaded.count(key) == 0) {
            left.push_back(key);
        }
    }
    center.applyChanges({}, left);
    for (const Change& change : changes) {
        center.applyChanges(change.upserts, change.removedKeys);
    }
    return random.answersOf(center);
}

/// A host that has seen days and changes, all of them or some, has what a fresh one has, and what a center has that
/// takes the loads and changes of the last day one by one.
template <class Center>
void expectSameAsFresh(unsigned seed) {
    const auto stream = std::make_shared<MemoryStream>();
    const auto log = [&] { return std::make_shared<MemoryLog>(stream); };
    PublisherCore publisher(log(), {});
    RandomDays random(seed);
    Day day;
    std::vector<Change> changes;
    Answers has;
    {
        const TemporaryStore store;
        StepHost<Center> host(log());
        for (int number = 0; number < 5; ++number) {
            day = random.day();
            changes.clear();
            ASSERT_TRUE(publisher.publish("2026030" + std::to_string(number), day));
            for (int left = 4; left > 0; --left) {
                if (random.chance(2)) {
                    host.subscriber.step();
                }
                changes.push_back(random.change());
                if (!publisher.apply(changes.back())) {
                    changes.pop_back();  // of a market that the day lacks
                }
            }
        }
        host.subscriber.step();
        has = random.answersOf(host.asked());
    }
    {
        const TemporaryStore store;
        StepHost<Center> fresh(log());
        fresh.subscriber.step();
        const auto answers = random.answersOf(fresh.asked());
        expectAmong(has, answers, "at a fresh host ");
        expectAmong(answers, has, "at one with a past ");
    }
    expectAmong(has, answersLoadByLoad<Center>(day, changes, random), "load by load ");
}

TEST(FeedHosts, WhatAHostHasDoesNotDependOnWhatItHadBefore) {
    const unsigned seed = seedOfRun();
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    for (unsigned i = 0; i < 5 && !testing::Test::HasFailure(); ++i) {
        SCOPED_TRACE(seed + i);
        {
            SCOPED_TRACE("in memory");
            expectSameAsFresh<OpenServerCenter>(seed + i);
        }
        SCOPED_TRACE("persisted");
        expectSameAsFresh<OpenClientCenter>(seed + i);
    }
}

/// The persisted center empties what a load names, the in-memory one only takes what the load brings.
TEST_F(FeedHostsTest, ALaterLoadThatNamesAMarketWithoutRecordsOfIt) {
    ServerHost server(connection());
    ClientHost client(connection());
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a"), named("SZ", "1", "b")})));
    server.subscriber.step();
    client.subscriber.step();
    Day day = dayOf({named("SH", "1", "a"), named("SZ", "1", "b")});
    day.initInstruments({"SH", "SZ"}, {named("SH", "2", "c")});
    ASSERT_TRUE(publisher_.publish("20260303", day));
    server.subscriber.step();
    client.subscriber.step();
    const Content inMemory = contentOf(server.asked());
    const Content persisted = contentOf(client.asked());
    OpenClientCenter plain;  // over the same store, so the other is not asked any more
    day.loadInto(plain);
    EXPECT_EQ(persisted, contentOf(plain));
    EXPECT_EQ(inMemory, (Content{{"SH2", "c"}, {"SZ1", "b"}}));
}

TEST_F(FeedHostsTest, AReadingHasOfASharedKeyTheRecordThatHostsHave) {
    const Day day = dayOf({named("HGT", "700", "connect"), named("HK", "700", "plain"), named("SH", "1", "x")});
    const auto content = [&](const std::vector<Change>& changes) {
        OpenServerCenter center;
        static_cast<IInstrumentCenter&>(center).initInstruments({"HGT", "HK", "SH"}, instrumentsOf(day, changes));
        return contentOf(center);
    };
    instrumentsOf(day, {{{named("HK", "700", "corrected")}, {}}});
    EXPECT_EQ(static_cast<const CInstrumentDetail&>(*day.calls()[0].records[0]).combinedConnectFlags, 0U)
        << "the day's own records stay as they came";
    EXPECT_EQ(content({}), (Content{{"HGT700", "connect"}, {"SH1", "x"}}));
    EXPECT_EQ(content({{{named("HK", "700", "corrected"), named("SH", "2", "y")}, {}}}),
              (Content{{"HK700", "corrected"}, {"SH1", "x"}, {"SH2", "y"}}));
}

}  // namespace
}  // namespace mxservice::feed
