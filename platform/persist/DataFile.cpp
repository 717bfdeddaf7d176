#include "platform/persist/DataFile.h"

namespace persist {
namespace {

// Half of what is promised, because the clock goes in steps of up to 10 ms and lags by as much: with steps of
// 4 ms an answer is taken for less than 8 ms, with steps of 10 ms until the next one.
constexpr std::int64_t kTrustedNanoseconds = 5'000'000;

}  // namespace

bool DataFile::remember() {
    const std::optional<FileAt> file = fileAt(path_);
    if (!file) {
        return false;
    }
    id_ = file->id;
    sizeSeen_ = file->bytes;
    return true;
}

std::optional<std::uint64_t> DataFile::size() const {
    const std::optional<FileAt> file = fileAt(path_);
    return file && file->id == id_ ? std::optional(file->bytes) : std::nullopt;
}

bool DataFile::isCurrent() const {
    // Before the look: what happens during it must not be trusted any longer than what happened before.
    const std::int64_t now = coarseNanoseconds();
    const std::uint64_t seen = sizeSeen_.load();
    const std::optional<std::uint64_t> found = size();
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
