#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "base/instrumentcenter/Guarded.h"

namespace mxservice {

/// Which database holds which market. In memory only: after construction no market has a database, even when one is on
/// disk, until the market is loaded. Safe from any thread; its lock is never held while the store is called.
class DBBuilder {
public:
    /// "OvIns_" and the market. Stored; never change.
    static std::string buildDbName(const std::string& market);
    /// "OvRaw" and the market, deliberately without an underscore. Stored; never change.
    static std::string buildRawDbName(const std::string& market);

    /// Registers or replaces the market's database and says so in the log.
    void updateDbName(const std::string& market, const std::string& db);

    /// The registered database, or an empty text.
    std::string getDbName(const std::string& market) const;
    std::string getDbName(std::uint64_t marketHash) const;

private:
    struct Names {
        std::map<std::string, std::string> byMarket;
        std::map<std::uint64_t, std::string> byHash;
    };
    Guarded<Names> names_;
};

}  // namespace mxservice
