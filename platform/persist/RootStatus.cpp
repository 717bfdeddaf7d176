#include "platform/persist/RootStatus.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

// What the engine will find beneath a root, told without it: asking must not make the directories that only a load is
// to make.

namespace persist {
namespace {

/// 0, or why not. By the rights that the process acts with: those it was started with open no file.
int cannot(const std::string& path, int access) {
    return ::faccessat(AT_FDCWD, path.c_str(), access, AT_EACCESS) == 0 ? 0 : errno;
}

/// Whether something bears the name, be it a link that leads nowhere.
bool isTaken(const std::string& path) {
    struct stat entry {};
    return ::lstat(path.c_str(), &entry) == 0;
}

}  // namespace

RootStatus RootStatus::ofExisting(const std::string& directory) {
    struct stat entry {};
    if (::stat(directory.c_str(), &entry) != 0) {
        return {Kind::Unusable, errno};
    }
    if (!S_ISDIR(entry.st_mode)) {
        return {Kind::Unusable, ENOTDIR};
    }
    // Names may be hidden from us: databases are opened by theirs.
    if (const int error = cannot(directory, X_OK)) {
        return {Kind::Unusable, error};
    }
    const int error = cannot(directory, W_OK | X_OK);
    return {error == 0 ? Kind::Writable : Kind::ReadOnly, error};
}

RootStatus RootStatus::of(const std::string& directory) {
    if (directory.empty()) {
        return {Kind::Unusable, 0};
    }
    std::filesystem::path way = directory;
    RootStatus status = ofExisting(way);
    // A link that leads nowhere ends the way as well: no directory can be made under its name.
    while (status.error_ == ENOENT && !isTaken(way)) {
        const std::filesystem::path parent = way.has_parent_path() ? way.parent_path() : ".";
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
    const auto why = [this] { return std::generic_category().message(error_); };
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
