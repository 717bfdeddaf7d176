// A server process: loads the day into the in-memory center, lets many threads ask, reloads a market meanwhile.

#include <boost/make_shared.hpp>

#include <atomic>
#include <cstdint>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

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

/// Asks until told to stop; counts the answers that no state of the center can give.
void ask(mxservice::IInstrumentCenter& center, const std::atomic<bool>& stop, std::atomic<int>& wrong) {
    while (!stop) {
        const auto stock = center.getInstrument("SH600000");
        if (!stock || (stock->name != "Bank stock" && stock->name != "Bank stock, renamed"))
            ++wrong;
    }
}

}  // namespace

int main() {
    // One center a process; from here on every thread may ask it. The name is that of its strand in the network engine.
    mxservice::CServerInstrumentCenter center("instruments");

    // A load replaces the markets that its records name. Records are shared, not copied: leave them alone from here on.
    center.initInstruments({"SH", "DCE"}, {record("SH", "600000", "Bank stock"), record("DCE", "m2605", "Meal May", 1),
                                           record("DCE", "m2609", "Meal September")});

    // A key is the market directly followed by the code. A miss is an empty pointer, never an exception.
    if (const auto stock = center.getInstrument("SH600000"))
        std::cout << stock->name << '\n';
    std::cout << "SH600001 is " << (center.hasStock("SH600001") ? "a stock" : "unknown") << '\n';
    for (const auto& [key, contract] : center.getFutureMainInstruments("DCE"))
        std::cout << key << " is a main contract: " << contract->name << '\n';

    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> askers;
    for (int i = 0; i < 4; ++i)
        askers.emplace_back([&] { ask(center, stop, wrong); });
    const auto held = center.getInstrument("SH600000");  // stays valid, and as it was, whatever is loaded later
    for (int day = 0; day < 100; ++day)
        center.initInstruments({"SH"}, {record("SH", "600000", "Bank stock, renamed")});
    stop = true;
    for (std::thread& asker : askers)
        asker.join();  // before the center goes: no operation may run when its destructor begins
    std::cout << "after 100 reloads: " << center.getInstrument("SH600000")->name << "; still held: " << held->name
              << "; wrong answers: " << wrong << '\n';

    const auto report = center.statistics().lastLoad;
    std::cout << "load " << report.number << " brought " << report.records << " record\n";
}
