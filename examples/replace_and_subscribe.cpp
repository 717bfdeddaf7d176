// A server that passes on what changes: every load and correction of the day is told once, with the records that it has
// added, removed and changed, so that nobody has to compare listings.

#include <boost/make_shared.hpp>

#include <iostream>
#include <stdexcept>
#include <string>

#include "base/instrumentcenter/CServerInstrumentCenter.h"

using mxservice::CInstrumentDetail;

namespace {

boost::shared_ptr<CInstrumentDetail> stock(const std::string& code, const std::string& name) {
    auto record = boost::make_shared<CInstrumentDetail>();
    record->market = "SH";
    record->code = code;
    record->name = name;
    return record;
}

/// To be changed: the record that is handed out is shared with whoever reads it.
boost::shared_ptr<CInstrumentDetail> copyOf(mxservice::CServerInstrumentCenter& center, const std::string& key) {
    const auto record = center.getInstrument(key);
    if (!record)
        throw std::runtime_error(key + " is not listed");
    return boost::make_shared<CInstrumentDetail>(*record);
}

/// A real host puts this on its clients' queues. Readers see the change before it is told.
void tell(const mxservice::CatalogueChange& change) {
    std::cout << "version " << change.version << ", markets brought:";
    for (const std::string& market : change.markets)
        std::cout << ' ' << market;
    std::cout << '\n';
    for (const auto& [before, after] : change.instruments) {
        if (!before) {
            std::cout << "  listed   " << after->getKey() << ' ' << after->name;
        } else if (!after) {
            std::cout << "  delisted " << before->getKey() << ' ' << before->name;
        } else {
            std::cout << "  changed  " << after->getKey();
            for (const std::string& field : mxservice::changedFields(*before, *after))
                std::cout << ' ' << field;
        }
        std::cout << '\n';
    }
}

void run() {
    mxservice::CServerInstrumentCenter center("instruments");
    center.initInstruments({"SH"}, {stock("600000", "Bank"), stock("600004", "Airport")});

    // From here on; ends with this object. Called on the thread that loads: an executor as second argument moves it.
    const mxservice::Subscription subscription = center.subscribe(tell);

    // Noon: a correction and a new listing. Both are seen at once, or neither.
    const auto corrected = copyOf(center, "SH600000");
    corrected->lotSize = 200;
    center.applyChanges({corrected, stock("600006", "Motors")}, {});

    // Evening: the whole listing again. Equal records are no change, keys that it lacks are gone, and "SH600000"
    // answers all the time.
    center.replaceInstruments({"SH"}, {copyOf(center, "SH600000"), stock("600006", "Motor works")});
    std::cout << "SH600004 is " << (center.hasCode("SH600004") ? "listed" : "no longer listed") << '\n';
}

}  // namespace

int main() {
    try {
        run();
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << '\n';
        return 1;
    }
}
