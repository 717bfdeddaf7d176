#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <fmt/format.h>
#include <windows.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "platform/persist/System.h"

namespace persist {
namespace {

// In the root and not on it: Windows locks bytes of files, and no directories. No database has a dot in front.
constexpr const char* kLockFile = ".root.lock";

/// What the system said last, by the number that POSIX has for it.
int lastErrno() {
    switch (::GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_BAD_NETPATH:
            return ENOENT;
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME:
            return EINVAL;  // and none that could still be made
        case ERROR_ACCESS_DENIED:
        case ERROR_SHARING_VIOLATION:
        case ERROR_LOCK_VIOLATION:
        case ERROR_WRITE_PROTECT:
        case ERROR_USER_MAPPED_FILE:
            return EACCES;
        case ERROR_DIRECTORY:
            return ENOTDIR;
        case ERROR_ALREADY_EXISTS:
        case ERROR_FILE_EXISTS:
            return EEXIST;
        case ERROR_DIR_NOT_EMPTY:
            return ENOTEMPTY;
        case ERROR_DISK_FULL:
        case ERROR_HANDLE_DISK_FULL:
            return ENOSPC;
        case ERROR_TOO_MANY_OPEN_FILES:
            return EMFILE;
        case ERROR_NOT_ENOUGH_MEMORY:
        case ERROR_OUTOFMEMORY:
            return ENOMEM;
        case ERROR_FILENAME_EXCED_RANGE:
            return ENAMETOOLONG;
        default:
            return EIO;
    }
}

bool done(BOOL result) {
    if (result == FALSE) {
        errno = lastErrno();
    }
    return result != FALSE;
}

HANDLE handleOf(std::intptr_t file) {
    return reinterpret_cast<HANDLE>(file);
}

/// Shared with everybody, also with those who rename or remove it. Directories are opened by backup's rights alone.
std::intptr_t openShared(const std::string& path, DWORD access, DWORD creation) {
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file = ::CreateFileW(pathOf(path).c_str(), access, kAll, nullptr, creation,
                                      FILE_ATTRIBUTE_NORMAL | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    done(file != INVALID_HANDLE_VALUE);
    return reinterpret_cast<std::intptr_t>(file);
}

bool isOpen(std::intptr_t file) {
    return handleOf(file) != INVALID_HANDLE_VALUE;
}

bool closeIfOpen(std::intptr_t file) {
    const bool open = isOpen(file);
    if (open) {
        ::CloseHandle(handleOf(file));
    }
    return open;
}

std::uint64_t joined(DWORD high, DWORD low) {
    return std::uint64_t{high} << 32U | low;
}

std::intptr_t openLock(const std::string& root, bool exclusive) {
    const std::string path = root + "/" + kLockFile;
    const std::intptr_t file = openShared(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS);
    // A root for reading only: what others have made there is locked for them to see.
    return isOpen(file) || exclusive ? file : openShared(path, GENERIC_READ, OPEN_EXISTING);
}

}  // namespace

std::optional<FileAt> fileAt(const std::string& path) {
    const std::intptr_t file = openShared(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING);
    // From the handle: of a path, the C runtime tells no number.
    BY_HANDLE_FILE_INFORMATION found{};
    const bool told = isOpen(file) && done(::GetFileInformationByHandle(handleOf(file), &found));
    closeIfOpen(file);
    if (!told) {
        return std::nullopt;
    }
    return FileAt{{found.dwVolumeSerialNumber, joined(found.nFileIndexHigh, found.nFileIndexLow)},
                  joined(found.nFileSizeHigh, found.nFileSizeLow),
                  (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0};
}

bool exists(const std::string& path) {
    return closeIfOpen(openShared(path, FILE_READ_ATTRIBUTES, OPEN_EXISTING));
}

bool isTaken(const std::string& path) {
    return ::GetFileAttributesW(pathOf(path).c_str()) != INVALID_FILE_ATTRIBUTES;
}

// Asked by opening, because only that weighs all that Windows has of rights.
int barrierTo(const std::string& directory, bool forMaking) {
    const DWORD access = forMaking ? FILE_TRAVERSE | FILE_ADD_SUBDIRECTORY : FILE_TRAVERSE;
    return closeIfOpen(openShared(directory, access, OPEN_EXISTING)) ? 0 : errno;
}

OpenFile::OpenFile(const std::string& path) : file_(openShared(path, GENERIC_READ, OPEN_EXISTING)) {}

OpenFile::~OpenFile() {
    closeIfOpen(file_);
}

bool OpenFile::valid() const {
    return isOpen(file_);
}

std::optional<std::uint64_t> OpenFile::size() const {
    LARGE_INTEGER bytes{};
    return done(::GetFileSizeEx(handleOf(file_), &bytes)) ? std::optional(static_cast<std::uint64_t>(bytes.QuadPart))
                                                          : std::nullopt;
}

bool OpenFile::readAt(void* into, std::size_t size, std::uint64_t offset) const {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32U);
    DWORD read = 0;
    return ::ReadFile(handleOf(file_), into, static_cast<DWORD>(size), &read, &place) != FALSE && read == size;
}

bool makeFile(const std::string& path) {
    return closeIfOpen(openShared(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS));
}

void emptyFile(const std::string& path) {
    closeIfOpen(openShared(path, GENERIC_READ | GENERIC_WRITE, TRUNCATE_EXISTING));
}

// The library sets the size of its lock file before it maps it, and with the size goes the room.
bool reserveRoom(const std::string& /*path*/, std::uint64_t /*bytes*/) {
    return true;
}

void keepFromChildren(void* file) {
    ::SetHandleInformation(file, HANDLE_FLAG_INHERIT, 0);
}

bool renameDirectory(const std::string& from, const std::string& to) {
    return done(::MoveFileExW(pathOf(from).c_str(), pathOf(to).c_str(), MOVEFILE_WRITE_THROUGH));
}

// The system lets go of it when the process dies. Waited for without end: whoever has it creates or checks one
// database, which takes a fraction of a second.
RootLock::RootLock(const std::string& root, bool exclusive) : file_(openLock(root, exclusive)) {
    OVERLAPPED begin{};
    if (isOpen(file_)) {
        ::LockFileEx(handleOf(file_), exclusive ? LOCKFILE_EXCLUSIVE_LOCK : 0, 0, 1, 0, &begin);
    }
}

RootLock::~RootLock() {
    // Not left to the closing, after which the system lets go when it finds the time.
    OVERLAPPED begin{};
    if (isOpen(file_)) {
        ::UnlockFileEx(handleOf(file_), 0, 1, 0, &begin);
    }
    closeIfOpen(file_);
}

bool syncDirectory(const std::filesystem::path& directory) {
    const std::intptr_t opened = openShared(textOf(directory), GENERIC_WRITE, OPEN_EXISTING);
    if (!isOpen(opened)) {
        return errno == EACCES;
    }
    // File systems other than NTFS have no such flush, and say so in one of these ways.
    const bool flushed = done(::FlushFileBuffers(handleOf(opened)));
    const DWORD error = ::GetLastError();
    ::CloseHandle(handleOf(opened));
    return flushed || error == ERROR_ACCESS_DENIED || error == ERROR_INVALID_FUNCTION ||
           error == ERROR_INVALID_HANDLE || error == ERROR_NOT_SUPPORTED;
}

bool hasExactName(const std::string& directory) {
    WIN32_FIND_DATAW entry{};
    const std::filesystem::path path = pathOf(directory);
    const HANDLE search = ::FindFirstFileW(path.c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) {
        return true;  // what cannot be listed is taken on trust
    }
    ::FindClose(search);
    return path.filename() == entry.cFileName;
}

// The tick count would do but for its steps of 16 ms, by which trust in a file would last longer than promised.
std::int64_t coarseNanoseconds() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::size_t systemPageBytes() {
    SYSTEM_INFO system{};
    ::GetSystemInfo(&system);
    return system.dwPageSize;
}

std::uint64_t leastMapBytes(std::uint64_t fileBytes) {
    return fileBytes;
}

void watchForks() {}

unsigned forkCount() {
    return 0;
}

StoreStatus lastError(const char* step) {
    return StoreStatus::failure(fmt::format("{}: {}", step, std::strerror(errno)));
}

}  // namespace persist
