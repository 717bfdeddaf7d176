#include "RivalStores.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstdlib>

#ifdef PM_BENCH_SQLITE
#include <sqlite3.h>
#endif
#ifdef PM_BENCH_LEVELDB
#include <leveldb/db.h>
#include <leveldb/write_batch.h>
#endif
#ifdef PM_BENCH_ROCKSDB
#include <rocksdb/db.h>
#include <rocksdb/write_batch.h>
#endif
#ifdef PM_BENCH_REDIS
#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace bench {
namespace {

[[maybe_unused]] void must(bool good, const char* step) {
    if (!good) {
        fmt::print(stderr, "center_bench: {} failed\n", step);
        std::exit(1);
    }
}

template <class Store>
[[maybe_unused]] std::unique_ptr<RivalStore> open(const std::filesystem::path& directory) {
    return std::make_unique<Store>(directory);
}

#ifdef PM_BENCH_SQLITE
class SqliteStore : public RivalStore {
public:
    explicit SqliteStore(const std::filesystem::path& directory) {
        must(sqlite3_open((directory / "documents").c_str(), &database_) == SQLITE_OK, "SQLite: open");
        run("PRAGMA journal_mode = WAL");
        run("PRAGMA mmap_size = 4294967296");
        run("CREATE TABLE documents (key TEXT PRIMARY KEY, bytes BLOB) WITHOUT ROWID");
        put_ = prepared("INSERT INTO documents VALUES (?, ?)");
        get_ = prepared("SELECT bytes FROM documents WHERE key = ?");
        run("BEGIN");
    }
    ~SqliteStore() override {
        sqlite3_finalize(put_);
        sqlite3_finalize(get_);
        sqlite3_close(database_);
    }
    void put(const std::string& key, std::string_view bytes) override {
        bindKey(put_, key);
        sqlite3_bind_blob(put_, 2, bytes.data(), static_cast<int>(bytes.size()), SQLITE_STATIC);
        must(sqlite3_step(put_) == SQLITE_DONE, "SQLite: insert");
        sqlite3_reset(put_);
    }
    void finish() override {
        run("COMMIT");
        run("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    void read(const std::string& key, const Use& use) override {
        bindKey(get_, key);
        must(sqlite3_step(get_) == SQLITE_ROW, "SQLite: select");
        use({static_cast<const char*>(sqlite3_column_blob(get_, 0)),
             static_cast<std::size_t>(sqlite3_column_bytes(get_, 0))});
        sqlite3_reset(get_);
    }

private:
    static void bindKey(sqlite3_stmt* statement, const std::string& key) {
        sqlite3_bind_text(statement, 1, key.data(), static_cast<int>(key.size()), SQLITE_STATIC);
    }
    void run(const char* text) { must(sqlite3_exec(database_, text, nullptr, nullptr, nullptr) == SQLITE_OK, text); }
    sqlite3_stmt* prepared(const char* text) {
        sqlite3_stmt* statement = nullptr;
        must(sqlite3_prepare_v2(database_, text, -1, &statement, nullptr) == SQLITE_OK, text);
        return statement;
    }

    sqlite3* database_ = nullptr;
    sqlite3_stmt* put_ = nullptr;
    sqlite3_stmt* get_ = nullptr;
};
#endif

#ifdef PM_BENCH_LEVELDB
class LeveldbStore : public RivalStore {
public:
    explicit LeveldbStore(const std::filesystem::path& directory) {
        leveldb::Options options;
        options.create_if_missing = true;
        options.compression = leveldb::kNoCompression;
        leveldb::DB* database = nullptr;
        must(leveldb::DB::Open(options, directory.string(), &database).ok(), "LevelDB: open");
        database_.reset(database);
    }
    void put(const std::string& key, std::string_view bytes) override { batch_.Put(key, {bytes.data(), bytes.size()}); }
    void finish() override {
        must(database_->Write({}, &batch_).ok(), "LevelDB: write");
        batch_.Clear();
        database_->CompactRange(nullptr, nullptr);
    }
    void read(const std::string& key, const Use& use) override {
        must(database_->Get({}, key, &bytes_).ok(), "LevelDB: get");
        use(bytes_);
    }

private:
    std::unique_ptr<leveldb::DB> database_;
    leveldb::WriteBatch batch_;
    std::string bytes_;
};
#endif

#ifdef PM_BENCH_ROCKSDB
class RocksdbStore : public RivalStore {
public:
    explicit RocksdbStore(const std::filesystem::path& directory) {
        rocksdb::Options options;
        options.create_if_missing = true;
        options.compression = rocksdb::kNoCompression;
        options.allow_mmap_reads = true;
        rocksdb::DB* database = nullptr;
        must(rocksdb::DB::Open(options, directory.string(), &database).ok(), "RocksDB: open");
        database_.reset(database);
    }
    void put(const std::string& key, std::string_view bytes) override { batch_.Put(key, {bytes.data(), bytes.size()}); }
    void finish() override {
        must(database_->Write({}, &batch_).ok(), "RocksDB: write");
        batch_.Clear();
        must(database_->Flush({}).ok(), "RocksDB: flush");
        must(database_->CompactRange({}, nullptr, nullptr).ok(), "RocksDB: compact");
    }
    void read(const std::string& key, const Use& use) override {
        bytes_.Reset();
        must(database_->Get({}, database_->DefaultColumnFamily(), key, &bytes_).ok(), "RocksDB: get");
        use({bytes_.data(), bytes_.size()});
    }

private:
    std::unique_ptr<rocksdb::DB> database_;
    rocksdb::WriteBatch batch_;
    rocksdb::PinnableSlice bytes_;
};
#endif

#ifdef PM_BENCH_REDIS
/// A server of its own, reachable through a socket in the directory, that writes nothing to disk.
class RedisStore : public RivalStore {
public:
    explicit RedisStore(const std::filesystem::path& directory) {
        const std::string socket = directory / "socket";
        server_ = ::fork();
        if (server_ == 0) {
            must(std::freopen("/dev/null", "w", stdout) != nullptr, "Redis: start");
            ::execl(PM_BENCH_REDIS, PM_BENCH_REDIS, "--port", "0", "--unixsocket", socket.c_str(), "--save", "",
                    "--appendonly", "no", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        must(server_ > 0, "Redis: start");
        constexpr int kAttempts = 500;
        for (int attempt = 0; attempt < kAttempts && connection_ == nullptr; ++attempt) {
            connection_ = redisConnectUnix(socket.c_str());
            if (connection_ != nullptr && connection_->err != 0) {
                redisFree(connection_);
                connection_ = nullptr;
                ::usleep(10000);
            }
        }
        must(connection_ != nullptr, "Redis: connect");
    }
    ~RedisStore() override {
        redisFree(connection_);
        ::kill(server_, SIGTERM);
        ::waitpid(server_, nullptr, 0);
    }
    void put(const std::string& key, std::string_view bytes) override {
        const char* const words[] = {"SET", key.data(), bytes.data()};
        const std::size_t sizes[] = {3, key.size(), bytes.size()};
        reply(words, sizes, 3, [](const redisReply& answer) { must(answer.type == REDIS_REPLY_STATUS, "Redis: set"); });
    }
    void finish() override {}
    void read(const std::string& key, const Use& use) override {
        const char* const words[] = {"GET", key.data()};
        const std::size_t sizes[] = {3, key.size()};
        reply(words, sizes, 2, [&](const redisReply& answer) {
            must(answer.type == REDIS_REPLY_STRING, "Redis: get");
            use({answer.str, answer.len});
        });
    }

private:
    template <class Check>
    void reply(const char* const* words, const std::size_t* sizes, int count, const Check& check) {
        void* const answer = redisCommandArgv(connection_, count, const_cast<const char**>(words), sizes);
        must(answer != nullptr, "Redis: command");
        check(*static_cast<const redisReply*>(answer));
        freeReplyObject(answer);
    }

    pid_t server_ = -1;
    redisContext* connection_ = nullptr;
};
#endif

}  // namespace

const std::vector<RivalKind>& rivalStores() {
    static const std::vector<RivalKind> kinds{
#ifdef PM_BENCH_SQLITE
        {"SQLite + libbson", open<SqliteStore>},
#endif
#ifdef PM_BENCH_ROCKSDB
        {"RocksDB + libbson", open<RocksdbStore>},
#endif
#ifdef PM_BENCH_LEVELDB
        {"LevelDB + libbson", open<LeveldbStore>},
#endif
#ifdef PM_BENCH_REDIS
        {"Redis, unix socket + libbson", open<RedisStore>},
#endif
    };
    return kinds;
}

}  // namespace bench
