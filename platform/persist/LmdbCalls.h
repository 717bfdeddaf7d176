#pragma once

#include <lmdb.h>

#include <string_view>

#include "platform/persist/StoreEngine.h"

namespace persist {

/// Whether the library's code says that a file is not what the library wrote.
bool meansDamage(int code);

/// The library's code as the status of a step.
StoreStatus statusOf(int code, const char* step);

inline MDB_val valueOf(std::string_view bytes) {
    // The library takes what it only reads through a pointer to mutable bytes.
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

inline std::string_view viewOf(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

/// Goes through the entries of a tree in the order of their keys, within a transaction that outlives it.
class LmdbCursor {
public:
    LmdbCursor(MDB_txn* transaction, MDB_dbi tree) : code_(mdb_cursor_open(transaction, tree, &cursor_)) {}
    ~LmdbCursor();
    LmdbCursor(const LmdbCursor&) = delete;
    LmdbCursor& operator=(const LmdbCursor&) = delete;

    /// Moves to the first key not before `key`; the library's code, also that of a cursor that could not be opened.
    int seek(std::string_view key);
    /// Moves to the next key, after a seek that succeeded.
    int next() { return mdb_cursor_get(cursor_, &key_, &value_, MDB_NEXT); }

    std::string_view key() const { return viewOf(key_); }
    std::string_view value() const { return viewOf(value_); }

private:
    MDB_cursor* cursor_ = nullptr;
    int code_;
    MDB_val key_{};
    MDB_val value_{};
};

/// A write transaction, aborted when it is not committed, also when making a value throws.
class LmdbWriter {
public:
    explicit LmdbWriter(MDB_txn* transaction) : transaction_(transaction) {}
    ~LmdbWriter();
    LmdbWriter(const LmdbWriter&) = delete;
    LmdbWriter& operator=(const LmdbWriter&) = delete;

    /// Ends it, whatever the code that comes back.
    int commit();

private:
    MDB_txn* transaction_;
};

}  // namespace persist
