#include "snapshot/PlainReader.h"

#include <zlib.h>
#include <zstd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <new>
#include <utility>

namespace mxservice::snapshot {
namespace {

constexpr std::size_t kStoredBytes = std::size_t{1} << 17U;  // read from the source at once
constexpr std::size_t kMagicBytes = 4;
constexpr int kUnpackWindow = 15 + 16;  // the largest window; 16 stands for gzip's own header

[[noreturn]] void fail(const char* reason) {
    throw FileFailure(std::string("cannot be read: ") + reason);
}

class Gunzip : public Unpacking {
public:
    Gunzip() {
        if (inflateInit2(&stream_, kUnpackWindow) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Gunzip() override { inflateEnd(&stream_); }
    Gunzip(const Gunzip&) = delete;
    Gunzip& operator=(const Gunzip&) = delete;

    std::size_t step(std::string_view& packed, char* to, std::size_t room) override {
        if (ended_ && !beginNext(packed)) {
            return 0;
        }
        constexpr std::size_t kMost = std::size_t{1} << 30U;  // the library counts in 32 bits
        const auto bytes = static_cast<uInt>(std::min(packed.size(), kMost));
        const auto wanted = static_cast<uInt>(std::min(room, kMost));
        stream_.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
        stream_.avail_in = bytes;
        stream_.next_out = reinterpret_cast<Bytef*>(to);
        stream_.avail_out = wanted;
        const int state = inflate(&stream_, Z_NO_FLUSH);
        packed.remove_prefix(bytes - stream_.avail_in);
        ended_ = state == Z_STREAM_END;
        if (state == Z_MEM_ERROR) {
            throw std::bad_alloc();
        }
        // Z_BUF_ERROR: nothing to take and nothing to give, which is no fault.
        if (!ended_ && state != Z_OK && state != Z_BUF_ERROR) {
            damaged_ = true;
        }
        const std::size_t given = wanted - stream_.avail_out;
        if (damaged_ && given == 0) {
            fail("the packed data are damaged");
        }
        return given;
    }
    bool mayEnd() const override { return ended_; }

private:
    /// A file may be of several packed ones; zeros behind the last fill a block of a tape.
    bool beginNext(std::string_view& packed) {
        packed.remove_prefix(std::min(packed.find_first_not_of('\0'), packed.size()));
        if (packed.empty()) {
            return false;
        }
        inflateReset(&stream_);
        ended_ = false;
        return true;
    }

    z_stream stream_{};
    bool ended_ = false;
    bool damaged_ = false;
};

class Unzstd : public Unpacking {
public:
    Unzstd() : stream_(ZSTD_createDStream()), plain_(ZSTD_DStreamOutSize()) {
        if (stream_ == nullptr) {
            throw std::bad_alloc();
        }
        wanted_ = atFirst_ = ZSTD_initDStream(stream_);
    }
    ~Unzstd() override { ZSTD_freeDStream(stream_); }
    Unzstd(const Unzstd&) = delete;
    Unzstd& operator=(const Unzstd&) = delete;

    std::size_t step(std::string_view& packed, char* to, std::size_t room) override {
        if (ready_.empty()) {
            unpack(packed);
        }
        const std::size_t count = std::min(room, ready_.size());
        std::memcpy(to, ready_.data(), count);
        ready_.remove_prefix(count);
        return count;
    }
    bool mayEnd() const override { return ended_; }

private:
    /// Of a call that meets damage the library does not tell what it gave before. So it gets as little as it asks for,
    /// and room of the same size whoever reads: what is lost is a block of its own, and always the same one.
    void unpack(std::string_view& packed) {
        ZSTD_inBuffer in{packed.data(), std::min(packed.size(), wanted_), 0};
        ZSTD_outBuffer out{plain_.data(), plain_.size(), 0};
        const std::size_t state = ZSTD_decompressStream(stream_, &out, &in);
        if (ZSTD_isError(state) != 0U) {
            fail("the packed data are damaged");
        }
        packed.remove_prefix(in.pos);
        ready_ = {plain_.data(), out.pos};
        if (in.pos > 0 || out.pos > 0) {
            ended_ = state == 0;  // of the frame; the next call begins another
            wanted_ = ended_ ? atFirst_ : state;
        }
    }

    ZSTD_DStream* stream_;
    std::vector<char> plain_;
    std::size_t atFirst_ = 0;  // bytes that the library asks for to know a frame
    std::size_t wanted_ = 0;
    std::string_view ready_;
    bool ended_ = false;
};

SnapshotPacking packingOf(std::string_view magic) {
    if (magic.starts_with("\x1f\x8b")) {
        return SnapshotPacking::Gzip;
    }
    // Of zstd also frames that hold nothing to unpack: programs that pack in parallel begin with one.
    const bool zstd = magic.starts_with("\x28\xb5\x2f\xfd") ||
                      (magic.size() == kMagicBytes && (magic[0] & 0xF0) == 0x50 && magic.ends_with("\x2a\x4d\x18"));
    return zstd ? SnapshotPacking::Zstd : SnapshotPacking::None;
}

}  // namespace

PlainReader::PlainReader(std::unique_ptr<ByteSource> source, SnapshotPacking named)
    : source_(std::move(source)), sizeAtFirst_(source_->size()), buffer_(kStoredBytes) {
    refill();
    // By what is in the file and not by its name: a file that was renamed, or unpacked in place, is read for what it
    // is.
    const SnapshotPacking packing = packingOf(stored_.substr(0, kMagicBytes));
    // Taken as it stands, each line of a broken download would be reported by itself.
    if (named != SnapshotPacking::None && packing != named) {
        fail(named == SnapshotPacking::Gzip ? "not packed with gzip" : "not packed with zstd");
    }
    if (packing == SnapshotPacking::Gzip) {
        unpacking_ = std::make_unique<Gunzip>();
    } else if (packing == SnapshotPacking::Zstd) {
        unpacking_ = std::make_unique<Unzstd>();
    }
}

void PlainReader::refill() {
    std::size_t size = 0;
    // A pipe may give less than it takes to know what is in it.
    while (size < kMagicBytes && !atEnd_) {
        const std::size_t count = source_->read(buffer_.data() + size, buffer_.size() - size);
        atEnd_ = count == 0;
        size += count;
    }
    stored_ = std::string_view(buffer_.data(), size);
    bytesRead_ += size;
}

std::size_t PlainReader::read(char* to, std::size_t room) {
    // What was read to look at the magic bytes first, then straight into the caller's memory: plain files are copied
    // once.
    if (!unpacking_) {
        if (stored_.empty()) {
            const std::size_t count = atEnd_ ? 0 : source_->read(to, room);
            bytesRead_ += count;
            return count;
        }
        const std::size_t count = std::min(room, stored_.size());
        std::memcpy(to, stored_.data(), count);
        stored_.remove_prefix(count);
        return count;
    }
    for (;;) {
        if (stored_.empty() && !atEnd_) {
            refill();
        }
        if (const std::size_t count = unpacking_->step(stored_, to, room); count > 0) {
            return count;
        }
        if (stored_.empty() && atEnd_) {
            if (!unpacking_->mayEnd()) {
                fail("the packed data end too early");
            }
            return 0;
        }
    }
}

}  // namespace mxservice::snapshot
