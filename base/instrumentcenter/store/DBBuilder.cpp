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
        const auto names = names_.write();
        names->byMarket[market] = db;
        names->byHash[hash] = db;
    }
    PM_CENTER_LOG(kLogInfo, kClientSource,
                  formatted("[clientIns] update db, market=%1%, db=%2%, hash=%3%", market, db, hash));
}

std::string DBBuilder::getDbName(const std::string& market) const {
    return nameOf(names_.read()->byMarket, market);
}

std::string DBBuilder::getDbName(std::uint64_t marketHash) const {
    return nameOf(names_.read()->byHash, marketHash);
}

}  // namespace mxservice
