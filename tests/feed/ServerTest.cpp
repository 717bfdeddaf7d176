#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "tests/feed/FeedServers.h"
#include "tests/feed/Proxy.h"

// What servers, publishers and hosts go through while days and changes are published.

namespace mxservice::feed {
namespace {

TEST_F(FeedServers, PublishersAreKilled) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    for (int i = 0; i < kills_; ++i) {
        SCOPED_TRACE(i);
        const std::uint64_t before = newest();
        // Two, so that they also lose to each other.
        const auto one = worker("publish", servers.urls());
        const auto other = worker("publish", servers.urls());
        EXPECT_TRUE(eventually([&] { return newest() > before; }));
        letWork(300);
    }
    expectAllAlike(options);
}

TEST_F(FeedServers, TheOnlyServerIsKilled) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    const auto publisher = worker("publish", servers.urls());
    for (int i = 0; i < kills_; ++i) {
        SCOPED_TRACE(i);
        const std::uint64_t before = newest();
        EXPECT_TRUE(eventually([&] { return newest() > before + 5; }));
        letWork(200);
        servers.kill(0);
        letWork(500);
        servers.start(0);
    }
    publisher->kill();
    expectAllAlike(options);
}

TEST_F(FeedServers, TheLeaderOfThreeIsKilled) {
    NatsServers servers(3);
    const Options options = optionsOf(servers.urls(), 3);
    openHosts(options);
    {
        // A cluster takes its time to agree on a first leader.
        Publisher first(options);
        EXPECT_TRUE(
            eventually([&] { return first.publish("20260302", randomDay(random_)).result == Published::Done; }));
    }
    const auto publisher = worker("publish", servers.urls());
    for (int i = 0; i < kills_; ++i) {
        SCOPED_TRACE(i);
        const std::uint64_t before = newest();
        EXPECT_TRUE(eventually([&] { return newest() > before + 5; }));
        int leader = -1;
        EXPECT_TRUE(eventually([&] { return (leader = servers.leader("ins-v1")) >= 0; }));
        letWork(100);
        servers.kill(std::max(leader, 0));
        const std::uint64_t without = newest();
        EXPECT_TRUE(eventually([&] { return newest() > without; })) << "two of three go on";
        servers.start(std::max(leader, 0));
    }
    publisher->kill();
    expectAllAlike(options);
}

TEST_F(FeedServers, AStoppedHostCatchesUp) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    const TemporaryDirectory directory(TemporaryDirectory::inMemory());
    const std::string output = (directory.path() / "host").string();
    const auto host = worker("subscribe", servers.urls(), output);
    const auto publisher = worker("publish", servers.urls());
    const auto lastLine = [&] {
        std::ifstream file(output);
        std::string last;
        for (std::string line; std::getline(file, line);) {
            last = line;
        }
        return last;
    };
    EXPECT_TRUE(eventually([&] { return !lastLine().empty(); }));
    host->signal(SIGSTOP);
    ::poll(nullptr, 0, static_cast<int>(away_.count()) * 1000);
    host->signal(SIGCONT);
    publisher->kill();
    expectAllAlike(options);
    const Revision revision = hosts_.front()->subscriber().revision();
    const std::string wanted = std::to_string(revision.number) + ' ' + revision.digest + " 0 0";
    EXPECT_TRUE(eventually([&] { return lastLine() == wanted; })) << lastLine() << " instead of " << wanted;
}

TEST_F(FeedServers, HostsThatAreCutOffSaySoAndCatchUp) {
    NatsServers servers(1);
    Proxy proxy(servers.port(0));
    openHosts(optionsOf({proxy.url()}));
    const auto publisher = worker("publish", servers.urls());
    EXPECT_TRUE(eventually([&] { return newest() > 5; }));
    proxy.swallowUp = proxy.swallowDown = true;
    EXPECT_TRUE(eventually([&] { return hosts_.front()->subscriber().state() == State::Stale; }));
    ::poll(nullptr, 0, static_cast<int>(away_.count()) * 1000);
    EXPECT_EQ(hosts_.front()->subscriber().state(), State::Stale);
    proxy.swallowUp = proxy.swallowDown = false;
    publisher->kill();
    expectAllAlike(optionsOf(servers.urls()));
    EXPECT_TRUE(eventually([&] { return hosts_.front()->subscriber().state() == State::Current; }));
}

TEST_F(FeedServers, AcknowledgementsAreLost) {
    NatsServers servers(1);
    Proxy proxy(servers.port(0));
    openHosts(optionsOf(servers.urls()));
    Options options = optionsOf({proxy.url()});
    options.requestTimeout = std::chrono::milliseconds(200);
    Publisher publisher(options);
    ASSERT_TRUE(publisher.publish("20260302", randomDay(random_)));
    for (int i = 0; i < kills_; ++i) {
        SCOPED_TRACE(i);
        const std::uint64_t before = publisher.revision().number;
        std::thread swallows([&] {
            // What was sent arrives; what comes back does not, until the connection is given up.
            proxy.swallowDown = true;
            EXPECT_TRUE(eventually([&] { return newest() > before; }));
            proxy.swallowDown = false;
        });
        const Outcome outcome = publisher.apply(randomChange(random_));
        swallows.join();
        EXPECT_TRUE(outcome) << outcome.reason;
        EXPECT_EQ(outcome.revision.number, before + 1);
    }
    expectAllAlike(optionsOf(servers.urls()));
}

TEST_F(FeedServers, AWipedStoreBeginsAnEpoch) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    Publisher publisher(options);
    ASSERT_TRUE(publisher.publish("20260302", randomDay(random_)));
    for (const auto& host : hosts_) {
        EXPECT_TRUE(eventually([&] { return host->subscriber().revision().number == 1; }));
    }
    servers.kill(0);
    servers.wipe(0);
    servers.start(0);
    const auto content = hosts_.front()->content();
    EXPECT_TRUE(eventually(
        [&] { return hosts_.front()->subscriber().health().lastFailure.find("nobody") != std::string::npos; }));
    EXPECT_EQ(hosts_.front()->subscriber().state(), State::Stale);
    EXPECT_EQ(hosts_.front()->content(), content);
    expectAllAlike(options);
    EXPECT_EQ(hosts_.front()->subscriber().health().reloads, 1U);
}

TEST_F(FeedServers, HostsEndWhileTheServerHangs) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    ASSERT_TRUE(Publisher(options).publish("20260302", randomDay(random_)));
    EXPECT_TRUE(eventually([&] { return newest() == 1; }));
    servers.process(0).signal(SIGSTOP);
    hosts_.clear();  // would wait for ever if it waited for the server
    client_.reset();
    ServerHost late(options, ledger_);
    EXPECT_TRUE(eventually([&] { return late.subscriber().health().failures > 0; }));
    EXPECT_EQ(late.subscriber().state(), State::Connecting);
}

/// Many changes against a model, a day now and then; neither host nor server grows.
TEST_F(FeedServers, ASoakLeavesContentAndMemoryAsTheyShouldBe) {
    NatsServers servers(1);
    const Options options = optionsOf(servers.urls());
    openHosts(options);
    Publisher publisher(options);
    std::map<std::string, std::string> model;
    const int steps = fromEnvironment("PM_FEED_SOAK", 1000);
    std::size_t serverBefore = 0;
    std::size_t hostBefore = 0;
    const auto memory = [] {
        std::ifstream statistics("/proc/self/statm");
        std::size_t pages = 0;
        statistics >> pages >> pages;
        return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    };
    for (int step = 0; step < steps; ++step) {
        if (step % 250 == 0) {
            const Day day = randomDay(random_);
            ASSERT_TRUE(publisher.publish("20260302", day));
            model.clear();
            for (const auto& instrument : day.snapshot().instruments) {
                model[instrument->getKey()] = instrument->name;
            }
        } else {
            const Change change = randomChange(random_);
            const Outcome outcome = publisher.apply(change);
            ASSERT_TRUE(outcome) << outcome.reason;
            for (const std::string& key : change.removedKeys) {
                model.erase(key);
            }
            for (const auto& upsert : change.upserts) {
                model[upsert->getKey()] = upsert->name;
            }
        }
        if (step == steps / 4) {
            serverBefore = servers.memory(0);
            hostBefore = memory();
        }
    }
    for (const auto& host : hosts_) {
        EXPECT_TRUE(eventually([&] { return host->subscriber().revision() == publisher.revision(); }));
        EXPECT_EQ(host->content(), model);
        EXPECT_EQ(host->subscriber().health().reloads, 0U);
    }
    constexpr std::size_t kAllowed = std::size_t{24} << 20U;
    EXPECT_LT(servers.memory(0), serverBefore + kAllowed);
    EXPECT_LT(memory(), hostBefore + kAllowed);
}

}  // namespace
}  // namespace mxservice::feed
