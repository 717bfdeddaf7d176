#include "base/instrumentcenter/vocabulary/Keys.h"

#include <cstring>

#include "base/instrumentcenter/boundary/Hash.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {
namespace {

/// Key texts up to this size are put together on the stack; real ones have less than 40 bytes.
constexpr std::size_t kStackBytes = 256;

/// The hash of both as one text: that is what stores hold, and what a host that has the whole text asks by. Two hashes
/// put together would be another number.
StockKey joinedKey(std::string_view head, std::string_view tail) {
    const std::size_t size = head.size() + tail.size();
    if (size > kStackBytes) {
        return hashBytes(std::string(head).append(tail));
    }
    std::array<char, kStackBytes> text;
    std::memcpy(text.data(), head.data(), head.size());
    if (!tail.empty()) {  // an empty view may point nowhere, which memcpy must not be given
        std::memcpy(text.data() + head.size(), tail.data(), tail.size());
    }
    return hashBytes({text.data(), size});
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

MarketKey marketKey(std::string_view market) {
    return hashBytes(market);
}

StockKey textKey(std::string_view keyText) {
    return hashBytes(keyText);
}

StockKey stockKey(std::string_view market, std::string_view code) {
    return joinedKey(market, code);
}

bool isConnectMarket(std::string_view market) {
    return market == market::kShanghaiConnect || market == market::kShenzhenConnect;
}

std::string_view foldedMarket(std::string_view market) {
    return isConnectMarket(market) ? market::kHongKong : market;
}

StockKey foldedTextKey(std::string_view keyText) {
    // Both prefixes are of one length. Whatever begins so is folded: a text does not say where its market ends.
    const std::string_view prefix = keyText.substr(0, std::strlen(market::kShanghaiConnect));
    return isConnectMarket(prefix) ? joinedKey(market::kHongKong, keyText.substr(prefix.size())) : textKey(keyText);
}

StockKey foldedTextKey(std::string_view keyText, std::string_view prefix) {
    return startsWith(keyText, prefix) ? joinedKey(market::kHongKong, keyText.substr(prefix.size())) : textKey(keyText);
}

}  // namespace mxservice
