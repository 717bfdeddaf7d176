#include <atomic>
#include <random>
#include <thread>

#include "base/instrumentcenter/InstrumentView.h"
#include "feed/Head.h"
#include "feed/Operations.h"
#include "tests/FeedFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/SecondaryRecords.h"

namespace mxservice::feed {
namespace {

using ServerHost = StepHost<OpenServerCenter>;
using ClientHost = StepHost<OpenClientCenter>;

TEST_F(FeedTest, HostsOfBothKindsFollowDaysAndChanges) {
    ServerHost server(connection());
    ClientHost client(connection());
    const auto expectBoth = [&](const Content& content, std::uint64_t version) {
        server.subscriber.step();
        client.subscriber.step();
        EXPECT_EQ(contentOf(server.asked()), content);
        EXPECT_EQ(contentOf(client.asked()), content);
        EXPECT_EQ(server.subscriber.revision(), publisher_.revision());
        EXPECT_EQ(client.subscriber.revision(), publisher_.revision());
        EXPECT_EQ(server.center.version(), version) << "one version a day and a change";
    };
    server.subscriber.step();
    EXPECT_EQ(server.subscriber.state(), State::Connecting);
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a"), named("SZ", "1", "b")})));
    expectBoth({{"SH1", "a"}, {"SZ1", "b"}}, 1);
    ASSERT_TRUE(publisher_.apply({{named("SH", "2", "c"), nullptr}, {"SZ1", "SZ7"}}));
    expectBoth({{"SH1", "a"}, {"SH2", "c"}}, 2);
    // The next day lacks a market; it is the same step for readers.
    ASSERT_TRUE(publisher_.publish("20260303", dayOf({named("SH", "1", "d"), named("DCE", "m1", "e")})));
    expectBoth({{"SH1", "d"}, {"DCEm1", "e"}}, 3);
    ASSERT_TRUE(publisher_.publish("20260304", dayOf({named("SZ", "1", "f")})));
    expectBoth({{"SZ1", "f"}}, 4);
    EXPECT_EQ(server.subscriber.state(), State::Current);
    EXPECT_EQ(server.subscriber.health().reloads, 0U);
    EXPECT_FALSE(server.asked().hasCode("DCEm1"));

    // A host that starts late loads the day and what was changed since.
    ASSERT_TRUE(publisher_.apply({{named("SZ", "2", "g")}, {}}));
    ServerHost late(connection());
    late.subscriber.step();
    EXPECT_EQ(contentOf(late.asked()), (Content{{"SZ1", "f"}, {"SZ2", "g"}}));
    EXPECT_EQ(late.subscriber.revision(), publisher_.revision());
}

TEST_F(FeedTest, OtherCataloguesComeAndGoWithTheirDay) {
    ServerHost host(connection());
    Day first = dayOf({named("SH", "1", "a")});
    first.initEtfs({etf("SH", "510050", "510051")});
    first.initBonds({{"k", bond("240001")}});
    ASSERT_TRUE(publisher_.publish("20260302", first));
    host.subscriber.step();
    EXPECT_TRUE(host.asked().getEtf("SH510050") && host.asked().getBond("BANK240001"));
    Day second = dayOf({named("SH", "1", "a")});
    second.initEtfs({etf("SH", "510300", "510301")});
    ASSERT_TRUE(publisher_.publish("20260303", second));
    host.subscriber.step();
    ServerHost fresh(connection());
    fresh.subscriber.step();
    for (IInstrumentCenter* const asked : {&host.asked(), &fresh.asked()}) {
        EXPECT_FALSE(asked->getEtf("SH510050") || asked->getBond("BANK240001"));
        EXPECT_TRUE(asked->getEtf("SH510300"));
    }
}

/// Days in many loads, Hong Kong in parts among them, with changes: a host that has gone through all of them has what a
/// fresh one has, and so has one that was away in between.
template <class Host>
void expectSameAsFresh(unsigned seed, PublisherCore& publisher,
                       const std::function<std::shared_ptr<MemoryLog>()>& log) {
    std::mt19937 random(seed);
    int number = 0;
    const auto records = [&](const std::string& market) {
        Instruments some;
        for (int code = 0; code < 6; ++code) {
            if (random() % 3 != 0) {
                some.push_back(named(market, std::to_string(code), market + std::to_string(++number)));
                some.back()->connectFlagValue = static_cast<std::int32_t>(random() % 4);
            }
        }
        return some;
    };
    const auto expectEqual = [&](Host& host, Host& fresh, const char* which) {
        const auto has = host.asked().getInstruments();
        const auto wants = fresh.asked().getInstruments();
        EXPECT_EQ(keysOf(has), keysOf(wants)) << which;
        for (const auto& [key, record] : wants) {
            const auto found = has.find(key);
            EXPECT_TRUE(found != has.end() && *found->second == *record) << which << ' ' << key << ": " << *record;
        }
    };
    Host old(log());
    Host away(log());
    for (int day = 0; day < 6; ++day) {
        SCOPED_TRACE(day);
        Day loads;
        const bool parts = random() % 2 == 0;
        if (parts) {
            for (const char* const part : {"HGT", "SGT", "HK"}) {
                loads.initInstruments({part}, records(part));
            }
            loads.initInstruments({"SGT"}, records("SGT"));  // corrected
        }
        Instruments together = records("SH");
        for (const char* const market : {"SHFI", "SZ", "HGT", "HK"}) {
            if (!parts || market[0] == 'S') {
                const Instruments more = records(market);
                together.insert(together.end(), more.begin(), more.end());
            }
        }
        loads.initInstruments({"SH", "SHFI", "SZ", "HK", "HGT"}, together);
        if (random() % 2 == 0) {
            loads.initInstruments({"SZ"}, records("SZ"));
        }
        ASSERT_TRUE(publisher.publish("2026030" + std::to_string(day), loads));
        old.subscriber.step();
        for (int change = 0; change < 3; ++change) {
            ASSERT_TRUE(publisher.apply({records("SZ"), {"SZ" + std::to_string(random() % 6)}}));
            old.subscriber.step();
        }
        if (day % 2 == 1) {
            away.subscriber.step();
        }
    }
    Host fresh(log());
    fresh.subscriber.step();
    expectEqual(old, fresh, "the one that saw all");
    expectEqual(away, fresh, "the one that was away");
}

TEST_F(FeedTest, WhatAHostHasDoesNotDependOnWhatItHadBefore) {
    const unsigned seed = seedOfRun();
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    expectSameAsFresh<ServerHost>(seed, publisher_, [this] { return connection(); });
}

TEST_F(FeedTest, AChangeOfAConnectListingComesOutAlikeWhereverItIsTaken) {
    auto hgt = named("HGT", "700", "connect");
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({hgt, named("HK", "700", "plain"), named("SH", "1", "x")})));
    ServerHost old(connection());
    old.subscriber.step();
    // The plain listing takes the key in a change, and would not in a load.
    ASSERT_TRUE(publisher_.apply({{named("HK", "700", "corrected")}, {}}));
    ASSERT_TRUE(publisher_.apply({{named("SH", "1", "y")}, {}}));
    ServerHost fresh(connection());
    fresh.subscriber.step();
    old.subscriber.step();
    EXPECT_EQ(old.asked().getInstrument("HK700")->name, "corrected");
    EXPECT_EQ(fresh.asked().getInstrument("HK700")->name, "corrected");
    // And one that has to load anew in the midst of it.
    stream_->messages.rbegin()->second.headers["Ins-Epoch"] = "fedcba9876543210";
    for (auto& [sequence, stored] : stream_->messages) {
        stored.headers["Ins-Epoch"] = "fedcba9876543210";
    }
    old.subscriber.step();
    EXPECT_EQ(old.subscriber.health().reloads, 1U);
    EXPECT_EQ(old.asked().getInstrument("HK700")->name, "corrected");
}

TEST_F(FeedTest, WhatCannotBePublishedIsRefusedWithAReason) {
    EXPECT_EQ(publisher_.apply({{named("SH", "1", "a")}, {}}).result, Published::Refused);
    EXPECT_EQ(publisher_.publish("2026-03-02", dayOf({})).result, Published::Refused);
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a")})));
    const Revision before = publisher_.revision();
    EXPECT_EQ(publisher_.publish("20260301", dayOf({named("SH", "1", "b")})).result, Published::Refused);
    const Outcome unknown = publisher_.apply({{named("XX", "1", "a")}, {}});
    EXPECT_EQ(unknown.result, Published::Refused);
    EXPECT_NE(unknown.reason.find("XX1"), std::string::npos);
    EXPECT_EQ(publisher_.revision(), before);
    EXPECT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "c")}))) << "the same day again corrects it";
}

TEST_F(FeedTest, OfTwoPublishersOneIsToldThatItLost) {
    PublisherCore other(connection(), options_);
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a")})));
    ASSERT_TRUE(other.catchUp());
    ASSERT_TRUE(other.apply({{named("SH", "2", "b")}, {}}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(publisher_.apply({{named("SH", "3", "c")}, {}}).result, Published::Lost);
        EXPECT_EQ(publisher_.publish("20260303", dayOf({})).result, Published::Lost);
    }
    ASSERT_TRUE(publisher_.catchUp());
    EXPECT_EQ(publisher_.revision(), other.revision());
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    ServerHost host(connection());
    host.subscriber.step();
    EXPECT_EQ(contentOf(host.asked()), (Content{{"SH1", "a"}, {"SH2", "b"}, {"SH3", "c"}}));
    EXPECT_EQ(host.subscriber.revision(), publisher_.revision());
}

TEST_F(FeedTest, ALostAcknowledgementIsNoSecondRevision) {
    Options patient = options_;
    patient.publishFor = std::chrono::seconds(20);
    const auto log = connection();
    PublisherCore publisher(log, patient);
    int calls = 0;
    log->fault = [&] { return ++calls % 2 == 0 ? MemoryLog::Fault::None : MemoryLog::Fault::AnswerLost; };
    ASSERT_FALSE(publisher.catchUp());  // reading is not insisted on
    ASSERT_TRUE(publisher.publish("20260302", dayOf({named("SH", "1", "a")})));
    ++calls;
    ASSERT_TRUE(publisher.apply({{named("SH", "2", "b")}, {}}));
    EXPECT_EQ(publisher.revision().number, 2U);
    EXPECT_EQ(stream_->messages.size(), 3U) << "one part and two log messages";
}

TEST_F(FeedTest, OlderDaysLeaveTheStreamAndTheFormerOneStays) {
    std::mt19937 random(1);
    Instruments records;
    for (int i = 0; i < 3000; ++i) {
        records.push_back(named("SH", std::to_string(i), std::to_string(random()) + std::to_string(random())));
        records.back()->isin = std::to_string(random());
    }
    for (int day = 1; day < 6; ++day) {
        ASSERT_TRUE(publisher_.publish("2026030" + std::to_string(day), dayOf(records)));
        ASSERT_TRUE(publisher_.apply({{named("SH", "1", "changed")}, {}}));
    }
    std::size_t days = 0;
    for (const auto& [sequence, stored] : stream_->messages) {
        days += stored.subject == "log" && stored.headers.at("Ins-Kind") == "day" ? 1U : 0U;
    }
    EXPECT_EQ(days, 2U);
    EXPECT_GT(stream_->messages.begin()->first, 6U);
    ServerHost host(connection());
    host.subscriber.step();
    EXPECT_EQ(host.subscriber.revision(), publisher_.revision());
}

class FeedFaults : public FeedTest {
protected:
    FeedFaults() {
        EXPECT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a")})));
        EXPECT_TRUE(publisher_.apply({{named("SH", "2", "b")}, {}}));
        host_.subscriber.step();
    }
    void expectDay(State state, const std::string& failure) {
        host_.subscriber.step();
        EXPECT_EQ(host_.subscriber.state(), state);
        EXPECT_EQ(contentOf(host_.asked()), (Content{{"SH1", "a"}, {"SH2", "b"}})) << "the last good day stays";
        EXPECT_NE(host_.subscriber.health().lastFailure.find(failure), std::string::npos)
            << host_.subscriber.health().lastFailure;
    }
    MemoryStream::Stored& last() { return stream_->messages.rbegin()->second; }
    void expectHealed() {
        PublisherCore healer(connection(), options_);
        const Outcome done = healer.publish("20260304", dayOf({named("SH", "3", "c")}));
        ASSERT_TRUE(done) << done.reason;
        host_.subscriber.step();
        EXPECT_EQ(host_.subscriber.state(), State::Current);
        EXPECT_EQ(contentOf(host_.asked()), (Content{{"SH3", "c"}}));
        EXPECT_EQ(host_.subscriber.revision(), done.revision);
    }
    ServerHost host_{connection()};
};

TEST_F(FeedFaults, AServerThatDoesNotAnswer) {
    host_.log->fault = [] { return MemoryLog::Fault::Unanswered; };
    expectDay(State::Stale, "no answer");
    host_.log->fault = nullptr;
    const std::uint64_t version = host_.center.version();
    expectDay(State::Current, "");
    EXPECT_EQ(host_.center.version(), version) << "nothing is loaded again";
}

TEST_F(FeedFaults, ALogOfANewerFormat) {
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    last().headers["Ins-Format"] = "2";
    expectDay(State::Failed, "format 2");
    EXPECT_EQ(PublisherCore(connection(), options_).publish("20260304", dayOf({})).result, Published::Failed);
}

TEST_F(FeedFaults, DamagedMessagesAndParts) {
    ASSERT_TRUE(publisher_.publish("20260303", dayOf({named("SH", "1", "z")})));
    const auto next = stream_->messages;
    const std::uint64_t part = stream_->last - 1;
    const std::vector<std::function<void()>> faults{
        [&] { stream_->messages[part].payload[100] ^= 1; },
        [&] { stream_->messages[part].payload.pop_back(); },
        [&] { stream_->messages.erase(part); },
        [&] { last().headers["Ins-Digest"][0] ^= 1; },
        [&] { last().headers.erase("Ins-Parts"); },
        [&] { last().headers["Ins-Revision"] = "-1"; },
        [&] { last().headers["Ins-Bytes"] = "99999999999999999999"; },
        [&] { last().headers["Ins-Token"] = ">"; },
        [&] { last().headers["Ins-Kind"] = "change", last().headers["Ins-Parts"] = "0"; },
        [&] { last().headers.clear(); }};
    for (std::size_t i = 0; i < faults.size(); ++i) {
        SCOPED_TRACE(i);
        stream_->messages = next;
        faults[i]();
        expectDay(State::Failed, "");
        EXPECT_GT(host_.subscriber.health().corrupt, i);
    }
    expectHealed();
}

TEST_F(FeedFaults, ADamagedChangeAndAMissingRevision) {
    ASSERT_TRUE(publisher_.apply({{named("SH", "1", "z")}, {}}));
    last().payload.back() ^= 1;
    expectDay(State::Failed, "");
    last().payload.back() ^= 1;
    host_.subscriber.step();
    EXPECT_EQ(host_.asked().getInstrument("SH1")->name, "z");
    ASSERT_TRUE(publisher_.apply({{named("SH", "1", "a")}, {}}));
    const auto lost = std::prev(stream_->messages.end())->first;
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "a")}, {}}));
    stream_->messages.erase(lost);
    host_.subscriber.step();
    EXPECT_EQ(host_.subscriber.state(), State::Failed);
    EXPECT_EQ(host_.asked().getInstrument("SH1")->name, "z");
    expectHealed();
}

TEST_F(FeedFaults, AWipedStoreIsAnotherEpoch) {
    const std::string epoch = publisher_.revision().epoch;
    stream_->wipe();
    expectDay(State::Stale, "nobody has published");
    EXPECT_EQ(publisher_.apply({{named("SH", "3", "c")}, {}}).result, Published::Unreachable);
    ASSERT_TRUE(publisher_.catchUp());
    EXPECT_EQ(publisher_.apply({{named("SH", "3", "c")}, {}}).result, Published::Refused);
    ASSERT_TRUE(publisher_.publish("20260302", dayOf({named("SH", "1", "a")})));
    ASSERT_TRUE(publisher_.apply({{named("SH", "2", "b")}, {}}));
    EXPECT_NE(publisher_.revision().epoch, epoch);
    expectDay(State::Current, "");
    EXPECT_EQ(host_.subscriber.health().reloads, 1U) << "the numbers are those of the former log";
    EXPECT_EQ(host_.subscriber.revision(), publisher_.revision());
}

TEST_F(FeedFaults, ALogThatLostItsEndAndWentOn) {
    const std::uint64_t kept = stream_->last;
    ASSERT_TRUE(publisher_.apply({{named("SH", "9", "lost")}, {}}));
    host_.subscriber.step();
    stream_->forgetAfter(kept);
    expectDay(State::Current, "");
    EXPECT_EQ(host_.subscriber.health().reloads, 1U);
    // The same again, but somebody else has taken the place of what was lost.
    ASSERT_EQ(publisher_.apply({{named("SH", "9", "x")}, {}}).result, Published::Lost);
    ASSERT_TRUE(publisher_.catchUp());
    ASSERT_TRUE(publisher_.apply({{named("SH", "9", "lost again")}, {}}));
    host_.subscriber.step();
    stream_->forgetAfter(kept);
    stream_->sequenceById.clear();
    PublisherCore other(connection(), options_);
    ASSERT_TRUE(other.apply({{named("SH", "2", "b")}, {}}));
    expectDay(State::Current, "");
    EXPECT_EQ(host_.subscriber.revision(), other.revision());
}

TEST_F(FeedFaults, AReplicaThatLagsIsNoFault) {
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    host_.subscriber.step();
    const std::uint64_t version = host_.center.version();
    host_.log->lag = [] { return 1; };
    host_.subscriber.step();
    EXPECT_EQ(host_.center.version(), version);
    EXPECT_EQ(host_.subscriber.health().reloads, 0U);
    EXPECT_EQ(host_.subscriber.state(), State::Current);
}

TEST_F(FeedFaults, ACenterThatThrowsIsLoadedAgain) {
    struct Thrower : Host {
        void load(const Day& day, const std::vector<Change>& /*changes*/) override {
            loaded += static_cast<int>(day.calls().size());
            if (loaded == 1) {
                throw std::bad_alloc();
            }
        }
        void apply(const Change& /*change*/) override { throw std::runtime_error("no"); }
        explicit Thrower(int& count) : loaded(count) {}
        int& loaded;
    };
    int loaded = 0;
    SubscriberCore subscriber(std::make_unique<Thrower>(loaded), connection(), options_, false);
    subscriber.step();
    EXPECT_EQ(subscriber.state(), State::Failed);
    subscriber.step();
    EXPECT_EQ(subscriber.state(), State::Current);
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    subscriber.step();
    EXPECT_EQ(subscriber.state(), State::Failed);
    subscriber.step();
    EXPECT_EQ(subscriber.revision(), publisher_.revision());
    EXPECT_EQ(loaded, 3);
}

TEST_F(FeedFaults, TheCachedDayIsThereAtOnceAndConfirmedLater) {
    const TemporaryDirectory directory(TemporaryDirectory::inMemory());
    Options cached = options_;
    cached.cacheFile = (directory.path() / "day").string();
    { ServerHost(connection(), cached).subscriber.step(); }
    const auto cutOff = connection();
    cutOff->fault = [] { return MemoryLog::Fault::Unanswered; };
    ServerHost host(cutOff, cached);
    EXPECT_EQ(host.subscriber.state(), State::Stale);
    host.subscriber.step();
    EXPECT_EQ(contentOf(host.asked()), (Content{{"SH1", "a"}, {"SH2", "b"}}));
    EXPECT_EQ(host.subscriber.revision(), publisher_.revision());
    const std::uint64_t version = host.center.version();
    cutOff->fault = nullptr;
    host.subscriber.step();
    EXPECT_EQ(host.subscriber.state(), State::Current);
    EXPECT_EQ(host.center.version(), version) << "what is confirmed is not loaded again";
    // What comes then is kept as well.
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    host.subscriber.step();
    ServerHost again(cutOff, cached);
    EXPECT_EQ(again.subscriber.revision(), publisher_.revision());
}

TEST_F(FeedFaults, HandlersMayThrowAndGo) {
    std::vector<std::string> told;
    Registration second;
    const Registration first = host_.subscriber.onChange([&](const Revision& revision) {
        told.push_back("first " + std::to_string(revision.number));
        second = Registration();
        throw std::runtime_error("handler");
    });
    second = host_.subscriber.onChange([&](const Revision&) { told.emplace_back("second"); });
    Registration states;
    states = host_.subscriber.onState([&](State state, const std::string&) {
        told.emplace_back(stateName(state));
        states = Registration();
    });
    host_.log->fault = [] { return MemoryLog::Fault::Unanswered; };
    host_.subscriber.step();
    host_.log->fault = nullptr;
    for (const char* const code : {"8", "9"}) {
        ASSERT_TRUE(publisher_.apply({{named("SH", code, "x")}, {}}));
        host_.subscriber.step();
    }
    EXPECT_EQ(told, (std::vector<std::string>{"Stale", "first 3", "first 4"}));
}

/// What a stream says, message by message, without a replica.
Content saidBy(const MemoryStream& stream) {
    Content content;
    for (const auto& [sequence, stored] : stream.messages) {
        Head head;
        std::string packed = stored.payload;
        if (stored.subject != "log" || readHead(stored.headers, head, packed) != HeadKind::Good) {
            continue;
        }
        if (head.parts != 0) {
            packed.clear();
            for (const auto& [ignored, part] : stream.messages) {
                packed += part.subject.substr(0, part.subject.find('.')) == head.token ? part.payload : "";
            }
        }
        Book book;

        if (head.isDay) {
            content.clear();
            for (const auto& record : unpackDay(packed, kRoom, book).snapshot().instruments) {
                content[record->getKey()] = record->name;
            }
        } else {
            const Change change = unpackChange(packed, kRoom, book);
            for (const std::string& key : change.removedKeys) {
                content.erase(key);
            }
            for (const auto& record : change.upserts) {
                content[record->getKey()] = record->name;
            }
        }
    }
    return content;
}

/// Every call of two publishers and three hosts may fail, before or after it was done. Whenever a host says that it is
/// current, it has what the log says.
TEST_F(FeedTest, WhateverFailsHostsHaveWhatTheLogSays) {
    const unsigned seed = seedOfRun();
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    bool faults = true;
    const auto failing = [&] {
        auto log = connection();
        log->fault = [&] {
            return !faults || random() % 6 != 0 ? MemoryLog::Fault::None
                   : random() % 2 == 0          ? MemoryLog::Fault::Unanswered
                                                : MemoryLog::Fault::AnswerLost;
        };
        log->lag = [&]() -> std::uint64_t { return faults ? random() % 3 : 0; };
        log->bells = false;
        return log;
    };
    PublisherCore publishers[]{{failing(), options_}, {failing(), options_}};
    ServerHost hosts[]{ServerHost(failing()), ServerHost(failing()), ServerHost(failing())};
    int number = 0;
    int current = 0;
    int published = 0;
    const auto expectContent = [&](ServerHost& host) {
        ++current;
        EXPECT_EQ(contentOf(host.asked()), saidBy(*stream_));
        EXPECT_EQ(host.subscriber.revision().sequence, stream_->lastLog());
    };
    for (int step = 0; step < fromEnvironment("PM_FEED_STEPS", 3000) && !HasFailure(); ++step) {
        SCOPED_TRACE(step);
        PublisherCore& publisher = publishers[random() % 2];
        const std::string code = std::to_string(random() % 8);
        switch (random() % 8) {
            case 0: {
                Instruments records{named("SH", "anchor", "anchor"), named("SZ", "anchor", "anchor")};
                for (int i = 0; i < 8; ++i) {
                    const char* const market = random() % 2 == 0 ? "SH" : "SZ";
                    records.push_back(named(market, std::to_string(i), std::to_string(++number)));
                }
                published += publisher.publish("20260302", dayOf(records)) ? 1 : 0;
                break;
            }
            case 1:
            case 2:
            case 3:
                published += publisher.apply({{named("SH", code, std::to_string(++number))}, {"SZ" + code}}) ? 1 : 0;
                break;
            case 4:
                publisher.catchUp();
                break;
            case 5:
                if (random() % 40 == 0) {
                    stream_->wipe();
                }
                break;
            default: {
                ServerHost& host = hosts[random() % 3];
                host.subscriber.step();
                // A replica that lags may make it believe so; then it has what there was.
                if (host.subscriber.state() == State::Current &&
                    host.subscriber.revision().sequence == stream_->lastLog()) {
                    expectContent(host);
                }
                break;
            }
        }
    }
    EXPECT_GT(published, 100);
    EXPECT_GT(current, 100);
    faults = false;
    ASSERT_TRUE(publishers[0].catchUp());
    ASSERT_TRUE(publishers[0].publish("20260302", dayOf({named("SH", "last", "last")})));
    ASSERT_TRUE(publishers[0].apply({{named("SH", "very last", "x")}, {}}));
    for (ServerHost& host : hosts) {
        host.subscriber.step();
        EXPECT_EQ(host.subscriber.revision(), publishers[0].revision());
        expectContent(host);
    }
}

/// With threads and bells: readers find what every day has at any moment, and all of one day.
TEST_F(FeedTest, ReadersSeeNoKeyVanishAndNoHalfDay) {
    OpenServerCenter center;
    std::atomic<bool> done{false};
    std::atomic<int> vanished{0};
    std::atomic<int> mixed{0};
    const auto day = [](int number) {
        Instruments records;
        for (const char* const market : {"SH", "SZ", "DCE"}) {
            for (int code = 0; code < 50; ++code) {
                records.push_back(named(market, std::to_string(code), std::to_string(number)));
            }
        }
        return dayOf(records);
    };
    const SubscriberCore subscriber(hostOf(center), connection(), options_);
    ASSERT_TRUE(publisher_.publish("20260302", day(0)));
    ASSERT_TRUE(subscriber.waitCurrent(std::chrono::seconds(20)));
    std::thread reader([&] {
        while (!done) {
            const InstrumentView view = center.view();
            const auto* const one = view.find("SH0");
            const auto* const other = view.find("DCE49");
            vanished += one == nullptr || other == nullptr || !center.hasCode("SZ7") ? 1 : 0;
            mixed += one != nullptr && other != nullptr && one->name != other->name ? 1 : 0;
        }
    });
    for (int number = 1; number < 60; ++number) {
        if (number % 3 == 0) {
            EXPECT_TRUE(publisher_.publish("20260302", day(number)));
        } else if (number % 20 == 1) {
            stream_->wipe();
            EXPECT_TRUE(publisher_.catchUp());
            EXPECT_TRUE(publisher_.publish("20260302", day(number)));
        } else {
            EXPECT_TRUE(publisher_.apply({{named("SH", "x", "x")}, {"SZ30", "SZ31"}}));
        }
    }
    std::atomic<bool> reached{false};
    while (!reached) {
        reached = subscriber.revision() == publisher_.revision();
        std::this_thread::yield();
    }
    done = true;
    reader.join();
    EXPECT_EQ(vanished, 0);
    EXPECT_EQ(mixed, 0);
}

}  // namespace
}  // namespace mxservice::feed
