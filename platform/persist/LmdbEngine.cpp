#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

#include "platform/persist/DataFile.h"
#include "platform/persist/ForkCount.h"
#include "platform/persist/LmdbRegistry.h"
#include "platform/persist/PosixFiles.h"
#include "platform/persist/StoreEngine.h"

namespace persist {
namespace {

/// Moves the directory of a damaged database aside, for whoever wants to know what happened. In one step: a process
/// that is killed here leaves the damaged database or none, and the next load goes on from either.
StoreStatus moveAside(const std::string& directory, std::string& moved) {
    constexpr int kMaxKept = 999;
    for (int i = 1; i <= kMaxKept; ++i) {
        const std::string target = fmt::format("{}.damaged-{}", directory, i);
        // Looked for before, because renaming would take the place of an empty directory. The lock on the root keeps
        // other processes from taking the name in between.
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
        } else if (::access((directory + "/" + DataFile::kName).c_str(), F_OK) != 0) {
            status = StoreStatus::notFound();
            return nullptr;
        }
        // Shared where nothing is created: processes may check files at once, but not one that another has half made.
        const RootLock rootLock(std::filesystem::path(directory).parent_path(), mode == Mode::Create);
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
            std::filesystem::create_directory(directory, error);  // gone after it was moved aside
        }
        struct stat file {};
        if (::stat(directory.c_str(), &file) != 0) {
            status = lastError("stat");
            return nullptr;
        }
        // By identity: whatever path leads there, through links or other spellings, a second environment would be one
        // too many.
        if (std::shared_ptr<LmdbDatabase> open = registry_.find(idOf(file), mode == Mode::Create)) {
            return open;
        }
        std::shared_ptr<LmdbDatabase> database = openFresh(directory, mode, status);
        struct stat after {};
        if (database && (::stat(directory.c_str(), &after) != 0 || !(idOf(after) == idOf(file)))) {
            database->retire();  // its two files may come from two directories
            database = nullptr;
            status = StoreStatus::failure("removed or replaced while it was opened");
        }
        if (database) {
            registry_.enter(idOf(file), database);
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
