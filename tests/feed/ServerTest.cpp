#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/feed/Certificates.h"
#include "tests/feed/NatsServer.h"
#include "tests/feed/Proxy.h"
#include "tests/feed/WatchedHost.h"

// Real servers, real faults. After each of them every host has the same revision with the same digest, and none has
// seen a key vanish that all days have, or two days at once.

namespace mxservice::feed {
namespace {

using ServerHost = WatchedHost<CServerInstrumentCenter>;
using ClientHost = WatchedHost<CClientInstrumentCenter>;

class FeedServers : public testing::Test {
protected:
    static Options optionsOf(const std::vector<std::string>& urls, int replicas = 1) {
        Options options;
        options.servers = urls;
        options.replicas = replicas;
        return options;
    }
    void openHosts(const Options& options) {
        for (int i = 0; i < 2; ++i) {
            hosts_.push_back(std::make_unique<ServerHost>(options, ledger_));
        }
        client_ = std::make_unique<ClientHost>(options, ledger_, 100, 10, 10);
    }
    std::unique_ptr<Process> worker(const std::string& task, const std::vector<std::string>& urls,
                                    const std::string& output = "/dev/null") {
        std::vector<std::string> words{PM_FEED_WORKER, task, std::to_string(random_())};
        words.insert(words.end(), urls.begin(), urls.end());
        return std::make_unique<Process>(words, output);
    }
    /// Lets others work for a while; how long is of no importance, only that it differs.
    void letWork(int most) { ::poll(nullptr, 0, static_cast<int>(random_() % static_cast<unsigned>(most))); }

    /// Publishes once more, as someone who has just come, and looks at everybody.
    void expectAllAlike(const Options& options) {
        Publisher publisher(options);
        Outcome outcome;
        EXPECT_TRUE(eventually([&] {
            outcome = publisher.catchUp();
            outcome = outcome ? publisher.publish("20260302", randomDay(random_)) : outcome;
            outcome = outcome ? publisher.apply(randomChange(random_)) : outcome;
            return outcome.result == Published::Done;
        })) << outcome.reason;
        ServerHost fresh(options, ledger_);
        std::vector<const Subscriber*> all{&fresh.subscriber(), &client_->subscriber()};
        for (const auto& host : hosts_) {
            all.push_back(&host->subscriber());
        }
        for (const Subscriber* const subscriber : all) {
            EXPECT_TRUE(eventually([&] { return subscriber->revision() == outcome.revision; }))
                << subscriber->health().lastFailure << ", " << stateName(subscriber->state());
        }
        for (const auto& host : hosts_) {
            EXPECT_EQ(host->content(), fresh.content());
            EXPECT_EQ(host->vanished(), 0);
            EXPECT_EQ(host->mixed(), 0);
            EXPECT_TRUE(eventually([&] { return host->looks() > 0; }));  // it may have its first day only now
        }
        EXPECT_EQ(client_->content(), fresh.content());
        EXPECT_EQ(client_->vanished(), 0);
        EXPECT_EQ(ledger_.differing(), 0) << "two digests of one revision";
    }
    std::uint64_t newest() const { return hosts_.front()->subscriber().revision().number; }

    const int kills_ = fromEnvironment("PM_FEED_KILLS", 3);
    const std::chrono::seconds away_{fromEnvironment("PM_FEED_AWAY", 6)};
    std::mt19937 random_{seedOfRun()};
    TemporaryStore store_;
    Ledger ledger_;
    std::vector<std::unique_ptr<ServerHost>> hosts_;
    std::unique_ptr<ClientHost> client_;
};

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

TEST_F(FeedServers, RefusedCredentialsAndMissingServersAreStates) {
    NatsServers servers(1, "authorization { users: [ { user: pub, password: secret } ] }\n");
    Options right = optionsOf(servers.urls());
    right.user = "pub";
    right.password = "secret";
    right.publishFor = std::chrono::milliseconds(500);
    ASSERT_TRUE(
        eventually([&] { return Publisher(right).publish("20260302", randomDay(random_)).result == Published::Done; }));
    Options wrong = right;
    wrong.password = "guess";
    EXPECT_EQ(Publisher(wrong).catchUp().result, Published::Failed);
    ServerHost refused(wrong, ledger_);
    EXPECT_TRUE(eventually([&] { return refused.subscriber().state() == State::Failed; }))
        << refused.subscriber().health().lastFailure;
    const Options nowhere = optionsOf({"nats://127.0.0.1:" + std::to_string(freePort())});
    EXPECT_EQ(Publisher(nowhere).catchUp().result, Published::Unreachable);
    ServerHost waiting(nowhere, ledger_);
    EXPECT_TRUE(eventually([&] { return waiting.subscriber().health().failures > 1; }));
    EXPECT_EQ(waiting.subscriber().state(), State::Connecting);
    ServerHost host(right, ledger_);
    EXPECT_TRUE(host.subscriber().waitCurrent(std::chrono::seconds(60)));
}

TEST_F(FeedServers, OverTlsBothSidesMustShowWhoTheyAre) {
    const Certificates signedByOne;
    signedByOne.sign("localhost");
    signedByOne.sign("host");
    const Certificates others;
    others.sign("host");
    const NatsServers servers(1, "tls { cert_file: \"" + signedByOne.file("localhost") + "\", key_file: \"" +
                                     signedByOne.key("localhost") + "\", ca_file: \"" + signedByOne.file("authority") +
                                     "\", verify: true }\n");
    const NatsServers plain(1);
    const std::string port = std::to_string(servers.port(0));
    Options right = optionsOf({"tls://localhost:" + port});
    right.caFile = signedByOne.file("authority");
    right.certificateFile = signedByOne.file("host");
    right.keyFile = signedByOne.key("host");
    right.publishFor = std::chrono::milliseconds(500);
    ASSERT_TRUE(
        eventually([&] { return Publisher(right).publish("20260302", randomDay(random_)).result == Published::Done; }));
    ServerHost host(right, ledger_);
    EXPECT_TRUE(host.subscriber().waitCurrent(std::chrono::seconds(60))) << host.subscriber().health().lastFailure;

    std::map<std::string, Options> wrong;
    wrong["an authority that did not sign"] = right;
    wrong["an authority that did not sign"].caFile = others.file("authority");
    wrong["no authority of ours"] = right;
    wrong["no authority of ours"].caFile.clear();
    wrong["another name than the certificate's"] = right;
    wrong["another name than the certificate's"].servers = {"tls://127.0.0.1:" + port};
    wrong["a server without TLS"] = right;
    wrong["a server without TLS"].servers = {"tls://localhost:" + std::to_string(plain.port(0))};
    wrong["a certificate file that is missing"] = right;
    wrong["a certificate file that is missing"].certificateFile = "/nowhere.pem";
    for (const auto& [what, options] : wrong) {
        SCOPED_TRACE(what);
        const Outcome outcome = Publisher(options).catchUp();
        EXPECT_EQ(outcome.result, Published::Failed) << outcome.reason;
        ServerHost refused(options, ledger_);
        EXPECT_TRUE(eventually([&] { return refused.subscriber().state() == State::Failed; }, std::chrono::seconds(10)))
            << refused.subscriber().health().lastFailure;
    }
    // The server refuses these, and says so to nobody but its own log.
    Options stranger = right;
    stranger.certificateFile = others.file("host");
    stranger.keyFile = others.key("host");
    Options nobody = right;
    nobody.certificateFile = nobody.keyFile = "";
    for (const Options& options : {stranger, nobody}) {
        ServerHost refused(options, ledger_);
        EXPECT_TRUE(eventually([&] {
            return refused.subscriber().health().lastFailure.find("may not accept this certificate") !=
                   std::string::npos;
        })) << refused.subscriber().health().lastFailure;
        EXPECT_EQ(refused.subscriber().state(), State::Connecting);
    }
}

/// The library shakes hands without a deadline, and nothing can be asked of a connection meanwhile.
TEST_F(FeedServers, AServerThatGoesMuteInTheTlsHandshakeHoldsUpNobody) {
    const Certificates authority;
    authority.sign("localhost");
    NatsServers servers(1, "tls { cert_file: \"" + authority.file("localhost") + "\", key_file: \"" +
                               authority.key("localhost") + "\" }\n");
    Options options = optionsOf({"tls://localhost:" + std::to_string(servers.port(0))});
    options.caFile = authority.file("authority");
    options.requestTimeout = options.pollEvery = std::chrono::milliseconds(500);
    ASSERT_TRUE(
        eventually([&] { return Publisher(options).publish("20260302", randomDay(random_)).revision.number == 1; }));
    const int port = freePort();
    {
        const MuteServer mute(port);
        Options both = options;
        both.servers.insert(both.servers.begin(), "tls://localhost:" + std::to_string(port));
        for (int i = 0; i < 3; ++i) {  // whichever of the two the library asks first
            ServerHost host(both, ledger_);
            EXPECT_TRUE(host.subscriber().waitCurrent(std::chrono::seconds(60)))
                << host.subscriber().health().lastFailure;
        }
    }
    auto ends = std::make_unique<ServerHost>(options, ledger_);
    ServerHost stays(options, ledger_);
    EXPECT_TRUE(ends->subscriber().waitCurrent(std::chrono::seconds(60)));
    EXPECT_TRUE(stays.subscriber().waitCurrent(std::chrono::seconds(60)));
    servers.kill(0);
    {
        const MuteServer mute(servers.port(0));
        EXPECT_TRUE(eventually([&] { return mute.greeted() >= 2; }));
        EXPECT_TRUE(eventually([&] { return ends->subscriber().state() == State::Stale; }));
        EXPECT_TRUE(eventually([&] { return ends->subscriber().health().server.empty(); }));
        ends.reset();
        ServerHost late(options, ledger_);
        EXPECT_EQ(Publisher(options).catchUp().result, Published::Unreachable);
        EXPECT_TRUE(eventually([&] { return late.subscriber().health().failures > 0; }));
    }
    servers.start(0);
    EXPECT_TRUE(stays.subscriber().waitCurrent(std::chrono::seconds(60))) << stays.subscriber().health().lastFailure;
}

TEST_F(FeedServers, APublisherDoesNotWaitForAPeerThatTakesNoMoreBytes) {
    const NatsServers servers(1);
    Proxy proxy(servers.port(0), true);
    Options options = optionsOf({proxy.url()});
    options.requestTimeout = std::chrono::milliseconds(500);
    options.publishFor = std::chrono::milliseconds(1);
    Publisher publisher(options);
    ASSERT_TRUE(publisher.publish("20260302", randomDay(random_)));
    Snapshot large;
    for (int code = 0; code < 2000; ++code) {
        std::string name;  // that does not pack well
        std::generate_n(std::back_inserter(name), 500, [&] { return static_cast<char>('!' + random_() % 90); });
        large.instruments.push_back(record("SH", std::to_string(code), name));
    }
    proxy.takesNothing = true;
    const Outcome outcome = publisher.publish("20260302", Day::of(large));
    EXPECT_EQ(outcome.result, Published::Unreachable) << outcome.reason;
    proxy.takesNothing = false;
    EXPECT_TRUE(
        eventually([&] { return publisher.publish("20260302", randomDay(random_)).result == Published::Done; }));
}

TEST_F(FeedServers, AHostThatMayNotHearTheBellSaysSoAndLooks) {
    const NatsServers servers(1,
                              "authorization { users: [ { user: pub, password: secret }, { user: hosts, password: "
                              "s3cret, permissions: { subscribe: { deny: \"ins.v1.bell\" } } } ] }\n");
    const std::string address = "127.0.0.1:" + std::to_string(servers.port(0));
    Publisher publisher(optionsOf({"nats://pub:secret@" + address}));
    ASSERT_TRUE(
        eventually([&] { return publisher.publish("20260302", randomDay(random_)).result == Published::Done; }));
    const LogCapture log;
    const auto said = [&] {
        const auto lines = log.lines();
        return std::count_if(lines.begin(), lines.end(), [](const LogCapture::Line& line) {
            return line.level == utils::kLogError && line.text.find("no bell") != std::string::npos;
        });
    };
    ServerHost host(optionsOf({"nats://hosts:s3cret@" + address}), ledger_);
    EXPECT_TRUE(host.subscriber().waitCurrent(std::chrono::seconds(60)));
    EXPECT_EQ(host.subscriber().health().server, "nats://" + address) << "a page is no place for a password";
    EXPECT_TRUE(eventually([&] { return said() == 1; }));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(publisher.apply(randomChange(random_)));
        EXPECT_TRUE(eventually([&] { return host.subscriber().revision() == publisher.revision(); }));
    }
    EXPECT_EQ(said(), 1);
    const Outcome nowhere = Publisher(optionsOf({"nats://hosts:s3cret@" + address + "9999"})).catchUp();
    EXPECT_EQ(nowhere.reason.find("s3cret"), std::string::npos) << nowhere.reason;
}

TEST_F(FeedServers, AStreamThatHostsCannotFollowIsNotPublishedTo) {
    const NatsServers servers(1);
    const auto makeStream = [&](const std::string& more) {
        servers.ask("$JS.API.STREAM.DELETE.ins-v1", "");
        const std::string made = servers.ask(
            "$JS.API.STREAM.CREATE.ins-v1",
            R"({"name":"ins-v1","subjects":["ins.v1.log","ins.v1.part.>"],"storage":"file","num_replicas":1)" + more +
                "}");
        EXPECT_EQ(made.find("\"error\""), std::string::npos) << made;
    };
    const std::string direct = R"(,"allow_direct":true)";
    const std::string bell = R"(,"republish":{"src":"ins.v1.log","dest":"ins.v1.bell","headers_only":true})";
    const std::map<std::string, std::string> lacks{{bell, "allow_direct"}, {direct, "ins.v1.bell"}};
    for (const auto& [has, lacking] : lacks) {
        makeStream(has);
        const Outcome outcome = Publisher(optionsOf(servers.urls())).publish("20260302", randomDay(random_));
        EXPECT_EQ(outcome.result, Published::Failed) << outcome.reason;
        EXPECT_NE(outcome.reason.find(lacking), std::string::npos) << outcome.reason;
    }
    makeStream(direct + bell);
    EXPECT_TRUE(Publisher(optionsOf(servers.urls())).publish("20260302", randomDay(random_)));
}

/// A remark of the server's explains the request that it refuses, not one that hangs after others were answered.
TEST_F(FeedServers, ARefusalIsForgottenWithTheNextAnswer) {
    NatsServers servers(1,
                        "authorization { users: [ { user: pub, password: secret, permissions: { publish: { deny: "
                        "\"$JS.API.STREAM.PURGE.>\" } } } ] }\n");
    Options options = optionsOf(servers.urls());
    options.user = "pub";
    options.password = "secret";
    options.requestTimeout = std::chrono::milliseconds(500);
    options.publishFor = std::chrono::milliseconds(1);
    Publisher publisher(options);
    for (int i = 0; i < 3; ++i) {  // from the third day on there is one to remove, which is refused
        EXPECT_TRUE(
            eventually([&] { return publisher.publish("20260302", randomDay(random_)).result == Published::Done; }));
    }
    EXPECT_TRUE(publisher.apply(randomChange(random_)));
    servers.process(0).signal(SIGSTOP);
    ::waitpid(servers.process(0).id(), nullptr, WUNTRACED);  // or it still answers
    const Outcome silent = publisher.apply(randomChange(random_));
    EXPECT_EQ(silent.result, Published::Unreachable) << silent.reason;
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
