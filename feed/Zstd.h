#pragma once

#include <zstd.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "feed/RecordBytes.h"

namespace mxservice::feed {

/// Packs text that is handed in piece by piece, so that a day's plain form is never in memory whole.
class Packer {
public:
    Packer();

    /// Append here, then offer().
    std::string& plain() { return plain_; }
    /// Packs what was appended once it is worth a call.
    void offer();
    /// The finished frame.
    std::string finish();

private:
    void pack(bool last);

    std::unique_ptr<ZSTD_CCtx, std::size_t (*)(ZSTD_CCtx*)> context_;
    std::string plain_;
    std::string packed_;
};

/// Unpacks a frame step by step. Throws BadBytes for what is none, goes on behind its end, or is longer than allowed.
class Unpacker final : public Source {
public:
    Unpacker(std::string_view packed, std::uint64_t maxBytes);

    std::string_view take(std::uint64_t size) override;
    /// Counts memory against what is allowed.
    void charge(std::uint64_t bytes);
    /// Whether nothing is left, neither plain nor packed.
    bool finished();

private:
    void fill(std::size_t size);

    std::unique_ptr<ZSTD_DCtx, std::size_t (*)(ZSTD_DCtx*)> context_;
    ZSTD_inBuffer in_;
    std::vector<char> plain_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint64_t allowed_;
    bool frameEnded_ = false;
};

}  // namespace mxservice::feed
