#include "feed/Host.h"

#include <array>
#include <set>
#include <string>
#include <type_traits>
#include <utility>

#include "feed/Listing.h"

namespace mxservice::feed {
namespace {

template <class Center>
class CenterHost : public Host {
public:
    explicit CenterHost(Center& center) : center_(center) {}

    void load(const Day& day, const std::vector<Change>& changes) override {
        Listing listing = listingOf(day, changes, kParts);
        std::set<std::string> markets = marketsOf(listing);
        if (std::exchange(loaded_, true) || bringsTwice(day)) {
            nameAll(markets, listing.markets);
            nameAll(markets_, listing.markets);  // of a market that the batch has nothing for, everything goes
            replace(day, changes, listing);
        } else {
            // Nobody asks for a former day: every load as it was handed in, every change as it was made. Not where that
            // leaves records that hosts which had a day before do not have.
            day.loadInto(center_);
            if (!listing.left.empty()) {
                center_.applyChanges({}, listing.left);  // or it had more than a host that has seen other days
            }
            for (const Change& change : changes) {
                apply(change);
            }
        }
        markets_ = std::move(markets);
        catalogues_ = cataloguesOf(day);
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

    /// Changes are in the one batch, too: replayed one by one behind the day, a listing that the former state had and a
    /// change brings again would be gone in between.
    void replace(const Day& day, const std::vector<Change>& changes, const Listing& listing) {
        center_.replaceInstruments(listing.markets, listing.instruments);
        const auto upserts = sharedUpserts(changes);
        if (!upserts.empty()) {
            center_.applyChanges(upserts, {});
        }
        const Catalogues present = cataloguesOf(day);
        Day others;
        for (std::size_t i = 1; i < present.size(); ++i) {
            const auto catalogue = static_cast<SnapshotCatalogue>(i);
            if (present[i] || catalogues_[i]) {
                loadsOf(day, catalogue, others);
            }
        }
        others.loadInto(center_);
    }

    /// The loads of one catalogue; an empty one where the day has none and the former day had. In the in-memory center
    /// each replaces the one before, so that only the last one shows: between two of them keys would be gone.
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
    bool loaded_ = false;
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
