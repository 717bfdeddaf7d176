// A snapshot's records: handing them to a center, copying them, and going over them by catalogue.

#include <unordered_set>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "snapshot/Catalogues.h"
#include "snapshot/Snapshot.h"

namespace mxservice {

void Snapshot::loadInto(IInstrumentCenter& center) const {
    loadInto(center, [](SnapshotCatalogue, std::size_t, const std::function<void()>& load) { load(); });
}

void Snapshot::loadInto(IInstrumentCenter& center, const LoadStep& step) const {
    const auto loadSome = [&step](SnapshotCatalogue catalogue, const auto& records, const std::function<void()>& load) {
        // Left out altogether: to load no fund plans, for one, would empty their database.
        if (!records.empty()) {
            step(catalogue, records.size(), load);
        }
    };
    // Instruments first: components of funds get their names from them.
    loadSome(SnapshotCatalogue::Instruments, instruments, [&] { center.initInstruments(markets(), instruments); });
    loadSome(SnapshotCatalogue::Etfs, etfs, [&] { center.initEtfs(etfs); });
    loadSome(SnapshotCatalogue::Bonds, bonds, [&] { center.initBonds(bonds); });
    loadSome(SnapshotCatalogue::TenderBonds, tenderBonds, [&] { center.initTenderBondInfos(tenderBonds); });
    loadSome(SnapshotCatalogue::Counterparties, counterparties, [&] { center.initCounterpartys(counterparties); });
    loadSome(SnapshotCatalogue::OtcPlans, otcPlans, [&] { center.initOtcInstruments(otcPlans); });
    loadSome(SnapshotCatalogue::Issuances, issuances, [&] { center.initIssuanceInfos(issuances); });
    loadSome(SnapshotCatalogue::IssuancePrices, issuancePrices, [&] { center.initIssuancePriceInfos(issuancePrices); });
}

std::vector<std::string> Snapshot::markets() const {
    std::vector<std::string> names;
    // In the order in which they first occur, which is that of the files: a load goes through the markets in this
    // order.
    std::unordered_set<std::string> known;
    for (const auto& instrument : instruments) {
        if (instrument && known.insert(instrument->market).second) {
            names.push_back(instrument->market);
        }
    }
    // A batch of one of these alone would be kept as a part, and nothing of it seen until the others come. A second
    // name says that it is all there is.
    if (names.size() == 1) {
        if (names.front() == market::kHongKong) {
            names.emplace_back(market::kShanghaiConnect);
        } else if (names.front() == market::kShanghaiConnect || names.front() == market::kShenzhenConnect) {
            names.emplace_back(market::kHongKong);
        }
    }
    return names;
}

Snapshot Snapshot::copy() const {
    Snapshot copied;
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        snapshot::kindOf(catalogue).copy(*this, copied);
    }
    copied.issues = issues;
    copied.skippedLines = skippedLines;
    copied.skippedFiles = skippedFiles;
    copied.recordsRead = recordsRead;
    return copied;
}

std::vector<boost::shared_ptr<IData>> Snapshot::records(SnapshotCatalogue catalogue) const {
    return snapshot::kindOf(catalogue).all(*this);
}

bool Snapshot::add(SnapshotCatalogue catalogue, boost::shared_ptr<IData> record) {
    return snapshot::kindOf(catalogue).add(*this, std::move(record));
}

}  // namespace mxservice
