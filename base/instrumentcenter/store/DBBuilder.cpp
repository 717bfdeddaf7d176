#include "base/instrumentcenter/store/DBBuilder.h"

#include "base/instrumentcenter/store/ClientLog.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {
namespace {

template <class Names, class Key>
std::string nameOf(const Names& names, const Key& key) {
    const auto found = names.find(key);
    return found == names.end() ? std::string() : found->second;
}

}  // namespace

std::string DBBuilder::buildDbName(const std::string& market) {
    return "OvIns_" + market;
}

std::string DBBuilder::buildRawDbName(const std::string& market) {
    return "OvRaw" + market;
}

void DBBuilder::updateDbName(const std::string& market, const std::string& db) {
    const std::uint64_t hash = marketKey(market);
    {
        const std::lock_guard guard(lock_);
        nameByMarket_[market] = db;
        nameByHash_[hash] = db;
    }
    PM_LOG(utils::kLogInfo, kClientSource,
           formatted("[clientIns] update db, market=%1%, db=%2%, hash=%3%", market, db, hash));
}

std::string DBBuilder::getDbName(const std::string& market) const {
    const std::lock_guard guard(lock_);
    return nameOf(nameByMarket_, market);
}

std::string DBBuilder::getDbName(std::uint64_t marketHash) const {
    const std::lock_guard guard(lock_);
    return nameOf(nameByHash_, marketHash);
}

}  // namespace mxservice
