#include "platform/persist/LmdbDatabase.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>

#include "platform/persist/BatchOrder.h"
#include "platform/persist/LmdbFileCheck.h"
#include "platform/persist/System.h"

namespace persist {
namespace {

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

StoreStatus LmdbDatabase::open(bool create) {
    const OpenFile file(file_.path());
    if (!file.valid() && errno != ENOENT) {
        return lastError("open");
    }
    const std::optional<std::uint64_t> bytes = file.valid() ? file.size() : 0;
    if (!bytes) {
        return lastError("stat");
    }
    if (*bytes == 0) {
        return create ? this->create() : StoreStatus::notFound();
    }
    // The library follows what the meta pages say as soon as it opens the file, and the other pages with the first read
    // of an entry. So those are checked before the one, and these before the other.
    const std::string problem = checkMetaPages(file);
    if (!problem.empty()) {
        return StoreStatus::damage(problem);
    }
    const int code = environment_.open(static_cast<std::size_t>(*bytes), false);
    if (code != MDB_SUCCESS) {
        return code == ENOENT ? StoreStatus::notFound() : statusOf(code, "open");
    }
    environment_.dropDeadReaders();
    const StoreStatus pages = checkPages(file);
    return pages.ok() ? finishOpening() : pages;
}

/// The file's name is on disk before the file holds anything, so one that does needs no such care any more. A process
/// that is killed before that leaves an empty file, which is no database; a power cut amid the first pages leaves a
/// damaged one, which the next load sets aside.
StoreStatus LmdbDatabase::create() {
    if (!makeFile(file_.path())) {
        return lastError("create");
    }
    const std::filesystem::path directory = pathOf(directory_);
    if (!syncDirectory(directory) || !syncDirectory(directory.parent_path())) {
        return lastError("sync directory");
    }
    const int code = environment_.open(0, true);
    if (code != MDB_SUCCESS) {
        // What was written of the first pages is no database, and no damaged one either.
        emptyFile(file_.path());
        return statusOf(code, "create");
    }
    return finishOpening();
}

/// Checks the pages of the newest state; nothing but meta pages has been followed before.
StoreStatus LmdbDatabase::checkPages(const OpenFile& file) {
    // The read transaction keeps writers off the pages of its state, but not off its meta page: after two commits of
    // another process nothing in the file tells where that state begins. Then the newest one is taken instead.
    bool superseded = true;
    for (int attempt = 0; superseded && attempt < LmdbEnvironment::kMaxAttempts; ++attempt) {
        std::string problem;
        StoreStatus status = environment_.read("open", [&](MDB_txn* transaction) {
            problem = checkTree(file, mdb_txn_id(transaction), &superseded);
            return MDB_SUCCESS;
        });
        if (!status.ok()) {
            return status;
        }
        if (!problem.empty()) {
            return StoreStatus::damage(problem);
        }
    }
    return superseded ? StoreStatus::failure("open: written too often to be checked") : StoreStatus();
}

StoreStatus LmdbDatabase::finishOpening() {
    return file_.remember() ? environment_.openTree() : lastError("stat");
}

/// Removes the entry of that key and those of the field of that name, and counts them.
int LmdbDatabase::erase(MDB_txn* transaction, const std::string& name, WriteSize& size) {
    const std::string prefix = name + kFieldSeparator;
    // Collected first: a removal moves the entries that the cursor stands among.
    std::vector<std::string> keys{name};
    int code = MDB_SUCCESS;
    {
        LmdbCursor cursor(transaction, environment_.tree());
        code = cursor.seek(prefix);
        for (; code == MDB_SUCCESS && startsWith(cursor.key(), prefix); code = cursor.next()) {
            keys.emplace_back(cursor.key());
        }
    }
    code = code == MDB_NOTFOUND ? MDB_SUCCESS : code;
    size.entries += keys.size();
    for (std::size_t i = 0; code == MDB_SUCCESS && i < keys.size(); ++i) {
        MDB_val doomed = valueOf(keys[i]);
        code = mdb_del(transaction, environment_.tree(), &doomed, nullptr);
        // To remove what is not there is done.
        code = code == MDB_NOTFOUND ? MDB_SUCCESS : code;
    }
    return code;
}

/// One transaction: `prepare`, which is given the transaction, then the entries. So readers, and whoever opens the file
/// after a crash, find the entries removed and those put, or neither.
template <class Prepare>
StoreStatus LmdbDatabase::write(const StoreBatch& batch, bool onlyNew, Prepare prepare) {
    if (readOnly_) {
        return StoreStatus::failure("write: opened for reading only");
    }
    // Before the transaction, for whose end every writer of every process waits. In key order each page is visited
    // once; into an empty tree, pages are filled to the brim without a search.
    const std::vector<std::size_t> order = inKeyOrder(batch);
    std::size_t refused = batch.size();
    WriteSize size{roughSize(batch), 0};
    StoreStatus status = environment_.write("write", size, [&](MDB_txn* transaction) {
        size.entries = order.size();
        int code = prepare(transaction, size);
        // Asked after `prepare`, which may just have emptied the tree.
        MDB_stat stat{};
        code = code == MDB_SUCCESS ? mdb_stat(transaction, environment_.tree(), &stat) : code;
        const unsigned flags = (onlyNew ? static_cast<unsigned>(MDB_NOOVERWRITE) : 0U) |
                               (stat.ms_entries == 0 ? static_cast<unsigned>(MDB_APPEND) : 0U);
        for (auto entry = order.begin(); code == MDB_SUCCESS && entry != order.end(); ++entry) {
            MDB_val key = valueOf(batch.key(*entry));
            MDB_val value = valueOf(batch.value(*entry));
            if (value.mv_size == 0) {
                refused = *entry;  // with what was put before it: a batch is written whole or not at all
                return EINVAL;
            }
            code = mdb_put(transaction, environment_.tree(), &key, &value, flags);
            code = code == MDB_KEYEXIST && onlyNew ? MDB_SUCCESS : code;
        }
        return code;
    });
    if (refused == batch.size()) {
        return status;
    }
    std::string key(batch.key(refused));  // on its way into the log
    std::replace_if(
        key.begin(), key.end(), [](char c) { return static_cast<unsigned char>(c) < 0x20; }, '?');
    return StoreStatus::failure(fmt::format("the document of key {} is empty", key));
}

StoreStatus LmdbDatabase::put(const StoreBatch& batch, bool onlyNew, const std::vector<std::string>& erased) {
    if (batch.size() == 0 && erased.empty()) {
        return {};  // not worth the flushes of a commit
    }
    return write(batch, onlyNew, [&](MDB_txn* transaction, WriteSize& size) {
        int code = MDB_SUCCESS;
        for (std::size_t i = 0; code == MDB_SUCCESS && i < erased.size(); ++i) {
            code = erase(transaction, erased[i], size);
        }
        return code;
    });
}

StoreStatus LmdbDatabase::get(std::string_view key, const Visitor& visit) {
    return environment_.read("read", [&](MDB_txn* transaction) {
        MDB_val wanted = valueOf(key);
        MDB_val value{};
        const int code = mdb_get(transaction, environment_.tree(), &wanted, &value);
        if (code == MDB_SUCCESS) {
            visit(key, viewOf(value));
        }
        return code;
    });
}

StoreStatus LmdbDatabase::scan(std::string_view prefix, const Visitor& visit) {
    return environment_.read("read", [&](MDB_txn* transaction) {
        LmdbCursor cursor(transaction, environment_.tree());
        int code = cursor.seek(prefix);
        while (code == MDB_SUCCESS && startsWith(cursor.key(), prefix) && visit(cursor.key(), cursor.value())) {
            code = cursor.next();
        }
        return code == MDB_NOTFOUND ? MDB_SUCCESS : code;  // the end of the tree
    });
}

StoreStatus LmdbDatabase::replace(const StoreBatch& batch) {
    // What is dropped does not count: its pages are noted as free and not written.
    return write(batch, false,
                 [&](MDB_txn* transaction, WriteSize&) { return mdb_drop(transaction, environment_.tree(), 0); });
}

}  // namespace persist
