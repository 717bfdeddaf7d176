#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <map>

#include "tests/LogCapture.h"
#include "tests/feed/Certificates.h"
#include "tests/feed/FeedServers.h"
#include "tests/feed/Proxy.h"

// Who may connect to whom, and what a server that does not behave costs.

namespace mxservice::feed {
namespace {

class FeedConnections : public FeedServers {};

TEST_F(FeedConnections, RefusedCredentialsAndMissingServersAreStates) {
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

TEST_F(FeedConnections, OverTlsBothSidesMustShowWhoTheyAre) {
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
TEST_F(FeedConnections, AServerThatGoesMuteInTheTlsHandshakeHoldsUpNobody) {
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

TEST_F(FeedConnections, APublisherDoesNotWaitForAPeerThatTakesNoMoreBytes) {
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

TEST_F(FeedConnections, AHostThatMayNotHearTheBellSaysSoAndLooks) {
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

TEST_F(FeedConnections, AStreamThatHostsCannotFollowIsNotPublishedTo) {
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
TEST_F(FeedConnections, ARefusalIsForgottenWithTheNextAnswer) {
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

}  // namespace
}  // namespace mxservice::feed
