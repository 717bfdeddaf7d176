// What a feed takes, on one machine with one server and with three: printed, not judged.
//
//   feed_figures [INSTRUMENTS]

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "tests/feed/NatsServer.h"
#include "tests/feed/WatchedHost.h"
#include "tools/marketday/MarketDay.h"

namespace mxservice::feed {
namespace {

using Clock = std::chrono::steady_clock;

double msSince(Clock::time_point began) {
    return std::chrono::duration<double, std::milli>(Clock::now() - began).count();
}

Snapshot makeDay(std::size_t size) {
    Snapshot day;
    const marketday::MarketDay made(size, 1, "20260302");
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        made.visit(catalogueName(catalogue), [&](const boost::shared_ptr<IData>& one) { day.add(catalogue, one); });
    }
    return day;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double plainLoad(const Snapshot& snapshot) {
    const Day copy = Day::of(snapshot.copy());
    CServerInstrumentCenter center("plain");
    const auto began = Clock::now();
    copy.loadInto(center);
    return msSince(began);
}

/// A host that starts, as a process of its own: until it has the day, and what a plain load of that takes there.
void lateHost(const Options& options) {
    CServerInstrumentCenter center("late");
    const auto began = Clock::now();
    const Subscriber host(center, options);
    eventually([&] { return host.revision().number != 0; });
    const double late = msSince(began);
    std::cout << late << ' ' << plainLoad(read(options, std::chrono::seconds(60)).day) << std::endl;
}

/// How many plain loads it takes one.
double askLateHost(const char* program, const Options& options, std::vector<double>& late) {
    const TemporaryDirectory directory(TemporaryDirectory::inMemory());
    const std::string file = (directory.path() / "late").string();
    std::vector<std::string> words{program, "late"};
    words.insert(words.end(), options.servers.begin(), options.servers.end());
    Process(words, file).wait();
    double took = 0;
    double plain = 0;
    std::ifstream(file) >> took >> plain;
    late.push_back(took);
    return took / plain;
}

/// Publishing a day, and until a host that waits for it has it.
void measureDay(const char* program, const Snapshot& snapshot, const Options& options, const std::string& what) {
    constexpr int kTimes = 5;
    std::vector<double> plain;
    std::vector<double> published;
    std::vector<double> loaded;
    std::vector<double> late;
    std::vector<double> lateRatio;
    const Day day = Day::of(snapshot);
    Publisher publisher(options);
    eventually([&] { return publisher.catchUp().result == Published::Done; });
    for (int i = 0; i < kTimes; ++i) {
        plain.push_back(plainLoad(snapshot));
        CServerInstrumentCenter center("host");
        Subscriber host(center, options);
        eventually([&] { return host.health().lastSeen.time_since_epoch().count() != 0; });
        const auto began = Clock::now();
        const Outcome outcome = publisher.publish("20260302", day);
        published.push_back(msSince(began));
        eventually([&] { return host.revision() == outcome.revision; });
        loaded.push_back(msSince(began));
        lateRatio.push_back(askLateHost(program, options, late));
    }
    std::cout << what << ", " << snapshot.instruments.size() << " instruments: plain load " << median(plain)
              << " ms, published in " << median(published) << " ms, at a host that had the former day after "
              << median(loaded) << " ms (" << median(loaded) / median(plain)
              << " plain loads), at one that starts after " << median(late) << " ms (" << median(lateRatio) << ")"
              << std::endl;
}

/// From the call that publishes a change until the center of each of many hosts has it.
void measureChanges(const Options& options, const std::string& what) {
    constexpr std::size_t kHosts = 50;
    constexpr int kChanges = 200;
    std::mt19937 random(1);
    Publisher publisher(options);
    eventually([&] { return publisher.publish("20260302", randomDay(random)).result == Published::Done; });
    std::vector<std::unique_ptr<CServerInstrumentCenter>> centers;
    std::vector<std::unique_ptr<Subscriber>> hosts;
    std::vector<Registration> told;
    std::mutex lock;
    std::vector<double> times;
    Clock::time_point began;
    for (std::size_t i = 0; i < kHosts; ++i) {
        centers.push_back(std::make_unique<CServerInstrumentCenter>("host"));
        hosts.push_back(std::make_unique<Subscriber>(*centers.back(), options));
        hosts.back()->waitCurrent(std::chrono::seconds(60));
        told.push_back(hosts.back()->onChange([&](const Revision&) {
            const std::lock_guard guard(lock);
            times.push_back(msSince(began));
        }));
    }
    std::vector<double> all;
    std::vector<double> slowest;
    for (int i = 0; i < kChanges; ++i) {
        {
            const std::lock_guard guard(lock);
            times.clear();
            began = Clock::now();
        }
        publisher.apply(randomChange(random));
        eventually([&] {
            const std::lock_guard guard(lock);
            return times.size() == kHosts;
        });
        const std::lock_guard guard(lock);
        all.insert(all.end(), times.begin(), times.end());
        slowest.push_back(*std::max_element(times.begin(), times.end()));
    }
    std::cout << what << ", a change at " << kHosts << " hosts: median " << median(all) << " ms, the slowest of them "
              << median(slowest) << " ms at the median, " << *std::max_element(slowest.begin(), slowest.end())
              << " ms at worst" << std::endl;
}

}  // namespace
}  // namespace mxservice::feed

int main(int argc, char** argv) {
    using namespace mxservice::feed;
    if (argc > 2 && std::string(argv[1]) == "late") {
        Options options;
        options.servers.assign(argv + 2, argv + argc);
        lateHost(options);
        return 0;
    }
    const std::size_t size = argc > 1 ? std::stoul(argv[1]) : 300000;
    const mxservice::Snapshot day = makeDay(size);
    for (const int count : {1, 3}) {
        const NatsServers servers(count);
        Options options;
        options.servers = servers.urls();
        options.replicas = count;
        const std::string what = count == 1 ? "one server" : "three servers";
        measureChanges(options, what);
        measureDay(argv[0], day, options, what);
    }
    return 0;
}
