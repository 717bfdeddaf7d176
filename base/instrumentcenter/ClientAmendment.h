#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/catalogue/Amendment.h"

namespace mxservice {

/// One call of applyChanges on its way through store, versions and derived catalogues.
class ClientAmendment {
public:
    ClientAmendment(CClientInstrumentCenter& center, const std::vector<InstrumentPtr>& upserts,
                    const std::vector<std::string>& removedKeys);
    void apply();

private:
    /// What changes of one market.
    struct MarketChange {
        std::string name;  // of upserts; folded
        std::string db;
        MarketRecords records;
        KeySet gone;
        /// Where the store has refused this change or one before: all that the market has from now on, or, where that
        /// cannot be read, what it has beside its documents.
        std::shared_ptr<const MarketRecords> unwritten;
        bool isWhole = false;
        std::optional<std::string> failure;
    };
    using Products = std::map<std::string, std::vector<InstrumentPtr>>;

    std::map<std::string, std::unique_lock<std::mutex>> lockDatabases();
    void collect();
    void amendRaw();
    void amendStore();
    CatalogueChange write(MarketKey market, MarketChange& change);
    CatalogueChange differenceOf(MarketKey market, const MarketChange& change) const;
    std::optional<MarketRecords> wholeOf(const Market& known, MarketKey market, const MarketChange& change) const;
    void publish(CatalogueChange told);
    bool touchesMains(MarketKey market, const MarketChange& change) const;
    void amendMains();
    void amendProducts();
    Products touchedProducts() const;
    void deriveAnew();
    void noteFailure(const std::string& db, const std::string& reason) { failures_.emplace_back(db, reason); }

    CClientInstrumentCenter& center_;
    ClientState& client_;
    const Subscribers::HoldBack telling_;  // through all locks
    const std::vector<InstrumentPtr>& batch_;
    const std::vector<std::string>& removedKeys_;
    Amendment amendment_;
    FormerRecords former_;
    std::map<MarketKey, MarketChange> changes_;
    std::vector<std::pair<std::string, std::string>> failures_;  // databases and reasons, beside those of the markets
};

}  // namespace mxservice
