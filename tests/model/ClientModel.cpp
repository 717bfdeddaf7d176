#include "tests/model/ClientModel.h"

#include <cctype>

#include "platform/utils/Utils.h"

namespace mxservice::model {
namespace {

bool isDigit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool endsWith(const std::string& text, const std::string& end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool isContinuousAlias(const std::string& platformCode) {
    const std::size_t length = platformCode.size();
    if (length >= 2 && platformCode[length - 2] == 'L' && isDigit(platformCode[length - 1])) {
        return true;
    }
    if (length >= 3 && endsWith(platformCode, "00") && !isDigit(platformCode[length - 3])) {
        return true;
    }
    return length >= 4 && endsWith(platformCode, "main");
}

}  // namespace

bool StoreModel::takes(const std::string& db) const {
    const bool safe = !db.empty() && db.size() <= 64 && db[0] != '.' && db.find('/') == std::string::npos &&
                      db.find('\\') == std::string::npos && db.find("..") == std::string::npos &&
                      std::none_of(db.begin(), db.end(), [](unsigned char byte) { return std::iscntrl(byte) != 0; });
    return safe && broken.count(db) == 0;
}

bool StoreModel::write(const std::string& db, const Instruments& documents) {
    if (!takes(db)) {
        return false;
    }
    for (const auto& [key, record] : documents) {
        instruments[db][key] = clone(record);
    }
    return true;
}

void StoreModel::drop(const std::string& db) {
    if (!takes(db)) {
        return;
    }
    instruments.erase(db);
    if (db == "OvIns_FUMAIN") {
        mains.clear();
    } else if (db == "OvIns_FUPROD") {
        products.clear();
    } else if (db == "OvIns_ALLETF") {
        etfs.clear();
    } else if (db == "OvIns_BANKBOND") {
        bonds.clear();
    } else if (db == "OvIns_OTCINS") {
        plans.clear();
    }
}

void StoreModel::clearCatalogues() {
    std::map<std::string, Instruments> raw;
    for (const auto& [db, documents] : instruments) {
        if (db.find("OvIns") == std::string::npos) {
            raw[db] = documents;
        }
    }
    *this = StoreModel{raw, {}, {}, {}, {}, {}, broken};
}

void ClientModel::initInstruments(const Markets& markets, const std::vector<Instrument>& records) {
    clearDatas(markets);
    Grouped grouped;
    Flags flags;
    process(records, grouped, flags);
    std::vector<Instrument> hongKongExtra;
    merge({"HGT", "HK", "SGT"}, markets, records, hongKongExtra);
    process(hongKongExtra, grouped, flags);
    std::vector<Instrument> shanghaiExtra;
    merge({"SH", "SHFI"}, markets, records, shanghaiExtra);
    Flags unused;
    process(shanghaiExtra, grouped, unused);
    for (const auto& [key, values] : flags) {
        const Instrument& record = grouped[utils::hash("HK")][key];
        if (record->combinedConnectFlags != 0) {
            continue;
        }
        for (const auto& [market, value] : values) {
            if (market == utils::hash("HGT")) {
                record->combinedConnectFlags |= static_cast<std::uint32_t>(value);
            } else if (market == utils::hash("SGT")) {
                record->combinedConnectFlags |= static_cast<std::uint32_t>(value) << 2;
            }
        }
    }
    createExchangeDatas(grouped, "");
    createFutureMainDatas(grouped);
    createMainDocuments(grouped);
    createProductDocuments(grouped);
    createFutureDceDatas(grouped);
    createStockCodes(markets, grouped);
    createNeeqCodes(grouped);
    createStkOptionCodes(grouped);
    createOuterDatas(grouped);
}

void ClientModel::process(const std::vector<Instrument>& records, Grouped& grouped, Flags& flags) {
    for (const Instrument& record : records) {
        if (!record) {
            continue;
        }
        const Key market = utils::hash(record->market);
        const std::string name = record->market;
        if (name == "HGT" || name == "SGT") {
            const Key key = keyOf("HK", record->code);
            flags[key].insert({market, record->connectFlagValue});
            grouped[utils::hash("HK")][key] = record;
        } else if (name == "HK") {
            grouped[market].insert({keyOf("HK", record->code), record});
        } else if (name == "SHFI") {
            if (grouped[utils::hash("SH")].insert({keyOf("SH", record->code), record}).second) {
                record->market = "SH";
            }
        } else {
            grouped[market][keyOf(name, record->code)] = record;
        }
        notePlatformCode(*record);
    }
}

void ClientModel::notePlatformCode(const CInstrumentDetail& record) {
    if (record.code == record.platformCode) {
        return;
    }
    const bool foreign = record.market == "WP" || record.market == "NYSE" || record.market == "NASDAQ";
    if (isFutureExchange(utils::hash(record.market)) ? !isContinuousAlias(record.platformCode) : foreign) {
        lumoCodes_[record.code] = record.platformCode;
    }
}

void ClientModel::merge(const std::set<std::string>& group, const Markets& markets,
                        const std::vector<Instrument>& records, std::vector<Instrument>& extra) {
    bool concerned = false;
    for (const std::string& market : markets) {
        concerned = concerned || group.count(market) != 0;
    }
    std::map<std::string, StoreModel::Instruments> brought;
    for (const Instrument& record : records) {
        if (record && group.count(record->market) != 0) {
            brought[record->market][decimal(keyOf(record->market, record->code))] = record;
        }
    }
    if (!concerned || brought.empty()) {
        return;
    }
    for (const std::string& name : group) {
        if (brought.count(name) == 0) {
            for (const auto& [key, record] : store_.instruments["OvRaw" + name]) {
                extra.push_back(clone(record));
            }
        }
    }
    for (const auto& [name, documents] : brought) {
        store_.write("OvRaw" + name, documents);
    }
}

void ClientModel::createExchangeDatas(Grouped& grouped, const std::string& market) {
    for (auto& [marketKey, records] : grouped) {
        std::string name = market;
        if (name.empty() && !records.empty()) {
            name = records.begin()->second->market;
        }
        std::set<Key> keys;
        StoreModel::Instruments documents;
        for (const auto& [key, record] : records) {
            if (cached_.count(key) != 0) {
                cached_[key] = {record};
            }
            keys.insert(key);
            documents[decimal(key)] = record;
        }
        const std::string db = "OvIns_" + foldedMarket(name);
        if (store_.write(db, documents)) {
            lastWriteFailed_.erase(marketKey);
        } else {
            lastWriteFailed_.insert(marketKey);
            std::swap(failed_[marketKey], records);
        }
        for (const Key key : keys) {
            marketByKey_[key] = marketKey;
        }
        keysByMarket_[marketKey] = keys;
        dbByMarket_[utils::hash(foldedMarket(name))] = db;
    }
}

void ClientModel::clearDatas(const Markets& markets) {
    std::set<std::string> names;
    for (const std::string& market : markets) {
        names.insert(foldedMarket(market));
    }
    for (const std::string& name : names) {
        const Key market = utils::hash(name);
        store_.drop(registered(market));
        for (const Key key : keysByMarket_[market]) {
            marketByKey_.erase(key);
        }
        keysByMarket_[market].clear();
        lastWriteFailed_.erase(market);  // the newest batch is none
    }
}

void ClientModel::createMainDocuments(const Grouped& grouped) {
    for (const auto& [market, records] : grouped) {
        if (!isFutureExchange(market)) {
            continue;
        }
        StoreModel::Instruments& documents = store_.mains[decimal(market)];
        documents.clear();
        for (const auto& [key, record] : records) {
            if (record->mainContractFlag == 1) {
                documents[decimal(key)] = clone(record);
            }
        }
    }
    dbByMarket_[utils::hash("FUMAIN")] = "OvIns_FUMAIN";
}

void ClientModel::createProductDocuments(const Grouped& grouped) {
    std::map<std::string, StoreModel::Instruments> byProduct;
    for (const auto& [market, records] : grouped) {
        if (isFutureExchange(market)) {
            for (const auto& [key, record] : records) {
                byProduct[record->productId][decimal(key)] = clone(record);
            }
        }
    }
    for (const auto& [product, documents] : byProduct) {
        store_.products[product] = documents;
        productsWritten_.insert(product);
    }
    dbByMarket_[utils::hash("FUPROD")] = "OvIns_FUPROD";
}

void ClientModel::createOuterDatas(const Grouped& grouped) {
    std::map<std::string, std::set<std::string>> products;
    std::set<std::string> commodity;
    std::set<std::string> interest;
    const auto outer = grouped.find(utils::hash("WP"));
    if (outer != grouped.end()) {
        for (const auto& [key, record] : outer->second) {
            if (record->mainContractFlag != 1) {
                continue;
            }
            outerProductNames_[record->productId] = record->productName;
            outerMarketNames_[record->listingDate] = record->outerMarketName;
            products[record->listingDate].insert(record->productId);
            if (record->productGroup == 1) {
                commodity.insert(record->productId);
            } else if (record->productGroup == 2) {
                interest.insert(record->productId);
            }
        }
    }
    outerProducts_ = products;
    commodity_ = commodity;
    interest_ = interest;
}

std::string ClientModel::registered(Key market) const {
    const auto found = dbByMarket_.find(market);
    return found == dbByMarket_.end() ? "" : found->second;
}

Key ClientModel::marketOf(const std::string& key) const {
    const auto found = marketByKey_.find(utils::hash(key));
    return found == marketByKey_.end() ? 0 : found->second;
}

bool ClientModel::hasHkstock(const std::string& code) const {
    return marketOf(connectFolded(code)) == utils::hash("HK");
}

Instrument ClientModel::source(Key market, Key key) {
    const std::map<Key, Instrument>& failed = failed_[market];
    const Instrument parked = failed.count(key) != 0 ? failed.at(key) : nullptr;
    const StoreModel::Instruments& documents = store_.instruments[registered(market)];
    const auto document = documents.find(decimal(key));
    if (document == documents.end() || (parked && lastWriteFailed_.count(market) != 0)) {
        return parked;
    }
    return clone(document->second);
}

std::vector<Instrument> ClientModel::candidates(Key key) {
    const auto market = marketByKey_.find(key);
    if (market == marketByKey_.end()) {
        return {};
    }
    std::vector<Instrument> cached = cached_.count(key) != 0 ? cached_.at(key) : std::vector<Instrument>();
    if (cache_ == Cache::All && !cached.empty()) {
        return cached;
    }
    const Instrument fresh = source(market->second, key);
    if (fresh && cache_ != Cache::None) {
        cached_[key].push_back(fresh);
    }
    if (fresh || !cached.empty()) {
        cached.push_back(fresh);
    }
    return cached;
}

Choice ClientModel::getInstrument(Key key) {
    Choice choice;
    for (const Instrument& record : candidates(key)) {
        choice.insert(imageOf(record));
    }
    return choice.empty() ? Choice{"none"} : choice;
}

Choice ClientModel::getInstrument(const std::string& code) {
    if (connectFolded(code) == code) {
        return getInstrument(utils::hash(code));
    }
    Choice choice;
    for (const Instrument& record : candidates(utils::hash(connectFolded(code)))) {
        const Instrument relabelled = clone(record);
        if (relabelled) {
            relabelled->market = code.substr(0, 3);
        }
        choice.insert(imageOf(relabelled));
    }
    return choice.empty() ? Choice{"none"} : choice;
}

Choice ClientModel::getInstrument(const std::string& market, const std::string& code) {
    const std::string key = market + code;
    return market == "HGT" || market == "SGT" ? getInstrument(key) : getInstrument(utils::hash(key));
}

void ClientModel::addMarket(Key market, ChoiceByText& result) const {
    if (keysByMarket_.count(market) == 0) {
        return;
    }
    const auto documents = store_.instruments.find(registered(market));
    const bool stored = documents != store_.instruments.end() && !documents->second.empty();
    const auto failed = failed_.find(market);
    const bool parked = failed != failed_.end() && !failed->second.empty();
    const bool newest = parked && lastWriteFailed_.count(market) != 0;
    if (stored && !newest) {
        for (const auto& [key, record] : documents->second) {
            result.insert({record->market + record->code, only(record)});
        }
    }
    if (!parked) {
        return;
    }
    for (const auto& [key, record] : failed->second) {
        const auto filed = marketByKey_.find(key);
        const bool today = filed != marketByKey_.end() && filed->second == market;
        if (newest || (today && !(stored && documents->second.count(decimal(key)) != 0))) {
            // Of two with one text the parked one may go first or second.
            result[record->market + record->code].insert(imageOf(record));
        }
    }
}

ChoiceByText ClientModel::getInstruments(const std::list<std::string>& markets) {
    ChoiceByText result;
    for (const std::string& market : markets) {
        addMarket(utils::hash(foldedMarket(market)), result);
    }
    return result;
}

ChoiceByText ClientModel::getInstruments() {
    ChoiceByText result;
    for (const auto& [market, keys] : keysByMarket_) {
        addMarket(market, result);
    }
    return result;
}

ChoiceByText ClientModel::getInstruments(int type) {
    if (type == 4 || type == 65536 || type == 810495 || type == 8388608 || type == 16777216 || type == 2146762751) {
        return getInstruments();
    }
    if (type == 512) {
        return getOtcInstruments();
    }
    std::list<std::string> markets = commonExchanges(type);
    if (type == 64) {
        markets = {"WP", "NYSE", "NASDAQ"};
    } else if (type == 2048) {
        markets = {"WP"};
    }
    ChoiceByText result = getInstruments(markets);
    if (type == 2 || type == 1024) {
        for (auto entry = result.begin(); entry != result.end();) {
            CInstrumentDetail record;
            const std::string& bytes = *entry->second.begin();
            record.readDocument(bytes, true, nullptr);
            entry = isFutureOption(record) == (type == 2) ? result.erase(entry) : std::next(entry);
        }
    }
    return result;
}

ChoiceByText ClientModel::getFutureMainInstruments(const std::string& market) {
    ChoiceByText result;
    if (mainByMarket_.count(utils::hash(market)) != 0) {
        for (const auto& [key, record] : store_.mains[decimal(utils::hash(market))]) {
            result[record->market + record->code] = only(record);
        }
    }
    return result;
}

std::map<std::string, std::multiset<Choice>> ClientModel::getProductMainInstruments() {
    std::map<std::string, std::multiset<Choice>> result;
    for (const auto& [product, keys] : mainByProduct_) {
        std::multiset<Choice>& records = result[product];
        for (const Key key : keys) {
            const Choice choice = getInstrument(key);
            if (choice != Choice{"none"}) {
                records.insert(choice);
            }
        }
    }
    return result;
}

Images ClientModel::getProductInstruments(const std::string& product) const {
    Images images;
    const auto found = store_.products.find(product);
    if (productsWritten_.count(product) != 0 && found != store_.products.end()) {
        for (const auto& [key, record] : found->second) {
            images.insert(imageOf(record));
        }
    }
    return images;
}

std::set<std::string> ClientModel::getProductId(const std::string& market, const std::string& code) {
    std::set<std::string> products;
    for (const Instrument& record : candidates(utils::hash(foldedMarket(market) + code))) {
        products.insert(record ? record->productId : "");
    }
    return products.empty() ? std::set<std::string>{""} : products;
}

std::string ClientModel::getLumoCode(const std::string& code) const {
    return lumoCodes_.count(code) != 0 ? lumoCodes_.at(code) : code;
}

}  // namespace mxservice::model
