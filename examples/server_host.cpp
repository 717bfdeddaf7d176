// The smallest host of the in-memory center: hand it the day's records, then ask.

#include <boost/make_shared.hpp>

#include <iostream>

#include "base/instrumentcenter/CServerInstrumentCenter.h"

using mxservice::CInstrumentDetail;

namespace {

boost::shared_ptr<CInstrumentDetail> record(const char* market, const char* code, const char* name, int mainFlag = 0) {
    auto detail = boost::make_shared<CInstrumentDetail>();
    detail->market = market;
    detail->code = code;
    detail->name = name;
    detail->mainContractFlag = mainFlag;
    return detail;
}

}  // namespace

int main() {
    // One center a process; from here on every thread may ask it. The name is that of its strand in the network engine.
    mxservice::CServerInstrumentCenter center("instruments");

    // A load replaces the markets that it names. The records are shared, not copied: leave them alone from here on.
    center.initInstruments({"SH", "DCE"}, {record("SH", "600000", "Bank stock"), record("DCE", "m2605", "Meal May", 1),
                                           record("DCE", "m2609", "Meal September")});

    // A key is the market directly followed by the code. A miss is an empty pointer, never an exception.
    if (const auto stock = center.getInstrument("SH600000"))
        std::cout << stock->name << '\n';
    std::cout << "SH600001 is " << (center.hasStock("SH600001") ? "a stock" : "unknown") << '\n';

    for (const auto& [key, contract] : center.getFutureMainInstruments("DCE"))
        std::cout << key << " is a main contract: " << contract->name << '\n';
}
