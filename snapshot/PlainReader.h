#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "snapshot/ByteSource.h"
#include "snapshot/Snapshot.h"

namespace mxservice::snapshot {

/// Takes packed bytes in pieces and gives what was packed.
class Unpacking {
public:
    virtual ~Unpacking() = default;

    /// Goes on: takes bytes off the front of `packed` and puts others at `to`, up to `room`. Answers how many. Throws
    /// FileFailure where the bytes are damaged.
    virtual std::size_t step(std::string_view& packed, char* to, std::size_t room) = 0;
    /// Whether the packed data may end here.
    virtual bool mayEnd() const = 0;
};

/// What a source holds, unpacked on the way; what it is packed with is known by its first bytes.
class PlainReader {
public:
    /// `named`: what the name says the source is packed with. Throws FileFailure when it is not.
    PlainReader(std::unique_ptr<ByteSource> source, SnapshotPacking named);

    /// Up to `room` bytes, at least one; 0 at the end. Throws FileFailure with the reason when reading fails, or
    /// where packed data are damaged or end too early.
    std::size_t read(char* to, std::size_t room);

    /// Bytes of the source that were taken so far.
    std::uint64_t bytesRead() const { return bytesRead_; }
    /// What it had at the beginning, where that is known.
    std::optional<std::uint64_t> sizeAtFirst() const { return sizeAtFirst_; }

private:
    void refill();

    std::unique_ptr<ByteSource> source_;
    const std::optional<std::uint64_t> sizeAtFirst_;
    std::unique_ptr<Unpacking> unpacking_;  // null: not packed
    std::vector<char> buffer_;
    std::string_view stored_;  // what of the buffer was not taken yet
    bool atEnd_ = false;
    std::uint64_t bytesRead_ = 0;
};

}  // namespace mxservice::snapshot
