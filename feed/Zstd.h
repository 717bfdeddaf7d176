#pragma once

#include <zstd.h>

#include <atomic>
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

/// How much memory what comes from outside may still take. Safe from any thread.
class Allowance {
public:
    explicit Allowance(std::uint64_t bytes) : left_(bytes) {}

    /// Throws BadBytes when it is exceeded, and from then on.
    void charge(std::uint64_t bytes) {
        std::uint64_t left = left_;
        do {
            if (bytes > left) {
                throw BadBytes("more than may be unpacked");
            }
        } while (!left_.compare_exchange_weak(left, left - bytes));
    }

private:
    std::atomic<std::uint64_t> left_;
};

/// The frames that stand one after the other, each whole. Throws BadBytes where they are none.
std::vector<std::string_view> framesOf(std::string_view packed);

/// Unpacks a frame step by step. Throws BadBytes for what is none, goes on behind its end, or is longer than allowed.
class Unpacker final : public Source {
public:
    Unpacker(std::string_view packed, Allowance& allowance);

    std::string_view take(std::uint64_t size) override;
    /// Counts memory against what is allowed.
    void charge(std::uint64_t bytes) { allowance_.charge(bytes); }
    /// Whether nothing is left, neither plain nor packed.
    bool finished();

private:
    void fill(std::size_t size);

    std::unique_ptr<ZSTD_DCtx, std::size_t (*)(ZSTD_DCtx*)> context_;
    ZSTD_inBuffer in_;
    std::vector<char> plain_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    Allowance& allowance_;
    bool frameEnded_ = false;
};

}  // namespace mxservice::feed
