#include "tools/inscenter/CompareQuestions.h"

#include <array>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/MarketNames.h"

namespace inscenter {
namespace {

namespace market = mxservice::market;

constexpr const char* kUnknown = "?";  // no market, code or product
constexpr std::array kHongKongNames{market::kHongKong, market::kShanghaiConnect, market::kShenzhenConnect};

void addInstruments(const Snapshot& day, Questions& questions) {
    for (const auto& record : day.instruments) {
        questions.codes.emplace(record->market, record->code);
        questions.markets.insert(record->market);
        questions.products.insert(record->productId);
        if (record->market == market::kHongKong || !connectPrefix(record->market).empty()) {
            for (const char* const name : kHongKongNames) {
                questions.codes.emplace(name, record->code);
            }
        }
    }
}

void addFunds(const Snapshot& day, Questions& questions) {
    for (const auto& etf : day.etfs) {
        for (const std::string& code : std::set<std::string>{etf->etfCode, etf->prCode}) {
            questions.codes.emplace(etf->market, code);
            ++questions.fundsByKey[utils::ovStockKey(etf->market, code)];
        }
        questions.codes.emplace(kEtfInstruments, etf->prCode);
    }
}

}  // namespace

Questions::Questions(const Snapshot& day)
    : markets{"", kUnknown, kEtfInstruments, market::kInterbank, market::kShanghaiSpecial}, products{kUnknown} {
    markets.insert(kHongKongNames.begin(), kHongKongNames.end());
    markets.insert(market::kFutures.begin(), market::kFutures.end());
    addInstruments(day, *this);
    addFunds(day, *this);
    for (const auto& bond : day.bonds) {
        codes.insert({{market::kInterbank, bond->bondCode},
                      {market::kShanghai, bond->shanghaiCode},
                      {market::kShenzhen, bond->shenzhenCode}});
    }
    const auto addKeys = [this](const auto& records) {
        for (const auto& record : records) {
            texts.insert(record->getKey());
        }
    };
    addKeys(day.bonds);
    addKeys(day.tenderBonds);
    addKeys(day.counterparties);
    addKeys(day.otcFundPlans);
    addKeys(day.issuances);
    for (const std::string& name : markets) {
        codes.insert({{name, kUnknown}, {name, ""}});
    }
    for (const auto& [name, code] : codes) {
        texts.insert(utils::ovStockKey(name, code));
    }
}

bool Questions::isAmbiguousFund(const std::string& key) const {
    const auto found = fundsByKey.find(key);
    return found != fundsByKey.end() && found->second > 1;
}

std::string connectPrefix(std::string_view text) {
    for (const char* const name : {market::kShanghaiConnect, market::kShenzhenConnect}) {
        if (text.starts_with(name)) {
            return name;
        }
    }
    return {};
}

}  // namespace inscenter
