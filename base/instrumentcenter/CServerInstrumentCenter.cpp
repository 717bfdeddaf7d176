#include "base/instrumentcenter/CServerInstrumentCenter.h"

#include <fmt/format.h>

#include <algorithm>
#include <mutex>

#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "base/instrumentcenter/vocabulary/Keys.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Log.h"

// Construction and the load of instruments.

namespace mxservice {
namespace {

bool isConnectSnapshot(const std::vector<std::string>& markets) {
    return markets.size() == 1 && (isConnectMarket(markets.front()) || markets.front() == market::kHongKong);
}

}  // namespace

CServerInstrumentCenter::CServerInstrumentCenter(const std::string& strandName)
    : server_(std::make_unique<ServerState>(strandName)) {}

CServerInstrumentCenter::~CServerInstrumentCenter() = default;

void CServerInstrumentCenter::initInstruments(const std::vector<std::string>& markets,
                                              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    doInitInstruments(markets, instruments);
}

void CServerInstrumentCenter::doInitInstruments(const std::vector<std::string>& markets,
                                                const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    PM_LOG(utils::kLogInfo, kServerSource,
           fmt::format("[inscenter] init instruments [{0}] for [{1}] markets", instruments.size(), markets.size()));
    if (isConnectSnapshot(markets)) {
        const std::lock_guard guard(state().connectLock);
        auto& snapshots = state().connectSnapshots;
        snapshots[markets.front()] = instruments;
        if (snapshots.count(market::kShanghaiConnect) != 0 && snapshots.count(market::kShenzhenConnect) != 0) {
            doInitGgtInstruments();
        }
        return;
    }
    GroupedSnapshot grouped;
    ConnectListings listings;
    groupRecords(instruments, grouped, listings);
    markConnectEligibility(grouped, listings);
    createExchangeDatas(grouped);
    createFutureMainDatas(grouped);
    createFutureProdcutDatas(grouped);
    createFutureDceDatas(grouped);
    createStockCodes(markets, grouped);
    createNeeqCodes(grouped);
    createStkOptionCodes(grouped);
}

void CServerInstrumentCenter::doInitGgtInstruments() {
    GroupedSnapshot grouped;
    {
        const std::lock_guard guard(state().connectLock);
        ConnectListings listings;
        for (const char* const name : {market::kShanghaiConnect, market::kShenzhenConnect, market::kHongKong}) {
            groupConnectRecords(state().connectSnapshots[name], grouped, listings);
        }
        markConnectEligibility(grouped, listings);
    }
    createExchangeDatas(grouped);
}

void CServerInstrumentCenter::createExchangeDatas(
    const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped) {
    PM_LOG(utils::kLogInfo, kServerSource, "[inscenter] create exchange datas");
    for (const auto& [market, records] : grouped) {
        KeySet keys;
        keys.reserve(records.size());
        std::vector<InstrumentPtr> replaced;  // destroyed after the lock: a record's destructor frees many blocks
        replaced.reserve(records.size());
        for (const auto& [key, record] : records) {
            keys.insert(key);
            replaced.push_back(record);
        }
        {
            const auto index = server_->records.write();
            makeRoom(*index, records.size());
            auto fresh = replaced.begin();
            for (const auto& [key, record] : records) {
                (*index)[key].swap(*fresh++);
            }
        }
        server_->codeIndex.install(market, std::move(keys));
    }
}

void CServerInstrumentCenter::clearDatas(const std::vector<std::string>& markets) {
    for (const std::string& name : markets) {
        const KeySet keys = server_->codeIndex.clear(marketKey(foldedMarket(name)));
        std::vector<InstrumentPtr> removed;  // destroyed after the lock
        removed.reserve(keys.size());
        const auto index = server_->records.write();
        for (const StockKey key : keys) {
            const auto found = index->find(key);
            if (found != index->end()) {
                removed.push_back(std::move(found->second));
                index->erase(found);
            }
        }
    }
}

std::list<std::string> CServerInstrumentCenter::getExchanges(EOvTraderType type) {
    return exchangesOf(type);
}

}  // namespace mxservice
