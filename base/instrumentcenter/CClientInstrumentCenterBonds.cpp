#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientCatalogue.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

// Interbank bonds, which are kept in the store, and the pseudo-market of instruments that stand for them; tender bonds,
// which are kept in memory.

namespace mxservice {

void CClientInstrumentCenter::initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    doInitBonds(bonds);
}

void CClientInstrumentCenter::doInitBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    const Subscribers::HoldBack telling(client_->subscribers);  // bonds and their instruments together
    std::map<std::string, std::string> interbankCodes;
    std::map<std::uint64_t, boost::shared_ptr<CBondInfoDetail>> bondByKey;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(market::kInterbank)];
    std::size_t received = 0;
    for (const auto& [code, bond] : bonds) {
        if (!bond) {
            continue;
        }
        for (const auto& [market, listing] :
             {std::pair(market::kShanghai, &bond->shanghaiCode), std::pair(market::kShenzhen, &bond->shenzhenCode)}) {
            if (!listing->empty()) {
                interbankCodes[utils::ovStockKey(market, *listing)] = bond->bondCode;
            }
        }
        // Assigned: of two bonds with one code the last stays, as the later document would have in the store.
        bondByKey[bondKey(*bond)] = bond;
        addBondInstrument(*bond, instruments);
        ++received;
    }
    // The bonds first: who finds a listing's interbank code or the instrument that stands for a bond finds the bond as
    // well. Documents of others stay, because a bond is looked up without asking what today's load had.
    replaceCatalogue(*client_, kBankBonds, Others::Keep, bondByKey, &ClientVersion::bonds, client_->bonds);
    client_->publish([&](ClientVersion& version) { version.interbankCodes.set(std::move(interbankCodes)); });
    replaceMarket(market::kInterbank, grouped, received);
    ClientState::logDbName(kBankBonds, DBBuilder::buildDbName(kBankBonds));
}

boost::shared_ptr<CBondInfoDetail> CClientInstrumentCenter::getBond(uint64 key) {
    return readThrough(*client_, kBankBonds, key, &ClientVersion::bonds, client_->bonds);
}

boost::shared_ptr<CBondInfoDetail> CClientInstrumentCenter::getBond(const std::string& code) {
    return getBond(textKey(code));
}

std::map<std::string, boost::shared_ptr<CBondInfoDetail>> CClientInstrumentCenter::getBonds() {
    const auto version = client_->hold();
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    for (const auto& [key, bond] : version->bonds->unwritten) {
        bonds[bond->bondCode] = bond;  // first: newer than a document of its code
    }
    for (auto& bond : readRecords<CBondInfoDetail>(version->getDbName(kBankBonds))) {
        bonds.emplace(bond->bondCode, std::move(bond));
    }
    return bonds;
}

std::string CClientInstrumentCenter::getInterbankCode(const std::string& code) {
    return in(*client_->hold()->interbankCodes, code);
}

void CClientInstrumentCenter::initTenderBondInfos(
    const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    client_->publish([&](ClientVersion& version) { version.tenderBonds.set(tenderBonds); });
}

void CClientInstrumentCenter::updateTenderBondInfos(
    const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& /*tenderBonds*/) {
    // Deliberately nothing: client processes reload their tender bonds.
}

bool CClientInstrumentCenter::hasTenderBond(const std::string& code) {
    return client_->ask(
        [&code](const ClientVersion& version) noexcept { return version.tenderBonds->count(code) != 0; });
}

boost::shared_ptr<CTenderBondInfoDetail> CClientInstrumentCenter::getTenderBondInfo(const std::string& code) {
    return client_->ask([&code](const ClientVersion& version) noexcept { return in(*version.tenderBonds, code); });
}

std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> CClientInstrumentCenter::getTrenderBondInfos() {
    return *client_->hold()->tenderBonds;
}

}  // namespace mxservice
