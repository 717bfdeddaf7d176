#include "snapshot/PackedFile.h"

#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <stdexcept>
#include <system_error>

namespace mxservice::snapshot {
namespace {

constexpr std::size_t kPackedBytes = std::size_t{1} << 17U;  // written at once
constexpr int kPackWindow = 15 + 16;                         // the largest window; 16 stands for gzip's own header
constexpr int kGzipMemory = 8;
// The library's own default: a day takes a twentieth of its text.
constexpr int kZstdLevel = 3;

/// Without a name and a time in its header, which would differ from day to day.
class Gzip : public Packing {
public:
    Gzip() {
        if (deflateInit2(&stream_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kPackWindow, kGzipMemory, Z_DEFAULT_STRATEGY) !=
            Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Gzip() override { deflateEnd(&stream_); }
    Gzip(const Gzip&) = delete;
    Gzip& operator=(const Gzip&) = delete;

    std::size_t step(std::string_view& plain, char* to, std::size_t room, bool last) override {
        constexpr std::size_t kMost = std::size_t{1} << 30U;  // the library counts in 32 bits
        const auto bytes = static_cast<uInt>(std::min(plain.size(), kMost));
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(plain.data()));
        stream_.avail_in = bytes;
        stream_.next_out = reinterpret_cast<Bytef*>(to);
        stream_.avail_out = static_cast<uInt>(room);
        const int state = deflate(&stream_, last && bytes == plain.size() ? Z_FINISH : Z_NO_FLUSH);
        finished_ = state == Z_STREAM_END;
        plain.remove_prefix(bytes - stream_.avail_in);
        return room - stream_.avail_out;
    }
    bool finished() const override { return finished_; }

private:
    z_stream stream_{};
    bool finished_ = false;
};

class Zstd : public Packing {
public:
    Zstd() : stream_(ZSTD_createCCtx()) {
        if (stream_ == nullptr) {
            throw std::bad_alloc();
        }
        ZSTD_CCtx_setParameter(stream_, ZSTD_c_compressionLevel, kZstdLevel);
        ZSTD_CCtx_setParameter(stream_, ZSTD_c_checksumFlag, 1);  // so that damage is noticed, as gzip notices it
    }
    ~Zstd() override { ZSTD_freeCCtx(stream_); }
    Zstd(const Zstd&) = delete;
    Zstd& operator=(const Zstd&) = delete;

    std::size_t step(std::string_view& plain, char* to, std::size_t room, bool last) override {
        ZSTD_inBuffer in{plain.data(), plain.size(), 0};
        ZSTD_outBuffer out{to, room, 0};
        const std::size_t left = ZSTD_compressStream2(stream_, &out, &in, last ? ZSTD_e_end : ZSTD_e_continue);
        if (ZSTD_isError(left) != 0U) {
            throw std::bad_alloc();  // what else can go wrong is how it is called
        }
        finished_ = last && left == 0;
        plain.remove_prefix(in.pos);
        return out.pos;
    }
    bool finished() const override { return finished_; }

private:
    ZSTD_CCtx* stream_;
    bool finished_ = false;
};

}  // namespace

PackedFile::PackedFile(const std::filesystem::path& path, SnapshotPacking packing) : buffer_(kPackedBytes) {
    // Streams say that something failed, the system's number says what; it is cleared, for a stream that fails by
    // itself sets none.
    errno = 0;
    file_.open(path, std::ios::binary | std::ios::trunc);
    put(nullptr, 0);
    if (packing == SnapshotPacking::Gzip) {
        packing_ = std::make_unique<Gzip>();
    } else if (packing == SnapshotPacking::Zstd) {
        packing_ = std::make_unique<Zstd>();
    }
}

void PackedFile::write(std::string_view bytes) {
    pack(bytes, false);
}

void PackedFile::close() {
    // What the packer holds back, and its checksum. Without this call a file ends too early, and readers say so.
    pack({}, true);
    errno = 0;
    file_.close();
    put(nullptr, 0);
}

void PackedFile::pack(std::string_view bytes, bool last) {
    if (!packing_) {
        put(bytes.data(), bytes.size());
        return;
    }
    // A step may take bytes and give none, or give some and take none.
    while (!bytes.empty() || (last && !packing_->finished())) {
        put(buffer_.data(), packing_->step(bytes, buffer_.data(), buffer_.size(), last));
    }
}

void PackedFile::put(const char* bytes, std::size_t size) {
    if (size > 0) {
        errno = 0;
        file_.write(bytes, static_cast<std::streamsize>(size));
    }
    if (!file_) {
        throw std::runtime_error("cannot be written: " + std::generic_category().message(errno != 0 ? errno : EIO));
    }
}

}  // namespace mxservice::snapshot
