#include "platform/persist/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

namespace persist {

Descriptor::~Descriptor() {
    if (fd_ >= 0) {
        ::close(fd_);
    }
}

// On the root itself: a lock file beside the databases would have to be made, which a root for reading only refuses.
// The system lets go of it when the process dies.
// Waited for without end: whoever has it creates or checks one database, which takes a fraction of a second.
RootLock::RootLock(const std::string& root, bool exclusive)
    : root_(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    while (root_.valid() && ::flock(root_.get(), exclusive ? LOCK_EX : LOCK_SH) != 0 && errno == EINTR) {
    }
}

StoreStatus lastError(const char* step) {
    return StoreStatus::failure(fmt::format("{}: {}", step, std::strerror(errno)));
}

bool syncDirectory(const std::filesystem::path& directory) {
    const Descriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return opened.valid() ? ::fsync(opened.get()) == 0 || errno == EINVAL : errno == EACCES;
}

StoreStatus makeDirectories(const std::filesystem::path& directory) {
    std::error_code error;
    // A name is on disk when the directory that holds it is flushed, so it is the parents of what is missing that
    // count. Noted before anything is made, while it still shows.
    std::vector<std::filesystem::path> extended;
    std::filesystem::path way = directory.parent_path();
    for (; way.has_relative_path() && !std::filesystem::exists(way, error); way = way.parent_path()) {
        extended.push_back(way.parent_path());
    }
    std::filesystem::create_directories(directory, error);
    if (error) {
        return StoreStatus::failure(fmt::format("create directory: {}", error.message()));
    }
    return std::all_of(extended.begin(), extended.end(), syncDirectory) ? StoreStatus() : lastError("sync directory");
}

bool hasExactName(const std::filesystem::path& directory) {
    const std::string root = directory.parent_path();
    const std::string name = directory.filename();
    // Not the standard library's iterator: it ends the process when there is no memory for it.
    const std::unique_ptr<DIR, int (*)(DIR*)> listed(::opendir(root.c_str()), ::closedir);
    bool found = !listed;  // what cannot be listed is taken on trust
    for (const dirent* entry = nullptr; !found && (entry = ::readdir(listed.get())) != nullptr;) {
        found = name == entry->d_name;
    }
    return found;
}

}  // namespace persist
