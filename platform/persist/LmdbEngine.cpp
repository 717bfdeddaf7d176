#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/persist/DataFile.h"
#include "platform/persist/LmdbRegistry.h"
#include "platform/persist/StoreEngine.h"
#include "platform/persist/System.h"

namespace persist {
namespace {

/// Makes the directory of a database and what is missing on the way to it. The names on the way are on disk then; the
/// directory's own is when the database is created.
StoreStatus makeDirectories(const std::filesystem::path& directory) {
    std::error_code error;
    // A name is on disk when the directory that holds it is flushed, so it is the parents of what is missing that
    // count. Noted before anything is made, while it still shows.
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

/// Moves the directory of a damaged database aside, for whoever wants to know what happened. In one step: a process
/// that is killed here leaves the damaged database or none, and the next load goes on from either.
StoreStatus moveAside(const std::string& directory, std::string& moved) {
    constexpr int kMaxKept = 999;
    for (int i = 1; i <= kMaxKept; ++i) {
        const std::string target = fmt::format("{}.damaged-{}", directory, i);
        // Looked for before, because renaming would take the place of an empty directory. The lock on the root keeps
        // other processes from taking the name in between.
        if (exists(target)) {
            continue;
        }
        if (!renameDirectory(directory, target)) {
            return lastError("move aside");
        }
        moved = textOf(pathOf(target).filename());
        return {};
    }
    return StoreStatus::failure("move aside: too many damaged databases are kept");
}

bool leadsTo(const std::string& directory, FileId id) {
    const std::optional<FileAt> found = fileAt(directory);
    return found && found->id == id;
}

class LmdbEngine final : public StoreEngine {
public:
    std::shared_ptr<StoreDatabase> open(const std::string& directory, Mode mode, StoreStatus& status) override {
        const std::lock_guard guard(registry_.lock);
        status = {};
        if (mode == Mode::Create) {
            status = makeDirectories(pathOf(directory));
            if (!status.ok()) {
                return nullptr;
            }
        } else if (!exists(directory + "/" + DataFile::kName)) {
            status = StoreStatus::notFound();
            return nullptr;
        }
        // Shared where nothing is created: processes may check files at once, but not one that another has half made.
        const RootLock rootLock(textOf(pathOf(directory).parent_path()), mode == Mode::Create);
        // After the directory was made, because only then does the file system tell whose name it has taken it for.
        if (!hasExactName(directory)) {
            status = mode == Mode::Create
                         ? StoreStatus::failure("another database has a name that is taken for this one")
                         : StoreStatus::notFound();
            return nullptr;
        }
        std::shared_ptr<LmdbDatabase> database = openDirectory(directory, mode, status);
        // Only for who is about to write all of it anew; readers leave the evidence where it is.
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
        // A reason beside success: the caller logs it, so that the operator learns where the old documents are.
        status.reason = fmt::format("was damaged ({}) and is now {}{}{}", problem, moved,
                                    status.ok() ? "" : "; the fresh one failed: ", status.reason);
        return database;
    }

    std::shared_ptr<LmdbDatabase> openDirectory(const std::string& directory, Mode mode, StoreStatus& status) {
        if (mode == Mode::Create) {
            std::error_code error;
            std::filesystem::create_directory(pathOf(directory), error);  // gone after it was moved aside
        }
        const std::optional<FileAt> found = fileAt(directory);
        if (!found) {
            status = lastError("stat");
            return nullptr;
        }
        // By identity: whatever path leads there, through links or other spellings, a second environment would be one
        // too many.
        if (std::shared_ptr<LmdbDatabase> open = registry_.find(found->id, mode == Mode::Create)) {
            return open;
        }
        std::shared_ptr<LmdbDatabase> database = openFresh(directory, mode, status);
        if (database && !leadsTo(directory, found->id)) {
            database->retire();  // its two files may come from two directories
            database = nullptr;
            status = StoreStatus::failure("removed or replaced while it was opened");
        }
        if (database) {
            registry_.enter(found->id, database);
        }
        return database;
    }

    std::shared_ptr<LmdbDatabase> openFresh(const std::string& directory, Mode mode, StoreStatus& status) {
        std::shared_ptr<LmdbDatabase> database = registry_.make(directory, mode == Mode::ReadExisting);
        status = database->open(mode == Mode::Create);
        return status.ok() ? database : nullptr;
    }

    LmdbRegistry& registry_ = LmdbRegistry::instance();  // one opening at a time, so that no directory is opened twice
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
