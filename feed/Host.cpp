#include "feed/Host.h"

#include <boost/pointer_cast.hpp>

#include <array>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "feed/Listing.h"

namespace mxservice::feed {
namespace {

template <class Center>
class CenterHost : public Host {
public:
    explicit CenterHost(Center& center) : center_(center) {}

    void load(const Day& day, const std::vector<Change>& changes) override {
        // Replayed one by one behind the day, a listing that the former state had and a change brings again would be
        // gone in between. Not where all of it is one version: there they are what they are for a host that was there.
        const Listing listing =
            kInMemory ? listingOf(day, {}, Loads::InMemory) : listingOf(day, changes, Loads::Persisted);
        const std::set<std::string> markets = marketsOf(listing);
        const Catalogues catalogues = cataloguesOf(day);
        // Before anything is loaded, and with those of the former day: where a center throws, either may be there.
        markets_.insert(markets.begin(), markets.end());
        for (std::size_t i = 0; i < catalogues.size(); ++i) {
            catalogues_[i] = catalogues_[i] || catalogues[i];
        }
        if constexpr (kInMemory) {
            center_.loadTogether([&] { replace(day, changes, listing); });
        } else {
            replace(day, changes, listing);
        }
        markets_ = markets;
        catalogues_ = catalogues;
    }

    void apply(const Change& change) override { center_.applyChanges(change.upserts, change.removedKeys); }

private:
    static constexpr bool kInMemory = std::is_same_v<Center, CServerInstrumentCenter>;

    using Catalogues = std::array<bool, kSnapshotCatalogues>;

    static Catalogues cataloguesOf(const Day& day) {
        Catalogues catalogues{};
        for (const Day::Call& call : day.calls()) {
            catalogues[static_cast<std::size_t>(call.catalogue)] = true;
        }
        return catalogues;
    }

    /// The first day goes this way, too: what a load brings and a later one of the same day leaves out would stay in
    /// a center that does load by load, and hosts of one revision would differ by what they had before.
    void replace(const Day& day, const std::vector<Change>& changes, const Listing& listing) {
        std::vector<std::string> named = listing.markets;
        nameAll(markets_, named);  // of a market that the batch has nothing for, everything goes
        if constexpr (kInMemory) {
            // What stands for funds and bonds among the instruments is filed beside what former loads have filed. In
            // the persisted center it would be gone until those loads bring it again.
            nameAll({kEtfInstruments, market::kInterbank}, named);
        }
        center_.replaceInstruments(named, listing.instruments);
        Day others;
        for (std::size_t i = 1; i < catalogues_.size(); ++i) {
            if (catalogues_[i]) {
                loadsOf(day, static_cast<SnapshotCatalogue>(i), others);
            }
        }
        others.loadInto(center_);
        for (const Change& change : kInMemory ? changes : afterBatch(changes)) {
            apply(change);
        }
    }

    /// The loads of one catalogue; an empty one where the day has none and the former day had. In the in-memory center
    /// each replaces the one before, but for the instruments that stand for its funds and bonds: those of the last one
    /// alone shall be there.
    static void loadsOf(const Day& day, SnapshotCatalogue catalogue, Day& loads) {
        std::vector<const Day::Call*> calls;
        for (const Day::Call& call : day.calls()) {
            if (call.catalogue == catalogue) {
                calls.push_back(&call);
            }
        }
        if (calls.empty()) {
            Day::Call nothing;
            nothing.catalogue = catalogue;
            loads.add(nothing);
        } else if (kInMemory) {
            loads.add(*calls.back());
        } else {
            for (const Day::Call* const call : calls) {
                loads.add(*call);
            }
        }
    }

    Center& center_;
    std::set<std::string> markets_;  // of the day that the center has, folded
    Catalogues catalogues_{};
};

template <class Record>
void copyEach(std::vector<boost::shared_ptr<Record>>& records) {
    for (auto& record : records) {
        record = record ? boost::static_pointer_cast<Record>(record->copy()) : nullptr;
    }
}

}  // namespace

std::vector<boost::shared_ptr<CInstrumentDetail>> instrumentsOf(const Day& day, std::vector<Change> changes) {
    std::vector<boost::shared_ptr<CInstrumentDetail>> instruments =
        listingOf(day, changes, Loads::Persisted).instruments;
    const std::vector<Change> decided = afterBatch(changes);
    if (decided.empty()) {
        return instruments;
    }
    Day loads;  // copies: a load fills in fields of its records
    for (Day::Call call : day.calls()) {
        if (call.catalogue == SnapshotCatalogue::Instruments) {
            copyEach(call.records);
            loads.add(std::move(call));
        }
    }
    for (Change& change : changes) {
        copyEach(change.upserts);
    }
    CServerInstrumentCenter center("feed");
    hostOf(center)->load(loads, changes);
    const auto decidedOf = [&](const CInstrumentDetail& record) {
        return static_cast<IInstrumentCenter&>(center).getInstrument(record.market, record.code);
    };
    std::set<boost::shared_ptr<CInstrumentDetail>> winners;
    for (const Change& change : decided) {
        for (const auto& upsert : change.upserts) {
            winners.insert(decidedOf(*upsert));
        }
    }
    std::erase_if(instruments, [&](const auto& record) { return winners.count(decidedOf(*record)) != 0; });
    instruments.insert(instruments.end(), winners.begin(), winners.end());
    return instruments;
}

std::unique_ptr<Host> hostOf(CServerInstrumentCenter& center) {
    return std::make_unique<CenterHost<CServerInstrumentCenter>>(center);
}

std::unique_ptr<Host> hostOf(CClientInstrumentCenter& center) {
    return std::make_unique<CenterHost<CClientInstrumentCenter>>(center);
}

}  // namespace mxservice::feed
