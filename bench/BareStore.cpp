#include "BareStore.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

namespace bench {
namespace {

constexpr std::size_t kMapBytes = std::size_t{1} << 34U;
constexpr mode_t kFileMode = 0644;

void must(int code, const char* step) {
    if (code != MDB_SUCCESS) {
        fmt::print(stderr, "center_bench: {}: {}\n", step, mdb_strerror(code));
        std::exit(1);
    }
}

MDB_val valueOf(std::string_view bytes) {
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

std::string_view viewOf(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

}  // namespace

BareStore::BareStore(const std::filesystem::path& directory, unsigned flags) {
    std::filesystem::create_directories(directory);
    must(mdb_env_create(&environment_), "create environment");
    must(mdb_env_set_mapsize(environment_, kMapBytes), "set map size");
    must(mdb_env_open(environment_, directory.c_str(), MDB_NOTLS | flags, kFileMode), "open environment");
    MDB_txn* transaction = nullptr;
    must(mdb_txn_begin(environment_, nullptr, 0, &transaction), "begin");
    must(mdb_dbi_open(transaction, nullptr, 0, &tree_), "open tree");
    must(mdb_txn_commit(transaction), "commit");
}

BareStore::~BareStore() {
    mdb_env_close(environment_);
}

void BareStore::write(bool ascending, const Next& next) {
    MDB_txn* transaction = nullptr;
    must(mdb_txn_begin(environment_, nullptr, 0, &transaction), "begin");
    std::string_view key;
    std::string_view value;
    while (next(key, value)) {
        MDB_val keyBytes = valueOf(key);
        MDB_val valueBytes = valueOf(value);
        must(mdb_put(transaction, tree_, &keyBytes, &valueBytes, ascending ? MDB_APPEND : 0), "put");
    }
    must(mdb_txn_commit(transaction), "commit");
}

void BareStore::visitAll(const Visitor& visit) const {
    MDB_txn* transaction = nullptr;
    MDB_cursor* cursor = nullptr;
    must(mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction), "begin");
    must(mdb_cursor_open(transaction, tree_, &cursor), "open cursor");
    MDB_val key{};
    MDB_val value{};
    while (mdb_cursor_get(cursor, &key, &value, MDB_NEXT) == MDB_SUCCESS) {
        visit(viewOf(key), viewOf(value));
    }
    mdb_cursor_close(cursor);
    mdb_txn_abort(transaction);
}

BareStore::Reader::Reader(const BareStore& store) : store_(store) {
    must(mdb_txn_begin(store_.environment_, nullptr, MDB_RDONLY, &transaction_), "begin");
    mdb_txn_reset(transaction_);
}

BareStore::Reader::~Reader() {
    mdb_txn_abort(transaction_);
}

void BareStore::Reader::renew() {
    must(mdb_txn_renew(transaction_), "renew");
}

std::string_view BareStore::Reader::get(std::string_view key) {
    MDB_val wanted = valueOf(key);
    MDB_val value{};
    must(mdb_get(transaction_, store_.tree_, &wanted, &value), "get");
    return viewOf(value);
}

double dataBytes(const std::filesystem::path& root) {
    double bytes = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
        if (entry.path().filename() == "data.mdb") {
            bytes += static_cast<double>(entry.file_size());
        }
    }
    return bytes;
}

}  // namespace bench
