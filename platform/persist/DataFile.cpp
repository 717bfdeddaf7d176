#include "platform/persist/DataFile.h"

#include <time.h>

#include <filesystem>

#include "platform/persist/FileWatch.h"
#include "platform/persist/ForkCount.h"

namespace persist {
namespace {

/// Time that takes no longer to tell than a few additions, and is a few milliseconds old.
std::int64_t coarseNanoseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

bool DataFile::remember() {
    struct stat file {};
    if (::stat(path_.c_str(), &file) != 0) {
        return false;
    }
    id_ = idOf(file);
    sizeSeen_ = file.st_size;
    const std::filesystem::path directory = std::filesystem::path(path_).parent_path();
    FileWatch& watch = FileWatch::instance();
    // Directory and root as well: to rename either takes the file away without a word to the file's own watch. A forked
    // child shares the watch with its parent, whose news it would take; it looks each time instead.
    watched_ = forkCount() == 0 && watch.add(path_) && watch.add(directory) && watch.add(directory.parent_path());
    return true;
}

std::optional<off_t> DataFile::size() const {
    struct stat file {};
    if (::stat(path_.c_str(), &file) != 0 || !(idOf(file) == id_)) {
        return std::nullopt;
    }
    return file.st_size;
}

bool DataFile::isCurrent() const {
    if (cutShort_.load()) {
        return false;
    }
    // Number, time and size are taken before the look. What happens during it, or what another thread sees meanwhile,
    // then counts as news for the next call and not as seen by this one.
    const std::uint64_t changes = watched_ ? FileWatch::instance().changes() : 0;
    const std::int64_t now = watched_ ? coarseNanoseconds() : 0;
    if (watched_ && changes == changesSeen_.load() && now - lookedAt_.load() < kTrustedNanoseconds) {
        return true;
    }
    const off_t seen = sizeSeen_.load();
    const std::optional<off_t> found = size();
    if (!found) {
        return false;
    }
    // The library never shortens a file; somebody else did, and the mapped pages behind its end are gone. Said before
    // the new size is, by which nobody else would notice.
    if (*found < seen) {
        cutShort_ = true;
    }
    sizeSeen_.store(*found);
    changesSeen_.store(changes);
    lookedAt_.store(now);
    return !cutShort_.load();
}

}  // namespace persist
