// One host of many: its center is filled from a feed, kept there, and survives the server's absence.
//
//   feed_host nats://127.0.0.1:4222 KEY... [--cache FILE]
//
// Ends after a minute without a day, else asks for the keys and goes on until its standard input ends.

#include <iostream>
#include <string>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "feed/Feed.h"

namespace {

void ask(mxservice::IInstrumentCenter& center, const std::vector<std::string>& keys) {
    for (const std::string& key : keys) {
        const auto record = center.getInstrument(key);
        std::cout << key << ' ' << (record ? record->name : "is unknown") << std::endl;
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::cerr << "usage: feed_host URL KEY... [--cache FILE]\n";
        return 2;
    }
    mxservice::feed::Options options;
    options.servers = {argv[1]};
    options.name = "feed_host";
    std::vector<std::string> keys;
    for (int i = 2; i < argc; ++i) {
        if (std::string(argv[i]) == "--cache" && i + 1 < argc) {
            options.cacheFile = argv[++i];
        } else {
            keys.emplace_back(argv[i]);
        }
    }

    // The center first: it has to outlive what fills it.
    mxservice::CServerInstrumentCenter center("feed_host");
    mxservice::feed::Subscriber subscriber(center, options);
    const bool current = subscriber.waitCurrent(std::chrono::minutes(1));
    const mxservice::feed::Health health = subscriber.health();
    std::cout << mxservice::feed::stateName(health.state) << ", " << health.revision.tradingDay << ", revision "
              << health.revision.number << std::endl;
    if (!current && health.days == 0) {
        std::cerr << "no day: " << health.lastFailure << '\n';
        return 1;
    }
    ask(center, keys);

    // Handlers run on the subscriber's thread, when readers can see what they tell of.
    const auto states = subscriber.onState([](mxservice::feed::State state, const std::string& reason) {
        std::cout << mxservice::feed::stateName(state) << (reason.empty() ? "" : ": ") << reason << std::endl;
    });
    const auto changes = subscriber.onChange([&](const mxservice::feed::Revision& revision) {
        std::cout << "revision " << revision.number << std::endl;
        ask(center, keys);
    });
    for (std::string line; std::getline(std::cin, line);) {
    }
    return 0;
}
