#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientCatalogue.h"
#include "base/instrumentcenter/ClientMarkets.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/catalogue/Chains.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Contracts, chains and days: no table of them is kept, the documents are read once for each question.

namespace mxservice {
namespace {

/// What the markets list and `wanted` accepts.
template <class Wanted>
std::vector<InstrumentPtr> listedIn(const ClientVersion& version, const std::vector<MarketKey>& markets,
                                    const Wanted& wanted) {
    std::vector<InstrumentPtr> records;
    for (const MarketKey market : markets) {
        addListed(version, market, wanted, records);
    }
    return records;
}

/// What has the day in that member.
std::vector<InstrumentPtr> ofDay(const ClientVersion& version, const std::string& day,
                                 std::string CInstrumentDetail::*member) {
    if (day.empty()) {
        return {};  // stands for an unknown day
    }
    std::vector<MarketKey> markets;
    for (const auto& [market, keys] : version.keys.sets()) {
        markets.push_back(market);
    }
    auto records = listedIn(version, markets, [&](const InstrumentPtr& record) { return (*record).*member == day; });
    sortByKey(records);
    return records;
}

}  // namespace

std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getContracts(
    const std::string& productId) const {
    const std::vector<MarketKey> exchanges(client_->futureMarkets.begin(), client_->futureMarkets.end());
    auto contracts = listedIn(*client_->hold(), exchanges, [&](const InstrumentPtr& record) {
        return record->productId == productId && isContract(record);
    });
    sortAsContracts(contracts);
    return contracts;
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getOptionChain(
    const std::string& underlyingMarket, const std::string& underlyingCode) const {
    if (underlyingCode.empty()) {
        return {};
    }
    auto options = listedIn(*client_->hold(), optionMarketsOf(underlyingMarket), [&](const InstrumentPtr& record) {
        const Underlying underlying = underlyingOf(*record);
        return underlying.code == underlyingCode && underlying.market == underlyingMarket;
    });
    sortAsChain(options);
    return options;
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getListed(const std::string& day) const {
    return ofDay(*client_->hold(), day, &CInstrumentDetail::listingDate);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getExpiring(const std::string& day) const {
    return ofDay(*client_->hold(), day, &CInstrumentDetail::expireDate);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getBondListings(
    const std::string& bondCode) {
    // As getBond, but through no slot: a host may have overridden that in terms of this.
    const auto bond = readThrough(*client_, kBankBonds, stockKey(market::kInterbank, bondCode), &ClientVersion::bonds,
                                  client_->bonds);
    return bond ? recordsOf(listingKeysOf(*bond)) : std::vector<InstrumentPtr>();
}

}  // namespace mxservice
