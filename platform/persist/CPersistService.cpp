#include "platform/persist/CPersistService.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <mutex>
#include <regex>
#include <shared_mutex>
#include <utility>

#include "platform/persist/ServiceBatches.h"
#include "platform/persist/StoreEngine.h"
#include "platform/persist/StoreNames.h"
#include "platform/persist/System.h"
#include "platform/utils/LogLine.h"
#include "system/SharedMutex.h"
#include "system/ThreadObject.h"

namespace persist {
namespace {

constexpr const char* kSource = "platform/persist/CPersistService";
constexpr const char* kEveryKey = ".*";
constexpr const char* kBadKey = "a field or key is empty, too long or holds a NUL";

const EmptyBatch kNothing;

std::string prefixOf(const std::string& field) {
    return field + kFieldSeparator;
}

}  // namespace

/// Root, engine and open databases stand under one lock, which is never held while the engine works.
struct CPersistService::State {
    using Handle = std::shared_ptr<StoreDatabase>;

    /// What an operation is about to do to its database.
    enum class Access { Read, Write, Create };

    mutable sys::SharedMutex lock;
    std::string root;
    std::shared_ptr<StoreEngine> engine = makeLmdbEngine();
    std::map<std::string, Handle> openByName;
    unsigned generation = 0;  // counts changes of root and engine

    /// Closes what is open and lets `change` replace the root or the engine. Closing takes its time and the lock of all
    /// opening and closing, so it comes after this one.
    template <class Change>
    void restart(Change change) {
        std::map<std::string, Handle> closed;
        const std::lock_guard guard(lock);
        closed.swap(openByName);
        ++generation;
        change();
    }

    Handle known(const std::string& name) const {
        const std::shared_lock guard(lock);
        const auto found = openByName.find(name);
        return found == openByName.end() ? nullptr : found->second;
    }

    void forget(const std::string& name, const Handle& handle) {
        const std::lock_guard guard(lock);
        // Unless another thread has come first and filed what is there now.
        const auto found = openByName.find(name);
        if (found != openByName.end() && found->second == handle) {
            openByName.erase(found);
        }
    }

    Handle open(const std::string& name, Access access, StoreStatus& status);
    Handle handle(const std::string& name, Access access, StoreStatus& status);

    template <class Use>
    bool run(const char* what, const std::string& name, Access access, Use use);
    bool writeFields(const std::string& db, const std::vector<Field>& fields, bool onlyNew, bool replace);
};

CPersistService::State::Handle CPersistService::State::open(const std::string& name, Access access,
                                                            StoreStatus& status) {
    std::string directory;
    std::shared_ptr<StoreEngine> opener;
    unsigned opened = 0;
    {
        const std::shared_lock guard(lock);
        directory = root;
        opener = engine;
        opened = generation;
    }
    if (directory.empty()) {
        status = StoreStatus::failure("no root path is set, call setRootPath before the first load");
        return nullptr;
    }
    if (!isPath(directory)) {
        status = StoreStatus::failure("the root path: " + RootStatus::of(directory).reason());
        return nullptr;
    }
    // For writing also where only a read asks: the handle is kept for whatever comes next.
    const auto mode = access == Access::Create ? StoreEngine::Mode::Create : StoreEngine::Mode::WriteExisting;
    Handle database = opener->open(directory + "/" + name, mode, status);
    if (database) {
        // The root may have been changed while this opened beneath the former one: this call still goes there, and no
        // later one does.
        const std::lock_guard guard(lock);
        if (opened == generation) {
            openByName[name] = database;
        }
    }
    return database;
}

CPersistService::State::Handle CPersistService::State::handle(const std::string& name, Access access,
                                                              StoreStatus& status) {
    // A write into a file that nobody will find again is lost; a read of it is at worst what was true a moment ago.
    const auto look = access == Access::Read ? StoreDatabase::Look::Lately : StoreDatabase::Look::Now;
    Handle database = known(name);
    if (database && !database->isCurrent(look)) {
        forget(name, database);
        database = nullptr;
    }
    // Without the lock: threads that come here at once are given the same database by the engine.
    return database ? database : open(name, access, status);
}

namespace {

struct Reason {
    std::string text;
};

/// Set last in every call, so that what an appender asks the store from within its line does not overwrite it.
std::string& lastReason() {
    return sys::ofThread<Reason>().text;
}

/// Whether the call is a success; an exception, with memory short it may even be that of naming the failure, is none.
template <class Call>
bool absorbing(Call call) noexcept {
    try {
        return call();
    } catch (...) {
        lastReason() = "out of memory";  // short enough to need none: else the call before would be blamed for this one
        return false;
    }
}

}  // namespace

/// Runs `use` on the database. A failure is logged once and absorbed; a database or key that is not there is neither
/// logged nor a success.
template <class Use>
bool CPersistService::State::run(const char* what, const std::string& name, Access access, Use use) {
    return absorbing([&] {
        StoreStatus status;
        try {
            if (!isSafeName(name)) {
                status = StoreStatus::failure("not a safe database name");
            } else if (const Handle database = handle(name, access, status)) {
                // A damaged database was set aside: the call goes on in a fresh one, but an operator has to know.
                if (!status.reason.empty()) {
                    PM_LOG(utils::kLogError, kSource,
                           fmt::format("[persist] database {} {}", shown(name), status.reason));
                }
                status = use(*database);
            }
        } catch (const std::exception& error) {
            status = StoreStatus::failure(error.what());
        }
        if (status.failed()) {
            PM_LOG(utils::kLogError, kSource,
                   fmt::format("[persist] {} failed, db = {}, reason = {}", what, shown(name), status.reason));
        }
        lastReason() = status.ok() ? std::string() : status.failed() ? status.reason : "nothing there";
        return status.ok();
    });
}

const std::string& CPersistService::lastFailure() {
    return lastReason();
}

CPersistService::CPersistService() : state_(std::make_unique<State>()) {}

CPersistService::~CPersistService() = default;

CPersistService* CPersistService::instance() {
    return utils::CSingletonT<CPersistService>::instance();
}

RootStatus CPersistService::setRootPath(const std::string& directory) {
    std::string root = directory;
    if (!directory.empty() && isPath(directory)) {
        std::error_code error;
        const std::filesystem::path absolute = std::filesystem::absolute(pathOf(directory), error);
        root = error ? directory : textOf(absolute);
    }
    state_->restart([&] { state_->root = root; });
    return RootStatus::of(root);
}

std::string CPersistService::rootPath() const {
    const std::shared_lock guard(state_->lock);
    return state_->root;
}

void CPersistService::setEngine(std::shared_ptr<StoreEngine> engine) {
    state_->restart([&] { state_->engine = engine ? std::move(engine) : makeLmdbEngine(); });
}

// Made first and emptied then: who dies in between leaves the former documents, and the load that follows replaces
// them.
bool CPersistService::initDb(const std::string& db, bool empty) {
    return state_->run("open", db, State::Access::Create,
                       [&](StoreDatabase& database) { return empty ? database.replace(kNothing) : StoreStatus(); });
}

bool CPersistService::writeData(const std::string& db, const std::string& key, const bson::BSONObj& value,
                                bool onlyNew) {
    return absorbing([&] { return writeDatas(db, {key}, {value}, onlyNew); });
}

namespace {

/// What a write ended with, unless its directory was removed meanwhile and has taken the documents with it.
StoreStatus stillThere(const StoreDatabase& database, const StoreStatus& status) {
    return status.ok() && !database.isCurrent(StoreDatabase::Look::Now)
               ? StoreStatus::failure("removed while it was written")
               : status;
}

/// Why no document can be written under the keys of a batch, if so.
StoreStatus checkKeys(const StoreBatch& batch) {
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (!isSafeKey(batch.key(i))) {
            return StoreStatus::failure(kBadKey);
        }
    }
    return {};
}

StoreStatus differingSizes(std::size_t keys, std::size_t values) {
    return StoreStatus::failure(fmt::format("{} keys for {} documents", keys, values));
}

}  // namespace

bool CPersistService::writeDatas(const std::string& db, const std::vector<std::string>& keys,
                                 const std::vector<bson::BSONObj>& values, bool onlyNew) {
    if (keys.size() != values.size()) {
        // Refused where other failures end, for their line in the log.
        return state_->run("write", db, State::Access::Write,
                           [&](StoreDatabase&) { return differingSizes(keys.size(), values.size()); });
    }
    return writeDocuments(db, ObjectBatch(keys, values), onlyNew);
}

bool CPersistService::writeDocuments(const std::string& db, const StoreBatch& documents, bool onlyNew) {
    return state_->run("write", db, State::Access::Write, [&](StoreDatabase& database) {
        const StoreStatus status = checkKeys(documents);
        return status.ok() ? stillThere(database, database.put(CheckedBatch(documents), onlyNew, {})) : status;
    });
}

bool CPersistService::replaceDocuments(const std::string& db, const StoreBatch& documents) {
    return state_->run("write", db, State::Access::Write, [&](StoreDatabase& database) {
        const StoreStatus status = checkKeys(documents);
        return status.ok() ? stillThere(database, database.replace(CheckedBatch(documents))) : status;
    });
}

bool CPersistService::changeDocuments(const std::string& db, const StoreBatch& documents,
                                      const std::vector<std::string>& removed) {
    return state_->run("write", db, State::Access::Write, [&](StoreDatabase& database) {
        StoreStatus status = checkKeys(documents);
        if (!std::all_of(removed.begin(), removed.end(), isSafeKey)) {
            status = StoreStatus::failure(kBadKey);
        }
        return status.ok() ? stillThere(database, database.put(CheckedBatch(documents), false, removed)) : status;
    });
}

// Reads ask for keys as they come. What cannot be a key has no document, which is nothing to log; the engine would call
// it a failure.
bool CPersistService::visitData(const std::string& db, const std::string& key, const Visitor& visit) {
    return isSafeKey(key) && state_->run("read", db, State::Access::Read,
                                         [&](StoreDatabase& database) { return database.get(key, visit); });
}

bool CPersistService::visitAllData(const std::string& db, const Visitor& visit) {
    return state_->run("read", db, State::Access::Read, [&](StoreDatabase& database) {
        return database.scan(
            {}, [&](std::string_view key, std::string_view bytes) { return !isSafeKey(key) || visit(key, bytes); });
    });
}

bson::BSONObj CPersistService::readData(const std::string& db, const std::string& key) {
    bson::BSONObj object;
    if (!isSafeKey(key)) {
        return object;
    }
    state_->run("read", db, State::Access::Read, [&](StoreDatabase& database) {
        // Checked as a whole, where a lookup of a record checks what it reads: here somebody else will read it.
        std::string error;
        const StoreStatus status = database.get(key, [&](std::string_view, std::string_view bytes) {
            object = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
            return false;
        });
        return error.empty() ? status : StoreStatus::damage(fmt::format("document {}: {}", shown(key), error));
    });
    return object;
}

namespace {

/// Reads the documents beneath `prefix` whose remaining key `wanted` accepts; what is no document is passed over and
/// named in the status. When reading fails half way, `out` is left as it was.
template <class Wanted>
StoreStatus readInto(StoreDatabase& database, const std::string& prefix, const Wanted& wanted,
                     std::map<std::string, bson::BSONObj>& out) {
    std::string problem;
    std::map<std::string, bson::BSONObj> found;
    const StoreStatus status = database.scan(prefix, [&](std::string_view key, std::string_view bytes) {
        key.remove_prefix(prefix.size());
        if (!wanted(key)) {
            return true;
        }
        std::string error;
        bson::BSONObj object = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
        if (error.empty()) {
            found.insert_or_assign(found.end(), std::string(key), std::move(object));
        } else if (problem.empty()) {  // the first for all: one line a call
            problem = fmt::format("document {}: {}", shown(std::string(key)), error);
        }
        return true;
    });
    if (status.ok()) {
        out.swap(found);
    }
    return problem.empty() ? status : StoreStatus::damage(problem);
}

}  // namespace

std::map<std::string, bson::BSONObj> CPersistService::readAllData(const std::string& db, const std::string& pattern) {
    std::map<std::string, bson::BSONObj> documents;
    state_->run("read", db, State::Access::Read, [&](StoreDatabase& database) -> StoreStatus {
        if (pattern == kEveryKey) {
            return readInto(database, {}, isSafeKey, documents);
        }
        // Compiled in here, so that a bad pattern is a failed read and logged as one.
        try {
            const std::regex expression(pattern);
            const auto matches = [&](std::string_view key) {
                return isSafeKey(key) && std::regex_match(key.begin(), key.end(), expression);
            };
            return readInto(database, {}, matches, documents);
        } catch (const std::regex_error& error) {
            return StoreStatus::failure(fmt::format("pattern \"{}\": {}", shown(pattern), error.what()));
        }
    });
    return documents;
}

namespace {

/// The sub-documents of several fields under their full keys.
class FieldBatch final : public StoreBatch {
public:
    /// Adds those of one more field; not when their keys, with the field's before them, cannot be written.
    StoreStatus add(const CPersistService::Field& field) {
        if (field.documents == nullptr) {
            return {};
        }
        StoreStatus status = checkKeys(*field.documents);
        for (std::size_t i = 0; status.ok() && i < field.documents->size(); ++i) {
            std::string key = prefixOf(field.name).append(field.documents->key(i));
            if (key.size() > kMaxKeyBytes) {
                return StoreStatus::failure(kBadKey);
            }
            entries_.push_back({std::move(key), field.documents, i});
        }
        return status;
    }

    std::size_t size() const override { return entries_.size(); }
    std::string_view key(std::size_t entry) const override { return entries_[entry].key; }
    std::string_view value(std::size_t entry) const override {
        return entries_[entry].documents->value(entries_[entry].place);
    }

private:
    struct Entry {
        std::string key;
        const StoreBatch* documents;
        std::size_t place;
    };
    std::vector<Entry> entries_;
};

}  // namespace

bool CPersistService::State::writeFields(const std::string& db, const std::vector<Field>& fields, bool onlyNew,
                                         bool replace) {
    return run("write", db, Access::Write, [&](StoreDatabase& database) {
        // All fields in one transaction: of a catalogue that is spread over several, readers see one load.
        FieldBatch batch;
        std::vector<std::string> erased;
        for (const Field& field : fields) {
            StoreStatus status = isSafeKey(field.name) ? batch.add(field) : StoreStatus::failure(kBadKey);
            if (!status.ok()) {
                return status;
            }
            if (replace) {
                erased.push_back(field.name);
            }
        }
        return stillThere(database, database.put(CheckedBatch(batch), onlyNew, erased));
    });
}

bool CPersistService::writeHashDatas(const std::string& db, const std::vector<std::string>& keys,
                                     const std::vector<bson::BSONObj>& values, bool onlyNew, const std::string& field,
                                     bool replace) {
    if (keys.size() != values.size()) {
        return state_->run("write", db, State::Access::Write,
                           [&](StoreDatabase&) { return differingSizes(keys.size(), values.size()); });
    }
    const ObjectBatch batch(keys, values);
    return absorbing([&] { return state_->writeFields(db, {{field, &batch}}, onlyNew, replace); });
}

bool CPersistService::replaceHashDatas(const std::string& db, const std::vector<Field>& fields) {
    return state_->writeFields(db, fields, false, true);
}

bool CPersistService::readHashDatas(const std::string& db, std::map<std::string, bson::BSONObj>& out,
                                    const std::string& field, bool replace) {
    if (replace) {
        out.clear();
    }
    std::map<std::string, bson::BSONObj> found;
    if (isSafeKey(field)) {
        state_->run("read", db, State::Access::Read,
                    [&](StoreDatabase& database) { return readInto(database, prefixOf(field), isSafeKey, found); });
    }
    const bool any = !found.empty();
    found.merge(out);  // of two documents with one key the one just read counts
    out.swap(found);
    return any;
}

// With the key's document goes the field of that name, which hosts empty so before they write it anew.
bool CPersistService::removeData(const std::string& db, const std::string& key) {
    return state_->run("remove", db, State::Access::Write, [&](StoreDatabase& database) {
        return isSafeKey(key) ? database.put(kNothing, false, {key}) : StoreStatus::failure(kBadKey);
    });
}

void CPersistService::dropAllData(const std::string& db) {
    // A market that was not loaded since the start has no database's name yet, and nothing of it is to be dropped.
    if (!db.empty()) {
        state_->run("drop", db, State::Access::Write,
                    [](StoreDatabase& database) { return database.replace(kNothing); });
    }
}

}  // namespace persist

namespace utils {
template class CSingletonT<persist::CPersistService>;
}
