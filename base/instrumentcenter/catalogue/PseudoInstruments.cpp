#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

#include <boost/make_shared.hpp>

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

StockKey etfKey(const CETFDetail& etf) {
    return stockKey(etf.market, etf.etfCode);
}

StockKey creationKey(const CETFDetail& etf) {
    return stockKey(etf.market, etf.prCode);
}

std::string keyTextOf(const CETFDetail& etf) {
    return utils::ovStockKey(etf.market, etf.etfCode);
}

void addEtfInstrument(const CETFDetail& etf, MarketRecords& instruments) {
    const StockKey key = stockKey(kEtfInstruments, etf.prCode);
    if (instruments.count(key) != 0) {
        return;  // the first fund of a code names it in both centers, whichever of the funds they keep
    }
    auto instrument = boost::make_shared<CInstrumentDetail>();
    // Its own market, though it is filed under another: an order for it goes to the fund's exchange.
    instrument->market = etf.market;
    instrument->code = etf.prCode;
    instrument->name = etf.prCode;
    instrument->platformCode = etf.prCode;
    // Deliberately not the fund's own name, which belongs to its trading code.
    if (!etf.components.empty() && etf.components.begin()->second) {
        instrument->name = etf.components.begin()->second->name;
    }
    instruments.emplace(key, std::move(instrument));
}

StockKey bondKey(const CBondInfoDetail& bond) {
    return stockKey(market::kInterbank, bond.bondCode);
}

std::vector<StockKey> listingKeysOf(const CBondInfoDetail& bond) {
    std::vector<StockKey> keys{bondKey(bond)};
    if (!bond.shanghaiCode.empty()) {
        keys.push_back(stockKey(market::kShanghai, bond.shanghaiCode));
    }
    if (!bond.shenzhenCode.empty()) {
        keys.push_back(stockKey(market::kShenzhen, bond.shenzhenCode));
    }
    return keys;
}

void addBondInstrument(const CBondInfoDetail& bond, MarketRecords& instruments) {
    const StockKey key = bondKey(bond);
    if (instruments.count(key) != 0) {
        return;
    }
    auto instrument = boost::make_shared<CInstrumentDetail>();
    instrument->market = market::kInterbank;
    instrument->code = bond.bondCode;
    instrument->name = bond.bondName;
    instrument->platformCode = bond.bondCode;
    instruments.emplace(key, std::move(instrument));
}

}  // namespace mxservice
