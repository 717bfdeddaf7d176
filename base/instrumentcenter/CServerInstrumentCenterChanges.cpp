#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/catalogue/Amendment.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Changes of single records. Everything is prepared before the version is made; what depends on the records of the
// moment, such as connect flags, is done within, where no other load can come in between.

namespace mxservice {
namespace {

/// The kept connect parts, from which Hong Kong is built anew when one of them is loaded again: a key that is removed
/// must not come back with another market's load.
void amendConnectParts(const std::vector<InstrumentPtr>& upserts, const Amendment& amendment,
                       std::map<std::string, std::vector<InstrumentPtr>>& parts) {
    const KeySet& removed = amendment.removed;
    const bool removesHongKong =
        std::any_of(amendment.texts.begin(), amendment.texts.end(), [&](const std::string& text) {
            const std::string_view market = std::string_view(text).substr(0, 2);
            return (market == market::kHongKong || isConnectMarket(std::string_view(text).substr(0, 3))) &&
                   removed.contains(foldedTextKey(text));
        });
    for (auto& [market, records] : parts) {
        std::unordered_map<std::string_view, std::size_t> places;
        if (removesHongKong) {
            std::erase_if(records, [&](const InstrumentPtr& record) {
                return record && removed.contains(stockKey(foldedMarket(record->market), record->code));
            });
        }
        for (const InstrumentPtr& upsert : upserts) {
            if (!upsert || upsert->market != market) {
                continue;
            }
            if (places.empty()) {  // not for the parts that no upsert is of
                for (std::size_t i = 0; i < records.size(); ++i) {
                    if (records[i] && records[i]->market == market) {
                        places[records[i]->code] = i;
                    }
                }
            }
            const auto [place, fresh] = places.try_emplace(upsert->code, records.size());
            if (fresh) {
                records.push_back(upsert);
            } else {
                // The view of its code goes with the record that leaves.
                const std::size_t at = place->second;
                places.erase(place);
                records[at] = upsert;
                places[upsert->code] = at;
            }
        }
    }
}

FormerRecords formerRecords(const ServerVersion& version, const KeySet& touched) {
    FormerRecords former;
    for (const StockKey key : touched) {
        if (const MarketKey* const market = version.keys.marketOf(key)) {
            former[key] = {*market, version.recordOf(key)};
        }
    }
    return former;
}

/// All that a market lists.
MarketRecords listingOf(const ServerVersion& version, MarketKey market) {
    MarketRecords listing;
    if (const KeySet* const keys = version.keys.keysOf(market)) {
        for (const StockKey key : *keys) {
            if (InstrumentPtr record = version.recordOf(key)) {
                listing.emplace(key, std::move(record));
            }
        }
    }
    return listing;
}

void amend(const std::set<MarketKey>& futureMarkets, Amendment& amendment, ServerVersion& version) {
    const KeySet touched = amendment.touched();
    const FormerRecords former = formerRecords(version, touched);
    keepListings(former, listingsMarked, amendment);
    markConnectEligibility(amendment.upserts, amendment.listings);
    version.records.put(touched.size(), [&](const auto& putOne) {
        for (const auto& [market, records] : amendment.upserts) {
            for (const auto& [key, record] : records) {
                putOne(key, record);
            }
        }
    });
    version.records.erase(amendment.removed);
    version.keys.amend(upsertedKeys(amendment), goneKeys(amendment, former));
    const auto mains = deriveMainContracts(amendment.upserts, futureMarkets);
    if (!mains.empty() || namesMainContract(touched, *version.futures)) {
        amendMainContracts(touched, mains, version.futures.own());
    }
    amendCodes(amendment, version.codeSets.own());
    GroupedSnapshot listings;
    for (const std::string& market : marketsToDerive(amendment, former)) {
        listings[marketKey(market)] = listingOf(version, marketKey(market));
    }
    if (!listings.empty()) {
        installDerived(listings, version.futures.own(), version.codeSets.own());
    }
}

}  // namespace

void CServerInstrumentCenter::applyChanges(const std::vector<boost::shared_ptr<CInstrumentDetail>>& upserts,
                                           const std::vector<std::string>& removedKeys) {
    PM_CENTER_LOG(kLogInfo, kServerSource,
                  fmt::format("[inscenter] apply changes: [{0}] records, [{1}] keys removed", upserts.size(),
                              removedKeys.size()));
    Amendment amendment;
    DroppedList unheard;  // no load, so none to report on
    groupRecords(upserts, amendment.upserts, amendment.listings, unheard);
    setRemoved(removedKeys, amendment);
    const Subscribers::HoldBack telling(state().subscribers);  // until the lock is dropped
    // Through both steps: a connect build in between would file what is removed, from parts that have it still.
    const std::lock_guard guard(state().connectLock);
    amendConnectParts(upserts, amendment, state().connectSnapshots);
    const auto isFiled = [this](StockKey key) {
        return ask(state(),
                   [key](const ServerVersion& version) noexcept { return version.keys.marketOf(key) != nullptr; });
    };
    // Not asked within loadTogether(), where what is filed by now cannot be seen yet.
    const bool changesNothing = !state().isTogether() && amendment.upserts.empty() &&
                                std::none_of(amendment.removed.begin(), amendment.removed.end(), isFiled);
    if (!changesNothing) {
        publish(
            state(), [&](ServerVersion& version) { amend(server_->futureMarkets, amendment, version); },
            std::make_shared<const KeySet>(amendment.touched()));
    }
}

}  // namespace mxservice
