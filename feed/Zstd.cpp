#include "feed/Zstd.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace mxservice::feed {
namespace {

// Level 1 packs a day nearly as small as level 3 in half the time, and a day's messages are few either way.
constexpr int kLevel = 1;
constexpr std::size_t kWorthACall = std::size_t{1} << 18U;
constexpr std::uint64_t kMostAtOnce = std::uint64_t{1} << 25U;  // larger than any record or text

}  // namespace

Packer::Packer() : context_(ZSTD_createCCtx(), ZSTD_freeCCtx) {
    if (!context_) {
        throw std::bad_alloc();
    }
    ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_compressionLevel, kLevel);
    ZSTD_CCtx_setParameter(context_.get(), ZSTD_c_checksumFlag, 1);
}

void Packer::offer() {
    if (plain_.size() >= kWorthACall) {
        pack(false);
    }
}

std::string Packer::finish() {
    pack(true);
    return std::move(packed_);
}

void Packer::pack(bool last) {
    ZSTD_inBuffer in{plain_.data(), plain_.size(), 0};
    for (std::size_t left = 1; last ? left > 0 : in.pos < in.size;) {
        const std::size_t before = packed_.size();
        packed_.resize(before + ZSTD_CStreamOutSize());
        ZSTD_outBuffer out{packed_.data() + before, packed_.size() - before, 0};
        left = ZSTD_compressStream2(context_.get(), &out, &in, last ? ZSTD_e_end : ZSTD_e_continue);
        packed_.resize(before + out.pos);
        if (ZSTD_isError(left) != 0U) {
            throw std::bad_alloc();  // what else can go wrong is how it is called
        }
    }
    plain_.clear();
}

std::vector<std::string_view> framesOf(std::string_view packed) {
    std::vector<std::string_view> frames;
    while (!packed.empty()) {
        // Walks the heads of the frame's blocks; nothing is unpacked for it.
        const std::size_t size = ZSTD_findFrameCompressedSize(packed.data(), packed.size());
        if (ZSTD_isError(size) != 0U) {
            throw BadBytes(fmt::format("not to be unpacked: {}", ZSTD_getErrorName(size)));
        }
        frames.push_back(packed.substr(0, size));
        packed.remove_prefix(size);
    }
    return frames;
}

Unpacker::Unpacker(std::string_view packed, Allowance& allowance)
    : context_(ZSTD_createDCtx(), ZSTD_freeDCtx), in_{packed.data(), packed.size(), 0}, allowance_(allowance) {
    if (!context_) {
        throw std::bad_alloc();
    }
}

std::string_view Unpacker::take(std::uint64_t size) {
    if (size > kMostAtOnce) {
        throw BadBytes(fmt::format("a piece of {} bytes", size));
    }
    if (end_ - begin_ < size) {
        fill(size);
    }
    const std::string_view taken(plain_.data() + begin_, size);
    begin_ += size;
    return taken;
}

bool Unpacker::finished() {
    if (begin_ != end_) {
        return false;
    }
    // The checksum stands behind the last byte: only a frame that was read to its end is known to be sound.
    while (!frameEnded_ && begin_ == end_) {
        fill(0);
    }
    return begin_ == end_ && in_.pos == in_.size;
}

/// Makes at least `size` bytes ready; with 0 a further piece, if there is one.
void Unpacker::fill(std::size_t size) {
    if (begin_ > 0) {
        std::memmove(plain_.data(), plain_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    do {
        if (frameEnded_) {
            throw BadBytes("the operations break off");
        }
        plain_.resize(std::max(plain_.size(), end_ + kWorthACall));
        ZSTD_outBuffer out{plain_.data(), plain_.size(), end_};
        const std::size_t before = in_.pos;
        const std::size_t left = ZSTD_decompressStream(context_.get(), &out, &in_);
        if (ZSTD_isError(left) != 0U) {
            throw BadBytes(fmt::format("not to be unpacked: {}", ZSTD_getErrorName(left)));
        }
        if (left != 0 && out.pos == end_ && in_.pos == before) {
            throw BadBytes("the packed bytes break off");
        }
        charge(out.pos - end_);
        end_ = out.pos;
        frameEnded_ = left == 0;
    } while (end_ < size);
}

}  // namespace mxservice::feed
