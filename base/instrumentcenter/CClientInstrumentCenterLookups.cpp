#include <boost/pointer_cast.hpp>

#include <cstring>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientMarkets.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/Questions.h"
#include "base/instrumentcenter/store/Documents.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"

// What a key is, and the records themselves: one version of what memory knows, then the record cache, then the store.

namespace mxservice {
namespace {

constexpr const char* kMarketFailed = "[clientIns] get market %1% db error ";
constexpr const char* kMarketRefFailed = "[clientIns] get market ref %1% db error ";
constexpr const char* kListFailed = "[clientIns] get marketlist %1% db error ";
constexpr const char* kListRefFailed = "[clientIns] get marketlist ref %1% db error ";

/// The types that stand for every record there is; one more than in the in-memory center.
bool meansAll(EOvTraderType type) {
    return meansEverything(type) || type == OvTraderQuote;
}

template <class Question>
bool isOne(const ClientState& client, const std::string& keyText) {
    const StockKey key = Question::keyOf(keyText);
    const auto& markets = Question::markets();
    return client.ask([key, &markets](const ClientVersion& version) noexcept {
        return isAmong(version.keys.marketOf(key), markets);
    });
}

bool isFiled(const ClientState& client, StockKey key) {
    return client.ask([key](const ClientVersion& version) noexcept { return version.keys.marketOf(key) != nullptr; });
}

}  // namespace

std::uint64_t CClientInstrumentCenter::version() const {
    return client_->ask([](const ClientVersion& version) noexcept { return version.number; });
}

std::size_t CClientInstrumentCenter::resolve(const uint64* keys, std::size_t count,
                                             boost::shared_ptr<CInstrumentDetail>* out) {
    // One after the other, unlike in memory: a document that is read and parsed costs more than any wait for memory.
    std::size_t found = 0;
    for (std::size_t i = 0; i < count; ++i) {
        out[i] = CClientInstrumentCenter::getInstrument(keys[i]);
        found += out[i] ? 1U : 0U;
    }
    return found;
}

bool CClientInstrumentCenter::hasCode(const std::string& code) {
    return isFiled(*client_, foldedTextKey(code));
}

bool CClientInstrumentCenter::hasStock(const std::string& code) {
    return isOne<IsStock>(*client_, code);
}

bool CClientInstrumentCenter::hasFuture(const std::string& code) {
    return isOne<IsFuture>(*client_, code);
}

bool CClientInstrumentCenter::hasHkstock(const std::string& code) {
    return isOne<IsConnectStock>(*client_, code);
}

bool CClientInstrumentCenter::hasSkstock(const std::string& code) {
    return isOne<IsHongKongStock>(*client_, code);
}

bool CClientInstrumentCenter::hasOption(const std::string& code) {
    return isOne<IsOption>(*client_, code);
}

bool CClientInstrumentCenter::hasFutureOption(const std::string& code) {
    // Not a slip: the exchanges list both under one market, and telling them apart is left to the record.
    return isOne<IsFuture>(*client_, code);
}

bool CClientInstrumentCenter::hasNeeq(const std::string& code) {
    return isOne<IsNeeq>(*client_, code);
}

bool CClientInstrumentCenter::hasGold(const std::string& code) {
    return isOne<IsGold>(*client_, code);
}

bool CClientInstrumentCenter::hasBond(const std::string& code) {
    return isOne<IsBond>(*client_, code);
}

bool CClientInstrumentCenter::hasOuterFuture(const std::string& code) {
    return isOne<IsOuterFuture>(*client_, code);
}

bool CClientInstrumentCenter::hasOuterStock(const std::string& code) {
    // Through the slots: a host's own answer to either counts here, too.
    return hasNyseStock(code) || hasNasdaqStock(code);
}

bool CClientInstrumentCenter::hasNyseStock(const std::string& code) {
    return isOne<IsNyseStock>(*client_, code);
}

bool CClientInstrumentCenter::hasNasdaqStock(const std::string& code) {
    return isOne<IsNasdaqStock>(*client_, code);
}

boost::shared_ptr<CInstrumentDetail> CClientInstrumentCenter::getInstrument(uint64 key) {
    if (!isFiled(*client_, key)) {
        return nullptr;  // also for a record of a former day that is cached still
    }
    if (InstrumentPtr cached = client_->instruments.find(key)) {
        return cached;
    }
    // In this order: a load publishes, then refreshes the cache. Whoever has read of a former version or of a former
    // document has a former generation, too, and caches nothing.
    const std::uint64_t generation = client_->instruments.generation();
    const auto version = client_->hold();
    const MarketKey* const filed = version->keys.marketOf(key);
    if (filed == nullptr) {
        return nullptr;
    }
    const Market& market = version->market(*filed);
    InstrumentPtr record = market.unwrittenIsNewest ? market.unwrittenRecord(key) : nullptr;
    if (!record) {
        const auto read = market.isOddlyKeyed ? readRecord<CInstrumentDetail> : readOwnRecord<CInstrumentDetail>;
        record = read(market.db, key, recordOf<CInstrumentDetail>);
    }
    if (!record) {
        // Of an earlier batch that was unwritten, where the database has lost the document: better than nothing.
        record = market.unwrittenRecord(key);
    }
    if (record) {
        client_->instruments.insert(key, record, generation);
    }
    return record;
}

boost::shared_ptr<CInstrumentDetail> CClientInstrumentCenter::getInstrument(const std::string& code) {
    const std::string_view prefix = std::string_view(code).substr(0, std::strlen(market::kShanghaiConnect));
    InstrumentPtr record = getInstrument(foldedTextKey(code));
    if (!record || !isConnectMarket(prefix) || record->market == prefix) {
        return record;
    }
    // A copy: the record is shared with the cache and with whoever asks by another name.
    auto relabelled = boost::static_pointer_cast<CInstrumentDetail>(record->copy());
    relabelled->market = prefix;
    return relabelled;
}

boost::shared_ptr<CInstrumentDetail> CClientInstrumentCenter::getInstrument(const std::string& market,
                                                                            const std::string& code) {
    if (isConnectMarket(market)) {
        return getInstrument(utils::ovStockKey(market, code));  // by the text, so that the answer is relabelled
    }
    return getInstrument(stockKey(market, code));
}

// The lists. A host may override any of them in terms of another one of this class, so none calls another through its
// slot.

/// Adds one loaded market's records to `out`: the unwritten ones if its last write failed, else those of its database,
/// and the unwritten ones of keys that the database lacks. Records read here do not enter the cache: one sweep would
/// push everything else out.
void CClientInstrumentCenter::addMarket(const ClientVersion& version, uint64 marketHash, const std::string& name,
                                        const char* failure,
                                        std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    if (version.keys.keysOf(marketHash) == nullptr) {
        return;
    }
    const Market& market = version.market(marketHash);
    if (market.unwrittenIsNewest && addUnwritten(market, out)) {
        return;
    }
    if (market.db.empty()) {
        if (failure != nullptr) {
            PM_CENTER_LOG(kLogError, kClientSource, formatted(failure, name));
        }
        return;
    }
    addByKeyText(writtenRecords(version, marketHash, [](const InstrumentPtr& /*record*/) { return true; }), out);
}

void CClientInstrumentCenter::addMarkets(const std::list<std::string>& markets, const char* failure,
                                         std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    const auto version = client_->hold();
    for (const std::string& market : markets) {
        addMarket(*version, marketKey(foldedMarket(market)), market, failure, out);
    }
}

void CClientInstrumentCenter::addEverything(const char* failure,
                                            std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    const auto version = client_->hold();
    for (const auto& [market, keys] : version->keys.sets()) {  // by number: no version keeps the names of markets
        addMarket(*version, market, std::to_string(market), failure, out);
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::ofTraderType(EOvTraderType type) {
    InstrumentMap out;
    if (meansAll(type)) {
        addEverything(nullptr, out);
    } else if (type == OvTraderOtc) {
        out = CClientInstrumentCenter::getOtcInstruments();
    } else {
        addMarkets(getExchanges(type), kListRefFailed, out);
        keepOnly(type, out);
    }
    return out;
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getInstruments(
    const std::string& market) {
    InstrumentMap out;
    addMarkets({market}, kMarketFailed, out);
    return out;
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getInstruments() {
    InstrumentMap out;
    addEverything(nullptr, out);
    return out;
}

void CClientInstrumentCenter::getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    addEverything(kMarketRefFailed, out);
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getInstruments(
    const std::list<std::string>& markets) {
    InstrumentMap out;
    addMarkets(markets, kListFailed, out);
    return out;
}

void CClientInstrumentCenter::getInstruments(const std::list<std::string>& markets,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    addMarkets(markets, kListRefFailed, out);
}

void CClientInstrumentCenter::getInstruments(const std::string& market,
                                             std::list<boost::shared_ptr<CInstrumentDetail>>& out) {
    InstrumentMap records;
    addMarkets({market}, kMarketFailed, records);
    for (const auto& [text, record] : records) {
        out.push_back(record);
    }
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getInstruments(
    EOvTraderType type) {
    return ofTraderType(type);
}

void CClientInstrumentCenter::getInstruments(EOvTraderType type,
                                             std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) {
    out.merge(ofTraderType(type));
}

}  // namespace mxservice
