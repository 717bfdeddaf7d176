#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/persist/System.h"

namespace persist {
namespace {

// Compared instead of process ids: each access asks, a process id costs a system call, and ids are given out again.
std::atomic<unsigned> forks{0};

int descriptorOf(std::intptr_t file) {
    return static_cast<int>(file);
}

// Each with O_CLOEXEC: a program that the host starts would keep a lock on the root with the descriptor.

int openForReading(const std::string& path, int more) {
    return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | more);
}

int openForWriting(const std::string& path) {
    return ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, static_cast<mode_t>(kFileMode));
}

void closeIfOpen(int fd) {
    if (fd >= 0) {
        ::close(fd);
    }
}

}  // namespace

std::optional<FileAt> fileAt(const std::string& path) {
    struct stat file {};
    if (::stat(path.c_str(), &file) != 0) {
        return std::nullopt;
    }
    return FileAt{{file.st_dev, file.st_ino}, static_cast<std::uint64_t>(file.st_size), S_ISDIR(file.st_mode)};
}

bool exists(const std::string& path) {
    return ::access(path.c_str(), F_OK) == 0;
}

bool isTaken(const std::string& path) {
    struct stat entry {};
    return ::lstat(path.c_str(), &entry) == 0;
}

// With the rights that count (AT_EACCESS), where access() asks for those of whoever started the process.
int barrierTo(const std::string& directory, bool forMaking) {
    return ::faccessat(AT_FDCWD, directory.c_str(), forMaking ? W_OK | X_OK : X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

OpenFile::OpenFile(const std::string& path) : file_(openForReading(path, 0)) {}

OpenFile::~OpenFile() {
    closeIfOpen(descriptorOf(file_));
}

bool OpenFile::valid() const {
    return file_ >= 0;
}

std::optional<std::uint64_t> OpenFile::size() const {
    struct stat file {};
    return ::fstat(descriptorOf(file_), &file) == 0 ? std::optional(static_cast<std::uint64_t>(file.st_size))
                                                    : std::nullopt;
}

bool OpenFile::readAt(void* into, std::size_t size, std::uint64_t offset) const {
    return ::pread(descriptorOf(file_), into, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

bool makeFile(const std::string& path) {
    const int fd = openForWriting(path);
    closeIfOpen(fd);
    return fd >= 0;
}

void emptyFile(const std::string& path) {
    static_cast<void>(::truncate(path.c_str(), 0));
}

bool reserveRoom(const std::string& path, std::uint64_t bytes) {
    const int fd = openForWriting(path);
    // Not every file system can reserve room. Where one can, a full disk is found out here and not by a write through a
    // map, which would end the process.
    const bool full =
        fd >= 0 && ::fallocate(fd, FALLOC_FL_KEEP_SIZE, 0, static_cast<off_t>(bytes)) != 0 && errno == ENOSPC;
    closeIfOpen(fd);
    return !full;
}

void keepFromChildren(int file) {
    ::fcntl(file, F_SETFD, FD_CLOEXEC);
}

bool renameDirectory(const std::string& from, const std::string& to) {
    return ::rename(from.c_str(), to.c_str()) == 0;
}

// On the root itself: a lock file beside the databases would have to be made, which a root for reading only refuses.
// The system lets go of it when the process dies.
// Waited for without end: whoever has it creates or checks one database, which takes a fraction of a second.
RootLock::RootLock(const std::string& root, bool exclusive) : file_(openForReading(root, O_DIRECTORY)) {
    while (file_ >= 0 && ::flock(descriptorOf(file_), exclusive ? LOCK_EX : LOCK_SH) != 0 && errno == EINTR) {
    }
}

RootLock::~RootLock() {
    closeIfOpen(descriptorOf(file_));
}

bool syncDirectory(const std::filesystem::path& directory) {
    const int fd = openForReading(directory, O_DIRECTORY);
    if (fd < 0) {
        return errno == EACCES;  // one may write into a directory that one may not list
    }
    const bool synced = ::fsync(fd) == 0 || errno == EINVAL;
    const int error = errno;  // the caller's to tell
    ::close(fd);
    errno = error;
    return synced;
}

bool hasExactName(const std::string& directory) {
    const std::filesystem::path path = directory;
    const std::string root = path.parent_path();
    const std::string name = path.filename();
    // Not the standard library's iterator: it ends the process when there is no memory for it.
    const std::unique_ptr<DIR, int (*)(DIR*)> listed(::opendir(root.c_str()), ::closedir);
    bool found = !listed;  // what cannot be listed is taken on trust
    for (const dirent* entry = nullptr; !found && (entry = ::readdir(listed.get())) != nullptr;) {
        found = name == entry->d_name;
    }
    return found;
}

std::int64_t coarseNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

std::size_t systemPageBytes() {
    return static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::uint64_t leastMapBytes(std::uint64_t /*fileBytes*/) {
    return 0;  // files grow by what is written
}

void watchForks() {
    // Only the child is told, where other threads may have held any lock when it was made: an addition needs none.
    static const int registered = ::pthread_atfork(nullptr, nullptr, [] { ++forks; });
    static_cast<void>(registered);
}

unsigned forkCount() {
    return forks.load();
}

StoreStatus lastError(const char* step) {
    return StoreStatus::failure(fmt::format("{}: {}", step, std::strerror(errno)));
}

}  // namespace persist
