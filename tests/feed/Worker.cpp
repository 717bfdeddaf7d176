// A process of its own that the tests kill or stop.
//
//   feed_worker publish SEED URL...    publishes days and changes as fast as it can
//   feed_worker subscribe 0 URL...     a host; prints a line for each revision that it has

#include <iostream>
#include <string>
#include <vector>

#include "tests/feed/WatchedHost.h"

namespace {

using namespace mxservice::feed;

[[noreturn]] void publish(const Options& options, unsigned seed) {
    std::mt19937 random(seed);
    Publisher publisher(options);
    for (;;) {
        const Outcome outcome = random() % 8 == 0 ? publisher.publish("20260302", randomDay(random))
                                                  : publisher.apply(randomChange(random));
        if (outcome.result == Published::Lost) {
            publisher.catchUp();
        } else if (outcome.result == Published::Refused) {
            publisher.publish("20260302", randomDay(random));  // there is no day yet
        }
    }
}

[[noreturn]] void subscribe(const Options& options) {
    Ledger ledger;
    WatchedHost<mxservice::CServerInstrumentCenter> host(options, ledger);
    Revision told;
    for (;;) {
        const Revision has = host.subscriber().revision();
        if (has != told) {
            told = has;
            std::cout << told.number << ' ' << told.digest << ' ' << host.vanished() << ' ' << host.mixed()
                      << std::endl;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        return 2;
    }
    Options options;
    options.servers.assign(argv + 3, argv + argc);
    if (std::string(argv[1]) == "publish") {
        publish(options, static_cast<unsigned>(std::stoul(argv[2])));
    }
    subscribe(options);
}
