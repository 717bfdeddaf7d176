#include <utility>

#include "platform/utils/MarketRuleSet.h"

// The built-in ranges. Sources, of which docs/market-rules.md says more:
//
//   [SSE]   Shanghai Stock Exchange, Securities Trading Business Guide No. 4: Allocation of Securities Code Segments
//           (上海证券交易所证券交易业务指南第4号——证券代码段分配指南), 2nd revision of 2024. The rows used here were
//           checked in public transcriptions of its table, not in the exchange's own file.
//   [SZSE]  Shenzhen Stock Exchange, Table of Securities Code Intervals (深圳证券交易所证券代码区间表), revision of
//           December 2024; likewise checked in quotations only.
//   [2018]  Shanghai Stock Exchange, notice on preparing the pilot of innovative enterprises' shares and depositary
//           receipts, June 2018, as the press reported it.
//   [2020]  Ninebot Limited, announcement of the issue of depositary receipts on the STAR market, 30 September 2020.

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
    {isShanghaiLoanIPO, "SH:751000-751199"},  // treasury bonds
    {isShanghaiLoanIPO, "SH:751200-751399"},  // policy bank bonds
    {isShanghaiLoanIPO, "SH:751400-751599"},  // local government bonds
    {isShanghaiLoanIPO, "SH:751600-751799"},  // treasury bonds
    {isShanghaiLoanIPO, "SH:751850-751899"},  // corporate bonds for professional investors
    {isShanghaiLoanIPO, "SH:751900-751969"},  // local government bonds
    {isShanghaiLoanIPO, "SH:751970-751999"},  // corporate and enterprise bonds

    // [SSE] Subscription of convertible bonds by the number of the share, and of exchangeable bonds.
    {isShanghaiLoanCbbScbIPO, "SH:733000-733999"},  // 600xxx
    {isShanghaiLoanCbbScbIPO, "SH:754000-754999"},  // 603xxx
    {isShanghaiLoanCbbScbIPO, "SH:783000-783999"},  // 601xxx
    {isShanghaiLoanCbbScbIPO, "SH:713000-713999"},  // 605xxx
    {isShanghaiLoanCbbScbIPO, "SH:718000-718999"},  // 688xxx
    {isShanghaiLoanCbbScbIPO, "SH:759000-759099"},  // exchangeable bonds

    // [SSE] [2020] A depositary receipt of the STAR market is new on that market like a share: 689009 was subscribed
    // under 795009. 789xxx carries the allotment numbers of the shares and is no subscription.
    {isShanghaiSubscriptionTechBoard, "SH:787000-787999"},  // 688xxx
    {isShanghaiSubscriptionTechBoard, "SH:795000-795999"},  // 689xxx

    // isShanghaiInnovate and its three companions have no range. [2018] set 605xxx aside for innovative enterprises,
    // but nobody was listed there, and since 2020 it holds ordinary shares of the main board ([SSE]), with 707xxx for
    // their subscription and 708xxx for their allotment numbers.

    {isShanghaiCDR, "SH:609100-609999"},              // [2018] main board, none listed so far
    {isShanghaiCDR, "SH:689000-689999"},              // [SSE] [2020] STAR market
    {isShanghaiCDRDistribution, "SH:796000-796999"},  // [SSE]
    {isShanghaiCDRSubscribe, "SH:795000-795999"},     // [SSE] [2020]
    {isShanghaiCDRAllotmen, "SH:786900-786999"},      // [SSE]; 786000-786899 is the placement of shares

    // [SZSE] Between them lies 001001-001199, depositary receipts of the main board. The end of ChiNext in use, 302, is
    // from listed shares; no publication was at hand.
    {isShenzhenStockA, "SZ:000001-000999"},
    {isShenzhenStockA, "SZ:001200-001999"},
    {isShenzhenStockA, "SZ:002000-004999"},
    {isShenzhenStockA, "SZ:300000-302999"},

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
