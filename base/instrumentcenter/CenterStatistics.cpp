#include "base/instrumentcenter/CenterStatistics.h"

#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/TableBytes.h"

// What each center tells of its tables, caches and loads. Lines stand in a fixed order, so that two pages compare;
// those of what could not be written stand only where there is any, so that none means that all is well.

namespace mxservice {
namespace {

template <class Table>
void add(const char* name, const Guarded<Table>& table, std::vector<IndexSize>& sizes) {
    sizes.push_back(sizeOf(name, *table.read()));
}

template <class Record>
void add(const char* name, const char* unsaved, const Guarded<StoredCatalogue<Record>>& stored,
         std::vector<IndexSize>& sizes) {
    const auto catalogue = stored.read();
    sizes.push_back(sizeOf(name, catalogue->keys));
    if (!catalogue->unsaved.empty()) {
        sizes.push_back(sizeOf(unsaved, catalogue->unsaved));
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
    return statistics;
}

CenterStatistics CClientInstrumentCenter::statistics() const {
    CenterStatistics statistics;
    state().loads.read()->report(statistics);
    statistics.indexes = client_->codeIndex.sizes();
    // Each table by itself: no operation holds two locks, so the parts may be of moments shortly after one another.
    {
        const auto catalogue = client_->futures.read();
        statistics.indexes.push_back(sizeOf("main contracts by market", catalogue->mainCodesByMarket));
        statistics.indexes.push_back(sizeOf("main contracts by product", catalogue->mainCodesByProduct));
    }
    statistics.caches = {client_->instruments.use("instruments"), client_->bonds.use("bonds"),
                         client_->plans.use("OTC plans")};
    std::vector<IndexSize>& sizes = statistics.indexes;
    if (const auto parked = client_->failedDatas.read(); !parked->records.empty()) {
        IndexSize size = sizeOf("records not written", parked->records);
        size.keys = 0;  // of the records, not of their markets
        for (const auto& [market, records] : parked->records) {
            size.keys += records.size();
        }
        sizes.push_back(size);
    }
    add("ETFs", "ETFs not written", client_->etfs, sizes);
    add("bonds", "bonds not written", client_->bondCatalogue, sizes);
    add("interbank codes", client_->interbankCodes, sizes);
    add("counterparties", client_->counterparties, sizes);
    add("tender bonds", client_->tenderBonds, sizes);
    add("OTC plans", "OTC plans not written", client_->otc, sizes);
    {
        const auto catalogue = client_->issuance.read();
        sizes.push_back(sizeOf("issuances", catalogue->issuances));
        sizes.push_back(sizeOf("price settings", catalogue->priceSettings));
    }
    sizes.push_back(sizeOf("platform codes", *state().versions.hold()->lumoCodes));
    return statistics;
}

}  // namespace mxservice
