#pragma once

#include <cstdint>

namespace mxservice {

/// Kinds of trading by the values of the trading platform; single bits except the combined ones at the end.
enum EOvTraderType : std::int32_t {
    OvTraderStock = 1,
    OvTraderFuture = 2,
    OvTraderAll = 4,
    OvTraderMargin = 8,
    OvTraderGold = 16,
    OvTraderOption = 32,
    OvTraderForeign = 64,
    OvTraderHongKong = 128,
    OvTraderNeeq = 256,
    OvTraderOtc = 512,
    OvTraderFutureOption = 1024,
    OvTraderOuterFuture = 2048,
    OvTraderBond = 4096,
    OvTraderConnect = 16384,
    OvTraderBasket = 65536,
    OvTraderFund = 1048576,
    OvTraderSecuritiesOtc = 2097152,
    OvTraderReference = 8388608,
    OvTraderQuote = 16777216,
    OvTraderDomestic = 810495,
    OvTraderEverything = 2146762751,
};

}  // namespace mxservice
