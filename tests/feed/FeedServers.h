#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/FromEnvironment.h"
#include "tests/feed/NatsServer.h"
#include "tests/feed/WatchedHost.h"

namespace mxservice::feed {

using ServerHost = WatchedHost<CServerInstrumentCenter>;
using ClientHost = WatchedHost<CClientInstrumentCenter>;

/// Real servers, real faults. After each of them every host has the same revision with the same digest, and none has
/// seen a key vanish that all days have, or two days at once.
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

}  // namespace mxservice::feed
