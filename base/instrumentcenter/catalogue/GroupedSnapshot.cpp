#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

#include <boost/sort/pdqsort/pdqsort.hpp>

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

#include "base/instrumentcenter/catalogue/DroppedRecords.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {
namespace {

constexpr std::uint32_t kShanghaiConnectOnly = 1;
constexpr std::uint32_t kShenzhenConnectOnly = 3;
constexpr std::uint32_t kBothConnects = 5;
constexpr unsigned kShenzhenShift = 2;  // the persisted center's flags

/// How a record stands against another one of the same key.
enum class Precedence {
    Replaces,         // takes the key, whatever is there
    OnlyIfAbsent,     // takes the key where nothing is
    SpecialIfAbsent,  // the same for "SHFI", whose market field is then overwritten
};

struct Placement {
    MarketKey market;         // folded
    MarketKey connectMarket;  // the connect market of a connect listing, else 0
    Precedence precedence;
};

/// Where a record of a market goes. Consecutive records mostly share their market, so the last answer is kept.
class Placer {
public:
    const Placement& place(const std::string& market) {
        if (market != lastMarket_ || !valid_) {
            last_ = placementOf(market);
            lastMarket_ = market;
            foldedName_ = last_.market == shanghai_   ? market::kShanghai
                          : last_.market == hongKong_ ? market::kHongKong
                                                      : std::string_view(lastMarket_);
            valid_ = true;
        }
        return last_;
    }
    /// The folded name of the market placed last.
    std::string_view foldedName() const { return foldedName_; }

private:
    Placement placementOf(const std::string& market) const {
        const MarketKey key = marketKey(market);
        if (key == shanghaiConnect_ || key == shenzhenConnect_) {
            return {hongKong_, key, Precedence::Replaces};
        }
        if (key == hongKong_) {
            return {hongKong_, 0, Precedence::OnlyIfAbsent};
        }
        if (key == special_) {
            return {shanghai_, 0, Precedence::SpecialIfAbsent};
        }
        return {key, 0, Precedence::Replaces};
    }

    const MarketKey shanghai_ = marketKey(market::kShanghai);
    const MarketKey special_ = marketKey(market::kShanghaiSpecial);
    const MarketKey hongKong_ = marketKey(market::kHongKong);
    const MarketKey shanghaiConnect_ = marketKey(market::kShanghaiConnect);
    const MarketKey shenzhenConnect_ = marketKey(market::kShenzhenConnect);
    std::string lastMarket_;
    std::string_view foldedName_;
    Placement last_{};
    bool valid_ = false;
};

/// One record on its way into its market. Sixteen bytes, because all of a market's are sorted.
class Arrival {
public:
    /// `order` is the record's place in the batch.
    Arrival(StockKey key, std::size_t order, Precedence precedence)
        : key_(key), orderAndPrecedence_(order << kPrecedenceBits | static_cast<std::uint64_t>(precedence)) {}

    StockKey key() const { return key_; }
    std::size_t order() const { return orderAndPrecedence_ >> kPrecedenceBits; }
    Precedence precedence() const {
        return static_cast<Precedence>(orderAndPrecedence_ & ((std::uint64_t{1} << kPrecedenceBits) - 1));
    }

private:
    static constexpr unsigned kPrecedenceBits = 2;
    StockKey key_;
    std::uint64_t orderAndPrecedence_;
};

/// Why one of two records with one key is dropped.
const char* reasonOf(const CInstrumentDetail& loser, const CInstrumentDetail& winner, bool loserIsEarlier) {
    if (isConnectMarket(winner.market) && !isConnectMarket(loser.market)) {
        return kConnectFirst;
    }
    if (loser.market == market::kShanghaiSpecial) {
        return kPlainFirst;
    }
    return loserIsEarlier ? kLaterRecord : kEarlierRecord;
}

void settle(InstrumentPtr& place, Precedence precedence, InstrumentPtr& record, DroppedList& dropped) {
    // A special record that comes twice is a plain Shanghai record the second time.
    const bool relabelled = precedence == Precedence::SpecialIfAbsent && record->market == market::kShanghai;
    if (precedence != Precedence::Replaces && !relabelled && place) {
        dropped.add(*record, reasonOf(*record, *place, false));
        return;
    }
    if (place) {
        dropped.add(*place, reasonOf(*place, *record, true));
    }
    if (precedence == Precedence::SpecialIfAbsent) {
        record->market = market::kShanghai;
    }
    // Swapped, so that no reference is counted: the batch lets go of whichever lost.
    place.swap(record);
}

/// Arrivals in the order of their keys are appended in one sweep, several times faster than inserting them one by one
/// in random order. Those of one key keep their order, and only they can influence each other. `held` are the batch's
/// records.
void settleAll(std::vector<Arrival>& arrivals, std::vector<InstrumentPtr>& held, MarketRecords& records,
               DroppedList& dropped) {
    // By key alone the comparison is free of branches, which halves the time; few keys come more than once.
    boost::sort::pdqsort_branchless(arrivals.begin(), arrivals.end(),
                                    [](const Arrival& a, const Arrival& b) { return a.key() < b.key(); });
    auto next = records.begin();
    for (auto first = arrivals.begin(); first != arrivals.end();) {
        const StockKey key = first->key();
        const auto last = std::find_if(first + 1, arrivals.end(), [key](const Arrival& a) { return a.key() != key; });
        if (last - first > 1) {
            std::sort(first, last, [](const Arrival& a, const Arrival& b) { return a.order() < b.order(); });
        }
        while (next != records.end() && next->first < key) {
            ++next;
        }
        const bool known = next != records.end() && next->first == key;
        InstrumentPtr& place = known ? next->second : records.try_emplace(next, key)->second;
        for (; first != last; ++first) {
            settle(place, first->precedence(), held[first->order()], dropped);
        }
    }
}

}  // namespace

ReceivedByMarket groupRecords(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped,
                              ConnectListings& listings, DroppedList& dropped) {
    Placer placer;
    std::map<MarketKey, std::vector<Arrival>> arrivalsByMarket;
    std::vector<Arrival>* arrivals = nullptr;
    MarketKey lastMarket = 0;
    // Counted up in the order of the batch, in which records mostly lie in memory; in the order of their keys they do
    // not.
    std::vector<InstrumentPtr> held;
    held.reserve(records.size());
    for (std::size_t order = 0; order < records.size(); ++order) {
        const InstrumentPtr& record = held.emplace_back(records[order]);
        if (!record) {
            continue;
        }
        const Placement& placement = placer.place(record->market);
        if (arrivals == nullptr || placement.market != lastMarket) {
            arrivals = &arrivalsByMarket[placement.market];
            lastMarket = placement.market;
        }
        const StockKey key = stockKey(placer.foldedName(), record->code);
        // Noted of every listing, also of one whose record loses: the code is listed there whichever record stays.
        if (placement.connectMarket != 0) {
            listings[key].try_emplace(placement.connectMarket, record->connectFlagValue);
        }
        arrivals->emplace_back(key, order, placement.precedence);
    }
    ReceivedByMarket received;
    for (auto& [market, marketArrivals] : arrivalsByMarket) {
        settleAll(marketArrivals, held, grouped[market], dropped);
        received[market] = marketArrivals.size();
    }
    return received;
}

ReceivedByMarket groupConnectRecords(const std::vector<InstrumentPtr>& records, GroupedSnapshot& grouped,
                                     ConnectListings& listings, DroppedList& dropped) {
    static const MarketKey hongKong = marketKey(market::kHongKong);
    ReceivedByMarket received;
    for (const InstrumentPtr& record : records) {
        const bool connect = record && isConnectMarket(record->market);
        if (!record || (!connect && record->market != market::kHongKong)) {
            continue;
        }
        const StockKey key = stockKey(market::kHongKong, record->code);
        if (connect) {
            listings[key].try_emplace(marketKey(record->market), record->connectFlagValue);
        }
        InstrumentPtr& place = grouped[hongKong][key];
        if (place) {
            dropped.add(*place, kLaterRecord);
        }
        place = record;  // here the last one wins, connect or not
        ++received[hongKong];
    }
    return received;
}

void markConnectEligibility(GroupedSnapshot& grouped, const ConnectListings& listings) {
    static const MarketKey hongKong = marketKey(market::kHongKong);
    static const MarketKey shanghaiConnect = marketKey(market::kShanghaiConnect);
    for (const auto& [key, flagByMarket] : listings) {
        // Records are the host's: what it has set stays, and so does what an earlier load has set in the same record.
        std::uint32_t& flags = grouped[hongKong][key]->combinedConnectFlags;
        if (flags != 0) {
            continue;
        }
        if (flagByMarket.size() > 1) {
            flags = kBothConnects;
        } else {
            flags = flagByMarket.begin()->first == shanghaiConnect ? kShanghaiConnectOnly : kShenzhenConnectOnly;
        }
    }
}

std::map<std::uint64_t, std::int32_t> listingsMarked(std::uint32_t combinedFlags) {
    std::map<std::uint64_t, std::int32_t> listings;
    if (combinedFlags == kShanghaiConnectOnly || combinedFlags == kBothConnects) {
        listings[marketKey(market::kShanghaiConnect)] = 0;  // this rule does not look at the value
    }
    if (combinedFlags == kShenzhenConnectOnly || combinedFlags == kBothConnects) {
        listings[marketKey(market::kShenzhenConnect)] = 0;
    }
    return listings;
}

void combineConnectFlags(GroupedSnapshot& grouped, const ConnectListings& listings) {
    static const MarketKey hongKong = marketKey(market::kHongKong);
    static const MarketKey shanghaiConnect = marketKey(market::kShanghaiConnect);
    static const MarketKey shenzhenConnect = marketKey(market::kShenzhenConnect);
    for (const auto& [key, flagByMarket] : listings) {
        const InstrumentPtr& record = grouped[hongKong][key];
        if (record->combinedConnectFlags != 0) {
            continue;
        }
        std::uint32_t combined = 0;
        for (const auto& [market, flag] : flagByMarket) {
            if (market == shanghaiConnect) {
                combined |= static_cast<std::uint32_t>(flag);
            } else if (market == shenzhenConnect) {
                combined |= static_cast<std::uint32_t>(flag) << kShenzhenShift;
            }
        }
        if (combined != 0) {  // else the record, which readers may share by now, stays untouched
            record->combinedConnectFlags = combined;
        }
    }
}

std::map<std::uint64_t, std::int32_t> listingsCombined(std::uint32_t combinedFlags) {
    constexpr std::uint32_t kShanghaiBits = (1U << kShenzhenShift) - 1;
    std::map<std::uint64_t, std::int32_t> listings;
    if ((combinedFlags & kShanghaiBits) != 0) {
        listings[marketKey(market::kShanghaiConnect)] = static_cast<std::int32_t>(combinedFlags & kShanghaiBits);
    }
    if ((combinedFlags >> kShenzhenShift) != 0) {
        listings[marketKey(market::kShenzhenConnect)] = static_cast<std::int32_t>(combinedFlags >> kShenzhenShift);
    }
    return listings;
}

}  // namespace mxservice
