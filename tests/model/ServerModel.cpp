#include "tests/model/ServerModel.h"

#include "platform/utils/Utils.h"

namespace mxservice::model {

void ServerModel::initInstruments(const Markets& markets, const std::vector<Instrument>& records) {
    if (markets.size() == 1 && (markets[0] == "HGT" || markets[0] == "SGT" || markets[0] == "HK")) {
        snapshots_[markets[0]] = records;
        if (snapshots_.count("HGT") != 0 && snapshots_.count("SGT") != 0) {
            buildConnect();
        }
        return;
    }
    Grouped grouped;
    std::map<Key, std::set<Key>> connect;
    for (const Instrument& record : records) {
        if (!record) {
            continue;
        }
        const Key market = utils::hash(record->market);
        if (record->market == "HGT" || record->market == "SGT") {
            const Key key = keyOf("HK", record->code);
            connect[key].insert(market);
            grouped[utils::hash("HK")][key] = record;
        } else if (record->market == "SHFI") {
            std::map<Key, Instrument>& shanghai = grouped[utils::hash("SH")];
            const Key key = keyOf("SH", record->code);
            if (shanghai.count(key) == 0) {
                record->market = "SH";
                shanghai[key] = record;
            }
        } else if (record->market == "HK") {
            std::map<Key, Instrument>& hongKong = grouped[market];
            const Key key = keyOf("HK", record->code);
            if (hongKong.count(key) == 0) {
                hongKong[key] = record;
            }
        } else {
            grouped[market][keyOf(record->market, record->code)] = record;
        }
    }
    markConnect(grouped, connect);
    createExchangeDatas(grouped);
    createFutureMainDatas(grouped);
    createFutureDceDatas(grouped);
    createStockCodes(markets, grouped);
    createNeeqCodes(grouped);
    createStkOptionCodes(grouped);
}

void ServerModel::markConnect(Grouped& grouped, const std::map<Key, std::set<Key>>& connect) {
    for (const auto& [key, markets] : connect) {
        const Instrument& record = grouped[utils::hash("HK")][key];
        if (record->combinedConnectFlags == 0) {
            if (markets.size() == 2) {
                record->combinedConnectFlags = 5;
            } else {
                record->combinedConnectFlags = markets.count(utils::hash("HGT")) != 0 ? 1 : 3;
            }
        }
    }
}

void ServerModel::buildConnect() {
    Grouped grouped;
    std::map<Key, std::set<Key>> connect;
    for (const char* const name : {"HGT", "SGT", "HK"}) {
        for (const Instrument& record : snapshots_[name]) {
            if (!record) {
                continue;
            }
            const Key key = keyOf("HK", record->code);
            if (record->market == "HGT" || record->market == "SGT") {
                connect[key].insert(utils::hash(record->market));
            } else if (record->market != "HK") {
                continue;
            }
            grouped[utils::hash("HK")][key] = record;
        }
    }
    markConnect(grouped, connect);
    createExchangeDatas(grouped);
}

void ServerModel::createExchangeDatas(const Grouped& grouped) {
    for (const auto& [market, records] : grouped) {
        std::set<Key> keys;
        for (const auto& [key, record] : records) {
            keys.insert(key);
            records_[key] = record;
            marketByKey_[key] = market;
        }
        keysByMarket_[market] = keys;
    }
}

void ServerModel::clearDatas(const Markets& markets) {
    for (const std::string& market : markets) {
        const auto found = keysByMarket_.find(utils::hash(foldedMarket(market)));
        if (found == keysByMarket_.end()) {
            continue;
        }
        for (const Key key : found->second) {
            marketByKey_.erase(key);
            records_.erase(key);
        }
        found->second.clear();
    }
}

void ServerModel::initEtfs(const std::vector<Etf>& records) {
    etfs_.clear();
    Grouped pseudo;
    std::map<Key, Instrument>& instruments = pseudo[utils::hash("ETFINSTS")];
    for (const Etf& etf : records) {
        if (!etf) {
            continue;
        }
        etfs_.insert({keyOf(etf->market, etf->etfCode), etf});
        etfs_.insert({keyOf(etf->market, etf->prCode), etf});
        const bool hasBasket = !etf->components.empty() && etf->components.begin()->second;
        const std::string name = hasBasket ? etf->components.begin()->second->name : etf->prCode;
        instruments.insert({keyOf("ETFINSTS", etf->prCode), pseudoInstrument(etf->market, etf->prCode, name)});
    }
    createExchangeDatas(pseudo);
}

void ServerModel::initBonds(const std::map<std::string, Bond>& records) {
    bonds_.clear();
    Grouped pseudo;
    std::map<Key, Instrument>& instruments = pseudo[utils::hash("BANK")];
    for (const auto& [name, bond] : records) {
        if (!bond) {
            continue;
        }
        const Key key = keyOf("BANK", bond->bondCode);
        bonds_.insert({key, bond});
        instruments.insert({key, pseudoInstrument("BANK", bond->bondCode, bond->bondName)});
    }
    createExchangeDatas(pseudo);
}

void ServerModel::initOtcInstruments(const std::vector<Plan>& records) {
    plans_.clear();
    groups_.clear();
    for (const Plan& plan : records) {
        if (plan) {
            plans_.insert({keyOf(plan->market, plan->code), plan});
            groups_[plan->planType].push_back(plan);
        }
    }
}

void ServerModel::updateOtcInstruments(const std::vector<Plan>& records) {
    for (const Plan& plan : records) {
        if (!plan) {
            continue;
        }
        // A plan that is replaced is no longer listed in its group.
        Plan& known = plans_[keyOf(plan->market, plan->code)];
        if (known) {
            std::erase_if(groups_[known->planType], [&](const Plan& member) {
                return member->market + member->code == plan->market + plan->code;
            });
        }
        known = plan;
        groups_[plan->planType].push_back(plan);
    }
}

void ServerModel::initTenderBondInfos(const std::map<std::string, TenderBond>& records) {
    tenderBonds_.clear();
    for (const auto& [name, record] : records) {
        if (record) {
            tenderBonds_[utils::hash(name)] = record;
        }
    }
}

void ServerModel::updateTenderBondInfos(const std::vector<TenderBond>& records) {
    for (const TenderBond& record : records) {
        if (record) {
            tenderBonds_[utils::hash(record->code)] = record;
        }
    }
}

Key ServerModel::marketOf(const std::string& key) const {
    const auto found = marketByKey_.find(utils::hash(key));
    return found == marketByKey_.end() ? 0 : found->second;
}

bool ServerModel::hasHkstock(const std::string& code) const {
    const std::string key = startsWith(code, "HGT") ? "HK" + code.substr(3) : code;
    return marketOf(key) == utils::hash("HGT");
}

bool ServerModel::hasEtf(const std::string& code) const {
    return etfs_.count(utils::hash(code)) != 0;
}

bool ServerModel::hasOtc(const std::string& code) const {
    return plans_.count(utils::hash(code)) != 0;
}

bool ServerModel::hasTenderBond(const std::string& code) const {
    return tenderBonds_.count(utils::hash(code)) != 0;
}

Instrument ServerModel::find(Key key) const {
    const auto found = records_.find(key);
    return found == records_.end() ? nullptr : found->second;
}

Choice ServerModel::getInstrument(Key key) {
    return only(find(key));
}

Choice ServerModel::getInstrumentOf(const std::string& key) {
    return getInstrument(utils::hash(key));
}

Choice ServerModel::getInstrument(const std::string& market, const std::string& code) {
    return getInstrumentOf(foldedMarket(market) + code);
}

ChoiceByText ServerModel::getInstruments(const std::list<std::string>& markets) {
    ChoiceByText result;
    for (const std::string& market : markets) {
        ChoiceByText ofMarket;
        for (const Key key : keysByMarket_[utils::hash(foldedMarket(market))]) {
            if (const Instrument record = find(key)) {
                ofMarket[record->market + record->code].insert(imageOf(record));
            }
        }
        result.insert(ofMarket.begin(), ofMarket.end());
    }
    return result;
}

ChoiceByText ServerModel::getInstruments() {
    ChoiceByText result;
    for (const auto& [key, record] : records_) {
        result[record->market + record->code].insert(imageOf(record));
    }
    return result;
}

ChoiceByText ServerModel::getInstruments(int type) {
    if (type == 4 || type == 65536 || type == 810495 || type == 8388608 || type == 2146762751) {
        return getInstruments();
    }
    ChoiceByText result = getInstruments(commonExchanges(type));
    if (type == 2 || type == 1024) {
        std::set<std::string> options;
        for (const auto& [key, record] : records_) {
            if (isFutureOption(*record)) {
                options.insert(imageOf(record));
            }
        }
        for (auto entry = result.begin(); entry != result.end();) {
            const bool option = options.count(*entry->second.begin()) != 0;
            entry = option == (type == 2) ? result.erase(entry) : std::next(entry);
        }
    }
    return result;
}

ChoiceByText ServerModel::getFutureMainInstruments(const std::string& market) {
    ChoiceByText result;
    const auto keys = mainByMarket_.find(utils::hash(market));
    if (keys != mainByMarket_.end()) {
        for (const Key key : keys->second) {
            if (const Instrument record = find(key)) {
                result[record->market + record->code].insert(imageOf(record));
            }
        }
    }
    return result;
}

std::map<std::string, std::multiset<Choice>> ServerModel::getProductMainInstruments() {
    std::map<std::string, std::multiset<Choice>> result;
    for (const auto& [product, keys] : mainByProduct_) {
        std::multiset<Choice>& records = result[product];
        for (const Key key : keys) {
            if (find(key)) {
                records.insert(only(find(key)));
            }
        }
    }
    return result;
}

std::set<std::string> ServerModel::getProductId(const std::string& market, const std::string& code) {
    const Instrument record = find(utils::hash(foldedMarket(market) + code));
    return {record ? record->productId : ""};
}

Choice ServerModel::getEtf(const std::string& code) {
    const auto found = etfs_.find(utils::hash(code));
    return found == etfs_.end() ? Choice{"none"} : only(found->second);
}

ChoiceByText ServerModel::getEtfs() const {
    ChoiceByText result;
    for (const auto& [key, etf] : etfs_) {
        result[etf->market + etf->etfCode].insert(imageOf(etf));
    }
    return result;
}

Choice ServerModel::getBond(Key key) {
    const auto found = bonds_.find(key);
    return found == bonds_.end() ? Choice{"none"} : only(found->second);
}

ChoiceByText ServerModel::getBonds() const {
    ChoiceByText result;
    for (const auto& [key, bond] : bonds_) {
        result[bond->bondCode].insert(imageOf(bond));
    }
    return result;
}

Images ServerModel::getOtcInstruments(int group) const {
    Images images;
    if (group == -1) {
        for (const auto& [key, plan] : plans_) {
            images.insert(imageOf(plan));
        }
    } else if (groups_.count(group) != 0) {
        images = imagesIn(groups_.at(group));
    }
    return images;
}

ChoiceByText ServerModel::getOtcInstruments() const {
    ChoiceByText result;
    for (const auto& [key, plan] : plans_) {
        result[plan->market + plan->code].insert(imageOf(plan));
    }
    return result;
}

Choice ServerModel::getOtcInstrument(const std::string& code) {
    const auto found = plans_.find(utils::hash(code));
    return found == plans_.end() ? Choice{"none"} : only(found->second);
}

std::map<std::string, std::string> ServerModel::getTrenderBondInfos(bool& unambiguous) const {
    std::map<std::string, std::string> result;
    for (const auto& [key, record] : tenderBonds_) {
        unambiguous = result.insert({record->code, imageOf(record)}).second && unambiguous;
    }
    return result;
}

Choice ServerModel::getTenderBondInfo(const std::string& code) const {
    const auto found = tenderBonds_.find(utils::hash(code));
    return found == tenderBonds_.end() ? Choice{"none"} : only(found->second);
}

}  // namespace mxservice::model
