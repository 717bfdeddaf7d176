#pragma once

#include <memory>
#include <string_view>

#include "platform/persist/StoreEngine.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/StoreDirectory.h"

namespace inscenter {

/// Opens databases for reading only and reports on the console what cannot be read.
class StoreReader {
public:
    explicit StoreReader(Console& console) : console_(console) {}

    /// Null when the directory holds no database, or when it cannot be opened. A load that was killed early leaves a
    /// directory without a data file, or with an empty one.
    std::shared_ptr<persist::StoreDatabase> open(const DatabaseDirectory& directory);

    /// Visits the entries whose stored key begins with `prefix`; false when that failed.
    bool scan(const DatabaseDirectory& directory, persist::StoreDatabase& database, std::string_view prefix,
              const persist::StoreDatabase::Visitor& visit);

    /// False, with a message, when the status is a failure.
    bool check(const DatabaseDirectory& directory, const persist::StoreStatus& status);

    /// Whether anything could not be read.
    bool failed() const { return failed_; }

private:
    Console& console_;
    std::shared_ptr<persist::StoreEngine> engine_ = persist::makeLmdbEngine();
    bool failed_ = false;
};

}  // namespace inscenter
