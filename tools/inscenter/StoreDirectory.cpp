#include "tools/inscenter/StoreDirectory.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <system_error>

#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

namespace fs = std::filesystem;

// As the persisted center and the store name what they make: stored, so they cannot drift apart.
constexpr std::string_view kCataloguePrefix = "OvIns_";
constexpr std::string_view kRawPrefix = "OvRaw";
constexpr std::string_view kSetAside = ".damaged-";  // and a number
constexpr const char* kDataFile = "data.mdb";

bool isSetAside(std::string_view name) {
    const std::size_t mark = name.rfind(kSetAside);
    return mark != std::string_view::npos && mark > 0 && name.size() > mark + kSetAside.size() &&
           name.find_first_not_of("0123456789", mark + kSetAside.size()) == std::string_view::npos;
}

void classify(DatabaseDirectory& directory) {
    const std::string_view name = directory.name;
    // Asked first: what was set aside keeps its former name in front of the ending.
    if (isSetAside(name)) {
        directory.kind = DirectoryKind::SetAside;
    } else if (name.starts_with(kCataloguePrefix)) {
        directory.kind = DirectoryKind::Catalogue;
        directory.market = name.substr(kCataloguePrefix.size());
    } else if (name.starts_with(kRawPrefix)) {
        directory.kind = DirectoryKind::Raw;
        directory.market = name.substr(kRawPrefix.size());
    }
}

std::optional<std::uint64_t> sizeOfData(const fs::path& directory) {
    std::error_code error;
    const std::uintmax_t size = fs::file_size(directory / kDataFile, error);
    return error ? std::nullopt : std::optional<std::uint64_t>(size);
}

[[noreturn]] void refuse(const std::string& path, std::string_view reason) {
    throw UnreadableInput(fmt::format("{}: {}", path, reason));
}

}  // namespace

const char* kindName(DirectoryKind kind) {
    switch (kind) {
        case DirectoryKind::Catalogue:
            return "catalogue";
        case DirectoryKind::Raw:
            return "raw";
        case DirectoryKind::SetAside:
            return "damaged, set aside";
        case DirectoryKind::Unknown:
            break;
    }
    return "unknown";
}

std::vector<DatabaseDirectory> directoriesOf(const std::string& root) {
    std::error_code error;
    fs::directory_iterator entries(pathOf(root), error);
    if (error) {
        refuse(root, "cannot be read: " + error.message());
    }
    std::vector<DatabaseDirectory> directories;
    bool empty = true;
    for (; entries != fs::directory_iterator(); entries.increment(error)) {
        const fs::path path = entries->path();
        empty = false;
        if (path.filename() == kDataFile) {
            refuse(root, "is a single database; name the directory above it");
        }
        std::error_code ignored;
        // A hidden one is no database any more: clearing hides what it is about to remove.
        if (fs::is_directory(path, ignored) && textOf(path.filename()).front() != '.') {
            DatabaseDirectory& found = directories.emplace_back();
            found.name = textOf(path.filename());
            found.path = path;
            found.fileBytes = sizeOfData(path);
            classify(found);
        }
    }
    if (error) {
        refuse(root, "cannot be read: " + error.message());
    }
    // A data file will do: hosts may keep databases of their own names in the same store.
    const auto isDatabase = [](const DatabaseDirectory& directory) {
        return directory.kind != DirectoryKind::Unknown || directory.fileBytes;
    };
    // An empty root is a store that no load has reached yet, and no mistake.
    if (!empty && std::none_of(directories.begin(), directories.end(), isDatabase)) {
        refuse(root, "is no store: there is no database in it");
    }
    std::sort(directories.begin(), directories.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return directories;
}

bool looksLikeStore(const std::string& root) {
    std::error_code error;
    for (fs::directory_iterator entries(pathOf(root), error); !error && entries != fs::directory_iterator();
         entries.increment(error)) {
        DatabaseDirectory directory;
        directory.name = textOf(entries->path().filename());
        classify(directory);
        std::error_code ignored;
        if (directory.kind != DirectoryKind::Unknown && fs::is_directory(entries->path(), ignored)) {
            return true;
        }
    }
    return false;
}

DatabaseDirectory directoryOf(const std::string& root, const std::string& name) {
    // Looked up among what is there, so that no name leads out of the root.
    for (DatabaseDirectory& directory : directoriesOf(root)) {
        if (directory.name == name) {
            return std::move(directory);
        }
    }
    const bool path = name.empty() || name.front() == '.' || name.find('/') != std::string::npos;
    refuse(root, path ? fmt::format("\"{}\" is no database name but a path; \"store ls\" lists the names", name)
                      : fmt::format("there is no database {} in it", name));
}

}  // namespace inscenter
