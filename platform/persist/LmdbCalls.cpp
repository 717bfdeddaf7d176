#include "platform/persist/LmdbCalls.h"

#include <fmt/format.h>

#include <utility>

namespace persist {

// A foreign version counts as damage, too: setting such a file aside and beginning afresh is what a load needs then.
bool meansDamage(int code) {
    return code == MDB_CORRUPTED || code == MDB_PAGE_NOTFOUND || code == MDB_INVALID || code == MDB_VERSION_MISMATCH ||
           code == MDB_INCOMPATIBLE;
}

StoreStatus statusOf(int code, const char* step) {
    if (code == MDB_SUCCESS) {
        return {};
    }
    if (code == MDB_NOTFOUND) {
        return StoreStatus::notFound();
    }
    std::string reason = fmt::format("{}: {}", step, mdb_strerror(code));
    return meansDamage(code) ? StoreStatus::damage(std::move(reason)) : StoreStatus::failure(std::move(reason));
}

LmdbCursor::~LmdbCursor() {
    if (cursor_ != nullptr) {
        mdb_cursor_close(cursor_);
    }
}

int LmdbCursor::seek(std::string_view key) {
    if (code_ != MDB_SUCCESS) {
        return code_;
    }
    key_ = valueOf(key);  // the cursor sets it to the key that it finds
    // The library refuses to search for an empty key.
    return mdb_cursor_get(cursor_, &key_, &value_, key.empty() ? MDB_FIRST : MDB_SET_RANGE);
}

LmdbWriter::~LmdbWriter() {
    if (transaction_ != nullptr) {
        mdb_txn_abort(transaction_);
    }
}

int LmdbWriter::commit() {
    // The library frees the transaction of a commit that fails, too; to abort it then would free it twice.
    return mdb_txn_commit(std::exchange(transaction_, nullptr));
}

}  // namespace persist
