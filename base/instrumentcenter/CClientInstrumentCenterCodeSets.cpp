#include <fmt/format.h>

#include <set>
#include <string>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/catalogue/StockCodes.h"

// The code sets of the day: new issues and depositary receipts, NEEQ inquiries, underlyings of options. The interface
// answers from them; here they are derived from a load.

namespace mxservice {

void CClientInstrumentCenter::createStockCodes(
    const std::vector<std::string>& markets,
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create stock codes");
    // By the markets named and not by the records, as in the in-memory center: a load of "SZ" that brings nothing says
    // that there is no issue today.
    if (!touchesStockCodes(markets)) {
        return;
    }
    const StockCodes codes = deriveStockCodes(grouped);
    client_->publish([&](ClientVersion& version) { install(codes, version.codeSets.own()); });
    // Logged when it is published: an appender that asks finds what its line tells of.
    for (const auto& [market, entries] : codes.ipo) {
        for (const std::string& entry : entries) {
            PM_CENTER_LOG(kLogInfo, kClientSource, fmt::format("[ipo] stk code:{0}", entry));
        }
    }
    for (const auto& [market, entries] : codes.cdr) {
        for (const std::string& entry : entries) {
            PM_CENTER_LOG(kLogInfo, kClientSource, fmt::format("[ipo] cdr code:{0}", entry));
        }
    }
}

void CClientInstrumentCenter::createNeeqCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create neeq codes");
    std::set<std::string> codes = deriveNeeqInquiryCodes(grouped);
    if (!codes.empty()) {  // deliberately unlike the stock codes: none keep what was there
        client_->publish([&](ClientVersion& version) { version.codeSets.own().neeqInquiryCodes.swap(codes); });
    }
}

void CClientInstrumentCenter::createStkOptionCodes(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_CENTER_LOG(kLogInfo, kClientSource, "[inscenter] create stock option codes");
    auto underlyings = deriveOptionUnderlyings(grouped);
    // As with the inquiry codes: a load without options says nothing about what they are on.
    if (!underlyings.empty()) {
        client_->publish(
            [&](ClientVersion& version) { installOptionUnderlyings(underlyings, version.codeSets.own()); });
    }
}

}  // namespace mxservice
