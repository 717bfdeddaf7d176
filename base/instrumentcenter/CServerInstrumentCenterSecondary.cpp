#include <algorithm>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/catalogue/RecordChanges.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

// ETFs, bonds, tender bonds, counterparties, OTC fund plans and issuance records. Each load or batch of changes is one
// version.

namespace mxservice {
namespace {

/// The former plan's group loses every record of that key; the plan's own group holds the plan once.
void put(const boost::shared_ptr<COTCFundPlanInfo>& plan, PlanCatalogue& plans) {
    boost::shared_ptr<COTCFundPlanInfo>& place = plans.byKey[stockKey(plan->market, plan->code)];
    const auto former = std::exchange(place, plan);
    if (former) {
        const auto group = plans.byGroup.find(former->planType);
        if (group != plans.byGroup.end()) {
            const std::string key = keyTextOf(*plan);
            std::erase_if(group->second, [&](const auto& member) { return keyTextOf(*member) == key; });
        }
    }
    plans.byGroup[plan->planType].push_back(plan);
}

/// Whether a batch has nothing to change; then there is no new version either.
template <class Record>
bool holdsNothing(const std::vector<boost::shared_ptr<Record>>& batch) {
    return std::all_of(batch.begin(), batch.end(), [](const auto& record) { return !record; });
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
            // Inserted and not assigned: of two funds with one key the first stays.
            index.emplace(etfKey(*etf), etf);
            index.emplace(creationKey(*etf), etf);
            addEtfInstrument(*etf, instruments);
            ++received;
        }
    }
    LoadNotes notes;
    notes.receive({{marketKey(kEtfInstruments), received}});
    ServerChange change;
    change.add([&](ServerVersion& version) { version.etfs.set(std::move(index)); });
    file(grouped, change);
    publishLoad(grouped, change, notes);
}

bool CServerInstrumentCenter::hasEtf(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.etfs->contains(key); });
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return in(*version.etfs, key); });
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& market, const std::string& code) {
    return getEtf(utils::ovStockKey(market, code));
}

std::map<std::string, boost::shared_ptr<CETFDetail>> CServerInstrumentCenter::getEtfs() {
    return view().getEtfs();
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
    return {};
}

void CServerInstrumentCenter::initCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    doInitCounterpartys(counterparties);
}

void CServerInstrumentCenter::doInitCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    publish(state(), [&](ServerVersion& version) { version.counterparties.set(counterparties); });
}

void CServerInstrumentCenter::updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& /*counterparty*/) {
    // Deliberately nothing: server processes reload their counterparties.
}

boost::shared_ptr<CCounterpartyDetail> CServerInstrumentCenter::getCounterparty(const std::string& id) {
    return ask(state(), [&id](const ServerVersion& version) noexcept { return in(*version.counterparties, id); });
}

std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> CServerInstrumentCenter::getCounterpartys() {
    return view().getCounterpartys();
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
    if (holdsNothing(tenderBonds)) {
        return;
    }
    publish(state(), [&](ServerVersion& version) {
        auto& index = version.tenderBonds.own();
        for (const auto& tenderBond : tenderBonds) {
            if (tenderBond) {
                index[textKey(tenderBond->code)] = tenderBond;
            }
        }
    });
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

void CServerInstrumentCenter::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    doInitOtcInstruments(plans);
}

void CServerInstrumentCenter::doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    PlanCatalogue fresh;
    for (const auto& plan : plans) {
        if (plan) {
            fresh.byKey.emplace(stockKey(plan->market, plan->code), plan);
            fresh.byGroup[plan->planType].push_back(plan);
        }
    }
    publish(state(), [&](ServerVersion& version) { version.plans.set(std::move(fresh)); });
}

void CServerInstrumentCenter::updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    if (holdsNothing(plans)) {
        return;
    }
    publish(state(), [&](ServerVersion& version) {
        PlanCatalogue& catalogue = version.plans.own();
        for (const auto& plan : plans) {
            if (plan) {
                put(plan, catalogue);
            }
        }
    });
}

bool CServerInstrumentCenter::hasOtc(const std::string& code) {
    const StockKey key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.plans->byKey.contains(key); });
}

void CServerInstrumentCenter::getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) {
    const auto members = view().getOtcInstruments(group);
    out.insert(out.end(), members.begin(), members.end());
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CServerInstrumentCenter::getOtcInstruments() {
    return view().getOtcInstruments();
}

boost::shared_ptr<COTCFundPlanInfo> CServerInstrumentCenter::getOtcInstrument(const std::string& code) {
    const StockKey key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return in(version.plans->byKey, key); });
}

void CServerInstrumentCenter::initIssuanceInfos(
    const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    auto fresh = byOwnKey(issuances);
    publish(state(), [&](ServerVersion& version) { version.issuances.set(std::move(fresh)); });
}

void CServerInstrumentCenter::updateIssuanceInfos(
    int operation, const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    const Change change = changeOf(operation);
    if (change == Change::None || holdsNothing(issuances)) {
        return;
    }
    // Keys are asked for before the version is made: getKey() may be the host's, and may ask this center.
    std::vector<std::string> keys;
    keys.reserve(issuances.size());
    for (const auto& issuance : issuances) {
        keys.push_back(issuance ? issuance->getKey() : std::string());
    }
    publish(state(), [&](ServerVersion& version) {
        auto& table = version.issuances.own();
        for (std::size_t i = 0; i < issuances.size(); ++i) {
            if (issuances[i]) {
                applyChange(change, keys[i], issuances[i], table);
            }
        }
    });
}

bool CServerInstrumentCenter::hasIssuance(const std::string& code) {
    return ask(state(), [&code](const ServerVersion& version) noexcept { return version.issuances->count(code) != 0; });
}

boost::shared_ptr<COTCSecuritiesIssuanceInfo> CServerInstrumentCenter::getIssuanceInfo(const std::string& code) {
    return ask(state(), [&code](const ServerVersion& version) noexcept { return in(*version.issuances, code); });
}

std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> CServerInstrumentCenter::getIssuanceInfos() {
    return view().getIssuanceInfos();
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
