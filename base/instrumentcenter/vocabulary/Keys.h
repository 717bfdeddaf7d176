#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace mxservice {

/// 64-bit keys, all of them utils::hash of a text: of a market name, or of a stock key text (market directly followed
/// by code). Equal keys count as equal texts.
using MarketKey = std::uint64_t;
using StockKey = std::uint64_t;

MarketKey marketKey(std::string_view market);

/// Hashes several market names at once, for the constants of one operation.
template <class... Names>
std::array<MarketKey, sizeof...(Names)> marketKeys(Names... names) {
    return {marketKey(names)...};
}

/// The key of a stock key text as it stands.
StockKey textKey(std::string_view keyText);

/// The key of an instrument, without building the combined text.
StockKey stockKey(std::string_view market, std::string_view code);

/// Whether the name is exactly "HGT" or "SGT".
bool isConnectMarket(std::string_view market);

/// "HK" for "HGT" and "SGT", any other market itself.
std::string_view foldedMarket(std::string_view market);

/// The key of a stock key text whose leading "HGT" or "SGT" is replaced by "HK".
StockKey foldedTextKey(std::string_view keyText);

/// The same for one prefix only; `prefix` is three characters long. Two predicates fold no more than their own.
StockKey foldedTextKey(std::string_view keyText, std::string_view prefix);

}  // namespace mxservice
