#include "base/instrumentcenter/catalogue/InstrumentMap.h"

namespace mxservice {

void keepOnly(EOvTraderType type, InstrumentMap& records) {
    if (type != OvTraderFuture && type != OvTraderFutureOption) {
        return;
    }
    // By the record: the exchanges list futures and the options on them under one market.
    const bool keepOptions = type == OvTraderFutureOption;
    std::erase_if(records, [keepOptions](const auto& entry) {
        return CFtOptionDataHelper::isFtOptionInstrument(entry.second) != keepOptions;
    });
}

}  // namespace mxservice
