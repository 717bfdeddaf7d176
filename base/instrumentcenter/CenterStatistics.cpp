#include "base/instrumentcenter/CenterStatistics.h"

#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/TableBytes.h"

// What each center tells of its tables, caches and loads.

namespace mxservice {
namespace {

template <class Table>
void add(const char* name, const Guarded<Table>& table, std::vector<IndexSize>& sizes) {
    sizes.push_back(sizeOf(name, *table.read()));
}

/// What both centers have.
CenterStatistics commonStatistics(const InterfaceState& common, const CodeIndex& codeIndex,
                                  const Guarded<FuturesCatalogue>& futures) {
    CenterStatistics statistics;
    common.loads.read()->report(statistics);
    statistics.indexes = codeIndex.sizes();
    const auto catalogue = futures.read();
    statistics.indexes.push_back(sizeOf("main contracts by market", catalogue->mainCodesByMarket));
    statistics.indexes.push_back(sizeOf("main contracts by product", catalogue->mainCodesByProduct));
    return statistics;
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
    CenterStatistics statistics = commonStatistics(state(), server_->codeIndex, server_->futures);
    std::vector<IndexSize>& sizes = statistics.indexes;
    add("records", server_->records, sizes);
    add("ETFs", server_->etfs, sizes);
    {
        const auto catalogue = server_->bonds.read();
        sizes.push_back(sizeOf("bonds", catalogue->bonds));
        sizes.push_back(sizeOf("counterparties", catalogue->counterparties));
    }
    add("tender bonds", server_->tenderBonds, sizes);
    const auto catalogue = server_->otc.read();
    sizes.push_back(sizeOf("OTC plans", catalogue->plans));
    sizes.push_back(sizeOf("OTC plans by group", catalogue->plansByGroup));
    sizes.push_back(sizeOf("issuances", catalogue->issuances));
    return statistics;
}

CenterStatistics CClientInstrumentCenter::statistics() const {
    CenterStatistics statistics = commonStatistics(state(), client_->codeIndex, client_->futures);
    statistics.caches = {client_->instruments.use("instruments"), client_->bonds.use("bonds"),
                         client_->plans.use("OTC plans")};
    std::vector<IndexSize>& sizes = statistics.indexes;
    if (const auto parked = client_->failedDatas.read(); !parked->records.empty()) {
        IndexSize size = sizeOf("records not written", parked->records);
        size.keys = 0;
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
    const auto sets = state().codeSets.read();
    sizes.push_back(sizeOf("platform codes", sets->lumoCodes));
    return statistics;
}

}  // namespace mxservice
