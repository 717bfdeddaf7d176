#include "base/instrumentcenter/catalogue/Amendment.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {
namespace {

/// What a touched key stands for afterwards; null where it is removed.
const CInstrumentDetail* recordAfter(const Amendment& amendment, MarketKey market, StockKey key) {
    const auto records = amendment.upserts.find(market);
    if (records == amendment.upserts.end()) {
        return nullptr;
    }
    const auto record = records->second.find(key);
    return record == records->second.end() ? nullptr : record->second.get();
}

// Text by text: of these sets nothing else tells to which record a code belongs, so a touched record's is taken out
// first, and comes back if the record still earns it.
void replaceTexts(const std::set<std::string>& texts, std::set<std::string> fresh, std::set<std::string>& codes) {
    std::erase_if(codes, [&](const std::string& code) { return texts.count(code) != 0; });
    codes.merge(fresh);
}

}  // namespace

KeySet Amendment::touched() const {
    // Upserts are touched whether or not they were filed: what is new is derived by the same way as what changed.
    KeySet keys = removed;
    for (const auto& [market, records] : upserts) {
        for (const auto& [key, record] : records) {
            keys.insert(key);
        }
    }
    return keys;
}

void setRemoved(const std::vector<std::string>& removedKeys, Amendment& amendment) {
    amendment.texts.insert(removedKeys.begin(), removedKeys.end());
    for (const std::string& text : removedKeys) {
        amendment.removed.insert(foldedTextKey(text));
    }
    // A key in both lists is brought: removing it first and filing it then is one change, in which no reader misses it.
    for (const auto& [market, records] : amendment.upserts) {
        for (const auto& [key, record] : records) {
            amendment.removed.erase(key);
            amendment.texts.insert(keyTextOf(*record));
        }
    }
}

void keepListings(const FormerRecords& former,
                  std::map<std::uint64_t, std::int32_t> (*listingsOf)(std::uint32_t combinedFlags),
                  Amendment& amendment) {
    const auto upserts = amendment.upserts.find(marketKey(market::kHongKong));
    if (upserts == amendment.upserts.end()) {
        return;
    }
    for (const auto& [key, record] : upserts->second) {
        const auto filed = former.find(key);
        if (filed == former.end() || !filed->second.record) {
            continue;
        }
        auto listings = listingsOf(filed->second.record->combinedConnectFlags);
        if (!listings.empty()) {
            amendment.listings[key].merge(listings);  // of a market that both name the upsert counts
        }
    }
}

FiledKeys::Sets upsertedKeys(const Amendment& amendment) {
    FiledKeys::Sets sets;
    for (const auto& [market, records] : amendment.upserts) {
        auto keys = std::make_shared<KeySet>();
        for (const auto& [key, record] : records) {
            keys->insert(key);
        }
        sets[market] = std::move(keys);
    }
    return sets;
}

std::map<MarketKey, KeySet> goneKeys(const Amendment& amendment, const FormerRecords& former) {
    std::map<MarketKey, KeySet> gone;
    for (const auto& [key, filed] : former) {
        if (amendment.removed.contains(key)) {
            gone[filed.market].insert(key);
        }
    }
    return gone;
}

bool namesMainContract(const KeySet& keys, const FuturesCatalogue& catalogue) {
    const auto& markets = catalogue.mainCodesByMarket;
    return std::any_of(markets.begin(), markets.end(), [&](const auto& market) {
        return std::any_of(keys.begin(), keys.end(), [&](StockKey key) { return market.second.contains(key); });
    });
}

void amendMainContracts(const KeySet& touched, const std::map<MarketKey, MainContracts>& mains,
                        FuturesCatalogue& catalogue) {
    // Out with all of them first: a contract may have lost its flag, or have gone over to another product.
    removeKeys(touched, catalogue);
    for (const auto& [market, fresh] : mains) {
        catalogue.mainCodesByMarket[market].insert(fresh.all.begin(), fresh.all.end());
        for (const auto& [product, keys] : fresh.byProduct) {
            catalogue.mainCodesByProduct[product].insert(keys.begin(), keys.end());
        }
    }
}

void amendCodes(const Amendment& amendment, CodeSets& sets) {
    // By the texts that records bear and not by their keys: "HGT" and "HK" fold onto one key, and these sets keep
    // texts.
    StockCodes fresh = deriveStockCodes(amendment.upserts);
    for (const char* const market : {market::kShanghai, market::kShenzhen, market::kBeijing}) {
        replaceTexts(amendment.texts, std::move(fresh.ipo[market]), sets.ipoCodes[market]);
    }
    for (const char* const market : {market::kShanghai, market::kShenzhen}) {
        replaceTexts(amendment.texts, std::move(fresh.cdr[market]), sets.cdrCodes[market]);
    }
    replaceTexts(amendment.texts, deriveNeeqInquiryCodes(amendment.upserts), sets.neeqInquiryCodes);
    // Only added here: whether the last option on a code has gone is told by all options.
    for (auto& [exchange, codes] : deriveOptionUnderlyings(amendment.upserts)) {
        sets.stkOptionUndlCodes[exchange].insert(codes.begin(), codes.end());
    }
}

std::set<std::string> marketsToDerive(const Amendment& amendment, const FormerRecords& former) {
    static const std::array<std::pair<MarketKey, const char*>, 2> optionMarkets{
        {{marketKey(market::kShanghaiOption), market::kShanghaiOption},
         {marketKey(market::kShenzhenOption), market::kShenzhenOption}}};
    static const MarketKey dalian = marketKey(market::kDalian);
    std::set<std::string> markets;
    // Asked of the records before and after: most changes touch neither spreads nor options, and a listing of a market,
    // which the persisted center reads from its store, costs a thousand times the change itself.
    for (const auto& [key, filed] : former) {
        const CInstrumentDetail* const after = recordAfter(amendment, filed.market, key);
        for (const auto& [market, name] : optionMarkets) {
            if (filed.market == market && filed.record &&
                (after == nullptr || after->productId != filed.record->productId)) {
                markets.insert(name);
            }
        }
        // A spread has its legs in its code, so one that stays has them unchanged.
        if (filed.market == dalian && after == nullptr && (!filed.record || isDceSpread(*filed.record))) {
            markets.insert(market::kDalian);
        }
    }
    if (const auto records = amendment.upserts.find(dalian); records != amendment.upserts.end()) {
        for (const auto& [key, record] : records->second) {
            if (former.count(key) == 0 && isDceSpread(*record)) {
                markets.insert(market::kDalian);
            }
        }
    }
    return markets;
}

void installDerived(const GroupedSnapshot& listings, FuturesCatalogue& futures, CodeSets& sets) {
    if (std::optional<DceSpreads> spreads = deriveDceSpreads(listings)) {
        futures.spreads = std::move(*spreads);
    }
    for (const char* const market : {market::kShanghaiOption, market::kShenzhenOption}) {
        if (listings.count(marketKey(market)) != 0) {
            removeMarket(market, sets);  // else an exchange whose last option has gone would keep its codes
        }
    }
    auto underlyings = deriveOptionUnderlyings(listings);
    installOptionUnderlyings(underlyings, sets);
}

}  // namespace mxservice
