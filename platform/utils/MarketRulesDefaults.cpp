#include <utility>

#include "platform/utils/MarketRuleSet.h"

// The built-in ranges. docs/market-rules.md names the publications behind each, and says what was left out and why.
//
//   [SSE]   Shanghai Stock Exchange, allocation of securities code segments
//   [SZSE]  Shenzhen Stock Exchange, table of securities code intervals; for 07 and 37 its data interface

namespace utils {

namespace {

using enum MarketPredicate;

constexpr std::pair<MarketPredicate, std::string_view> kBuiltInRanges[] = {
    // [SSE] Subscription of new shares, or of additional ones, by the number of the share.
    {isShanghaiStockIPO, "SH:730000-730999"},  // 600xxx
    {isShanghaiStockIPO, "SH:732000-732999"},  // 603xxx
    {isShanghaiStockIPO, "SH:780000-780999"},  // 601xxx
    {isShanghaiStockIPO, "SH:707000-707999"},  // 605xxx

    // [SSE] Segment 751, online distribution of bonds, without 751800-751819 (trading of treasury bonds before their
    // issue) and what is not allocated. Segment 750 is left out: underwriters take treasury bonds over under it.
    {isShanghaiLoanIPO, "SH:751000-751799"},  // by 200: treasury, policy bank, local government, treasury
    {isShanghaiLoanIPO, "SH:751850-751999"},  // corporate, from 900 local government, from 970 corporate and enterprise

    // [SSE] Subscription of convertible bonds by the number of the share, and of exchangeable bonds.
    {isShanghaiLoanCbbScbIPO, "SH:733000-733999"},  // 600xxx
    {isShanghaiLoanCbbScbIPO, "SH:754000-754999"},  // 603xxx
    {isShanghaiLoanCbbScbIPO, "SH:783000-783999"},  // 601xxx
    {isShanghaiLoanCbbScbIPO, "SH:713000-713999"},  // 605xxx
    {isShanghaiLoanCbbScbIPO, "SH:718000-718999"},  // 688xxx, though the bonds themselves end at 118499
    {isShanghaiLoanCbbScbIPO, "SH:759000-759099"},  // exchangeable bonds

    // [SSE] A depositary receipt of the STAR market is new on that market like a share: 689009 was subscribed under
    // 795009. 789xxx carries the allotment numbers of the shares and is no subscription.
    {isShanghaiSubscriptionTechBoard, "SH:787000-787999"},  // 688xxx
    {isShanghaiSubscriptionTechBoard, "SH:795000-795999"},  // 689xxx

    // isShanghaiInnovate and its three companions have no range: 605xxx, once set aside for innovative enterprises,
    // holds ordinary shares of the main board, with 707xxx for their subscription and 708xxx for their numbers.

    // [SSE] Receipts have their segments on the STAR market alone.
    {isShanghaiCDR, "SH:689000-689999"},
    {isShanghaiCDRDistribution, "SH:796000-796999"},
    {isShanghaiCDRSubscribe, "SH:795000-795999"},
    {isShanghaiCDRAllotmen, "SH:786900-786999"},  // offered by holders to holders; below it the same for shares

    // [SZSE] Depositary receipts have 001001-001199 on the main board and 309800-309999 on ChiNext.
    {isShenzhenStockA, "SZ:000000-000999"},
    {isShenzhenStockA, "SZ:001200-004999"},
    {isShenzhenStockA, "SZ:300000-309799"},

    // [SZSE] 07 and 37 with the last four digits of the share: 070 to 074 for the main board, 37 for ChiNext.
    {isShenzhenLoanCbbScbIPO, "SZ:070000-074999"},
    {isShenzhenLoanCbbScbIPO, "SZ:370000-379999"},
};

}  // namespace

MarketRuleSet builtInMarketRules() {
    MarketRuleSet rules;
    for (const auto& [predicate, range] : kBuiltInRanges) {
        rules.add(predicate, parseCodeRange(range));
    }
    return rules;
}

}  // namespace utils
