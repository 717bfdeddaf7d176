#include "platform/persist/LmdbRegistry.h"

namespace persist {

LmdbRegistry& LmdbRegistry::instance() {
    // Never destroyed: threads that outlive main() may still read, and static objects let go of databases after it.
    static LmdbRegistry* const registry = new LmdbRegistry;
    return *registry;
}

std::shared_ptr<LmdbDatabase> LmdbRegistry::make(const std::string& directory, bool readOnly) {
    return {new LmdbDatabase(directory, readOnly), close};
}

/// The deleter of the shared pointers. The lock is recursive for its sake: an opening that fails lets go of a database
/// while it holds it.
void LmdbRegistry::close(LmdbDatabase* database) {
    LmdbRegistry& registry = instance();
    const std::lock_guard guard(registry.lock);
    // By the pointer and not by the directory, under which another may be filed by now.
    std::erase_if(registry.entryByDirectory_,
                  [database](const auto& entry) { return entry.second.database == database; });
    delete database;
    registry.closed_.notify_all();
}

std::shared_ptr<LmdbDatabase> LmdbRegistry::find(FileId directory, bool forWriting) {
    for (;;) {
        const auto entry = entryByDirectory_.find(directory);
        // What a forked child inherited stays the parent's; the child opens one of its own, which takes this place.
        if (entry == entryByDirectory_.end() || entry->second.database->inherited()) {
            return nullptr;
        }
        if (std::shared_ptr<LmdbDatabase> open = entry->second.alive.lock()) {
            if (open->isCurrent(StoreDatabase::Look::Now) && !(forWriting && open->readOnly())) {
                return open;
            }
            // Closed here and not left to its users, who may keep it as long as they like: the directory may be opened
            // again only after. Their calls fail from now on.
            open->retire();
            entryByDirectory_.erase(directory);
            return nullptr;
        }
        closed_.wait(lock);  // its last user has just let go of it
    }
}

void LmdbRegistry::enter(FileId directory, const std::shared_ptr<LmdbDatabase>& database) {
    entryByDirectory_.insert_or_assign(directory, Entry{database.get(), database});
}

}  // namespace persist
