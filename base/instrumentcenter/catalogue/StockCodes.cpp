#include "base/instrumentcenter/catalogue/StockCodes.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/Split.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Utils.h"

namespace mxservice {
namespace {

constexpr std::int32_t kShenzhenIssueState = -1;
constexpr std::int32_t kIssueSecurityClass = 5;
constexpr int kReceiptStatusIndex = 7;

using MarketRule = bool (*)(const std::string& market, const std::string& code);

template <std::size_t N>
bool anyHolds(const std::array<MarketRule, N>& rules, const CInstrumentDetail& record) {
    return std::any_of(rules.begin(), rules.end(), [&](MarketRule rule) { return rule(record.market, record.code); });
}

bool isShanghaiIssue(const CInstrumentDetail& record) {
    constexpr std::array<MarketRule, 4> rules{utils::isShanghaiStockIPO, utils::isShanghaiLoanIPO,
                                              utils::isShanghaiLoanCbbScbIPO, utils::isShanghaiSubscriptionTechBoard};
    return utils::isToday(record.listingDate) && anyHolds(rules, record);
}

bool isShanghaiReceipt(const CInstrumentDetail& record) {
    constexpr std::array<MarketRule, 8> rules{utils::isShanghaiInnovate,
                                              utils::isShanghaiInnovateDistribution,
                                              utils::isShanghaiInnovateSubscribe,
                                              utils::isShanghaiInnovateAllotmen,
                                              utils::isShanghaiCDR,
                                              utils::isShanghaiCDRDistribution,
                                              utils::isShanghaiCDRSubscribe,
                                              utils::isShanghaiCDRAllotmen};
    return anyHolds(rules, record);
}

bool isShenzhenIssue(const CInstrumentDetail& record) {
    return utils::isToday(record.listingDate) &&
           ((record.issueState == kShenzhenIssueState && utils::isShenzhenStockA(record.market, record.code)) ||
            utils::isShenzhenLoanCbbScbIPO(record.market, record.code));
}

bool isShenzhenReceipt(const CInstrumentDetail& record) {
    return isSpecifiedValue(record.statusString, kReceiptStatusIndex, '1') ||
           isSpecifiedValue(record.statusString, kReceiptStatusIndex, '0');
}

bool isBeijingIssue(const CInstrumentDetail& record) {
    return record.securityClass == kIssueSecurityClass;
}

bool isNoReceipt(const CInstrumentDetail& /*record*/) {
    return false;
}

struct StockMarket {
    const char* name;
    bool (*isIssue)(const CInstrumentDetail& record);
    bool (*isReceipt)(const CInstrumentDetail& record);
};

constexpr std::array<StockMarket, 3> kStockMarkets{{{market::kShanghai, isShanghaiIssue, isShanghaiReceipt},
                                                    {market::kShenzhen, isShenzhenIssue, isShenzhenReceipt},
                                                    {market::kBeijing, isBeijingIssue, isNoReceipt}}};

}  // namespace

bool touchesStockCodes(const std::vector<std::string>& markets) {
    return std::any_of(markets.begin(), markets.end(), [](const std::string& name) {
        return std::any_of(kStockMarkets.begin(), kStockMarkets.end(),
                           [&](const StockMarket& market) { return name == market.name; });
    });
}

StockCodes deriveStockCodes(const GroupedSnapshot& grouped) {
    StockCodes codes;
    for (const StockMarket& market : kStockMarkets) {
        const auto found = grouped.find(marketKey(market.name));
        if (found == grouped.end()) {
            continue;
        }
        visitRecords(
            found->second,
            [&](StockKey /*key*/, const InstrumentPtr& record) {
                if (isIssueAdditionalStock(record)) {
                    return;
                }
                if (market.isIssue(*record)) {
                    codes.ipo[market.name].insert(keyTextOf(*record));
                }
                if (market.isReceipt(*record)) {
                    codes.cdr[market.name].insert(keyTextOf(*record));
                }
            },
            &CInstrumentDetail::additionalIssueFlag, &CInstrumentDetail::listingDate, &CInstrumentDetail::statusString,
            &CInstrumentDetail::code);
    }
    return codes;
}

std::set<std::string> deriveNeeqInquiryCodes(const GroupedSnapshot& grouped) {
    static const MarketKey neeq = marketKey(market::kNeeq);
    std::set<std::string> codes;
    const auto found = grouped.find(neeq);
    if (found == grouped.end()) {
        return codes;
    }
    visitRecords(
        found->second,
        [&](StockKey /*key*/, const InstrumentPtr& record) {
            if (record->securityClass == kIssueSecurityClass) {
                codes.insert(keyTextOf(*record));
            }
        },
        &CInstrumentDetail::securityClass);
    return codes;
}

std::map<std::string, std::set<std::uint64_t>> deriveOptionUnderlyings(const GroupedSnapshot& grouped) {
    static const std::array<std::pair<MarketKey, const char*>, 2> exchanges{
        {{marketKey(market::kShanghaiOption), market::kShanghai},
         {marketKey(market::kShenzhenOption), market::kShenzhen}}};
    std::map<std::string, std::set<std::uint64_t>> underlyings;
    for (const auto& [optionMarket, exchange] : exchanges) {
        const auto found = grouped.find(optionMarket);
        if (found == grouped.end()) {
            continue;
        }
        std::unordered_set<std::string_view> seen;  // hundreds of options share a product
        visitRecords(
            found->second,
            [&, exchange = exchange](StockKey /*key*/, const InstrumentPtr& record) {
                if (!seen.insert(record->productId).second) {
                    return;
                }
                const auto parts = split(record->productId, "()");
                if (parts.size() >= 2 && !parts[1].empty()) {
                    underlyings[exchange].insert(textKey(parts[1]));
                }
            },
            &CInstrumentDetail::productId);
    }
    return underlyings;
}

void install(StockCodes codes, Guarded<CodeSets>& sets) {
    const auto tables = sets.write();
    for (const StockMarket& market : kStockMarkets) {
        std::swap(tables->ipoCodes[market.name], codes.ipo[market.name]);
    }
    for (const char* const market : {market::kShanghai, market::kShenzhen}) {
        std::swap(tables->cdrCodes[market], codes.cdr[market]);
    }
}

void installNeeqInquiryCodes(std::set<std::string> codes, Guarded<CodeSets>& sets) {
    if (!codes.empty()) {
        std::swap(sets.write()->neeqInquiryCodes, codes);
    }
}

void removeMarket(const std::string& market, Guarded<CodeSets>& sets) {
    CodeSets removed;  // destroyed after the lock
    const auto tables = sets.write();
    const auto take = [](auto& table, const std::string& name, auto& out) {
        if (const auto found = table.find(name); found != table.end()) {
            out[name].swap(found->second);
        }
    };
    take(tables->ipoCodes, market, removed.ipoCodes);
    take(tables->cdrCodes, market, removed.cdrCodes);
    if (market == market::kNeeq) {
        removed.neeqInquiryCodes.swap(tables->neeqInquiryCodes);
    } else if (market == market::kShanghaiOption) {
        take(tables->stkOptionUndlCodes, market::kShanghai, removed.stkOptionUndlCodes);
    } else if (market == market::kShenzhenOption) {
        take(tables->stkOptionUndlCodes, market::kShenzhen, removed.stkOptionUndlCodes);
    }
}

void installOptionUnderlyings(std::map<std::string, std::set<std::uint64_t>>&& underlyings, Guarded<CodeSets>& sets) {
    for (auto& [exchange, codes] : underlyings) {
        std::swap(sets.write()->stkOptionUndlCodes[exchange], codes);
    }
}

}  // namespace mxservice
