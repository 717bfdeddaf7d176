#include "base/instrumentcenter/catalogue/StockCodes.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <unordered_set>
#include <utility>

#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/Split.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

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

// Receipts are told without the day: they stay what they are after they were issued.
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
    // Shenzhen keeps no range of codes for them. Either digit marks one; any other character, or none, is a share.
    return isSpecifiedValue(record.statusString, kReceiptStatusIndex, '1') ||
           isSpecifiedValue(record.statusString, kReceiptStatusIndex, '0');
}

bool isBeijingIssue(const CInstrumentDetail& record) {
    // Without the day: the class alone marks the issue there, from the subscription on.
    return record.securityClass == kIssueSecurityClass;
}

bool isNoReceipt(const CInstrumentDetail& /*record*/) {
    // No rule tells any in Beijing; asked all the same, so that the three markets go one way.
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
    // Those that the load has, whatever it names: a load of "SH" that brings records of "SZ" counts them, too.
    for (const StockMarket& market : kStockMarkets) {
        const auto found = grouped.find(marketKey(market.name));
        if (found == grouped.end()) {
            continue;
        }
        visitRecords(
            found->second,
            [&](StockKey /*key*/, const InstrumentPtr& record) {
                if (isIssueAdditionalStock(record)) {
                    return;  // nothing new is subscribed to, whatever its code and dates say
                }
                if (market.isIssue(*record)) {
                    codes.ipo[market.name].insert(keyTextOf(*record));
                }
                if (market.isReceipt(*record)) {
                    codes.cdr[market.name].insert(keyTextOf(*record));
                }
            },
            // What is looked at of each, to be fetched ahead: the records lie all over the memory.
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
                // Either bracket separates: what stands behind the closing one does not matter, and it may be missing.
                const auto parts = split(record->productId, "()");
                if (parts.size() >= 2 && !parts[1].empty()) {
                    underlyings[exchange].insert(textKey(parts[1]));
                }
            },
            &CInstrumentDetail::productId);
    }
    return underlyings;
}

void install(StockCodes codes, CodeSets& sets) {
    // All markets, also those without an entry: issues are of one day, and yesterday's must not stay beside today's.
    for (const StockMarket& market : kStockMarkets) {
        sets.ipoCodes[market.name].swap(codes.ipo[market.name]);
    }
    for (const char* const market : {market::kShanghai, market::kShenzhen}) {
        sets.cdrCodes[market].swap(codes.cdr[market]);
    }
}

void installOptionUnderlyings(std::map<std::string, std::set<std::uint64_t>>& underlyings, CodeSets& sets) {
    // An exchange without any keeps its own: unlike issues, underlyings are not of one day.
    for (auto& [exchange, codes] : underlyings) {
        sets.stkOptionUndlCodes[exchange].swap(codes);
    }
}

std::vector<std::string> marketsWithoutCodes(const GroupedSnapshot& grouped) {
    std::vector<std::string> markets;
    const auto check = [&](const char* market, bool hasCodes) {
        if (grouped.count(marketKey(market)) != 0 && !hasCodes) {
            markets.emplace_back(market);
        }
    };
    const auto underlyings = deriveOptionUnderlyings(grouped);
    check(market::kNeeq, !deriveNeeqInquiryCodes(grouped).empty());
    check(market::kShanghaiOption, underlyings.count(market::kShanghai) != 0);
    check(market::kShenzhenOption, underlyings.count(market::kShenzhen) != 0);
    return markets;
}

void removeMarket(const std::string& market, CodeSets& sets) {
    // The sets of a market go by its name and not by the keys that are removed: codes of theirs need not be filed.
    sets.ipoCodes.erase(market);
    sets.cdrCodes.erase(market);
    if (market == market::kNeeq) {
        sets.neeqInquiryCodes.clear();
    } else if (market == market::kShanghaiOption) {  // filed under the exchange of the stock, not of the option
        sets.stkOptionUndlCodes.erase(market::kShanghai);
    } else if (market == market::kShenzhenOption) {
        sets.stkOptionUndlCodes.erase(market::kShenzhen);
    }
}

}  // namespace mxservice
