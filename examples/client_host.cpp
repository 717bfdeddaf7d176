// A client process with little memory: records live in a store on disk, and part of them outlives the process. Run it
// twice with one directory: client_host STORE

#include <boost/make_shared.hpp>

#include <iostream>
#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "platform/persist/CPersistService.h"

using mxservice::CInstrumentDetail;
using Records = std::vector<boost::shared_ptr<CInstrumentDetail>>;

namespace {

Records records(const std::string& market, int first, int count) {
    Records all;
    for (int i = first; i < first + count; ++i) {
        auto detail = boost::make_shared<CInstrumentDetail>();
        detail->market = market;
        detail->code = std::to_string(i);
        detail->name = market + " stock " + std::to_string(i);
        all.push_back(detail);
    }
    return all;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: client_host STORE\n";
        return 2;
    }
    // Once a process, before the first load. The directory is made when it is missing.
    persist::CPersistService::instance()->setRootPath(argv[1]);

    // At most 100 instruments, 10 bonds and 10 plans stay in memory as records; of the others only the keys.
    mxservice::CClientInstrumentCenter center("instruments", 100, 10, 10);

    // What an earlier run stored is not served before its market has been loaded again: it may be yesterday's.
    std::cout << "before the load, HK10000 is " << (center.hasCode("HK10000") ? "known" : "unknown") << '\n';

    // The sub-markets of Hong Kong and Shanghai are the exception: a load of some of them is completed by what the
    // store has of the others. So the connect listing alone is enough when the plain listing came in an earlier run.
    const bool firstRun = !persist::CPersistService::instance()->visitAllData(
        "OvRawHK", [](std::string_view, std::string_view) { return false; });
    if (firstRun)
        center.initInstruments({"HK"}, records("HK", 10000, 1000));
    else
        center.initInstruments({"HGT"}, records("HGT", 10000, 10));
    for (const mxservice::MarketLoad& load : center.statistics().markets)
        std::cout << load.market << ": received " << load.received << ", restored " << load.restored << ", stored "
                  << load.stored << ", not written " << load.unwritten << '\n';

    // The first question about a record reads it from the store; the next ones find it in memory.
    for (int question = 0; question < 3; ++question)
        if (const auto stock = center.getInstrument("HK10005"))
            std::cout << stock->market << stock->code << ", ";
    const mxservice::CacheUse cache = center.statistics().caches.front();
    std::cout << cache.misses << " read, " << cache.hits << " from memory, " << cache.used << " cached\n";

    // A list reads its market in one sweep and leaves the cache as it is.
    std::cout << center.getInstruments("HK").size() << " records in the list\n";
}
