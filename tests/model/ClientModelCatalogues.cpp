#include "platform/utils/Utils.h"
#include "tests/model/ClientModel.h"

// Funds, bonds, plans and what else has a load of its own.

namespace mxservice::model {

void ClientModel::initEtfs(const std::vector<Etf>& records) {
    std::set<Key> keys;
    std::map<Key, Etf> unsaved;
    Grouped pseudo;
    std::map<Key, Instrument>& instruments = pseudo[utils::hash("ETFINSTS")];
    for (const Etf& etf : records) {
        if (!etf) {
            continue;
        }
        for (const auto& [code, component] : etf->components) {
            if (component->name.empty()) {
                for (const Instrument& found :
                     candidates(utils::hash(connectFolded(component->market + component->code)))) {
                    component->name = found->name;
                }
            }
        }
        for (const Key key : {keyOf(etf->market, etf->etfCode), keyOf(etf->market, etf->prCode)}) {
            keys.insert(key);
            if (store_.takes("OvIns_ALLETF")) {
                store_.etfs[decimal(key)] = clone(etf);
            } else {
                unsaved[key] = etf;
            }
        }
        const std::string name = etf->components.empty() ? etf->prCode : etf->components.begin()->second->name;
        instruments.insert({keyOf("ETFINSTS", etf->prCode), pseudoInstrument(etf->market, etf->prCode, name)});
    }
    if (!unsaved.empty()) {
        unsavedEtfs_ = unsaved;
    }
    etfKeys_ = keys;
    clearDatas({"ETFINSTS"});
    createExchangeDatas(pseudo, "ETFINSTS");
    dbByMarket_[utils::hash("ALLETF")] = "OvIns_ALLETF";
}

void ClientModel::initBonds(const std::map<std::string, Bond>& records) {
    interbankCodes_.clear();
    Grouped pseudo;
    std::map<Key, Instrument>& instruments = pseudo[utils::hash("BANK")];
    for (const auto& [name, bond] : records) {
        if (!bond) {
            continue;
        }
        if (!bond->shanghaiCode.empty()) {
            interbankCodes_["SH" + bond->shanghaiCode] = bond->bondCode;
        }
        if (!bond->shenzhenCode.empty()) {
            interbankCodes_["SZ" + bond->shenzhenCode] = bond->bondCode;
        }
        const Key key = keyOf("BANK", bond->bondCode);
        store_.bonds[decimal(key)] = clone(bond);
        // A cached bond is that of the last load, not that of the day it was read on.
        if (cachedBonds_.count(key) != 0) {
            cachedBonds_[key] = bond;
        }
        instruments.insert({key, pseudoInstrument("BANK", bond->bondCode, bond->bondName)});
    }
    clearDatas({"BANK"});
    createExchangeDatas(pseudo, "BANK");
    dbByMarket_[utils::hash("BANKBOND")] = "OvIns_BANKBOND";
}

void ClientModel::initOtcInstruments(const std::vector<Plan>& records) {
    for (const Key key : planKeys_) {
        store_.plans.erase(decimal(key));
    }
    planKeys_.clear();
    for (const Plan& plan : records) {
        if (plan && planKeys_.insert(keyOf(plan->market, plan->code)).second) {
            store_.plans[decimal(keyOf(plan->market, plan->code))] = clone(plan);
        }
    }
    dbByMarket_[utils::hash("OTCINS")] = "OvIns_OTCINS";
}

void ClientModel::updateIssuancePriceInfo(int operation, const PriceSetting& record) {
    if (!record) {
        return;
    }
    if (operation == 0 || operation == 2) {
        priceSettings_[record->code] = record;
    } else if (operation == 3) {
        issuances_.erase(record->code);
    }
}

void ClientModel::updateCounterpartyInfo(const Counterparty& record) {
    if (!record) {
        return;
    }
    if (record->removed != 0) {
        counterparties_.erase(record->id);
    } else {
        counterparties_[record->id] = record;
    }
}

bool ClientModel::hasEtf(const std::string& code) const {
    return etfKeys_.count(utils::hash(code)) != 0;
}

bool ClientModel::hasOtc(const std::string& code) const {
    return planKeys_.count(utils::hash(code)) != 0;
}

Choice ClientModel::getEtf(const std::string& code) {
    const Key key = utils::hash(code);
    if (etfKeys_.count(key) == 0) {
        return {"none"};
    }
    if (unsavedEtfs_.count(key) != 0) {
        return only(unsavedEtfs_.at(key));
    }
    if (store_.etfs.count(decimal(key)) != 0) {
        return only(store_.etfs.at(decimal(key)));
    }
    return only(boost::make_shared<CETFDetail>());
}

ChoiceByText ClientModel::getEtfs() const {
    ChoiceByText result;
    for (const auto& [key, etf] : unsavedEtfs_) {
        result[etf->market + etf->etfCode] = only(etf);
    }
    if (!registered(utils::hash("ALLETF")).empty()) {
        for (const auto& [key, etf] : store_.etfs) {
            result.insert({etf->market + etf->etfCode, only(etf)});
        }
    }
    return result;
}

Choice ClientModel::getBond(Key key) {
    Choice choice;
    if (cachedBonds_.count(key) != 0) {
        choice.insert(imageOf(cachedBonds_.at(key)));
        if (cache_ == Cache::All) {
            return choice;
        }
    }
    const auto document = store_.bonds.find(decimal(key));
    if (document == store_.bonds.end() || registered(utils::hash("BANKBOND")).empty()) {
        choice.insert("none");
        return choice;
    }
    choice.insert(imageOf(document->second));
    if (cache_ != Cache::None && cachedBonds_.count(key) == 0) {
        cachedBonds_[key] = clone(document->second);
    }
    return choice;
}

ChoiceByText ClientModel::getBonds() const {
    ChoiceByText result;
    if (!registered(utils::hash("BANKBOND")).empty()) {
        for (const auto& [key, bond] : store_.bonds) {
            result.insert({bond->bondCode, only(bond)});
        }
    }
    return result;
}

std::string ClientModel::getInterbankCode(const std::string& code) const {
    return interbankCodes_.count(code) != 0 ? interbankCodes_.at(code) : "";
}

ChoiceByText ClientModel::getOtcInstruments() const {
    ChoiceByText result;
    for (const Key key : planKeys_) {
        const auto plan = store_.plans.find(decimal(key));
        if (plan != store_.plans.end()) {
            result[plan->second->market + plan->second->code] = only(plan->second);
        }
    }
    return result;
}

Choice ClientModel::getOtcInstrument(const std::string& code) {
    const Key key = utils::hash(code);
    const auto plan = store_.plans.find(decimal(key));
    return planKeys_.count(key) != 0 && plan != store_.plans.end() ? only(plan->second) : Choice{"none"};
}

Choice ClientModel::getIssuancePriceInfo(const std::string& code) const {
    return priceSettings_.count(code) != 0 ? only(priceSettings_.at(code)) : Choice{"none"};
}

Choice ClientModel::getTenderBondInfo(const std::string& code) const {
    return tenderBonds_.count(code) != 0 ? only(tenderBonds_.at(code)) : Choice{"none"};
}

}  // namespace mxservice::model
