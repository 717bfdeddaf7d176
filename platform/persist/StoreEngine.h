#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.h"

namespace persist {

/// How a call of the storage engine ended.
struct StoreStatus {
    /// The ways.
    enum class Kind {
        Ok,        ///< done
        NotFound,  ///< no such key, or no such database
        Failed,    ///< `reason` says why; nothing was changed
        Damaged,   ///< the database's file is not what the engine wrote; `reason` says where
    };

    Kind kind = Kind::Ok;  ///< how
    std::string reason;    ///< why it failed, for the log

    /// Done.
    bool ok() const { return kind == Kind::Ok; }
    /// Not done, for another reason than that nothing was there.
    bool failed() const { return kind == Kind::Failed || kind == Kind::Damaged; }

    /// Nothing was there.
    static StoreStatus notFound() { return {Kind::NotFound, {}}; }
    /// Failed, and why.
    static StoreStatus failure(std::string why) { return {Kind::Failed, std::move(why)}; }
    /// Damaged, and where.
    static StoreStatus damage(std::string why) { return {Kind::Damaged, std::move(why)}; }
};

/// The entries of one write. Each value is made when it is its turn, so that a large batch needs no memory for all of
/// them at once. Making one must not call the store: it is in the middle of the write.
class PM_PLATFORM_API StoreBatch {
public:
    virtual ~StoreBatch();

    /// How many.
    virtual std::size_t size() const = 0;
    /// The key of one; valid as long as the batch.
    virtual std::string_view key(std::size_t entry) const = 0;
    /// The value of one; valid until the next is asked for. May be asked for in any order and more than once. Empty
    /// when it cannot be made; the engine then writes nothing and fails.
    virtual std::string_view value(std::size_t entry) const = 0;
};

/// Stands between a field and the key of a sub-document; no other key holds it. Stored; never change.
constexpr char kFieldSeparator = '\0';

/// One open database: an ordered map of byte strings to byte strings. Every changing call is one transaction, done
/// whole or not at all, and safe against power loss when it returns. Safe from any thread; readers see one state for
/// the length of a call. A visitor must not call the database again.
class PM_PLATFORM_API StoreDatabase {
public:
    /// Given bytes that are valid only during the call; answers whether to go on.
    using Visitor = std::function<bool(std::string_view key, std::string_view value)>;

    virtual ~StoreDatabase();

    /// Removes the entries of the keys `erased` and of the fields of those names, then puts all entries; of two with
    /// one key the later counts. With `onlyNew`, keys that exist keep their value.
    virtual StoreStatus put(const StoreBatch& batch, bool onlyNew, const std::vector<std::string>& erased) = 0;
    /// Visits the entry of that key.
    virtual StoreStatus get(std::string_view key, const Visitor& visit) = 0;
    /// Visits the entries whose key begins with `prefix`, in ascending order of their keys.
    virtual StoreStatus scan(std::string_view prefix, const Visitor& visit) = 0;
    /// Removes every entry and puts these, which may be none, in one step: readers see all of the old or of the new.
    virtual StoreStatus replace(const StoreBatch& batch) = 0;

    /// How closely `isCurrent` looks.
    enum class Look {
        Now,     ///< at the disk, for a write
        Lately,  ///< mostly at the clock alone, for a read: the answer may be 10 ms old
    };
    /// Whether the directory that the database was opened from still leads to it.
    virtual bool isCurrent(Look look) const = 0;
};

/// Opens databases. Safe from any thread.
class PM_PLATFORM_API StoreEngine {
public:
    virtual ~StoreEngine();

    /// What opening may do to the disk.
    enum class Mode {
        ReadExisting,   ///< never creates or changes anything but the engine's own lock file
        WriteExisting,  ///< never creates a database
        Create,         ///< creates the directory and the database where they are missing
    };

    /// The database in `directory`; null with the reason in `status` when it cannot be opened. A process has one
    /// database open per directory, whatever path leads there.
    virtual std::shared_ptr<StoreDatabase> open(const std::string& directory, Mode mode, StoreStatus& status) = 0;
};

/// The engine over LMDB: one environment directory per database.
PM_PLATFORM_API std::shared_ptr<StoreEngine> makeLmdbEngine();

}  // namespace persist
