#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <tuple>

#include "base/instrumentcenter/vocabulary/Keys.h"
#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice {

/// What kind of instrument a stock key text names, by the market it is filed under. Each question says how it folds the
/// text and which markets it accepts; both centers and their views ask the same ones of their index, and where the
/// centers differ there are two questions. The text is hashed before the index is touched.

/// Whether a market, null where a key is not filed, is one of those.
template <std::size_t N>
bool isAmong(const MarketKey* filed, const std::array<MarketKey, N>& markets) noexcept {
    if (filed == nullptr) {
        return false;
    }
    // All are compared: which of them it is cannot be foreseen, and a wrong guess costs more than a comparison.
    unsigned same = 0;
    for (const MarketKey market : markets) {
        same |= static_cast<unsigned>(*filed == market);
    }
    return same != 0;
}

/// Takes the text as it stands.
struct PlainText {
    static StockKey keyOf(const std::string& keyText) { return textKey(keyText); }
};

struct IsStock : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kShanghai, market::kShenzhen, market::kBeijing);
        return keys;
    }
};
/// Also the answer for futures options: the exchanges list both under one market, and the predicate for futures options
/// deliberately asks no more than that.
struct IsFuture : PlainText {
    static const auto& markets() {
        static const auto keys = std::apply([](auto... name) { return marketKeys(name...); }, market::kFutures);
        return keys;
    }
};
struct IsOption : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kShanghaiOption, market::kShenzhenOption);
        return keys;
    }
};
struct IsNeeq : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kNeeq);
        return keys;
    }
};
struct IsGold : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kGold);
        return keys;
    }
};
struct IsBond : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kInterbank);
        return keys;
    }
};
struct IsOuterFuture : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kOuterFuture);
        return keys;
    }
};
struct IsNyseStock : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kNyse);
        return keys;
    }
};
struct IsNasdaqStock : PlainText {
    static const auto& markets() {
        static const auto keys = marketKeys(market::kNasdaq);
        return keys;
    }
};

/// Filed under "HK"; folds a leading "SGT" but deliberately not "HGT".
struct IsHongKongStock {
    static StockKey keyOf(const std::string& keyText) { return foldedTextKey(keyText, market::kShenzhenConnect); }
    static const auto& markets() {
        static const auto keys = marketKeys(market::kHongKong);
        return keys;
    }
};
/// Filed under "HGT"; folds a leading "HGT" but deliberately not "SGT". The in-memory center's question, which no load
/// of its own answers with yes: connect listings are filed under "HK".
struct IsFiledUnderShanghaiConnect {
    static StockKey keyOf(const std::string& keyText) { return foldedTextKey(keyText, market::kShanghaiConnect); }
    static const auto& markets() {
        static const auto keys = marketKeys(market::kShanghaiConnect);
        return keys;
    }
};
/// Filed under "HK"; folds both connect prefixes. The persisted center's question.
struct IsConnectStock {
    static StockKey keyOf(const std::string& keyText) { return foldedTextKey(keyText); }
    static const auto& markets() {
        static const auto keys = marketKeys(market::kHongKong);
        return keys;
    }
};

}  // namespace mxservice
