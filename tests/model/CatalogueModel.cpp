#include "tests/model/CatalogueModel.h"

#include "platform/utils/Utils.h"

namespace mxservice::model {
namespace {

/// The pieces between the separators, empty ones included.
std::vector<std::string> pieces(const std::string& text, const std::string& separators) {
    std::vector<std::string> found(1);
    for (const char byte : text) {
        if (separators.find(byte) != std::string::npos) {
            found.emplace_back();
        } else {
            found.back() += byte;
        }
    }
    return found;
}

bool addSpread(const std::string& code, std::vector<std::pair<std::string, std::string>>& to) {
    const std::vector<std::string> tokens = pieces(code, " ");
    if (tokens.size() != 2) {
        return false;
    }
    const std::vector<std::string> legs = pieces(tokens[1], "&");
    if (legs.size() != 2) {
        return false;
    }
    to.emplace_back(legs[0], legs[1]);
    return true;
}

bool isNewInShanghai(const CInstrumentDetail& record) {
    const std::string& market = record.market;
    const std::string& code = record.code;
    return utils::isToday(record.listingDate) &&
           (utils::isShanghaiStockIPO(market, code) || utils::isShanghaiLoanIPO(market, code) ||
            utils::isShanghaiLoanCbbScbIPO(market, code) || utils::isShanghaiSubscriptionTechBoard(market, code));
}

bool isReceiptInShanghai(const CInstrumentDetail& record) {
    const std::string& market = record.market;
    const std::string& code = record.code;
    return utils::isShanghaiInnovate(market, code) || utils::isShanghaiInnovateDistribution(market, code) ||
           utils::isShanghaiInnovateSubscribe(market, code) || utils::isShanghaiInnovateAllotmen(market, code) ||
           utils::isShanghaiCDR(market, code) || utils::isShanghaiCDRDistribution(market, code) ||
           utils::isShanghaiCDRSubscribe(market, code) || utils::isShanghaiCDRAllotmen(market, code);
}

bool isNewInShenzhen(const CInstrumentDetail& record) {
    return utils::isToday(record.listingDate) &&
           ((record.issueState == -1 && utils::isShenzhenStockA(record.market, record.code)) ||
            utils::isShenzhenLoanCbbScbIPO(record.market, record.code));
}

bool isReceiptInShenzhen(const CInstrumentDetail& record) {
    return record.statusString.size() > 7 && (record.statusString[7] == '0' || record.statusString[7] == '1');
}

std::set<std::string> unite(const std::map<std::string, std::set<std::string>>& sets) {
    std::set<std::string> all;
    for (const auto& [market, codes] : sets) {
        all.insert(codes.begin(), codes.end());
    }
    return all;
}

}  // namespace

Etf clone(const Etf& record) {
    if (!record) {
        return nullptr;
    }
    auto copy = boost::make_shared<CETFDetail>(*record);
    for (auto& [code, component] : copy->components) {
        component = clone(component);
    }
    return copy;
}

std::string image(const IData* record) {
    if (record == nullptr) {
        return "none";
    }
    std::string bytes;
    record->appendDocument(bytes);
    return bytes;
}

Key CatalogueModel::keyOf(const std::string& market, const std::string& code) {
    return utils::hash(market + code);
}

bool CatalogueModel::isFutureExchange(Key market) {
    for (const char* const exchange : {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"}) {
        if (market == utils::hash(exchange)) {
            return true;
        }
    }
    return false;
}

bool CatalogueModel::isFutureOption(const CInstrumentDetail& record) {
    return isFutureExchange(utils::hash(record.market)) && (record.optionType == 1 || record.optionType == 2);
}

std::string CatalogueModel::connectFolded(const std::string& key) {
    return startsWith(key, "HGT") || startsWith(key, "SGT") ? "HK" + key.substr(3) : key;
}

std::string CatalogueModel::foldedMarket(const std::string& market) {
    return market == "HGT" || market == "SGT" ? "HK" : market;
}

std::list<std::string> CatalogueModel::commonExchanges(int type) {
    switch (type) {
        case 1:
        case 8:
            return {"BJ", "SH", "SZ"};
        case 2:
        case 1024:
            return {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"};
        case 16:
            return {"SHGE"};
        case 32:
            return {"SHO", "SZO"};
        case 128:
        case 16384:
            return {"HK"};
        case 256:
            return {"NEEQ"};
        case 4096:
        case 1048576:
            return {"SH", "SZ"};
        case 2097152:
            return {"SOTC"};
        default:
            return {};
    }
}

Instrument CatalogueModel::pseudoInstrument(const std::string& market, const std::string& code,
                                            const std::string& name) {
    auto record = boost::make_shared<CInstrumentDetail>();
    record->market = market;
    record->code = code;
    record->name = name;
    record->platformCode = code;
    return record;
}

void CatalogueModel::initIssuanceInfos(const std::vector<Issuance>& records) {
    issuances_.clear();
    updateIssuanceInfos(0, records);
}

void CatalogueModel::updateIssuanceInfos(int operation, const std::vector<Issuance>& records) {
    for (const Issuance& record : records) {
        if (!record) {
            continue;
        }
        if (operation == 0 || operation == 2) {
            issuances_[record->code] = record;
        } else if (operation == 3) {
            issuances_.erase(record->code);
        }
    }
}

Choice CatalogueModel::getCounterparty(const std::string& id) const {
    return counterparties_.count(id) != 0 ? only(counterparties_.at(id)) : Choice{"none"};
}

Choice CatalogueModel::getIssuanceInfo(const std::string& code) const {
    return issuances_.count(code) != 0 ? only(issuances_.at(code)) : Choice{"none"};
}

std::set<std::string> CatalogueModel::getStockIpoCodes() const {
    return unite(ipoCodes_);
}

std::set<std::string> CatalogueModel::getStockCdrCodes() const {
    return unite(cdrCodes_);
}

bool CatalogueModel::isStkOptionUndlCode(const std::string& market, const std::string& code) const {
    return underlyings_.count(market) != 0 && underlyings_.at(market).count(utils::hash(code)) != 0;
}

void CatalogueModel::createFutureMainDatas(const Grouped& grouped) {
    for (const auto& [market, records] : grouped) {
        if (!isFutureExchange(market)) {
            continue;
        }
        std::set<Key> keys;
        std::map<std::string, std::set<Key>> byProduct;
        for (const auto& [key, record] : records) {
            if (record->mainContractFlag == 1) {
                keys.insert(key);
                byProduct[record->productId].insert(key);
            }
        }
        mainByMarket_[market] = keys;
        for (const auto& [product, mainKeys] : byProduct) {
            mainByProduct_[product] = mainKeys;
        }
    }
}

void CatalogueModel::createFutureDceDatas(const Grouped& grouped) {
    const auto dce = grouped.find(utils::hash("DCE"));
    if (dce == grouped.end()) {
        return;
    }
    crossProduct_.clear();
    crossPeriod_.clear();
    for (const auto& [key, record] : dce->second) {
        if (startsWith(record->code, "SPC")) {
            addSpread(record->code, crossProduct_);
        } else if (startsWith(record->code, "SP")) {
            addSpread(record->code, crossPeriod_);
        }
    }
}

void CatalogueModel::createStockCodes(const Markets& markets, const Grouped& grouped) {
    bool concerned = false;
    for (const std::string& market : markets) {
        concerned = concerned || market == "SH" || market == "SZ" || market == "BJ";
    }
    if (!concerned) {
        return;
    }
    std::map<std::string, std::set<std::string>> ipo{{"SH", {}}, {"SZ", {}}, {"BJ", {}}};
    std::map<std::string, std::set<std::string>> cdr{{"SH", {}}, {"SZ", {}}};
    for (const std::string market : {"SH", "SZ", "BJ"}) {
        const auto found = grouped.find(utils::hash(market));
        if (found == grouped.end()) {
            continue;
        }
        for (const auto& [key, record] : found->second) {
            const std::string entry = record->market + record->code;
            if (record->additionalIssueFlag == 1) {
                continue;
            }
            if (market == "SH") {
                if (isNewInShanghai(*record)) {
                    ipo["SH"].insert(entry);
                }
                if (isReceiptInShanghai(*record)) {
                    cdr["SH"].insert(entry);
                }
            } else if (market == "SZ") {
                if (isNewInShenzhen(*record)) {
                    ipo["SZ"].insert(entry);
                }
                if (isReceiptInShenzhen(*record)) {
                    cdr["SZ"].insert(entry);
                }
            } else if (record->securityClass == 5) {
                ipo["BJ"].insert(entry);
            }
        }
    }
    ipoCodes_ = ipo;
    cdrCodes_ = cdr;
}

void CatalogueModel::createNeeqCodes(const Grouped& grouped) {
    std::set<std::string> codes;
    const auto found = grouped.find(utils::hash("NEEQ"));
    if (found != grouped.end()) {
        for (const auto& [key, record] : found->second) {
            if (record->securityClass == 5) {
                codes.insert(record->market + record->code);
            }
        }
    }
    if (!codes.empty()) {
        neeqCodes_ = codes;
    }
}

void CatalogueModel::createStkOptionCodes(const Grouped& grouped) {
    for (const auto& [options, underlying] : {std::pair("SHO", "SH"), std::pair("SZO", "SZ")}) {
        std::set<Key> codes;
        const auto found = grouped.find(utils::hash(options));
        if (found != grouped.end()) {
            for (const auto& [key, record] : found->second) {
                const std::vector<std::string> tokens = pieces(record->productId, "()");
                if (tokens.size() >= 2 && !tokens[1].empty()) {
                    codes.insert(utils::hash(tokens[1]));
                }
            }
        }
        if (!codes.empty()) {
            underlyings_[underlying] = codes;
        }
    }
}

}  // namespace mxservice::model
