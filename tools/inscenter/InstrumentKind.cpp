#include "tools/inscenter/InstrumentKind.h"

#include <algorithm>
#include <array>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/MarketRules.h"
#include "tools/inscenter/MarketNames.h"

namespace inscenter {

std::string instrumentKind(mxservice::IInstrumentCenter& center, const Filed& instrument) {
    namespace market = mxservice::market;
    using Center = mxservice::IInstrumentCenter;
    // First what no predicate tells: two markets that stand for other catalogues, options of futures markets, and Hong
    // Kong, of which the two centers say different things.
    if (instrument.market == kEtfInstruments) {
        return "ETF creation";
    }
    if (instrument.market == market::kInterbank) {
        return "interbank bond";
    }
    if (utils::isFutureMarket(instrument.market)) {
        return mxservice::CFtOptionDataHelper::isFtOptionInstrument(instrument.record) ? "futures option" : "future";
    }
    if (instrument.market == market::kHongKong) {
        return "Hong Kong stock";
    }
    constexpr std::array<std::pair<const char*, bool (Center::*)(const std::string&)>, 7> kKinds{
        {{"ETF", &Center::hasEtf},
         {"security", &Center::hasStock},
         {"stock option", &Center::hasOption},
         {"NEEQ stock", &Center::hasNeeq},
         {"gold", &Center::hasGold},
         {"outer future", &Center::hasOuterFuture},
         {"outer stock", &Center::hasOuterStock}}};
    const std::string key = instrument.market + instrument.record->code;
    const auto* const kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const auto& known) { return (center.*known.second)(key); });
    return kind == kKinds.end() ? "" : kind->first;
}

}  // namespace inscenter
