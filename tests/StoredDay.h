#pragma once

#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "platform/persist/CPersistService.h"
#include "tests/SecondaryRecords.h"

namespace mxservice {

constexpr int kStoredCodes = 100;

/// Loads a day of several markets and catalogues whose records carry the generation in their names.
inline void load(CClientInstrumentCenter& center, int generation) {
    const std::vector<std::string> markets{"SH", "SHFI", "SZ", "HK", "HGT", "DCE"};
    std::vector<boost::shared_ptr<CInstrumentDetail>> instruments;
    for (const std::string& market : markets) {
        for (int i = 0; i < kStoredCodes; ++i) {
            auto record = boost::make_shared<CInstrumentDetail>();
            record->market = market;
            record->code = std::to_string(i);
            record->platformCode = record->code;
            record->name = std::to_string(generation);
            record->productId = "p" + std::to_string(i % 10);
            record->mainContractFlag = i % 10 == 0 ? 1 : 0;
            instruments.push_back(record);
        }
    }
    center.initInstruments(markets, instruments);
    center.initEtfs({etf("SH", "510050", "510051")});
    center.initBonds({{"b", bond("240001", "019733")}});
    center.initOtcInstruments({plan("P1", 1)});
}

}  // namespace mxservice
