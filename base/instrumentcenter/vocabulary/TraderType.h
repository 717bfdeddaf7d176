#pragma once

#include <cstdint>

namespace mxservice {

/// Kinds of trading by the values of the trading platform; single bits except the combined ones at the end. Each says
/// whose instruments IInstrumentCenter::getInstruments lists for it.
enum EOvTraderType : std::int32_t {
    OvTraderStock = 1,                ///< "BJ", "SH", "SZ"
    OvTraderFuture = 2,               ///< the six futures exchanges, without futures options
    OvTraderAll = 4,                  ///< everything
    OvTraderMargin = 8,               ///< as OvTraderStock
    OvTraderGold = 16,                ///< "SHGE"
    OvTraderOption = 32,              ///< "SHO", "SZO"
    OvTraderForeign = 64,             ///< "WP", "NYSE", "NASDAQ" in the persisted center, else nothing
    OvTraderHongKong = 128,           ///< "HK"
    OvTraderNeeq = 256,               ///< "NEEQ"
    OvTraderOtc = 512,                ///< "OTC" in the persisted center, else nothing
    OvTraderFutureOption = 1024,      ///< the six futures exchanges, futures options alone
    OvTraderOuterFuture = 2048,       ///< "WP" in the persisted center, else nothing
    OvTraderBond = 4096,              ///< "SH", "SZ"
    OvTraderConnect = 16384,          ///< "HK"
    OvTraderBasket = 65536,           ///< everything
    OvTraderFund = 1048576,           ///< "SH", "SZ"
    OvTraderSecuritiesOtc = 2097152,  ///< "SOTC"
    OvTraderReference = 8388608,      ///< everything
    OvTraderQuote = 16777216,         ///< everything in the persisted center, else nothing
    OvTraderDomestic = 810495,        ///< everything
    OvTraderEverything = 2146762751,  ///< everything
};

}  // namespace mxservice
