#pragma once

// What stands behind the market-rule predicates; for MarketRules*.cpp only, not installed.

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace utils {

/// The predicates that the rules decide, each named once: enumerator, name in the rules file and public function.
#define PM_MARKET_PREDICATES(X)        \
    X(isShanghaiStockIPO)              \
    X(isShanghaiLoanIPO)               \
    X(isShanghaiLoanCbbScbIPO)         \
    X(isShanghaiSubscriptionTechBoard) \
    X(isShanghaiInnovate)              \
    X(isShanghaiInnovateDistribution)  \
    X(isShanghaiInnovateSubscribe)     \
    X(isShanghaiInnovateAllotmen)      \
    X(isShanghaiCDR)                   \
    X(isShanghaiCDRDistribution)       \
    X(isShanghaiCDRSubscribe)          \
    X(isShanghaiCDRAllotmen)           \
    X(isShenzhenStockA)                \
    X(isShenzhenLoanCbbScbIPO)

#define PM_ENUMERATOR(name) name,
enum class MarketPredicate : std::uint8_t { PM_MARKET_PREDICATES(PM_ENUMERATOR) };
#undef PM_ENUMERATOR

#define PM_NAME(name) std::string_view(#name),
constexpr std::array kMarketPredicateNames{PM_MARKET_PREDICATES(PM_NAME)};
#undef PM_NAME

/// Codes of one market: those whose first from.size() bytes lie between `from` and `to`, both included.
struct CodeRange {
    std::string market;
    std::string from;
    std::string to;            // as long as `from`
    bool longerCodes = false;  // false: only codes of exactly that length

    bool accepts(std::string_view ofMarket, std::string_view code) const {
        if (code.size() < from.size() || (code.size() > from.size() && !longerCodes) || ofMarket != market) {
            return false;
        }
        const std::string_view head = code.substr(0, from.size());
        return head >= from && head <= to;
    }
};

/// Reads "MARKET:FROM-TO" or "MARKET:PREFIX*". Throws std::invalid_argument with the reason.
CodeRange parseCodeRange(std::string_view text);

/// The ranges of every predicate; one without ranges accepts nothing.
class MarketRuleSet {
public:
    void add(MarketPredicate predicate, CodeRange range);

    bool accepts(MarketPredicate predicate, std::string_view market, std::string_view code) const {
        const Rules& rules = rules_[static_cast<std::size_t>(predicate)];
        if (code.empty() || !rules.firstBytes[static_cast<unsigned char>(code.front())]) {
            return false;  // most records of a load end here, before any text is compared
        }
        for (const CodeRange& range : rules.ranges) {
            if (range.accepts(market, code)) {
                return true;
            }
        }
        return false;
    }

private:
    struct Rules {
        std::bitset<256> firstBytes;  // those a code of some range starts with
        std::vector<CodeRange> ranges;
    };

    std::array<Rules, kMarketPredicateNames.size()> rules_;
};

MarketRuleSet builtInMarketRules();

}  // namespace utils
