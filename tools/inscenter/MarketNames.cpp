#include "tools/inscenter/MarketNames.h"

#include <algorithm>

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace inscenter {

std::string marketName(std::string_view market) {
    const auto found = std::find_if(kMarketNames.begin(), kMarketNames.end(),
                                    [&](const MarketName& known) { return market == known.market; });
    return found == kMarketNames.end() ? "" : found->name;
}

// Not as the catalogue folds key texts: there "SHFI" stays, because only records are relabelled when they are filed.
std::string filedMarket(std::string_view market) {
    namespace names = mxservice::market;
    if (market == names::kShanghaiConnect || market == names::kShenzhenConnect) {
        return names::kHongKong;
    }
    return market == names::kShanghaiSpecial ? names::kShanghai : std::string(market);
}

}  // namespace inscenter
