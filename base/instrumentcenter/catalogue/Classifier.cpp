#include "base/instrumentcenter/catalogue/Classifier.h"

#include <array>

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

bool Classifier::isCode(const std::string& keyText) const {
    return index_.contains(foldedTextKey(keyText));
}

bool Classifier::isStock(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kShanghai, market::kShenzhen, market::kBeijing);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isFuture(const std::string& keyText) const {
    static const auto markets = std::apply([](auto... name) { return marketKeys(name...); }, market::kFutures);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isOption(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kShanghaiOption, market::kShenzhenOption);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isNeeq(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kNeeq);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isGold(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kGold);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isBond(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kInterbank);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isOuterFuture(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kOuterFuture);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isNyseStock(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kNyse);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isNasdaqStock(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kNasdaq);
    return index_.isIn(textKey(keyText), markets);
}

bool Classifier::isHongKongStock(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kHongKong);
    return index_.isIn(foldedTextKey(keyText, market::kShenzhenConnect), markets);
}

bool Classifier::isFiledUnderShanghaiConnect(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kShanghaiConnect);
    return index_.isIn(foldedTextKey(keyText, market::kShanghaiConnect), markets);
}

bool Classifier::isConnectStock(const std::string& keyText) const {
    static const auto markets = marketKeys(market::kHongKong);
    return index_.isIn(foldedTextKey(keyText), markets);
}

}  // namespace mxservice
