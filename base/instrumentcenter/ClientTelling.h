#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/instrumentcenter/ClientState.h"

namespace mxservice {

/// What one load or change of instruments tells subscribers: gathered on its way through the store, because the former
/// records are nowhere else. Does nothing where nobody has subscribed by its beginning. Tells at its end, so it must
/// outlive the locks of the load.
class ClientTelling {
public:
    explicit ClientTelling(ClientState& client);
    ~ClientTelling();
    ClientTelling(const ClientTelling&) = delete;
    ClientTelling& operator=(const ClientTelling&) = delete;

    bool isWanted() const { return former_ != nullptr; }

    /// Compares the records that a load brings of a market with what readers got of it before the load, while the store
    /// has that still. `isWhole`: what the load does not bring goes.
    void compare(MarketKey market, const std::string& name, const MarketRecords& records, bool isWhole);

    /// The same for the markets named of which nothing is brought.
    void compareEmptied(const std::vector<std::string>& markets, const GroupedSnapshot& brought);

    /// A market whose records are compared one by one.
    void addMarket(const std::string& name);
    /// One of those; either may be null.
    void compare(const InstrumentPtr& before, const InstrumentPtr& after);

private:
    void compareStored(const std::string& db, const MarketRecords& records, bool isWhole);

    ClientState& client_;
    std::shared_ptr<const ClientVersion> former_;
    CatalogueChange change_;
    const Subscribers::HoldBack holdBack_;  // goes before the rest, so the destructor tells by itself
};

}  // namespace mxservice
