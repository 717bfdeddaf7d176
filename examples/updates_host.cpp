// Applies the changes of a day to both centers and shows where they differ: each takes the updates that its kind of
// host receives, and deliberately ignores the others. updates_host STORE

#include <boost/make_shared.hpp>

#include <iostream>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "platform/persist/CPersistService.h"

using namespace mxservice;

namespace {

/// What upstream calls its changes; any other number changes nothing.
enum Operation { kInsert = 0, kReplace = 2, kRemove = 3 };

boost::shared_ptr<COTCSecuritiesIssuanceInfo> issuance(const char* code, const char* name) {
    auto record = boost::make_shared<COTCSecuritiesIssuanceInfo>();
    record->code = code;
    record->name = name;
    return record;
}

boost::shared_ptr<CCounterpartyDetail> counterparty(const char* id, const char* name) {
    auto record = boost::make_shared<CCounterpartyDetail>();
    record->id = id;
    record->name = name;
    return record;
}

boost::shared_ptr<COTCFundPlanInfo> plan(const char* code, const char* name) {
    auto record = boost::make_shared<COTCFundPlanInfo>();
    record->market = "OTC";
    record->code = code;
    record->name = name;
    return record;
}

void applyChanges(IInstrumentCenter& center, const char* kind) {
    center.initIssuanceInfos({issuance("I1", "first"), issuance("I2", "second")});
    center.initCounterpartys({{"C1", counterparty("C1", "first")}});
    center.initOtcInstruments({plan("P1", "first")});

    // A change is a record of its own: the one that was handed in or read before is shared and must not be written to.
    center.updateIssuanceInfos(kReplace, {issuance("I1", "changed")});
    center.updateIssuanceInfos(kInsert, {issuance("I3", "third")});
    center.updateIssuanceInfos(kRemove, {issuance("I2", "")});
    center.updateCounterpartyInfo(counterparty("C1", "changed"));
    center.updateOtcInstruments({plan("P1", "changed")});

    std::cout << kind << ":";
    for (const auto& [code, record] : center.getIssuanceInfos())
        std::cout << ' ' << code << ' ' << record->name << ',';
    std::cout << " C1 " << center.getCounterparty("C1")->name << ", P1 " << center.getOtcInstrument("OTCP1")->name
              << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: updates_host STORE\n";
        return 2;
    }
    persist::CPersistService::instance()->setRootPath(argv[1]);
    CServerInstrumentCenter server("updates");
    applyChanges(server, "in memory");
    CClientInstrumentCenter client("updates", 10, 10, 10);
    applyChanges(client, "persisted");
}
