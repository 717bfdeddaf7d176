#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "tests/feed/Certificates.h"
#include "tests/feed/FeedServers.h"

// The tool as a process among real servers.

namespace mxservice::feed {
namespace {

class FeedTool : public FeedServers {};

/// Who looks on while nothing else happens sees what has happened.
TEST_F(FeedTool, AWatchTellsEachEventWhenItComes) {
    NatsServers servers(1);
    Publisher publisher(optionsOf(servers.urls()));
    const TemporaryDirectory directory;
    const std::string file = (directory.path() / "events").string();
    const Process watch({PM_INSCENTER, "feed", "watch", "--server", servers.urls().front()}, file);
    EXPECT_TRUE(eventually([&] { return bool(publisher.publish("20260302", randomDay(random_))); }));
    EXPECT_TRUE(eventually([&] { return contentOf(file).find(publisher.revision().digest) != std::string::npos; }));
    EXPECT_TRUE(publisher.apply(randomChange(random_)));
    EXPECT_TRUE(eventually([&] { return contentOf(file).find(publisher.revision().digest) != std::string::npos; }));
}

/// The configurations that the tool writes, of one server and of clusters: one user publishes, the others only read, by
/// whichever server, and nobody joins a cluster without its password.
TEST_F(FeedTool, TheWrittenConfigurationLetsOneUserPublish) {
    const Certificates certificates;
    certificates.sign("localhost", ",IP:127.0.0.1");
    for (const auto& [count, tls] : {std::pair<std::size_t, bool>{1, false}, {2, false}, {2, true}}) {
        const TemporaryDirectory directory(TemporaryDirectory::inMemory());
        const auto at = [&](const std::string& name) { return (directory.path() / name).string(); };
        const std::vector<int> ports{freePort(), freePort()};
        const std::vector<int> routes{freePort(), freePort()};
        const std::string url = tls ? "tls://localhost:" : "nats://localhost:";
        std::vector<std::string> files{"nats-server.conf"};
        std::vector<std::string> serve{PM_INSCENTER, "feed", "serve", directory.path().string()};
        if (count == 2) {
            files = {"localhost.conf", "127.0.0.1.conf"};
            serve.insert(serve.end(), {"--peers", "localhost:" + std::to_string(routes[0]) +
                                                      ",127.0.0.1:" + std::to_string(routes[1])});
        }
        if (tls) {
            serve.insert(serve.end(), {"--tls-cert", certificates.file("localhost"), "--tls-key",
                                       certificates.key("localhost"), "--ca", certificates.file("authority")});
        }
        ASSERT_EQ(Process(serve, at("log")).wait(), 0) << contentOf(at("log"));
        std::vector<std::unique_ptr<Process>> servers;
        for (std::size_t i = 0; i < count; ++i) {
            // On one machine, so each needs a port and a store of its own.
            std::string text = contentOf(at(files[i]));
            text = std::regex_replace(text, std::regex("(port: |:)4222"), "$01" + std::to_string(ports[i]));
            text = std::regex_replace(text, std::regex("/store\""), "/store of " + files[i] + "\"");
            std::ofstream(at(files[i])) << text;
            servers.push_back(
                std::make_unique<Process>(std::vector<std::string>{"nats-server", "-c", at(files[i])}, at("log")));
            ASSERT_TRUE(eventually([&] { return accepts(ports[i]); })) << contentOf(at("log"));
        }
        if (count == 2) {
            ASSERT_TRUE(eventually([&] { return accepts(routes[0]); })) << contentOf(at("log"));
            const std::string greeting = greetingAt(routes[0]);  // with TLS, nothing before the other's certificate
            EXPECT_EQ(greeting.find("\"auth_required\":true") == std::string::npos, tls) << greeting;
            EXPECT_EQ(greeting.empty(), tls) << greeting;
        }
        const auto optionsFor = [&](const std::string& user, std::size_t server) {
            Options options = optionsOf({url + std::to_string(ports[server])}, static_cast<int>(count));
            options.user = user;
            std::ifstream file(at(user + ".password"));
            std::getline(file, options.password);
            options.caFile = tls ? certificates.file("authority") : "";
            options.publishFor = std::chrono::milliseconds(500);
            return options;
        };
        Publisher publisher(optionsFor("publisher", 0));
        ServerHost host(optionsFor("hosts", count - 1), ledger_);
        for (int i = 0; i < 3; ++i) {  // the third removes the first
            EXPECT_TRUE(eventually(
                [&] { return publisher.publish("20260302", randomDay(random_)).result == Published::Done; }));
            EXPECT_TRUE(publisher.apply(randomChange(random_)));
        }
        EXPECT_TRUE(eventually([&] { return host.subscriber().revision() == publisher.revision(); }))
            << host.subscriber().health().lastFailure << contentOf(at("log"));
        Publisher reader(optionsFor("hosts", count - 1));
        EXPECT_TRUE(reader.catchUp());
        const Outcome refused = reader.apply(randomChange(random_));
        EXPECT_EQ(refused.result, Published::Failed) << refused.reason;
        EXPECT_NE(refused.reason.find("ermission"), std::string::npos) << refused.reason;
        EXPECT_EQ(host.subscriber().state(), State::Current);

        // The tool takes the same files, and tells what it meets while it watches.
        const auto tells = [&](const std::string& user, const std::string& server, const std::string& what) {
            const std::string file = at("watched by " + user + " " + what);
            std::vector<std::string> words{PM_INSCENTER, "feed", "watch", "--server", server};
            words.insert(words.end(), {"--user", user, "--password-file", at("hosts.password")});
            words.insert(words.end(), {"--ca", certificates.file("authority")});
            const Process watching(words, file);
            EXPECT_TRUE(eventually([&] { return contentOf(file).find(what) != std::string::npos; })) << contentOf(file);
        };
        tells("hosts", url + std::to_string(ports[0]), publisher.revision().digest);
        tells("publisher", url + std::to_string(ports[0]), "Failed  0  ");
        tells("hosts", url + "1", "Connecting  0  No server");
    }
}

}  // namespace
}  // namespace mxservice::feed
