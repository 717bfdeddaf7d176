#pragma once

#include <string>

namespace mxservice {

/// How databases are named; which one holds a market is the market's own knowledge. In memory only: after construction
/// no market has a database, even when one is on disk, until the market is loaded.
struct DBBuilder {
    /// "OvIns_" and the market. Stored; never change.
    static std::string buildDbName(const std::string& market) { return "OvIns_" + market; }
    /// "OvRaw" and the market, deliberately without an underscore. Stored; never change.
    static std::string buildRawDbName(const std::string& market) { return "OvRaw" + market; }
};

}  // namespace mxservice
