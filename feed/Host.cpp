#include "feed/Host.h"

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
        const Listing listing = listingOf(day, changes, kParts);
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
    static constexpr ConnectParts kParts = kInMemory ? ConnectParts::LastWins : ConnectParts::Grouped;

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
    ///
    /// Changes are in the one batch, too: replayed one by one behind the day, a listing that the former state had and a
    /// change brings again would be gone in between.
    void replace(const Day& day, const std::vector<Change>& changes, const Listing& listing) {
        std::vector<std::string> named = listing.markets;
        nameAll(markets_, named);  // of a market that the batch has nothing for, everything goes
        if constexpr (kInMemory) {
            // What stands for funds and bonds among the instruments is filed beside what former loads have filed. In
            // the persisted center it would be gone until those loads bring it again.
            nameAll({kEtfInstruments, market::kInterbank}, named);
        }
        center_.replaceInstruments(named, listing.instruments);
        const auto upserts = sharedUpserts(changes);
        if (!upserts.empty()) {
            center_.applyChanges(upserts, {});
        }
        Day others;
        for (std::size_t i = 1; i < catalogues_.size(); ++i) {
            if (catalogues_[i]) {
                loadsOf(day, static_cast<SnapshotCatalogue>(i), others);
            }
        }
        others.loadInto(center_);
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

}  // namespace

std::unique_ptr<Host> hostOf(CServerInstrumentCenter& center) {
    return std::make_unique<CenterHost<CServerInstrumentCenter>>(center);
}

std::unique_ptr<Host> hostOf(CClientInstrumentCenter& center) {
    return std::make_unique<CenterHost<CClientInstrumentCenter>>(center);
}

}  // namespace mxservice::feed
