#include <boost/make_shared.hpp>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientCatalogue.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"

// Funds with their baskets, and the pseudo-market of instruments that stand for them. Records are kept in the store and
// read anew each time: a basket is large, and few ask for many of them.

namespace mxservice {
namespace {

/// A component without a name gets that of its instrument, where there is one. Changes the host's own record.
void fillComponentNames(IInstrumentCenter& center, const CETFDetail& etf) {
    for (const auto& [code, component] : etf.components) {
        if (component && component->name.empty()) {
            // Through the slot: a host's own records have names, too.
            const InstrumentPtr record = center.getInstrument(utils::ovStockKey(component->market, component->code));
            if (record) {
                component->name = record->name;
            }
        }
    }
}

}  // namespace

void CClientInstrumentCenter::initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    doInitEtfs(etfs);
}

void CClientInstrumentCenter::doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    const Subscribers::HoldBack telling(client_->subscribers);  // funds and their instruments together
    const std::string db = DBBuilder::buildDbName(kAllEtfs);
    std::map<std::uint64_t, boost::shared_ptr<CETFDetail>> etfByKey;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(kEtfInstruments)];
    std::size_t received = 0;
    for (const auto& etf : etfs) {
        if (etf) {
            fillComponentNames(*this, *etf);
            // Assigned: of two funds with one key the last stays, as the later document would have in the store.
            etfByKey[etfKey(*etf)] = etf;
            etfByKey[creationKey(*etf)] = etf;
            addEtfInstrument(*etf, instruments);
            ++received;
        }
    }
    std::set<std::uint64_t> keys = keysOf(etfByKey);
    auto unwritten = saveApart(db, DocumentBatch(etfByKey), etfByKey, Others::Keep);
    if (unwritten) {
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, kEtfInstruments));
        client_->loads.write()->noteFailedWrite(db, unwritten->reason);
    }
    client_->publish([&](ClientVersion& version) {
        StoredCatalogue<CETFDetail>& known = version.etfs.own();
        if (unwritten) {
            // Records that an earlier load could not write are kept until a later one fails: deliberate.
            known.unwritten.swap(unwritten->records);
        }
        known.keys.swap(keys);
        version.updateDbName(kAllEtfs, db);
    });
    replaceMarket(kEtfInstruments, grouped, received);
    ClientState::logDbName(kAllEtfs, db);
}

void CClientInstrumentCenter::replaceMarket(
    const std::string& market, std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped,
    std::size_t received) {
    ClientLoad load(*client_);
    forgetMarkets({market}, load);
    load.notes.receive({{marketKey(market), received}});
    writeMarkets(grouped, market, load);
}

bool CClientInstrumentCenter::hasEtf(const std::string& code) {
    const StockKey key = textKey(code);
    return client_->ask([key](const ClientVersion& version) noexcept { return version.etfs->keys.count(key) != 0; });
}

boost::shared_ptr<CETFDetail> CClientInstrumentCenter::getEtf(const std::string& code) {
    const StockKey key = textKey(code);
    const auto version = client_->hold();
    if (version->etfs->keys.count(key) == 0) {
        return nullptr;
    }
    if (boost::shared_ptr<CETFDetail> unwritten = in(version->etfs->unwritten, key)) {
        return unwritten;
    }
    // A known key whose document is lost answers a record of defaults: deliberate.
    const auto stored = readOwnRecord(DBBuilder::buildDbName(kAllEtfs), key, knownRecordOf<CETFDetail>);
    return stored ? stored : boost::make_shared<CETFDetail>();
}

boost::shared_ptr<CETFDetail> CClientInstrumentCenter::getEtf(const std::string& market, const std::string& code) {
    return getEtf(utils::ovStockKey(market, code));  // through the slot: a host's own answer counts here, too
}

std::map<std::string, boost::shared_ptr<CETFDetail>> CClientInstrumentCenter::getEtfs() {
    const auto version = client_->hold();
    std::map<std::string, boost::shared_ptr<CETFDetail>> etfs;
    for (const auto& [key, etf] : version->etfs->unwritten) {
        etfs[keyTextOf(*etf)] = etf;
    }
    for (auto& etf : readRecords(version->getDbName(kAllEtfs), knownRecordOf<CETFDetail>)) {
        etfs.emplace(keyTextOf(*etf), std::move(etf));
    }
    return etfs;
}

}  // namespace mxservice
