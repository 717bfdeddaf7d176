#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// A store that documents could live in instead: whichever of SQLite, RocksDB, LevelDB and Redis were there when this
/// was built. For one thread. A call that fails ends the program.
class RivalStore {
public:
    virtual ~RivalStore() = default;

    /// Adds a document; all of them come before finish(), and every read after it.
    virtual void put(const std::string& key, std::string_view bytes) = 0;
    virtual void finish() = 0;

    /// Calls `use` with the bytes of a document that is there.
    using Use = std::function<void(std::string_view bytes)>;
    virtual void read(const std::string& key, const Use& use) = 0;
};

struct RivalKind {
    const char* name;
    /// An empty store in a directory that is there.
    std::unique_ptr<RivalStore> (*open)(const std::filesystem::path& directory);
};

const std::vector<RivalKind>& rivalStores();

}  // namespace bench
