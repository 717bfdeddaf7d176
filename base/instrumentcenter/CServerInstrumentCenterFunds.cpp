#include <cstddef>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

// ETFs. Funds and the instruments that stand for their creation and redemption are one version: a fund that answers can
// be traded by its creation code, too.

namespace mxservice {

void CServerInstrumentCenter::initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    doInitEtfs(etfs);
}

void CServerInstrumentCenter::doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    // Replaced whole, unlike records: a fund that the load lacks has no basket today and must not answer with an old
    // one.
    HashIndex<boost::shared_ptr<CETFDetail>> index;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(kEtfInstruments)];
    std::size_t received = 0;
    for (const auto& etf : etfs) {
        if (etf) {
            // Inserted and not assigned: of two funds with one key the first stays.
            index.emplace(etfKey(*etf), etf);
            index.emplace(creationKey(*etf), etf);
            addEtfInstrument(*etf, instruments);
            ++received;
        }
    }
    LoadNotes notes;
    notes.receive({{marketKey(kEtfInstruments), received}});
    ServerChange change;
    change.add([&](ServerVersion& version) { version.etfs.set(std::move(index)); });
    file(grouped, change);
    publishLoad(grouped, change, notes);
}

bool CServerInstrumentCenter::hasEtf(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return version.etfs->contains(key); });
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& code) {
    const std::uint64_t key = textKey(code);
    return ask(state(), [key](const ServerVersion& version) noexcept { return in(*version.etfs, key); });
}

boost::shared_ptr<CETFDetail> CServerInstrumentCenter::getEtf(const std::string& market, const std::string& code) {
    return getEtf(utils::ovStockKey(market, code));  // not folded: no fund comes under a connect name
}

std::map<std::string, boost::shared_ptr<CETFDetail>> CServerInstrumentCenter::getEtfs() {
    return view().getEtfs();
}

}  // namespace mxservice
