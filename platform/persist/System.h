#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "platform/persist/StoreEngine.h"
#include "system/Path.h"

// All that the store asks of the operating system. Each system has one unit that answers, System*.cpp; nothing else in
// this directory knows which system it is. Paths are UTF-8. What fails says why in `errno`, by POSIX's numbers.

namespace persist {

/// The rights of the files that the engine makes, where files have such.
constexpr int kFileMode = 0644;

using sys::isPath;
using sys::pathOf;
using sys::textOf;

/// Which file or directory a path leads to.
struct FileId {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    friend bool operator<(const FileId& a, const FileId& b) {
        return a.device != b.device ? a.device < b.device : a.number < b.number;
    }
    friend bool operator==(const FileId& a, const FileId& b) { return a.device == b.device && a.number == b.number; }
};

/// What a path leads to.
struct FileAt {
    FileId id;
    std::uint64_t bytes = 0;
    bool isDirectory = false;
};

/// What the path leads to, through links; nothing when it leads nowhere.
std::optional<FileAt> fileAt(const std::string& path);
/// Whether the path leads to anything.
bool exists(const std::string& path);
/// Whether something bears the name, be it a link that leads nowhere.
bool isTaken(const std::string& path);
/// 0, or why the process may not open what is in a directory, or with `forMaking` make something there. By the rights
/// that it acts with: those it was started with open no file.
int barrierTo(const std::string& directory, bool forMaking);

/// An open file, closed with the object.
class OpenFile {
public:
    /// Opens it for reading.
    explicit OpenFile(const std::string& path);
    ~OpenFile();
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    /// Whether it could be opened.
    bool valid() const;
    std::optional<std::uint64_t> size() const;
    /// Not through a map: of a file that somebody cuts short meanwhile this reads too little, where a map would end the
    /// process. False when it has fewer bytes there.
    bool readAt(void* into, std::size_t size, std::uint64_t offset) const;

private:
    const std::intptr_t file_;
};

/// Makes an empty file, unless there is a file already, which is left as it is.
bool makeFile(const std::string& path);
/// Cuts a file down to nothing.
void emptyFile(const std::string& path);
/// Sees to it that the first bytes of a file, which is made where it is missing, have their room on the disk; its size
/// stays. False when there is none; true also where that cannot be had or told.
bool reserveRoom(const std::string& path, std::uint64_t bytes);
/// Has a file that LMDB opened, given by the system's handle, not passed on to the programs that this process executes.
void keepFromChildren(int file);
void keepFromChildren(void* file);

/// Gives a directory another name in one step. No file beneath it may be open in this process: there are systems that
/// refuse then.
bool renameDirectory(const std::string& from, const std::string& to);

/// Keeps other processes from creating, checking or moving aside databases of the same root meanwhile, where either
/// lock is exclusive. A root that cannot be opened is not locked.
class RootLock {
public:
    RootLock(const std::string& root, bool exclusive);
    ~RootLock();
    RootLock(const RootLock&) = delete;
    RootLock& operator=(const RootLock&) = delete;

private:
    const std::intptr_t file_;
};

/// Has the names in a directory on disk: without, a power cut could take a fresh file away, however well its bytes were
/// flushed. One that may not be listed, and a file system that has no such flush, are left at that.
bool syncDirectory(const std::filesystem::path& directory);

/// Whether the directory bears this very name. Where a file system ignores case, or blanks and dots at a name's end,
/// the path of one market's database leads to another's.
bool hasExactName(const std::string& directory);

/// A clock that never goes backwards and takes little longer to read than a few additions, for each read asks. It may
/// go in steps of up to 10 ms.
std::int64_t coarseNanoseconds();

/// The size of the pages by which the system maps files.
std::size_t systemPageBytes();

/// The least that a file of that size is to be mapped with for writing. Where files get the size of their map, one that
/// another process has mapped cannot be given less.
std::uint64_t leastMapBytes(std::uint64_t fileBytes);

/// Counts this process's forks from now on; may be called more than once.
void watchForks();
/// How many forks led to this process, as far back as the library was loaded. What was made under a lower number is
/// inherited: it belongs to the parent, too.
unsigned forkCount();

/// `errno` as the failure of a step.
StoreStatus lastError(const char* step);

}  // namespace persist
