#include "base/instrumentcenter/CenterStatistics.h"

#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/TableBytes.h"

// What each center tells of its tables, caches and loads. Lines stand in a fixed order, so that two pages compare;
// those of what could not be written stand only where there is any, so that none means that all is well.

namespace mxservice {
namespace {

template <class Record>
void add(const char* name, const char* unwritten, const StoredCatalogue<Record>& catalogue,
         std::vector<IndexSize>& sizes) {
    sizes.push_back(sizeOf(name, catalogue.keys));
    if (!catalogue.unwritten.empty()) {
        sizes.push_back(sizeOf(unwritten, catalogue.unwritten));
    }
}

/// The records of all markets together; none where every write went well.
void addUnwrittenRecords(const ClientVersion& version, std::vector<IndexSize>& sizes) {
    IndexSize size{"records not written", 0, 0};
    for (const auto& [market, state] : version.markets) {
        if (state->unwritten) {
            const IndexSize own = sizeOf("", *state->unwritten);
            size.keys += own.keys;
            size.bytes += own.bytes;
        }
    }
    if (size.keys != 0) {
        sizes.push_back(size);
    }
}

/// The tables that somebody has asked for since the records changed.
void addAsked(const AskedTables& asked, std::vector<IndexSize>& sizes) {
    if (const DerivativeTables* const made = asked.derivatives.made()) {
        sizes.push_back(sizeOf("contracts by product", made->contractsByProduct));
        sizes.push_back(sizeOf("options by underlying", made->optionsByUnderlying));
    }
    if (const RecordTable* const made = asked.listed.made()) {
        sizes.push_back(sizeOf("records by listing date", *made));
    }
    if (const RecordTable* const made = asked.expiring.made()) {
        sizes.push_back(sizeOf("records by expiry", *made));
    }
}

}  // namespace

CenterStatistics CServerInstrumentCenter::statistics() const {
    CenterStatistics statistics;
    state().loads.read()->report(statistics);
    // One version for all: keys and records of a page are of one moment. Held, because a publisher must not wait for
    // the walk through all texts.
    const auto held = std::static_pointer_cast<const ServerVersion>(state().versions.hold());
    const ServerVersion& version = *held;
    std::vector<IndexSize>& sizes = statistics.indexes;
    sizes = version.keys.sizes();
    sizes.insert(sizes.end(), {{"records", version.records.size(), version.records.bytes()},
                               sizeOf("main contracts by market", version.futures->mainCodesByMarket),
                               sizeOf("main contracts by product", version.futures->mainCodesByProduct),
                               sizeOf("ETFs", *version.etfs),
                               sizeOf("bonds", *version.bonds),
                               sizeOf("counterparties", *version.counterparties),
                               sizeOf("tender bonds", *version.tenderBonds),
                               sizeOf("OTC plans", version.plans->byKey),
                               sizeOf("OTC plans by group", version.plans->byGroup),
                               sizeOf("issuances", *version.issuances)});
    addAsked(*version.asked, sizes);
    return statistics;
}

CenterStatistics CClientInstrumentCenter::statistics() const {
    CenterStatistics statistics;
    client_->loads.read()->report(statistics);
    const auto version = client_->hold();
    std::vector<IndexSize>& sizes = statistics.indexes;
    sizes = version->keys.sizes();
    sizes.push_back(sizeOf("main contracts by market", version->futures->mainCodesByMarket));
    sizes.push_back(sizeOf("main contracts by product", version->futures->mainCodesByProduct));
    addUnwrittenRecords(*version, sizes);
    add("ETFs", "ETFs not written", *version->etfs, sizes);
    add("bonds", "bonds not written", *version->bonds, sizes);
    sizes.push_back(sizeOf("interbank codes", *version->interbankCodes));
    sizes.push_back(sizeOf("counterparties", *version->counterparties));
    sizes.push_back(sizeOf("tender bonds", *version->tenderBonds));
    add("OTC plans", "OTC plans not written", *version->plans, sizes);
    sizes.push_back(sizeOf("issuances", *version->issuances));
    sizes.push_back(sizeOf("price settings", *version->priceSettings));
    sizes.push_back(sizeOf("platform codes", *version->lumoCodes));
    statistics.caches = {client_->instruments.use("instruments"), client_->bonds.use("bonds"),
                         client_->plans.use("OTC plans")};
    return statistics;
}

}  // namespace mxservice
