#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <filesystem>
#include <string>

#include "platform/persist/StoreEngine.h"

namespace persist {

/// The rights of the files that the engine makes.
constexpr mode_t kFileMode = 0644;

/// Which file or directory a path leads to.
struct FileId {
    dev_t device = 0;
    ino_t inode = 0;
    friend bool operator<(const FileId& a, const FileId& b) {
        return a.device != b.device ? a.device < b.device : a.inode < b.inode;
    }
    friend bool operator==(const FileId& a, const FileId& b) { return a.device == b.device && a.inode == b.inode; }
};

inline FileId idOf(const struct stat& file) {
    return {file.st_dev, file.st_ino};
}

/// An open file, closed with the object; one that could not be opened is not valid.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor();
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

private:
    const int fd_;
};

/// Keeps other processes from creating, checking or moving aside databases of the same root meanwhile, where either
/// lock is exclusive. A root that cannot be opened is not locked.
class RootLock {
public:
    RootLock(const std::string& root, bool exclusive);

private:
    const Descriptor root_;
};

/// `errno` as the failure of a step.
StoreStatus lastError(const char* step);

/// Has the names in a directory on disk: without, a power cut could take a fresh file away, however well its bytes were
/// flushed. One that may not be listed, and a file system that has no such flush, are left at that.
bool syncDirectory(const std::filesystem::path& directory);

/// Makes the directory of a database and what is missing on the way to it. The names on the way are on disk then; the
/// directory's own is when the database is created.
StoreStatus makeDirectories(const std::filesystem::path& directory);

/// Whether the directory bears this very name. Where a file system ignores case, or blanks and dots at a name's end,
/// the path of one market's database leads to another's.
bool hasExactName(const std::filesystem::path& directory);

}  // namespace persist
