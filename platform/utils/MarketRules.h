#pragma once

#include <string>

#include "platform/Export.h"

namespace utils {

// The market-rule predicates: what a code stands for, judged by the exchange's code allocation alone.
//
// Each takes a market name and an instrument code, both compared exactly, case included. A market or code that no rule
// covers, an empty one included, gives false. The built-in ranges, their meaning and the publications they come from
// are listed in docs/market-rules.md; CMarketRules replaces them. The spelling of the names is fixed for hosts.
//
// Safe from any thread, also while rules are being replaced: a call sees one rule set as a whole, and a call that
// starts after a replacement returned sees the new one. No I/O; a call takes a lock only when it is its thread's first
// one or the first one after a replacement.

/// Online subscription of new shares of the Shanghai main board.
PM_PLATFORM_API bool isShanghaiStockIPO(const std::string& market, const std::string& code);
/// Online issue (distribution) of Shanghai bonds that cannot be converted: treasury, policy bank, local government,
/// corporate and enterprise bonds.
PM_PLATFORM_API bool isShanghaiLoanIPO(const std::string& market, const std::string& code);
/// Online subscription of Shanghai convertible and exchangeable bonds.
PM_PLATFORM_API bool isShanghaiLoanCbbScbIPO(const std::string& market, const std::string& code);
/// Online subscription of new issues of the STAR market: shares and depositary receipts.
PM_PLATFORM_API bool isShanghaiSubscriptionTechBoard(const std::string& market, const std::string& code);

/// Shares of innovative enterprises on the Shanghai main board, and the codes for their allotment numbers,
/// subscription and placement. No code is reserved for them today, so the built-in rules accept nothing.
PM_PLATFORM_API bool isShanghaiInnovate(const std::string& market, const std::string& code);
PM_PLATFORM_API bool isShanghaiInnovateDistribution(const std::string& market, const std::string& code);
PM_PLATFORM_API bool isShanghaiInnovateSubscribe(const std::string& market, const std::string& code);
PM_PLATFORM_API bool isShanghaiInnovateAllotmen(const std::string& market, const std::string& code);

/// Depositary receipts traded in Shanghai.
PM_PLATFORM_API bool isShanghaiCDR(const std::string& market, const std::string& code);
/// Allotment numbers of an online subscription of Shanghai depositary receipts.
PM_PLATFORM_API bool isShanghaiCDRDistribution(const std::string& market, const std::string& code);
/// Online subscription of Shanghai depositary receipts.
PM_PLATFORM_API bool isShanghaiCDRSubscribe(const std::string& market, const std::string& code);
/// Placement of Shanghai depositary receipts by their holders.
PM_PLATFORM_API bool isShanghaiCDRAllotmen(const std::string& market, const std::string& code);

/// A shares of the Shenzhen main board and ChiNext; a new issue is subscribed under the share's own code.
PM_PLATFORM_API bool isShenzhenStockA(const std::string& market, const std::string& code);
/// Online subscription of Shenzhen convertible bonds. Shenzhen uses the same codes for additional issues of listed
/// shares; the code alone does not tell the two apart.
PM_PLATFORM_API bool isShenzhenLoanCbbScbIPO(const std::string& market, const std::string& code);

// Markets by name, compared exactly. These three do not depend on any rules. Safe from any thread.

/// A futures exchange of the Chinese mainland: CFFEX, SHFE, DCE, CZCE, INE or GFEX.
PM_PLATFORM_API bool isFutureMarket(const std::string& market);
/// An exchange that lists options on futures: the same six.
PM_PLATFORM_API bool isFutureOptionMarket(const std::string& market);
/// A market outside China: WP, NYSE or NASDAQ.
PM_PLATFORM_API bool isForeignMarket(const std::string& market);

/// Replaces the code ranges behind the market-rule predicates, for the whole process. Safe from any thread; of two
/// replacements at the same time the later to finish stays. A replaced set is freed once every thread that used it
/// has asked again or ended, so replacing often does not pile sets up.
class PM_PLATFORM_API CMarketRules {
public:
    /// Reads `jsonFile`, a path in UTF-8, and puts its rules in force: one JSON object, predicate name to a list of
    /// ranges. A range is "MARKET:FROM-TO" (codes of exactly that length between the two, bytewise, both included) or
    /// "MARKET:PREFIX*" (codes that start so). A predicate that the file does not name accepts nothing.
    ///
    ///     {"isShanghaiStockIPO": ["SH:730000-730999", "SH:732*"]}
    ///
    /// Throws std::runtime_error naming the file, the line and key where there is one, and the reason: a file that
    /// cannot be read or is no such object, an unknown or repeated predicate name, a malformed range. The rules in
    /// force then stay.
    static void load(const std::string& jsonFile);

    /// Puts the built-in rules back in force.
    static void reset();

    CMarketRules() = delete;
};

}  // namespace utils
