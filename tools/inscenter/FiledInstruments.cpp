#include "tools/inscenter/FiledInstruments.h"

#include <boost/make_shared.hpp>

#include <algorithm>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/MarketNames.h"

namespace inscenter {
namespace {

using mxservice::EOvTraderType;
using mxservice::Field;
using mxservice::IInstrumentCenter;
using mxservice::RecordType;

void addOnce(const std::string& market, std::vector<std::string>& markets) {
    if (std::find(markets.begin(), markets.end(), market) == markets.end()) {
        markets.push_back(market);
    }
}

bool meansEverything(CenterKind kind, EOvTraderType type) {
    switch (type) {
        case EOvTraderType::OvTraderAll:
        case EOvTraderType::OvTraderBasket:
        case EOvTraderType::OvTraderDomestic:
        case EOvTraderType::OvTraderReference:
        case EOvTraderType::OvTraderEverything:
            return true;
        case EOvTraderType::OvTraderQuote:
            return kind == CenterKind::Client;  // the in-memory center has nothing for it
        default:
            return false;
    }
}

}  // namespace

const RecordType& FiledInstrument::table() {
    static const RecordType& kTable = []() -> const RecordType& {
        const RecordType& base = CInstrumentDetail::table();
        std::vector<Field> fields = base.fields();
        // Measured on an object: offsetof need not take a class with a base.
        const FiledInstrument sample;
        const auto* const start = reinterpret_cast<const char*>(static_cast<const mxservice::IData*>(&sample));
        const auto* const at = reinterpret_cast<const char*>(&sample.filed);
        fields.emplace_back(kFiledField, mxservice::FieldKind::Text, static_cast<std::size_t>(at - start));
        const RecordType::Maker maker = [] {
            return boost::shared_ptr<mxservice::IData>(boost::make_shared<FiledInstrument>());
        };
        // Never destroyed, as the other tables.
        return *new RecordType(base.name(), base.telltale(), sizeof(FiledInstrument), maker, std::move(fields));
    }();
    return kTable;
}

boost::shared_ptr<mxservice::IData> FiledInstrument::copy() const {
    return boost::make_shared<FiledInstrument>(*this);
}

std::vector<std::string> filedMarkets(const std::vector<std::pair<std::string, std::size_t>>& named) {
    std::vector<std::string> markets;
    for (const auto& [market, count] : named) {
        addOnce(filedMarket(market), markets);
    }
    // No record need name these: centers file there what they make of funds and bonds.
    addOnce(kEtfInstruments, markets);
    addOnce(mxservice::market::kInterbank, markets);
    return markets;
}

std::vector<std::string> askedMarkets(const std::vector<std::pair<std::string, std::size_t>>& named) {
    std::vector<std::string> markets;
    markets.reserve(kMarketNames.size() + named.size());
    for (const MarketName& known : kMarketNames) {
        markets.emplace_back(known.market);
    }
    for (const auto& [market, count] : named) {
        addOnce(market, markets);
    }
    return markets;
}

std::vector<Filed> instrumentsOf(IInstrumentCenter& center, const std::vector<std::string>& markets) {
    std::vector<std::string> filed;
    for (const std::string& market : markets) {
        addOnce(filedMarket(market), filed);
    }
    std::vector<Filed> instruments;
    for (const std::string& market : filed) {
        for (const auto& [key, record] : center.getInstruments(market)) {
            instruments.push_back({market, record});
        }
    }
    return instruments;
}

const std::vector<int>& traderTypes() {
    using namespace mxservice;
    // Named once more, because an enumeration cannot be walked.
    static const std::vector<int> kTypes{
        OvTraderStock,        OvTraderFuture,        OvTraderAll,       OvTraderMargin,  OvTraderGold,
        OvTraderOption,       OvTraderForeign,       OvTraderHongKong,  OvTraderNeeq,    OvTraderOtc,
        OvTraderFutureOption, OvTraderOuterFuture,   OvTraderBond,      OvTraderConnect, OvTraderBasket,
        OvTraderFund,         OvTraderSecuritiesOtc, OvTraderReference, OvTraderQuote,   OvTraderDomestic,
        OvTraderEverything};
    return kTypes;
}

std::vector<Filed> instrumentsOf(IInstrumentCenter& center, CenterKind kind, EOvTraderType type,
                                 const std::vector<std::string>& markets) {
    if (meansEverything(kind, type)) {
        return instrumentsOf(center, markets);
    }
    // No other type has two markets in which a key text occurs twice: none has the pseudo-market of the funds.
    std::vector<Filed> instruments;
    for (const auto& [key, record] : center.getInstruments(type)) {
        instruments.push_back({filedMarket(record->market), record});
    }
    return instruments;
}

}  // namespace inscenter
