#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/catalogue/Classifier.h"
#include "base/instrumentcenter/catalogue/CodeIndex.h"
#include "base/instrumentcenter/catalogue/FuturesTables.h"
#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "platform/net/RPCEngine.h"

namespace mxservice {

/// The source file that every log line of the in-memory center names, whatever unit it comes from.
constexpr const char* kServerSource = "base/instrumentcenter/CServerInstrumentCenter";

/// A copy of what the index holds under the key, taken while the lock is held; empty when there is nothing.
template <class Pointer>
Pointer lookUp(const Guarded<HashIndex<Pointer>>& guarded, std::uint64_t key) {
    return guarded.answer([key](const HashIndex<Pointer>& index) noexcept {
        const auto found = index.find(key);
        return found == index.end() ? Pointer() : found->second;
    });
}

struct BondCatalogue {
    HashIndex<boost::shared_ptr<CBondInfoDetail>> bonds;  // by bond key
    std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> counterparties;
};

struct OtcCatalogue {
    std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> issuances;
    std::map<std::int32_t, std::vector<boost::shared_ptr<COTCFundPlanInfo>>> plansByGroup;
    HashIndex<boost::shared_ptr<COTCFundPlanInfo>> plans;  // by stock key
};

/// The records of the keys, in the order of the keys; a key without a record is passed over.
template <class Keys>
std::vector<InstrumentPtr> resolve(const Keys& keys, const HashIndex<InstrumentPtr>& index) {
    std::vector<InstrumentPtr> found;
    found.reserve(keys.size());
    for (const StockKey key : keys) {
        const auto at = index.find(key);
        if (at != index.end() && at->second) {
            found.push_back(at->second);
        }
    }
    return found;
}

/// Everything the in-memory center keeps. `strand` and `futureMarkets` are constant after construction; every other
/// member guards itself, and no operation holds two of their locks at once.
struct ServerState {
    explicit ServerState(const std::string& strandName)
        : strand(net::RPCEngine::instance()->getStrand(strandName)), classifier(codeIndex) {}

    /// The same under the record lock.
    template <class Keys>
    std::vector<InstrumentPtr> resolve(const Keys& keys) const {
        return mxservice::resolve(keys, *records.read());
    }

    const boost::shared_ptr<net::Strand> strand;
    CodeIndex codeIndex;
    const Classifier classifier;
    Guarded<HashIndex<InstrumentPtr>> records;               // by stock key
    Guarded<HashIndex<boost::shared_ptr<CETFDetail>>> etfs;  // both keys of every fund
    const std::set<MarketKey> futureMarkets = futureMarketKeys();
    Guarded<FuturesCatalogue> futures;
    Guarded<BondCatalogue> bonds;
    Guarded<OtcCatalogue> otc;
    Guarded<HashIndex<boost::shared_ptr<CTenderBondInfoDetail>>> tenderBonds;  // by hash of code
};

}  // namespace mxservice
