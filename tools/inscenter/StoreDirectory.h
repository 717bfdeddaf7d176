#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace inscenter {

/// What a directory beneath a store's root is, by its name.
enum class DirectoryKind : std::uint8_t {
    Catalogue,  ///< "OvIns_" and a market or pseudo-market
    Raw,        ///< "OvRaw" and a sub-market
    SetAside,   ///< a damaged database under the name that the store gave it
    Unknown
};

const char* kindName(DirectoryKind kind);

struct DatabaseDirectory {
    std::string name;
    std::filesystem::path path;
    DirectoryKind kind = DirectoryKind::Unknown;
    std::string market;                      ///< what stands behind "OvIns_" or "OvRaw"; of other kinds empty
    std::optional<std::uint64_t> fileBytes;  ///< of the data file; nothing where there is none
};

/// The directories beneath a store's root in the order of their names, without hidden ones; empty for an empty root.
/// Opens no file. Throws UnreadableInput when `root` cannot be read, or holds something but no database.
std::vector<DatabaseDirectory> directoriesOf(const std::string& root);

/// The one of that name. Throws UnreadableInput when there is none.
DatabaseDirectory directoryOf(const std::string& root, const std::string& name);

/// Whether a directory beneath `root` has the name of a store's database.
bool looksLikeStore(const std::string& root);

}  // namespace inscenter
