#include <algorithm>
#include <iterator>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/catalogue/RecordChanges.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Utils.h"

// ETFs, bonds, tender bonds, counterparties, OTC fund plans and issuance records.

namespace mxservice {
namespace {

constexpr int kAllGroups = -1;

using Plans = std::vector<boost::shared_ptr<COTCFundPlanInfo>>;

/// The former plan's group loses every record of that key; the plan's own group holds the plan once. Hands back what
/// the group has lost, so that the caller destroys it with the lock dropped.
Plans putIntoGroup(const boost::shared_ptr<COTCFundPlanInfo>& plan, const boost::shared_ptr<COTCFundPlanInfo>& former,
                   OtcCatalogue& catalogue) {
    Plans lost;
    if (former) {
        const auto group = catalogue.plansByGroup.find(former->planType);
        if (group != catalogue.plansByGroup.end()) {
            const std::string key = keyTextOf(*plan);
            const auto stays = [&](const auto& member) { return keyTextOf(*member) != key; };
            const auto end = std::stable_partition(group->second.begin(), group->second.end(), stays);
            lost.assign(std::make_move_iterator(end), std::make_move_iterator(group->second.end()));
            group->second.erase(end, group->second.end());
        }
    }
    catalogue.plansByGroup[plan->planType].push_back(plan);
    return lost;
}

}  // namespace

void CServerInstrumentCenter::initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    doInitEtfs(etfs);
}

void CServerInstrumentCenter::doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    HashIndex<boost::shared_ptr<CETFDetail>> index;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(kEtfInstruments)];
    std::size_t received = 0;
    for (const auto& etf : etfs) {
        if (etf) {
            index.emplace(etfKey(*etf), etf);
            index.emplace(creationKey(*etf), etf);
            addEtfInstrument(*etf, instruments);
            ++received;
        }
    }
    index = exchange(server_->etfs, std::move(index));
    LoadNotes notes;
    notes.receive({{marketKey(kEtfInstruments), received}});
    fileRecords(grouped, notes);
}

bool CServerInstrumentCenter::hasEtf(const std::string& code) {
    return server_->etfs.read()->contains(textKey(code));
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& code) {
    return lookUp(server_->etfs, textKey(code));
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& market, const std::string& code) {
    return getEtf(utils::ovStockKey(market, code));
}

std::map<std::string, boost::shared_ptr<CETFDetail>> CServerInstrumentCenter::getEtfs() {
    std::map<std::string, boost::shared_ptr<CETFDetail>> etfs;
    const auto index = server_->etfs.read();
    for (const auto& [key, etf] : *index) {
        etfs.emplace(keyTextOf(*etf), etf);
    }
    return etfs;
}

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
            index.emplace(bondKey(*bond), bond);
            addBondInstrument(*bond, instruments);
            ++received;
        }
    }
    std::swap(server_->bonds.write()->bonds, index);
    LoadNotes notes;
    notes.receive({{marketKey(market::kInterbank), received}});
    fileRecords(grouped, notes);
}

boost::shared_ptr<CBondInfoDetail> CServerInstrumentCenter::getBond(uint64 key) {
    const auto catalogue = server_->bonds.read();
    const auto found = catalogue->bonds.find(key);
    return found == catalogue->bonds.end() ? nullptr : found->second;
}

boost::shared_ptr<CBondInfoDetail> CServerInstrumentCenter::getBond(const std::string& code) {
    return getBond(textKey(code));
}

std::map<std::string, boost::shared_ptr<CBondInfoDetail>> CServerInstrumentCenter::getBonds() {
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    const auto catalogue = server_->bonds.read();
    for (const auto& [key, bond] : catalogue->bonds) {
        bonds.emplace(bond->bondCode, bond);
    }
    return bonds;
}

std::string CServerInstrumentCenter::getInterbankCode(const std::string& /*code*/) {
    return {};
}

void CServerInstrumentCenter::initCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    doInitCounterpartys(counterparties);
}

void CServerInstrumentCenter::doInitCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    auto copy = counterparties;
    std::swap(server_->bonds.write()->counterparties, copy);
}

void CServerInstrumentCenter::updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& /*counterparty*/) {
    // Deliberately nothing: server processes reload their counterparties.
}

boost::shared_ptr<CCounterpartyDetail> CServerInstrumentCenter::getCounterparty(const std::string& id) {
    const auto catalogue = server_->bonds.read();
    const auto found = catalogue->counterparties.find(id);
    return found == catalogue->counterparties.end() ? nullptr : found->second;
}

std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> CServerInstrumentCenter::getCounterpartys() {
    return server_->bonds.read()->counterparties;
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
    index = exchange(server_->tenderBonds, std::move(index));
}

void CServerInstrumentCenter::updateTenderBondInfos(
    const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    for (auto tenderBond : tenderBonds) {
        if (tenderBond) {
            const std::uint64_t key = textKey(tenderBond->code);
            (*server_->tenderBonds.write())[key].swap(tenderBond);
        }
    }
}

bool CServerInstrumentCenter::hasTenderBond(const std::string& code) {
    return server_->tenderBonds.read()->contains(textKey(code));
}

boost::shared_ptr<CTenderBondInfoDetail> CServerInstrumentCenter::getTenderBondInfo(const std::string& code) {
    return lookUp(server_->tenderBonds, textKey(code));
}

std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> CServerInstrumentCenter::getTrenderBondInfos() {
    std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> tenderBonds;
    const auto index = server_->tenderBonds.read();
    for (const auto& [key, tenderBond] : *index) {
        tenderBonds.emplace(tenderBond->code, tenderBond);
    }
    return tenderBonds;
}

void CServerInstrumentCenter::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    doInitOtcInstruments(plans);
}

void CServerInstrumentCenter::doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    OtcCatalogue fresh;
    for (const auto& plan : plans) {
        if (plan) {
            fresh.plans.emplace(stockKey(plan->market, plan->code), plan);
            fresh.plansByGroup[plan->planType].push_back(plan);
        }
    }
    const auto catalogue = server_->otc.write();
    std::swap(catalogue->plans, fresh.plans);
    std::swap(catalogue->plansByGroup, fresh.plansByGroup);
}

void CServerInstrumentCenter::updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    for (const auto& plan : plans) {
        if (!plan) {
            continue;
        }
        const StockKey key = stockKey(plan->market, plan->code);
        boost::shared_ptr<COTCFundPlanInfo> former = plan;  // destroyed after the lock, as the next one is
        Plans lost;
        const auto catalogue = server_->otc.write();
        catalogue->plans[key].swap(former);
        lost = putIntoGroup(plan, former, *catalogue);
    }
}

bool CServerInstrumentCenter::hasOtc(const std::string& code) {
    return server_->otc.read()->plans.contains(textKey(code));
}

void CServerInstrumentCenter::getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) {
    const auto catalogue = server_->otc.read();
    if (group == kAllGroups) {
        for (const auto& [key, plan] : catalogue->plans) {
            out.push_back(plan);
        }
        return;
    }
    const auto found = catalogue->plansByGroup.find(group);
    if (found != catalogue->plansByGroup.end()) {
        out.insert(out.end(), found->second.begin(), found->second.end());
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getOtcInstruments() {
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> plans;
    const auto catalogue = server_->otc.read();
    for (const auto& [key, plan] : catalogue->plans) {
        plans.emplace(keyTextOf(*plan), plan);
    }
    return plans;
}

boost::shared_ptr<COTCFundPlanInfo> CServerInstrumentCenter::getOtcInstrument(const std::string& code) {
    const auto catalogue = server_->otc.read();
    const auto found = catalogue->plans.find(textKey(code));
    return found == catalogue->plans.end() ? nullptr : found->second;
}

void CServerInstrumentCenter::initIssuanceInfos(
    const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    auto fresh = byOwnKey(issuances);
    std::swap(server_->otc.write()->issuances, fresh);
}

void CServerInstrumentCenter::updateIssuanceInfos(
    int operation, const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    const Change change = changeOf(operation);
    if (change == Change::None) {
        return;
    }
    for (const auto& issuance : issuances) {
        if (issuance) {
            const std::string key = issuance->getKey();
            const auto former = applyChange(change, key, issuance, server_->otc.write()->issuances);
        }
    }
}

bool CServerInstrumentCenter::hasIssuance(const std::string& code) {
    return server_->otc.read()->issuances.count(code) != 0;
}

boost::shared_ptr<COTCSecuritiesIssuanceInfo> CServerInstrumentCenter::getIssuanceInfo(const std::string& code) {
    const auto catalogue = server_->otc.read();
    const auto found = catalogue->issuances.find(code);
    return found == catalogue->issuances.end() ? nullptr : found->second;
}

std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> CServerInstrumentCenter::getIssuanceInfos() {
    return server_->otc.read()->issuances;
}

// Price settings are the persisted center's alone.

void CServerInstrumentCenter::initIssuancePriceInfos(
    const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& /*settings*/) {}

void CServerInstrumentCenter::updateIssuancePriceInfo(
    int /*operation*/, const boost::shared_ptr<COTCStockEnquiryPriceSetting>& /*setting*/) {}

boost::shared_ptr<COTCStockEnquiryPriceSetting> CServerInstrumentCenter::getIssuancePriceInfo(
    const std::string& /*code*/) {
    return nullptr;
}

std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>
CServerInstrumentCenter::getIssuancePriceInfos() {
    return {};
}

}  // namespace mxservice
