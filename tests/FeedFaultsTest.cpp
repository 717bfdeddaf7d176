#include <fmt/format.h>

#include <atomic>
#include <thread>

#include "tests/FeedFixture.h"

// What a host makes of a log that is damaged, gone, behind or of another kind; how it restarts; whom it tells.

namespace mxservice::feed {
namespace {

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
    // First while the host follows, then while it loads the day anew.
    const std::string digest = std::exchange(last().headers["Ins-Digest"], std::string(32, '0'));
    expectDay(State::Failed, "another digest");
    expectDay(State::Failed, "another digest");
    last().headers["Ins-Digest"] = digest;
    last().payload.back() ^= 1;
    expectDay(State::Failed, "");
    last().payload.back() ^= 1;
    host_.subscriber.step();
    EXPECT_EQ(host_.asked().getInstrument("SH1")->name, "z");
    // One that changes nothing: the digests would not tell that it is missing.
    ASSERT_TRUE(publisher_.apply({{}, {"SHnothing"}}));
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
    // And once more, up to the very sequence that the former publisher has.
    stream_->wipe();
    PublisherCore other(connection(), options_);
    ASSERT_TRUE(other.publish("20260302", dayOf({named("SH", "1", "a")})));
    ASSERT_TRUE(other.apply({{named("SH", "3", "c")}, {}}));
    ASSERT_EQ(other.revision().sequence, publisher_.revision().sequence);
    ASSERT_TRUE(publisher_.catchUp());
    ASSERT_TRUE(publisher_.apply({{named("SH", "4", "d")}, {}}));
    host_.subscriber.step();
    EXPECT_EQ(host_.subscriber.state(), State::Current) << host_.subscriber.health().lastFailure;
    EXPECT_EQ(contentOf(host_.asked()), (Content{{"SH1", "a"}, {"SH3", "c"}, {"SH4", "d"}}));
}

/// Others commit on top of what was stored, before its lost acknowledgement makes the publisher try again.
struct OvertakenLog : MemoryLog {
    using MemoryLog::MemoryLog;
    std::function<void()> others;
    Put commit(const Headers& headers, const std::string& payload, const std::string& id,
               std::uint64_t expected) override {
        const Put put = MemoryLog::commit(headers, payload, id, expected);
        const auto now = std::exchange(others, nullptr);
        return now ? now(), Put() : put;
    }
};

TEST_F(FeedFaults, WhatOthersWentOnFromWasPublished) {
    const auto log = std::make_shared<OvertakenLog>(stream_);
    PublisherCore publisher(log, Options());
    for (const std::uint64_t lag : {0U, 9U}) {
        SCOPED_TRACE(lag);
        log->lag = [lag] { return lag; };
        ASSERT_TRUE(publisher.catchUp());
        const std::uint64_t before = publisher.revision().number;
        log->others = [this] {
            ASSERT_TRUE(publisher_.catchUp());
            ASSERT_TRUE(publisher_.apply({{named("SH", "2", "b")}, {}}));
            ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
        };
        const Outcome done = publisher.apply({{named("SH", "4", "ours")}, {}});
        EXPECT_TRUE(done) << done.reason;
        EXPECT_EQ(done.revision.number, before + 1);
        EXPECT_EQ(publisher.apply({{named("SH", "5", "d")}, {}}).result, Published::Lost);
        EXPECT_EQ(publisher_.revision().number, before + 3);
    }
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
    // One that lags only when it is asked for what lies between.
    int asked = 0;
    host_.log->fault = [&] { return ++asked, MemoryLog::Fault::None; };
    host_.log->lag = [&]() -> std::uint64_t { return asked > 1 ? 9 : 0; };
    for (const char* const code : {"5", "6", "7"}) {
        ASSERT_TRUE(publisher_.apply({{named("SH", code, "x")}, {}}));
    }
    host_.subscriber.step();
    EXPECT_EQ(host_.subscriber.state(), State::Current) << host_.subscriber.health().lastFailure;
    EXPECT_EQ(host_.subscriber.revision(), publisher_.revision());
}

/// A host whose state is written down at each question to the log, and as it is told.
TEST_F(FeedFaults, WhatIsKnownToBeMissingIsSaid) {
    Options options = options_;
    options.pollEvery = std::chrono::hours(1);
    options.requestTimeout = std::chrono::milliseconds(0);  // so long may a change be known of and not be there
    ServerHost host(connection(), options);
    host.subscriber.step();
    std::vector<std::string> said;
    const Registration states =
        host.subscriber.onState([&](State state, const std::string&) { said.emplace_back(stateName(state)); });
    host.log->fault = [&] {
        const Health health = host.subscriber.health();
        EXPECT_EQ(host.subscriber.waitCurrent(std::chrono::milliseconds(0)), health.state == State::Current);
        said.push_back(fmt::format("{} {}", stateName(health.state), health.lag));
        return MemoryLog::Fault::None;
    };
    for (const char* const code : {"3", "4", "5"}) {
        ASSERT_TRUE(publisher_.apply({{named("SH", code, "x")}, {}}));
    }
    host.subscriber.step();
    EXPECT_EQ(said, (std::vector<std::string>{"Current 0", "Stale 3", "Stale 2"}));
    EXPECT_EQ(host.subscriber.state(), State::Current);
    said.clear();
    ASSERT_TRUE(publisher_.publish("20260303", dayOf({named("SH", "1", "z")})));
    host.subscriber.step();
    EXPECT_EQ(said, (std::vector<std::string>{"Current 0", "Stale", "Stale 1", "Current"}));

    // Nothing is said at all: the last look is longer ago than looks may be.
    options.pollEvery = options.requestTimeout;
    ServerHost silent(connection(), options);
    silent.subscriber.step();
    EXPECT_EQ(silent.subscriber.state(), State::Stale);
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

TEST_F(FeedFaults, AHandlerThatDestroysItsSubscriberIsTheLastOne) {
    OpenServerCenter center;
    auto log = connection();
    const std::weak_ptr<MemoryLog> alive = log;
    std::atomic<bool> answers{true};
    log->fault = [&] { return answers ? MemoryLog::Fault::None : MemoryLog::Fault::Unanswered; };
    auto subscriber = std::make_unique<SubscriberCore>(hostOf(center), std::move(log), options_);
    ASSERT_TRUE(subscriber->waitCurrent(std::chrono::seconds(20)));
    answers = false;  // so that the next look finds several changes, and none comes while handlers are added
    ASSERT_TRUE(publisher_.apply({{named("SH", "3", "c")}, {}}));
    const Registration first =
        subscriber->onChange([&](const Revision&) { SubscriberCore::end(std::move(subscriber)); });
    const Registration second = subscriber->onChange([](const Revision&) { ADD_FAILURE() << "called behind it"; });
    answers = true;
    ASSERT_TRUE(publisher_.apply({{named("SH", "4", "d")}, {}}));
    while (!alive.expired()) {
        std::this_thread::yield();
    }
    EXPECT_EQ(contentOf(center).count("SH4"), 0U) << "the center may be gone, too";
}

}  // namespace
}  // namespace mxservice::feed
