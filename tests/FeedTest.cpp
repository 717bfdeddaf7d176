#include <atomic>
#include <memory>
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
    // The second try meets the expectation of the first, and then nobody says whose message it is.
    patient.publishFor = std::chrono::milliseconds(150);
    const auto other = connection();
    PublisherCore unsure(other, patient);
    ASSERT_TRUE(unsure.catchUp());
    calls = 0;
    other->fault = [&] {
        ++calls;
        return calls == 2  ? MemoryLog::Fault::AnswerLost  // the commit, behind its part
               : calls > 3 ? MemoryLog::Fault::Unanswered
                           : MemoryLog::Fault::None;
    };
    EXPECT_EQ(unsure.publish("20260303", Day()).result, Published::Unreachable);
    other->fault = nullptr;
    ASSERT_TRUE(unsure.apply({{}, {"SHnothing"}})) << "it was ours, and is gone on from";
    EXPECT_EQ(unsure.revision().number, 4U);
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

/// A connection on which every sixth call fails, before or after it was done, as long as there are `faults`.
std::shared_ptr<MemoryLog> faulty(std::shared_ptr<MemoryLog> log, std::mt19937& random, const bool& faults) {
    log->fault = [&] {
        return !faults || random() % 6 != 0 ? MemoryLog::Fault::None
               : random() % 2 == 0          ? MemoryLog::Fault::Unanswered
                                            : MemoryLog::Fault::AnswerLost;
    };
    log->lag = [&]() -> std::uint64_t { return faults ? random() % 3 : 0; };
    log->bells = false;
    return log;
}

Instruments anyDay(std::mt19937& random, int& number) {
    Instruments records{named("SH", "anchor", "anchor"), named("SZ", "anchor", "anchor")};
    for (int i = 0; i < 8; ++i) {
        const char* const market = random() % 2 == 0 ? "SH" : "SZ";
        records.push_back(named(market, std::to_string(i), std::to_string(++number)));
    }
    return records;
}

/// Every call of two publishers and three hosts may fail, before or after it was done. Whenever a host says that it is
/// current, it has what the log says.
TEST_F(FeedTest, WhateverFailsHostsHaveWhatTheLogSays) {
    const unsigned seed = seedOfRun();
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    std::mt19937 random(seed);
    bool faults = true;
    const auto failing = [&] { return faulty(connection(), random, faults); };
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
            case 0:
                published += publisher.publish("20260302", dayOf(anyDay(random, number))) ? 1 : 0;
                break;
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
    ASSERT_TRUE(subscriber.waitCurrent(std::chrono::milliseconds::max()));
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
