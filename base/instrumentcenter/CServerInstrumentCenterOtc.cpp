#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/RecordChanges.h"

// OTC trading: fund plans, issuance records, price settings and counterparties. Each load or batch of changes is one
// version.

namespace mxservice {
namespace {

/// The former plan's group loses every record of that key; the plan's own group holds the plan once.
void putPlan(PlanCatalogue& plans, const boost::shared_ptr<COTCFundPlanInfo>& plan) {
    boost::shared_ptr<COTCFundPlanInfo>& place = plans.byKey[stockKey(plan->market, plan->code)];
    const auto former = std::exchange(place, plan);
    // By key and not by pointer: a load may have put several of one key into the group, of which one alone was filed.
    if (former) {
        const auto group = plans.byGroup.find(former->planType);
        if (group != plans.byGroup.end()) {
            const std::string key = keyTextOf(*plan);
            std::erase_if(group->second, [&](const auto& member) { return keyTextOf(*member) == key; });
        }
    }
    plans.byGroup[plan->planType].push_back(plan);
}

}  // namespace

void CServerInstrumentCenter::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    doInitOtcInstruments(plans);
}

void CServerInstrumentCenter::doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    PlanCatalogue fresh;
    for (const auto& plan : plans) {
        if (plan) {
            // Of two plans with one key the first answers for it, while both stand in their groups.
            fresh.byKey.emplace(stockKey(plan->market, plan->code), plan);
            fresh.byGroup[plan->planType].push_back(plan);
        }
    }
    publish(state(), [&](ServerVersion& version) { version.plans.set(std::move(fresh)); });
}

void CServerInstrumentCenter::updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    publishBatch(state(), &ServerVersion::plans, plans, putPlan);
}

bool CServerInstrumentCenter::hasOtc(const std::string& code) {
    const StockKey key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.plans->byKey.contains(key); });
}

void CServerInstrumentCenter::getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) {
    const auto members = view().getOtcInstruments(group);
    // Copied out of a view first: `out` is the host's, and growing it is nothing that a publisher should wait for.
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
    auto fresh = byOwnKey(issuances);  // beforehand, as below
    publish(state(), [&](ServerVersion& version) { version.issuances.set(std::move(fresh)); });
}

void CServerInstrumentCenter::updateIssuanceInfos(
    int operation, const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    const Change change = changeOf(operation);
    // Keys are asked for before the version is made: getKey() may be the host's, and may ask this center.
    std::vector<std::pair<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>>> changed;
    for (const auto& issuance : issuances) {
        if (issuance && change != Change::None) {
            changed.emplace_back(issuance->getKey(), issuance);
        }
    }
    if (changed.empty()) {
        return;
    }
    publish(state(), [&](ServerVersion& version) {
        auto& table = version.issuances.own();
        for (const auto& [key, issuance] : changed) {
            applyChange(change, key, issuance, table);
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

}  // namespace mxservice
