#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"

// Code sets of the day: issues and receipts, NEEQ inquiries, underlyings of stock options.

namespace mxservice {

void CServerInstrumentCenter::createStockCodes(const std::vector<std::string>& markets,
                                               const GroupedSnapshot& grouped) {
    publishStep(state(), [&](ServerChange& change) { deriveCodes(markets, grouped, change); });
}

void CServerInstrumentCenter::deriveCodes(const std::vector<std::string>& markets, const GroupedSnapshot& grouped,
                                          ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create stock codes");
    // By the markets named and not by the records: a load of "SZ" that brings nothing says that there is no issue
    // today.
    if (touchesStockCodes(markets)) {
        change.add([codes = deriveStockCodes(grouped)](ServerVersion& version) mutable {
            install(std::move(codes), version.codeSets.own());
        });
    }
}

void CServerInstrumentCenter::createNeeqCodes(const GroupedSnapshot& grouped) {
    publishStep(state(), [&](ServerChange& change) { deriveInquiries(grouped, change); });
}

void CServerInstrumentCenter::deriveInquiries(const GroupedSnapshot& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create neeq codes");
    std::set<std::string> codes = deriveNeeqInquiryCodes(grouped);
    if (!codes.empty()) {  // deliberately unlike the stock codes: none keep what was there
        change.add([codes = std::move(codes)](ServerVersion& version) mutable {
            version.codeSets.own().neeqInquiryCodes.swap(codes);
        });
    }
}

void CServerInstrumentCenter::createStkOptionCodes(const GroupedSnapshot& grouped) {
    publishStep(state(), [&](ServerChange& change) { deriveUnderlyings(grouped, change); });
}

void CServerInstrumentCenter::deriveUnderlyings(const GroupedSnapshot& grouped, ServerChange& change) {
    PM_CENTER_LOG(kLogInfo, kServerSource, "[inscenter] create stock option codes");
    // As with the inquiry codes: a load without options says nothing about what they are on.
    auto underlyings = deriveOptionUnderlyings(grouped);
    if (!underlyings.empty()) {
        change.add([underlyings = std::move(underlyings)](ServerVersion& version) mutable {
            installOptionUnderlyings(underlyings, version.codeSets.own());
        });
    }
}

}  // namespace mxservice
