#include <cstddef>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// Interbank bonds and tender bonds. Each load or batch of changes is one version.

namespace mxservice {

void CServerInstrumentCenter::initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    doInitBonds(bonds);
}

void CServerInstrumentCenter::doInitBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    HashIndex<boost::shared_ptr<CBondInfoDetail>> index;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(market::kInterbank)];
    std::size_t received = 0;
    for (const auto& [code, bond] : bonds) {
        if (bond) {
            // By its own code: the key of the map is the host's, and may be any.
            index.emplace(bondKey(*bond), bond);
            addBondInstrument(*bond, instruments);
            ++received;
        }
    }
    LoadNotes notes;
    notes.receive({{marketKey(market::kInterbank), received}});
    ServerChange change;
    change.add([&](ServerVersion& version) { version.bonds.set(std::move(index)); });
    file(grouped, change);
    publishLoad(grouped, change, notes);
}

boost::shared_ptr<CBondInfoDetail> CServerInstrumentCenter::getBond(uint64 key) {
    return ask(state(), [key](const ServerVersion& version) noexcept { return in(*version.bonds, key); });
}

boost::shared_ptr<CBondInfoDetail> CServerInstrumentCenter::getBond(const std::string& code) {
    return getBond(textKey(code));
}

std::map<std::string, boost::shared_ptr<CBondInfoDetail>> CServerInstrumentCenter::getBonds() {
    return view().getBonds();
}

std::string CServerInstrumentCenter::getInterbankCode(const std::string& /*code*/) {
    // Deliberately nothing: the persisted center alone keeps which listings a bond has.
    return {};
}

void CServerInstrumentCenter::initTenderBondInfos(
    const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    HashIndex<boost::shared_ptr<CTenderBondInfoDetail>> index;
    for (const auto& [code, tenderBond] : tenderBonds) {
        if (tenderBond) {
            // By the map's key, which may differ from the record's own code; updates go by the latter.
            index.emplace(textKey(code), tenderBond);
        }
    }
    publish(state(), [&](ServerVersion& version) { version.tenderBonds.set(std::move(index)); });
}

void CServerInstrumentCenter::updateTenderBondInfos(
    const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    publishBatch(state(), &ServerVersion::tenderBonds, tenderBonds,
                 [](auto& index, const auto& tenderBond) { index[textKey(tenderBond->code)] = tenderBond; });
}

bool CServerInstrumentCenter::hasTenderBond(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.tenderBonds->contains(key); });
}

boost::shared_ptr<CTenderBondInfoDetail> CServerInstrumentCenter::getTenderBondInfo(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return in(*version.tenderBonds, key); });
}

std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> CServerInstrumentCenter::getTrenderBondInfos() {
    return view().getTrenderBondInfos();
}

}  // namespace mxservice
