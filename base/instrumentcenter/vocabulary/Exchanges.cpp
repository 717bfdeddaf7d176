#include "base/instrumentcenter/vocabulary/Exchanges.h"

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

// By number, not by enumerator: hosts pass on what their own platforms send, which may be no value of the enumeration.

std::list<std::string> exchangesOf(EOvTraderType type) {
    switch (static_cast<std::int32_t>(type)) {
        case OvTraderStock:
        case OvTraderMargin:
            return {market::kBeijing, market::kShanghai, market::kShenzhen};
        case OvTraderFuture:
        case OvTraderFutureOption:  // listed by the same exchanges; who asks picks by record
            return {market::kFutures.begin(), market::kFutures.end()};
        case OvTraderGold:
            return {market::kGold};
        case OvTraderOption:
            return {market::kShanghaiOption, market::kShenzhenOption};
        case OvTraderHongKong:
        case OvTraderConnect:
            return {market::kHongKong};
        case OvTraderNeeq:
            return {market::kNeeq};
        case OvTraderBond:
        case OvTraderFund:
            return {market::kShanghai, market::kShenzhen};
        case OvTraderSecuritiesOtc:
            return {market::kSecuritiesOtc};
        default:  // foreign, OTC and outer futures among them, which the persisted center adds
            return {};
    }
}

/// Without OvTraderQuote, which the persisted center alone takes for everything.
bool meansEverything(EOvTraderType type) {
    switch (static_cast<std::int32_t>(type)) {
        case OvTraderAll:
        case OvTraderBasket:
        case OvTraderDomestic:
        case OvTraderReference:
        case OvTraderEverything:
            return true;
        default:
            return false;
    }
}

}  // namespace mxservice
