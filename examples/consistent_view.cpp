// A risk engine that values a book while the catalogue is loaded again: everything that it asks of one view is of one
// moment, so no position is margined with yesterday's contract and today's underlying.

#include <boost/make_shared.hpp>

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "platform/utils/Hash.h"

using mxservice::CInstrumentDetail;
using mxservice::InstrumentView;

namespace {

boost::shared_ptr<CInstrumentDetail> contract(const std::string& code, const std::string& underlying, double price) {
    auto record = boost::make_shared<CInstrumentDetail>();
    record->market = "DCE";
    record->code = code;
    record->underlyingMarket = underlying.empty() ? "" : "DCE";
    record->underlyingCode = underlying;
    record->preSettlementPrice = price;
    record->volumeMultiple = 10;
    return record;
}

void load(mxservice::CServerInstrumentCenter& center, double price) {
    center.replaceInstruments({"DCE"}, {contract("m2607", "", price), contract("m2609", "", price + 60),
                                        contract("m2607-C-2850", "m2607", 90)});
}

struct Position {
    std::string key;
    int lots;
};

void value(const InstrumentView& view, const std::vector<Position>& book) {
    // Keys are hashed once, when the book is opened, and found together: the searches wait for memory at one time.
    std::vector<std::uint64_t> keys;
    for (const Position& position : book)
        keys.push_back(utils::hash(position.key));
    std::vector<InstrumentView::Instrument> records(keys.size());
    const std::size_t found = view.resolve(keys.data(), keys.size(), records.data());

    std::cout << "version " << view.version() << ", " << found << " of " << book.size() << " positions known\n";
    for (std::size_t i = 0; i < book.size(); ++i) {
        const auto& record = records[i];
        if (!record) {  // a miss leaves its place empty
            std::cout << "  " << book[i].key << " is not listed\n";
            continue;
        }
        // A plain pointer, valid as long as the view: nobody counts references for a look.
        const CInstrumentDetail* underlying = view.find(record->underlyingMarket + record->underlyingCode);
        const CInstrumentDetail& priced = underlying != nullptr ? *underlying : *record;
        const double amount = priced.preSettlementPrice * record->volumeMultiple * book[i].lots;
        std::cout << "  " << book[i].key << " exposed to " << priced.code << " by " << amount << '\n';
    }
}

}  // namespace

int main() {
    mxservice::CServerInstrumentCenter center("instruments");
    load(center, 2815);
    const std::vector<Position> book{{"DCEm2607-C-2850", 2}, {"DCEm2609", -1}, {"DCEm2611", 1}};

    const InstrumentView before = center.view();  // a pointer: cheap to make, to copy and to pass on
    load(center, 2900);                           // makes nobody wait, and changes nothing of what is being looked at
    value(before, book);
    value(center.view(), book);

    int lots = 0;  // a whole market, without building a map of it
    before.visit("DCE", [&](const InstrumentView::Instrument& record) { lots += record->volumeMultiple; });
    std::cout << "one lot of everything in the former listing: " << lots << " tons\n";
}
