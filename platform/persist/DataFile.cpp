#include "platform/persist/DataFile.h"

#include <time.h>

namespace persist {
namespace {

// Half of what is promised, because the clock below goes in steps of up to 10 ms and lags by as much: with steps of
// 4 ms an answer is taken for less than 8 ms, with steps of 10 ms until the next one.
constexpr std::int64_t kTrustedNanoseconds = 5'000'000;

/// Each read asks, so this is the clock that takes no longer to read than a few additions.
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
    // Before the look: what happens during it must not be trusted any longer than what happened before.
    const std::int64_t now = coarseNanoseconds();
    const off_t seen = sizeSeen_.load();
    const std::optional<off_t> found = size();
    // The library never shortens a file; somebody else did, and the mapped pages behind its end are gone. Said before
    // the new size is, by which nobody else would notice; and for good, because a file that has grown again since has
    // other bytes there.
    if (found && *found < seen) {
        cutShort_ = true;
    }
    const bool current = found && !cutShort_.load();
    if (current) {
        sizeSeen_.store(*found);
    }
    // A file that is found missing takes the trust of reads with it, which would go on in it otherwise.
    lookedAt_.store(current ? now : kNever);
    return current;
}

bool DataFile::wasCurrent() const {
    return coarseNanoseconds() - lookedAt_.load() < kTrustedNanoseconds || isCurrent();
}

}  // namespace persist
