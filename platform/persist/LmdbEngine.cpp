#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <lmdb.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <filesystem>
#include <map>
#include <mutex>
#include <numeric>
#include <shared_mutex>
#include <thread>
#include <utility>

#include "platform/persist/FileWatch.h"
#include "platform/persist/LmdbFileCheck.h"
#include "platform/persist/StoreEngine.h"
#include "platform/utils/SharedMutex.h"

namespace persist {
namespace {

constexpr std::size_t kFirstMapBytes = std::size_t{1} << 20U;
constexpr std::size_t kLargestMapBytes = std::size_t{1} << 38U;
constexpr unsigned kMaxReaders = 2048;  // slots of the lock file, for all processes together
constexpr int kMaxAttempts = 1000;
constexpr mode_t kFileMode = 0644;
constexpr const char* kDataFile = "data.mdb";
/// What no watch sees, such as a link on the way to the directory that leads elsewhere now, is noticed this late.
constexpr std::int64_t kTrustedNanoseconds = 10'000'000;

/// Which file or directory a path leads to.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator<(const FileId& a, const FileId& b) {
        return a.device != b.device ? a.device < b.device : a.inode < b.inode;
    }
    friend bool operator==(const FileId& a, const FileId& b) { return a.device == b.device && a.inode == b.inode; }
};

FileId idOf(const struct stat& file) {
    return {file.st_dev, file.st_ino};
}

/// Time that takes no longer to tell than a few additions, and is a few milliseconds old.
std::int64_t coarseNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

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

MDB_val valueOf(std::string_view bytes) {
    // The library takes what it only reads through a pointer to mutable bytes.
    return {bytes.size(), const_cast<char*>(bytes.data())};
}

std::string_view viewOf(const MDB_val& value) {
    return {static_cast<const char*>(value.mv_data), value.mv_size};
}

bool startsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

private:
    const int fd_;
};

StoreStatus lastError(const char* step) {
    return StoreStatus::failure(fmt::format("{}: {}", step, std::strerror(errno)));
}

/// Has the names in a directory on disk: without, a power cut could take a fresh file away, however well its bytes were
/// flushed. One that may not be listed, and a file system that has no such flush, are left at that.
bool syncDirectory(const std::filesystem::path& directory) {
    const Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened.valid() ? ::fsync(opened.get()) == 0 || errno == EINVAL : errno == EACCES;
}

/// Makes the directory of a database and what is missing on the way to it. The names on the way are on disk then; the
/// directory's own is when the database is created.
StoreStatus makeDirectories(const std::filesystem::path& directory) {
    std::error_code error;
    std::vector<std::filesystem::path> extended;
    std::filesystem::path way = directory.parent_path();
    for (; way.has_relative_path() && !std::filesystem::exists(way, error); way = way.parent_path()) {
        extended.push_back(way.parent_path());
    }
    std::filesystem::create_directories(directory, error);
    if (error) {
        return StoreStatus::failure(fmt::format("create directory: {}", error.message()));
    }
    return std::all_of(extended.begin(), extended.end(), syncDirectory) ? StoreStatus() : lastError("sync directory");
}

class Cursor {
public:
    Cursor(MDB_txn* transaction, MDB_dbi tree) : code_(mdb_cursor_open(transaction, tree, &cursor_)) {}
    ~Cursor() {
        if (cursor_ != nullptr) {
            mdb_cursor_close(cursor_);
        }
    }
    Cursor(const Cursor&) = delete;
    Cursor& operator=(const Cursor&) = delete;

    /// Moves to the first key not before `key`, or to the next one; the library's code.
    int seek(std::string_view key) {
        if (code_ != MDB_SUCCESS) {
            return code_;
        }
        key_ = valueOf(key);
        return mdb_cursor_get(cursor_, &key_, &value_, key.empty() ? MDB_FIRST : MDB_SET_RANGE);
    }
    int next() { return mdb_cursor_get(cursor_, &key_, &value_, MDB_NEXT); }

    std::string_view key() const { return viewOf(key_); }
    std::string_view value() const { return viewOf(value_); }

private:
    MDB_cursor* cursor_ = nullptr;
    int code_;
    MDB_val key_{};
    MDB_val value_{};
};

/// Counts the forks that led to this process, as far back as the library was loaded.
std::atomic<unsigned> forkCount{0};

void watchForks() {
    static const int registered = ::pthread_atfork(nullptr, nullptr, [] { ++forkCount; });
    static_cast<void>(registered);
}

/// One LMDB environment. Transactions hold `map_` shared, so that the map grows only while none is under way. Read
/// transactions are kept for reuse: renewing one costs a tenth of beginning it.
///
/// An environment that can write has 3 MB of the library's lists, and after a write the memory of all pages that it
/// ever wrote. So between two writes it is open for reading only.
class LmdbDatabase final : public StoreDatabase {
public:
    LmdbDatabase(std::string directory, bool readOnly)
        : directory_(std::move(directory)),
          dataPath_(directory_ + "/" + kDataFile),
          lockPath_(directory_ + "/lock.mdb"),
          readOnly_(readOnly) {}

    ~LmdbDatabase() override { retire(); }

    /// Closes the environment; every later call fails. Waits for transactions under way. What a forked child inherited
    /// is left alone: closing it would close it for the parent.
    void retire() {
        const std::lock_guard guard(map_);
        closeEnvironment();
    }

    /// Opens and checks the database; to be called once, before anything else. Without `create`, a file that is empty
    /// or not there is no database.
    StoreStatus open(bool create);

    bool readOnly() const { return readOnly_; }
    bool inherited() const { return forks_ != forkCount.load(); }

    bool isCurrent() const override {
        if (broken_.load() || inherited()) {
            return false;
        }
        const std::uint64_t changes = watched_ ? FileWatch::instance().changes() : 0;
        const std::int64_t now = watched_ ? coarseNanoseconds() : 0;
        if (watched_ && changes == changesSeen_.load() && now - lookedAt_.load() < kTrustedNanoseconds) {
            return true;
        }
        const off_t seen = sizeSeen_.load();
        struct stat file {};
        if (::stat(dataPath_.c_str(), &file) != 0 || !(idOf(file) == dataFile_)) {
            return false;
        }
        // The library never shortens a file; somebody else did, and the mapped pages behind its end are gone.
        broken_ = broken_.load() || file.st_size < seen;
        sizeSeen_.store(file.st_size);
        changesSeen_.store(changes);
        lookedAt_.store(now);
        return !broken_.load();
    }

    StoreStatus put(const StoreBatch& batch, bool onlyNew, const std::vector<std::string>& erased) override;
    StoreStatus get(std::string_view key, const Visitor& visit) override;
    StoreStatus scan(std::string_view prefix, const Visitor& visit) override;
    StoreStatus replace(const StoreBatch& batch) override;

private:
    using Reader = MDB_txn*;
    struct alignas(64) IdleReaders {
        std::mutex lock;
        std::vector<Reader> transactions;
    };

    IdleReaders& idleReaders() { return idle_[utils::ThreadLine::ofThread() % idle_.size()]; }
    int beginReading(Reader& reader);
    void endReading(Reader reader) noexcept;
    void dropIdleReaders();
    void dropDeadReaders();

    /// Ends a read transaction, also when a visitor throws.
    class ReaderGuard {
    public:
        ReaderGuard(LmdbDatabase& database, Reader reader) : database_(database), reader_(reader) {}
        ~ReaderGuard() { database_.endReading(reader_); }
        ReaderGuard(const ReaderGuard&) = delete;
        ReaderGuard& operator=(const ReaderGuard&) = delete;

    private:
        LmdbDatabase& database_;
        const Reader reader_;
    };

    /// Ends writing, also when a value cannot be made for want of memory.
    class WritingGuard {
    public:
        explicit WritingGuard(LmdbDatabase& database) : database_(database) {}
        ~WritingGuard() { database_.endWriting(); }
        WritingGuard(const WritingGuard&) = delete;
        WritingGuard& operator=(const WritingGuard&) = delete;

    private:
        LmdbDatabase& database_;
    };

    /// Aborts a write transaction that is not committed.
    class WriterGuard {
    public:
        explicit WriterGuard(MDB_txn* transaction) : transaction_(transaction) {}
        ~WriterGuard() {
            if (transaction_ != nullptr) {
                mdb_txn_abort(transaction_);
            }
        }
        WriterGuard(const WriterGuard&) = delete;
        WriterGuard& operator=(const WriterGuard&) = delete;
        int commit() { return mdb_txn_commit(std::exchange(transaction_, nullptr)); }

    private:
        MDB_txn* transaction_;
    };

    StoreStatus create();
    StoreStatus finishOpening();
    int openEnvironment(std::size_t fileBytes, bool forWriting);
    void closeEnvironment();
    void dropEnvironment();
    int reopen(bool forWriting);
    int prepareWriting(std::size_t bytes);
    void endWriting();
    int adoptGrowth();
    int growTo(std::size_t bytes);
    int remap(std::size_t bytes);
    int makeRoom(std::size_t bytes);
    int erase(MDB_txn* transaction, const std::string& name);
    template <class Prepare>
    StoreStatus write(const StoreBatch& batch, bool onlyNew, Prepare prepare);
    StoreStatus ended(int code, const char* step);
    StoreStatus checkPages(int fd);

    template <class Use>
    StoreStatus reading(const char* step, Use use);
    template <class Use>
    int transact(Use use, std::size_t& mapBytes);
    template <class Use>
    StoreStatus writing(const char* step, std::size_t bytes, Use use);

    const std::string directory_;
    const std::string dataPath_;
    const std::string lockPath_;
    const bool readOnly_;
    const unsigned forks_ = forkCount.load();
    MDB_env* environment_ = nullptr;
    bool canWrite_ = false;  // the environment, as it is open now
    MDB_dbi tree_ = 0;
    FileId dataFile_;
    bool watched_ = false;
    mutable std::atomic<std::uint64_t> changesSeen_{0};
    mutable std::atomic<std::int64_t> lookedAt_{-kTrustedNanoseconds};
    mutable std::atomic<off_t> sizeSeen_{0};
    mutable std::atomic<bool> broken_{false};  // to be opened anew
    utils::SharedMutex map_;
    std::array<IdleReaders, 16> idle_;
};

StoreStatus LmdbDatabase::open(bool create) {
    const Descriptor file(::open(dataPath_.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat found {};
    if (!file.valid() && errno != ENOENT) {
        return lastError("open");
    }
    if (file.valid() && ::fstat(file.get(), &found) != 0) {
        return lastError("stat");
    }
    if (found.st_size == 0) {
        return create ? this->create() : StoreStatus::notFound();
    }
    const std::string problem = checkMetaPages(file.get());
    if (!problem.empty()) {
        return StoreStatus::damage(problem);
    }
    const int code = openEnvironment(static_cast<std::size_t>(found.st_size), false);
    if (code != MDB_SUCCESS) {
        return code == ENOENT ? StoreStatus::notFound() : statusOf(code, "open");
    }
    int dead = 0;
    mdb_reader_check(environment_, &dead);
    const StoreStatus pages = checkPages(file.get());
    return pages.ok() ? finishOpening() : pages;
}

/// The file's name is on disk before the file holds anything, so one that does needs no such care any more.
StoreStatus LmdbDatabase::create() {
    if (!Descriptor(::open(dataPath_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode)).valid()) {
        return lastError("create");
    }
    const std::filesystem::path directory(directory_);
    if (!syncDirectory(directory) || !syncDirectory(directory.parent_path())) {
        return lastError("sync directory");
    }
    const int code = openEnvironment(0, true);
    if (code != MDB_SUCCESS) {
        // What was written of the first pages is no database, and no damaged one either.
        static_cast<void>(::truncate(dataPath_.c_str(), 0));
        return statusOf(code, "create");
    }
    return finishOpening();
}

StoreStatus LmdbDatabase::finishOpening() {
    struct stat file {};
    if (::stat(dataPath_.c_str(), &file) != 0) {
        return lastError("stat");
    }
    dataFile_ = idOf(file);
    sizeSeen_ = file.st_size;
    const std::string root = std::filesystem::path(directory_).parent_path();
    FileWatch& watch = FileWatch::instance();
    watched_ = forks_ == 0 && watch.add(dataPath_) && watch.add(directory_) && watch.add(root);
    return reading("open", [this](MDB_txn* transaction) { return mdb_dbi_open(transaction, nullptr, 0, &tree_); });
}

namespace {

/// The library writes its lock file through a map; a page of it that finds no room on the disk would end the process.
/// So the room is taken beforehand. The file's size stays the library's to set.
int reserveLockFile(const std::string& path) {
    constexpr std::size_t kSlotBytes = 64;
    constexpr auto kBytes = static_cast<off_t>((kMaxReaders + kSlotBytes) * kSlotBytes);
    const Descriptor file(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kFileMode));
    if (!file.valid()) {
        return MDB_SUCCESS;  // the library will tell what is wrong
    }
    // Not every file system can reserve room.
    const bool full = ::fallocate(file.get(), FALLOC_FL_KEEP_SIZE, 0, kBytes) != 0 && errno == ENOSPC;
    return full ? ENOSPC : MDB_SUCCESS;
}

}  // namespace

int LmdbDatabase::openEnvironment(std::size_t fileBytes, bool forWriting) {
    MDB_env* fresh = nullptr;
    int code = mdb_env_create(&fresh);
    if (code == MDB_SUCCESS) {
        code = mdb_env_set_maxreaders(fresh, kMaxReaders);
    }
    if (code == MDB_SUCCESS) {
        code = mdb_env_set_mapsize(fresh, std::max(kFirstMapBytes, fileBytes));
    }
    if (code == MDB_SUCCESS) {
        code = reserveLockFile(lockPath_);
    }
    if (code == MDB_SUCCESS) {
        const unsigned flags = MDB_NOTLS | (forWriting ? 0U : static_cast<unsigned>(MDB_RDONLY));
        code = mdb_env_open(fresh, directory_.c_str(), flags, kFileMode);
    }
    if (code == MDB_SUCCESS) {
        environment_ = fresh;
        canWrite_ = forWriting;
        // The library leaves this one of its files open in programs that the host executes.
        int dataFile = -1;
        if (mdb_env_get_fd(fresh, &dataFile) == MDB_SUCCESS) {
            ::fcntl(dataFile, F_SETFD, FD_CLOEXEC);
        }
    } else if (fresh != nullptr) {
        mdb_env_close(fresh);
    }
    return code;
}

/// Opens the environment anew. Under `map_`, exclusive.
int LmdbDatabase::reopen(bool forWriting) {
    dropEnvironment();
    struct stat file {};
    if (::stat(dataPath_.c_str(), &file) != 0 || !(idOf(file) == dataFile_)) {
        return MDB_PANIC;
    }
    int code = openEnvironment(static_cast<std::size_t>(file.st_size), forWriting);
    MDB_txn* transaction = nullptr;
    if (code == MDB_SUCCESS) {
        code = mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &transaction);
    }
    if (code == MDB_SUCCESS) {
        // Also sets the library's key order for the tree.
        code = mdb_dbi_open(transaction, nullptr, 0, &tree_);
        mdb_txn_abort(transaction);
    }
    return code;
}

/// Has the environment open for writing, with a map that a batch of so many bytes fits into.
int LmdbDatabase::prepareWriting(std::size_t bytes) {
    bool ready = false;
    {
        const std::shared_lock guard(map_);
        ready = canWrite_;
    }
    if (!ready) {
        const std::lock_guard guard(map_);
        const int code = canWrite_ ? MDB_SUCCESS : reopen(true);
        if (code != MDB_SUCCESS) {
            // What may not be written to can still be read.
            broken_ = reopen(false) != MDB_SUCCESS || broken_.load();
            return code;
        }
    }
    return makeRoom(bytes);
}

void LmdbDatabase::endWriting() {
    const std::unique_lock guard(map_, std::try_to_lock);
    if (guard.owns_lock() && environment_ != nullptr && canWrite_) {
        broken_ = reopen(false) != MDB_SUCCESS || broken_.load();
    }  // else somebody is at work; the next write tries again
}

/// Under `map_`, exclusive.
void LmdbDatabase::closeEnvironment() {
    broken_ = true;
    dropEnvironment();
}

/// Under `map_`, exclusive.
void LmdbDatabase::dropEnvironment() {
    canWrite_ = false;
    if (environment_ != nullptr && !inherited()) {
        dropIdleReaders();
        mdb_env_close(environment_);
    }
    environment_ = nullptr;
}

/// Checks the pages of the newest state; nothing but meta pages has been followed before.
StoreStatus LmdbDatabase::checkPages(int fd) {
    bool superseded = true;
    for (int attempt = 0; superseded && attempt < kMaxAttempts; ++attempt) {
        std::string problem;
        StoreStatus status = reading("open", [&](MDB_txn* transaction) {
            problem = checkTree(fd, mdb_txn_id(transaction), &superseded);
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

int LmdbDatabase::beginReading(Reader& reader) {
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    IdleReaders& idle = idleReaders();
    {
        const std::lock_guard guard(idle.lock);
        if (!idle.transactions.empty()) {
            reader = idle.transactions.back();
            idle.transactions.pop_back();
        }
    }
    if (reader == nullptr) {
        return mdb_txn_begin(environment_, nullptr, MDB_RDONLY, &reader);
    }
    const int code = mdb_txn_renew(reader);
    if (code != MDB_SUCCESS) {
        mdb_txn_abort(std::exchange(reader, nullptr));
    }
    return code;
}

void LmdbDatabase::endReading(Reader reader) noexcept {
    mdb_txn_reset(reader);
    IdleReaders& idle = idleReaders();
    const std::lock_guard guard(idle.lock);
    try {
        idle.transactions.push_back(reader);
    } catch (const std::bad_alloc&) {
        mdb_txn_abort(reader);
    }
}

void LmdbDatabase::dropIdleReaders() {
    for (IdleReaders& idle : idle_) {
        const std::lock_guard guard(idle.lock);
        for (const Reader reader : idle.transactions) {
            mdb_txn_abort(reader);
        }
        idle.transactions.clear();
    }
}

/// Frees the slots of processes that died inside a read.
void LmdbDatabase::dropDeadReaders() {
    const std::shared_lock guard(map_);
    if (environment_ != nullptr) {
        int dead = 0;
        mdb_reader_check(environment_, &dead);
    }
}

/// The code as a status. After damage, or a write that failed half way, the environment is of no more use.
StoreStatus LmdbDatabase::ended(int code, const char* step) {
    if (meansDamage(code) || code == MDB_PANIC) {
        broken_ = true;
    }
    return statusOf(code, step);
}

template <class Use>
StoreStatus LmdbDatabase::reading(const char* step, Use use) {
    int code = MDB_SUCCESS;
    for (int attempt = 0; attempt < kMaxAttempts; ++attempt) {
        {
            const std::shared_lock guard(map_);
            Reader reader = nullptr;
            code = beginReading(reader);
            if (code == MDB_SUCCESS) {
                const ReaderGuard reading(*this, reader);
                return ended(use(reader), step);
            }
        }
        if (code == MDB_MAP_RESIZED) {
            code = adoptGrowth();
        } else if (code == MDB_READERS_FULL) {
            // Slots of processes that died are freed; those of our own idle transactions, too.
            dropIdleReaders();
            dropDeadReaders();
            std::this_thread::yield();
        } else {
            break;
        }
    }
    return ended(code == MDB_SUCCESS ? MDB_MAP_RESIZED : code, step);
}

/// One transaction; `mapBytes` gets the size of the map that it had.
template <class Use>
int LmdbDatabase::transact(Use use, std::size_t& mapBytes) {
    const std::shared_lock guard(map_);
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    MDB_envinfo info;
    mdb_env_info(environment_, &info);
    mapBytes = info.me_mapsize;
    MDB_txn* transaction = nullptr;
    int code = mdb_txn_begin(environment_, nullptr, 0, &transaction);
    if (code == MDB_SUCCESS) {
        WriterGuard writer(transaction);
        code = use(transaction);
        if (code == MDB_SUCCESS) {
            code = writer.commit();
        }
    }
    return code;
}

template <class Use>
StoreStatus LmdbDatabase::writing(const char* step, std::size_t bytes, Use use) {
    if (readOnly_) {
        return StoreStatus::failure(fmt::format("{}: opened for reading only", step));
    }
    const WritingGuard guard(*this);
    int code = MDB_SUCCESS;
    bool again = true;
    for (int attempt = 0; again && attempt < kMaxAttempts; ++attempt) {
        code = prepareWriting(bytes);
        if (code != MDB_SUCCESS) {
            break;
        }
        std::size_t mapBytes = 0;
        code = transact(use, mapBytes);
        int mended = MDB_SUCCESS;
        if (code == MDB_MAP_FULL) {
            dropDeadReaders();  // they keep pages from being used again
            mended = growTo(mapBytes * 2);
        } else if (code == MDB_MAP_RESIZED) {
            mended = adoptGrowth();
        } else {
            again = code == EACCES;  // another write has ended since and left the environment for reading
        }
        if (mended != MDB_SUCCESS) {
            code = mended;
            again = false;
        }
    }
    return ended(code, step);
}

int LmdbDatabase::adoptGrowth() {
    const std::lock_guard guard(map_);
    return remap(0);
}

int LmdbDatabase::growTo(std::size_t bytes) {
    if (bytes > kLargestMapBytes) {
        return MDB_MAP_FULL;
    }
    const std::lock_guard guard(map_);
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    MDB_envinfo info;
    mdb_env_info(environment_, &info);
    return info.me_mapsize >= bytes ? MDB_SUCCESS : remap(bytes);
}

/// Under `map_`, exclusive. Where the new map cannot be had, the old one is gone already.
int LmdbDatabase::remap(std::size_t bytes) {
    if (environment_ == nullptr) {
        return MDB_PANIC;
    }
    const int code = mdb_env_set_mapsize(environment_, bytes);
    if (code != MDB_SUCCESS) {
        closeEnvironment();
    }
    return code;
}

/// Grows the map ahead of a batch, so that a large one is not written several times over.
int LmdbDatabase::makeRoom(std::size_t bytes) {
    MDB_envinfo info;
    MDB_stat stat;
    {
        const std::shared_lock guard(map_);
        if (environment_ == nullptr) {
            return MDB_PANIC;
        }
        mdb_env_info(environment_, &info);
        mdb_env_stat(environment_, &stat);
    }
    const std::size_t needed = (info.me_last_pgno + 1) * stat.ms_psize + 2 * bytes;
    std::size_t size = info.me_mapsize;
    while (size < needed && size < kLargestMapBytes) {
        size *= 2;
    }
    return size == info.me_mapsize ? MDB_SUCCESS : growTo(size);
}

int LmdbDatabase::erase(MDB_txn* transaction, const std::string& name) {
    const std::string prefix = name + kFieldSeparator;
    std::vector<std::string> keys{name};
    int code = MDB_SUCCESS;
    {
        Cursor cursor(transaction, tree_);
        code = cursor.seek(prefix);
        for (; code == MDB_SUCCESS && startsWith(cursor.key(), prefix); code = cursor.next()) {
            keys.emplace_back(cursor.key());
        }
    }
    code = code == MDB_NOTFOUND ? MDB_SUCCESS : code;
    for (std::size_t i = 0; code == MDB_SUCCESS && i < keys.size(); ++i) {
        MDB_val doomed = valueOf(keys[i]);
        code = mdb_del(transaction, tree_, &doomed, nullptr);
        code = code == MDB_NOTFOUND ? MDB_SUCCESS : code;
    }
    return code;
}

namespace {

/// The entries of a batch in the order of their keys; of several with one key only the last.
std::vector<std::size_t> inKeyOrder(const StoreBatch& batch) {
    // Keys lie anywhere in memory. Most comparisons are decided by their first bytes, which lie side by side here.
    struct Place {
        std::uint64_t begin;
        std::size_t entry;
    };
    std::vector<Place> places(batch.size());
    for (std::size_t i = 0; i < places.size(); ++i) {
        std::array<unsigned char, sizeof places[i].begin> bytes{};
        const std::string_view key = batch.key(i);
        std::copy_n(key.begin(), std::min(key.size(), bytes.size()), bytes.begin());
        places[i] = {std::accumulate(bytes.begin(), bytes.end(), std::uint64_t{0},
                                     [](std::uint64_t sum, unsigned char byte) { return sum << 8U | byte; }),
                     i};
    }
    std::sort(places.begin(), places.end(), [&](const Place& a, const Place& b) {
        if (a.begin != b.begin) {
            return a.begin < b.begin;
        }
        const int order = batch.key(a.entry).compare(batch.key(b.entry));
        return order != 0 ? order < 0 : a.entry < b.entry;
    });
    std::vector<std::size_t> order;
    order.reserve(places.size());
    for (const Place& place : places) {
        if (!order.empty() && batch.key(order.back()) == batch.key(place.entry)) {
            order.back() = place.entry;
        } else {
            order.push_back(place.entry);
        }
    }
    return order;
}

/// About how many bytes the batch has, told from its keys and some of its values.
std::size_t roughSize(const StoreBatch& batch) {
    constexpr std::size_t kSamples = 16;
    std::size_t keys = 0;
    for (std::size_t i = 0; i < batch.size(); ++i) {
        keys += batch.key(i).size();
    }
    const std::size_t samples = std::min(kSamples, batch.size());
    std::size_t values = 0;
    for (std::size_t i = 0; i < samples; ++i) {
        values += batch.value(i * batch.size() / samples).size();
    }
    return samples == 0 ? 0 : keys + values * (batch.size() / samples + 1);
}

}  // namespace

/// One transaction: `prepare`, which is given the transaction, then the entries.
template <class Prepare>
StoreStatus LmdbDatabase::write(const StoreBatch& batch, bool onlyNew, Prepare prepare) {
    // In key order each page is visited once; into an empty tree, pages are filled to the brim without a search.
    const std::vector<std::size_t> order = inKeyOrder(batch);
    std::size_t refused = batch.size();
    StoreStatus status = writing("write", roughSize(batch), [&](MDB_txn* transaction) {
        int code = prepare(transaction);
        MDB_stat stat{};
        code = code == MDB_SUCCESS ? mdb_stat(transaction, tree_, &stat) : code;
        const unsigned flags = (onlyNew ? static_cast<unsigned>(MDB_NOOVERWRITE) : 0U) |
                               (stat.ms_entries == 0 ? static_cast<unsigned>(MDB_APPEND) : 0U);
        for (auto entry = order.begin(); code == MDB_SUCCESS && entry != order.end(); ++entry) {
            MDB_val key = valueOf(batch.key(*entry));
            MDB_val value = valueOf(batch.value(*entry));
            if (value.mv_size == 0) {
                refused = *entry;
                return EINVAL;
            }
            code = mdb_put(transaction, tree_, &key, &value, flags);
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
        return {};
    }
    return write(batch, onlyNew, [&](MDB_txn* transaction) {
        int code = MDB_SUCCESS;
        for (std::size_t i = 0; code == MDB_SUCCESS && i < erased.size(); ++i) {
            code = erase(transaction, erased[i]);
        }
        return code;
    });
}

StoreStatus LmdbDatabase::get(std::string_view key, const Visitor& visit) {
    return reading("read", [&](MDB_txn* transaction) {
        MDB_val wanted = valueOf(key);
        MDB_val value{};
        const int code = mdb_get(transaction, tree_, &wanted, &value);
        if (code == MDB_SUCCESS) {
            visit(key, viewOf(value));
        }
        return code;
    });
}

StoreStatus LmdbDatabase::scan(std::string_view prefix, const Visitor& visit) {
    return reading("read", [&](MDB_txn* transaction) {
        Cursor cursor(transaction, tree_);
        int code = cursor.seek(prefix);
        while (code == MDB_SUCCESS && startsWith(cursor.key(), prefix) && visit(cursor.key(), cursor.value())) {
            code = cursor.next();
        }
        return code == MDB_NOTFOUND ? MDB_SUCCESS : code;
    });
}

StoreStatus LmdbDatabase::replace(const StoreBatch& batch) {
    return write(batch, false, [&](MDB_txn* transaction) { return mdb_drop(transaction, tree_, 0); });
}

/// Every environment that this process has open, whichever engine opened it: the library allows one per directory, and
/// closing one while another is being opened would take the other's locks away.
struct Registry {
    std::recursive_mutex lock;
    std::condition_variable_any closed;
    struct Entry {
        LmdbDatabase* database;  // until it is closed
        std::weak_ptr<LmdbDatabase> alive;
    };
    std::map<FileId, Entry> entries;

    static Registry& instance() {
        static Registry* const registry = new Registry;
        return *registry;
    }

    /// The deleter of the shared pointers.
    static void close(LmdbDatabase* database) {
        Registry& registry = instance();
        const std::lock_guard guard(registry.lock);
        std::erase_if(registry.entries, [database](const auto& entry) { return entry.second.database == database; });
        delete database;
        registry.closed.notify_all();
    }

    /// The usable environment of a directory, if there is one; one that is not is retired first. Under `lock`.
    std::shared_ptr<LmdbDatabase> find(FileId directory, bool forWriting) {
        for (;;) {
            const auto entry = entries.find(directory);
            if (entry == entries.end() || entry->second.database->inherited()) {
                return nullptr;
            }
            if (std::shared_ptr<LmdbDatabase> open = entry->second.alive.lock()) {
                if (open->isCurrent() && !(forWriting && open->readOnly())) {
                    return open;
                }
                open->retire();
                entries.erase(directory);
                return nullptr;
            }
            closed.wait(lock);  // its last user has just let go of it
        }
    }
};

/// Keeps other processes from creating, checking or moving aside databases of the same root meanwhile.
class RootLock {
public:
    RootLock(const std::string& root, bool exclusive)
        : root_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
        while (root_.valid() && ::flock(root_.get(), exclusive ? LOCK_EX : LOCK_SH) != 0 && errno == EINTR) {
        }
    }

private:
    const Descriptor root_;
};

/// Whether the directory bears this very name. Where a file system ignores case, or blanks and dots at a name's end,
/// the path of one market's database leads to another's.
bool hasExactName(const std::filesystem::path& directory) {
    const std::string root = directory.parent_path();
    const std::string name = directory.filename();
    // Not the standard library's iterator: it ends the process when there is no memory for it.
    const std::unique_ptr<DIR, int (*)(DIR*)> listed(::opendir(root.c_str()), ::closedir);
    bool found = !listed;  // what cannot be listed is taken on trust
    for (const dirent* entry = nullptr; !found && (entry = ::readdir(listed.get())) != nullptr;) {
        found = name == entry->d_name;
    }
    return found;
}

class LmdbEngine final : public StoreEngine {
public:
    std::shared_ptr<StoreDatabase> open(const std::string& directory, Mode mode, StoreStatus& status) override {
        const std::lock_guard guard(registry_.lock);
        status = {};
        if (mode == Mode::Create) {
            status = makeDirectories(directory);
            if (!status.ok()) {
                return nullptr;
            }
        } else if (::access((directory + "/" + kDataFile).c_str(), F_OK) != 0) {
            status = StoreStatus::notFound();
            return nullptr;
        }
        const RootLock rootLock(std::filesystem::path(directory).parent_path(), mode == Mode::Create);
        if (!hasExactName(directory)) {
            status = mode == Mode::Create
                         ? StoreStatus::failure("another database has a name that is taken for this one")
                         : StoreStatus::notFound();
            return nullptr;
        }
        std::shared_ptr<LmdbDatabase> database = openDirectory(directory, mode, status);
        if (status.kind == StoreStatus::Kind::Damaged && mode == Mode::Create) {
            database = replaceDamaged(directory, status);
        }
        return database;
    }

private:
    std::shared_ptr<LmdbDatabase> replaceDamaged(const std::string& directory, StoreStatus& status) {
        const std::string problem = status.reason;
        std::string moved;
        status = moveAside(directory, moved);
        if (!status.ok()) {
            return nullptr;
        }
        std::shared_ptr<LmdbDatabase> database = openDirectory(directory, Mode::Create, status);
        status.reason = fmt::format("was damaged ({}) and is now {}{}{}", problem, moved,
                                    status.ok() ? "" : "; the fresh one failed: ", status.reason);
        return database;
    }

    std::shared_ptr<LmdbDatabase> openDirectory(const std::string& directory, Mode mode, StoreStatus& status) {
        if (mode == Mode::Create) {
            std::error_code error;
            std::filesystem::create_directory(directory, error);  // gone after it was moved aside
        }
        struct stat file {};
        if (::stat(directory.c_str(), &file) != 0) {
            status = lastError("stat");
            return nullptr;
        }
        if (std::shared_ptr<LmdbDatabase> open = registry_.find(idOf(file), mode == Mode::Create)) {
            return open;
        }
        std::shared_ptr<LmdbDatabase> database = openFresh(directory, mode, status);
        if (!database && mode == Mode::WriteExisting && status.failed() && ::access(directory.c_str(), W_OK) != 0) {
            database = openFresh(directory, Mode::ReadExisting, status);
        }
        struct stat after {};
        if (database && (::stat(directory.c_str(), &after) != 0 || !(idOf(after) == idOf(file)))) {
            database->retire();  // its two files may come from two directories
            database = nullptr;
            status = StoreStatus::failure("removed or replaced while it was opened");
        }
        if (database) {
            registry_.entries.insert_or_assign(idOf(file), Registry::Entry{database.get(), database});
        }
        return database;
    }

    static std::shared_ptr<LmdbDatabase> openFresh(const std::string& directory, Mode mode, StoreStatus& status) {
        std::shared_ptr<LmdbDatabase> database(new LmdbDatabase(directory, mode == Mode::ReadExisting),
                                               Registry::close);
        status = database->open(mode == Mode::Create);
        return status.ok() ? database : nullptr;
    }

    static StoreStatus moveAside(const std::string& directory, std::string& moved) {
        for (int i = 1; i < kMaxAttempts; ++i) {
            const std::string target = fmt::format("{}.damaged-{}", directory, i);
            if (::access(target.c_str(), F_OK) == 0) {
                continue;
            }
            if (::rename(directory.c_str(), target.c_str()) != 0) {
                return lastError("move aside");
            }
            moved = std::filesystem::path(target).filename().string();
            return {};
        }
        return StoreStatus::failure("move aside: too many damaged databases are kept");
    }

    Registry& registry_ = Registry::instance();  // one opening at a time, so that no directory is opened twice
};

}  // namespace

StoreBatch::~StoreBatch() = default;

StoreDatabase::~StoreDatabase() = default;

StoreEngine::~StoreEngine() = default;

std::shared_ptr<StoreEngine> makeLmdbEngine() {
    watchForks();
    return std::make_shared<LmdbEngine>();
}

}  // namespace persist
