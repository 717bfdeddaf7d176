#pragma once

#include <gtest/gtest.h>

#include <boost/make_shared.hpp>

#include <atomic>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/instrumentcenter/InstrumentView.h"
#include "feed/Feed.h"
#include "tests/FromEnvironment.h"

// Days that every publisher of these tests makes, and hosts that watch whether they are ever torn.

namespace mxservice::feed {

constexpr int kAnchors = 40;  // codes that every market of every day has, named after their day

inline boost::shared_ptr<CInstrumentDetail> record(const std::string& market, const std::string& code,
                                                   const std::string& name) {
    auto made = boost::make_shared<CInstrumentDetail>();
    made->market = market;
    made->code = code;
    made->name = name;
    return made;
}

/// A day with all anchors and some other codes.
inline Day randomDay(std::mt19937& random) {
    const std::string name = std::to_string(random());
    Snapshot snapshot;
    for (const char* const market : {"SH", "SZ", "DCE"}) {
        for (int code = 0; code < kAnchors; ++code) {
            snapshot.instruments.push_back(record(market, "a" + std::to_string(code), name));
        }
        for (auto code = random() % 100; code > 0; --code) {
            snapshot.instruments.push_back(record(market, std::to_string(random() % 200), std::to_string(random())));
        }
    }
    return Day::of(snapshot);
}

/// A change that leaves the anchors alone.
inline Change randomChange(std::mt19937& random) {
    Change change;
    for (auto i = 1 + random() % 5; i > 0; --i) {
        change.upserts.push_back(record("SH", std::to_string(random() % 200), std::to_string(random())));
        change.removedKeys.push_back("DCE" + std::to_string(random() % 200));
    }
    return change;
}

/// What hosts have been told, one digest a revision: no two may be told differently.
class Ledger {
public:
    void note(const Revision& revision) {
        const std::lock_guard guard(lock_);
        const auto [known, fresh] = digests_.try_emplace({revision.epoch, revision.number}, revision.digest);
        differing_ += known->second == revision.digest ? 0 : 1;
    }
    int differing() const {
        const std::lock_guard guard(lock_);
        return differing_;
    }

private:
    mutable std::mutex lock_;
    std::map<std::pair<std::string, std::uint64_t>, std::string> digests_;
    int differing_ = 0;
};

/// A host with a thread that asks all the time.
template <class Center>
class WatchedHost {
public:
    template <class... Arguments>
    WatchedHost(const Options& options, Ledger& ledger, Arguments... arguments)
        : center_("host", arguments...), subscriber_(center_, options) {
        told_ = subscriber_.onChange([&](const Revision& revision) { ledger.note(revision); });
        reader_ = std::thread([this] { watch(); });
    }
    ~WatchedHost() {
        done_ = true;
        reader_.join();
    }
    WatchedHost(const WatchedHost&) = delete;
    WatchedHost& operator=(const WatchedHost&) = delete;

    const Subscriber& subscriber() const { return subscriber_; }
    int vanished() const { return vanished_; }
    int mixed() const { return mixed_; }
    std::uint64_t looks() const { return looks_; }
    std::map<std::string, std::string> content() {
        std::map<std::string, std::string> content;
        for (const auto& [key, found] : static_cast<IInstrumentCenter&>(center_).getInstruments()) {
            content[key] = found->name;
        }
        return content;
    }

private:
    void watch() {
        std::mt19937 random(7);
        bool loaded = false;
        while (!done_) {
            loaded = loaded || subscriber_.health().days > 0;
            if (!loaded) {
                std::this_thread::yield();
                continue;
            }
            const std::string code = "a" + std::to_string(random() % kAnchors);
            if constexpr (std::is_base_of_v<CServerInstrumentCenter, Center>) {
                const InstrumentView view = center_.view();
                const auto* const one = view.find("SH" + code);
                const auto* const other = view.find("DCE" + code);
                vanished_ += one == nullptr || other == nullptr ? 1 : 0;
                mixed_ += one != nullptr && other != nullptr && one->name != other->name ? 1 : 0;
            } else {
                vanished_ += static_cast<IInstrumentCenter&>(center_).getInstrument("SZ" + code) ? 0 : 1;
            }
            ++looks_;
            std::this_thread::yield();
        }
    }

    Center center_;
    Subscriber subscriber_;
    Registration told_;
    std::atomic<int> vanished_{0};
    std::atomic<int> mixed_{0};
    std::atomic<std::uint64_t> looks_{0};
    std::atomic<bool> done_{false};
    std::thread reader_;
};

class ServerFixture : public testing::Test {
protected:
    using ServerHost = WatchedHost<CServerInstrumentCenter>;

    static Options optionsOf(const std::vector<std::string>& urls, int replicas = 1) {
        Options options;
        options.servers = urls;
        options.replicas = replicas;
        return options;
    }

    std::mt19937 random_{seedOfRun()};
    Ledger ledger_;
};

}  // namespace mxservice::feed
