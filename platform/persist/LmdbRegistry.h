#pragma once

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "platform/persist/LmdbDatabase.h"
#include "platform/persist/System.h"

namespace persist {

/// Every database that this process has open, whichever engine opened it: the library allows one environment per
/// directory, and closing one while another is being opened would take the other's locks away. So whoever opens holds
/// `lock` from the search to the entry, and databases are closed under it.
class LmdbRegistry {
public:
    static LmdbRegistry& instance();

    std::recursive_mutex lock;

    /// A database to be opened; the last of its users closes it.
    std::shared_ptr<LmdbDatabase> make(const std::string& directory, bool readOnly);

    // Under `lock`.

    /// The usable database of a directory, if there is one; one that is not is retired first.
    std::shared_ptr<LmdbDatabase> find(FileId directory, bool forWriting);
    /// Files an open one.
    void enter(FileId directory, const std::shared_ptr<LmdbDatabase>& database);

private:
    static void close(LmdbDatabase* database);

    struct Entry {
        LmdbDatabase* database;  // until it is closed
        std::weak_ptr<LmdbDatabase> alive;
    };
    std::condition_variable_any closed_;
    std::map<FileId, Entry> entryByDirectory_;
};

}  // namespace persist
