#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientCatalogue.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/RecordChanges.h"

// The OTC desk: fund plans, which are kept in the store; issuances, price settings and counterparties, which are kept
// in memory.

namespace mxservice {
namespace {

bool isPlan(const ClientState& client, StockKey key) {
    return client.ask([key](const ClientVersion& version) noexcept { return version.plans->keys.count(key) != 0; });
}

}  // namespace

void CClientInstrumentCenter::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    doInitOtcInstruments(plans);
}

void CClientInstrumentCenter::doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    std::map<std::uint64_t, boost::shared_ptr<COTCFundPlanInfo>> planByKey;
    for (const auto& plan : plans) {
        if (plan) {
            // Inserted and not assigned: of two plans with one key the first stays, as in the in-memory center.
            planByKey.emplace(stockKey(plan->market, plan->code), plan);
        }
    }
    replaceCatalogue(*client_, kOtcInstruments, Others::Drop, planByKey, &ClientVersion::plans, client_->plans);
    ClientState::logDbName(kOtcInstruments, DBBuilder::buildDbName(kOtcInstruments));
}

void CClientInstrumentCenter::updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& /*plans*/) {
    // Deliberately nothing: client processes reload their plans.
}

bool CClientInstrumentCenter::hasOtc(const std::string& code) {
    return isPlan(*client_, textKey(code));
}

void CClientInstrumentCenter::getOtcInstruments(int /*group*/,
                                                std::vector<boost::shared_ptr<COTCFundPlanInfo>>& /*out*/) {
    // Deliberately nothing: this center does not group plans.
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getOtcInstruments() {
    InstrumentMap plans;
    const auto version = client_->hold();
    const StoredCatalogue<COTCFundPlanInfo>& catalogue = *version->plans;
    for (const auto& [key, plan] : catalogue.unwritten) {
        plans.emplace(keyTextOf(*plan), plan);  // first: newer than a document of its key
    }
    std::vector<InstrumentPtr> stored = readRecords<CInstrumentDetail>(version->getDbName(kOtcInstruments));
    if (catalogue.isBehind) {  // documents that the load could not replace are no plans of today
        std::erase_if(stored, [&](const InstrumentPtr& plan) {
            return catalogue.keys.count(stockKey(plan->market, plan->code)) == 0;
        });
    }
    addByKeyText(stored, plans);
    return plans;
}

boost::shared_ptr<COTCFundPlanInfo> CClientInstrumentCenter::getOtcInstrument(const std::string& code) {
    const StockKey key = textKey(code);
    if (!isPlan(*client_, key)) {
        return nullptr;  // also for a plan that is no more and still cached
    }
    return readThrough(*client_, kOtcInstruments, key, &ClientVersion::plans, client_->plans);
}

void CClientInstrumentCenter::initIssuanceInfos(
    const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    auto fresh = byOwnKey(issuances);
    client_->publish([&](ClientVersion& version) { version.issuances.set(std::move(fresh)); });
}

void CClientInstrumentCenter::updateIssuanceInfos(
    int operation, const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    const Change change = changeOf(operation);
    if (change == Change::None) {
        return;
    }
    // Keys are asked for before the version is made: getKey() may be the host's, and may ask this center.
    std::vector<std::pair<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>>> changes;
    for (const auto& issuance : issuances) {
        if (issuance) {
            changes.emplace_back(issuance->getKey(), issuance);
        }
    }
    if (changes.empty()) {
        return;  // no version for nothing
    }
    client_->publish([&](ClientVersion& version) {
        auto& known = version.issuances.own();
        for (const auto& [key, issuance] : changes) {  // in their order: the last one of a key counts
            applyChange(change, key, issuance, known);
        }
    });
}

bool CClientInstrumentCenter::hasIssuance(const std::string& code) {
    return client_->ask([&code](const ClientVersion& version) noexcept { return version.issuances->count(code) != 0; });
}

boost::shared_ptr<COTCSecuritiesIssuanceInfo> CClientInstrumentCenter::getIssuanceInfo(const std::string& code) {
    return client_->ask([&code](const ClientVersion& version) noexcept { return in(*version.issuances, code); });
}

std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> CClientInstrumentCenter::getIssuanceInfos() {
    return *client_->hold()->issuances;
}

void CClientInstrumentCenter::initIssuancePriceInfos(
    const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings) {
    client_->publish([&](ClientVersion& version) { version.priceSettings.set(settings); });
}

void CClientInstrumentCenter::updateIssuancePriceInfo(int operation,
                                                      const boost::shared_ptr<COTCStockEnquiryPriceSetting>& setting) {
    if (!setting) {
        return;
    }
    const std::string key = setting->getKey();  // beforehand, as above
    switch (changeOf(operation)) {
        case Change::Put:
            client_->publish([&](ClientVersion& version) { version.priceSettings.own()[key] = setting; });
            break;
        case Change::Remove:
            // Deliberately the issuance record of that key goes, and the price setting stays.
            client_->publish([&](ClientVersion& version) { version.issuances.own().erase(key); });
            break;
        case Change::None:
            break;
    }
}

boost::shared_ptr<COTCStockEnquiryPriceSetting> CClientInstrumentCenter::getIssuancePriceInfo(const std::string& code) {
    return client_->ask([&code](const ClientVersion& version) noexcept { return in(*version.priceSettings, code); });
}

std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>
CClientInstrumentCenter::getIssuancePriceInfos() {
    return *client_->hold()->priceSettings;
}

void CClientInstrumentCenter::initCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    doInitCounterpartys(counterparties);
}

void CClientInstrumentCenter::doInitCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    client_->publish([&](ClientVersion& version) { version.counterparties.set(counterparties); });
}

void CClientInstrumentCenter::updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& counterparty) {
    if (counterparty) {
        const Change change = counterparty->removed != 0 ? Change::Remove : Change::Put;
        const std::string key = counterparty->getKey();
        client_->publish(
            [&](ClientVersion& version) { applyChange(change, key, counterparty, version.counterparties.own()); });
    }
}

boost::shared_ptr<CCounterpartyDetail> CClientInstrumentCenter::getCounterparty(const std::string& id) {
    return client_->ask([&id](const ClientVersion& version) noexcept { return in(*version.counterparties, id); });
}

std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> CClientInstrumentCenter::getCounterpartys() {
    return *client_->hold()->counterparties;
}

}  // namespace mxservice
