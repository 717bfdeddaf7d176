#include "platform/persist/RootStatus.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>

#include "platform/persist/System.h"

// What the engine will find beneath a root, told without it: asking must not make the directories that only a load is
// to make.

namespace persist {

RootStatus RootStatus::ofExisting(const std::string& directory) {
    const std::optional<FileAt> found = fileAt(directory);
    if (!found) {
        return {Kind::Unusable, errno};
    }
    if (!found->isDirectory) {
        return {Kind::Unusable, ENOTDIR};
    }
    // Names may be hidden from us: databases are opened by theirs.
    if (const int error = barrierTo(directory, false)) {
        return {Kind::Unusable, error};
    }
    const int error = barrierTo(directory, true);
    return {error == 0 ? Kind::Writable : Kind::ReadOnly, error};
}

RootStatus RootStatus::of(const std::string& directory) {
    if (directory.empty()) {
        return {Kind::Unusable, 0};
    }
    if (!isPath(directory)) {
        return {Kind::Unusable, EILSEQ};
    }
    std::string way = directory;
    RootStatus status = ofExisting(way);
    // A link that leads nowhere ends the way as well: no directory can be made under its name.
    while (status.error_ == ENOENT && !isTaken(way)) {
        const std::filesystem::path above = pathOf(way).parent_path();
        const std::string parent = above.empty() ? "." : textOf(above);
        if (parent == way) {
            break;
        }
        way = parent;
        status = ofExisting(way);
    }
    // Where the directory is still to be made, all that counts is what may be made above it.
    return way == directory || status.writable() ? status : RootStatus(Kind::Unmakable, status.error_);
}

std::string RootStatus::reason() const {
    const auto why = [this] {
        return error_ == EILSEQ ? "malformed UTF-8, or a NUL in it" : std::generic_category().message(error_);
    };
    switch (kind_) {
        case Kind::ReadOnly:
            return fmt::format("no database can be made in it: {}", why());
        case Kind::Unusable:
            return error_ == 0 ? "no root is named" : fmt::format("it cannot be used: {}", why());
        case Kind::Unmakable:
            return fmt::format("it is not there and cannot be made: {}", why());
        case Kind::Writable:
            break;
    }
    return {};
}

}  // namespace persist
