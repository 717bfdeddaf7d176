#include <string>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Contracts, chains and days, from tables that the first question makes. The center asks a view: making a table takes
// longer than who publishes may be kept.

namespace mxservice {
std::vector<InstrumentView::Instrument> InstrumentView::getContracts(const std::string& productId) const {
    return in(version_->derivatives().contractsByProduct, textKey(productId));
}

std::vector<InstrumentView::Instrument> InstrumentView::getOptionChain(const std::string& underlyingMarket,
                                                                       const std::string& underlyingCode) const {
    return in(version_->derivatives().optionsByUnderlying, underlyingKey(underlyingMarket, underlyingCode));
}

std::vector<InstrumentView::Instrument> InstrumentView::getListed(const std::string& day) const {
    return in(version_->listedByDay(), textKey(day));
}

std::vector<InstrumentView::Instrument> InstrumentView::getExpiring(const std::string& day) const {
    return in(version_->expiringByDay(), textKey(day));
}

std::vector<InstrumentView::Instrument> InstrumentView::getBondListings(const std::string& bondCode) const {
    const auto bond = in(*version_->bonds, stockKey(market::kInterbank, bondCode));
    return bond ? version_->resolve(listingKeysOf(*bond)) : std::vector<Instrument>();
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getContracts(
    const std::string& productId) const {
    return view().getContracts(productId);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getOptionChain(
    const std::string& underlyingMarket, const std::string& underlyingCode) const {
    return view().getOptionChain(underlyingMarket, underlyingCode);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getListed(const std::string& day) const {
    return view().getListed(day);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getExpiring(const std::string& day) const {
    return view().getExpiring(day);
}

std::vector<boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getBondListings(
    const std::string& bondCode) const {
    return view().getBondListings(bondCode);
}

}  // namespace mxservice
