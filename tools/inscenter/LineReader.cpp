#include "tools/inscenter/LineReader.h"

#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>

namespace inscenter {
namespace {

constexpr std::size_t kFirstBytes = std::size_t{1} << 20U;
constexpr unsigned kPackedBytes = 1U << 17U;  // read from the disk at once
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void fail(const std::string& reason) {
    throw std::runtime_error("cannot be read: " + reason);
}

/// Throws unless the file was read to its end.
void expectGood(gzFile file) {
    const std::string systemReason = std::generic_category().message(errno);  // first: no later call may change it
    int state = Z_OK;
    gzerror(file, &state);
    switch (state) {
        case Z_OK:
        case Z_STREAM_END:
            return;
        case Z_BUF_ERROR:
            fail("the packed data end too early");
        case Z_ERRNO:
            fail(systemReason);
        case Z_MEM_ERROR:
            throw std::bad_alloc();
        default:
            fail("the packed data are damaged");
    }
}

}  // namespace

void LineReader::Closer::operator()(gzFile_s* file) const {
    gzclose_r(file);
}

LineReader::LineReader(gzFile_s* file, bool packed) : file_(file), packed_(packed), buffer_(kFirstBytes + kPadding) {
    if (!file_) {
        fail(std::generic_category().message(errno));
    }
    gzbuffer(file_.get(), kPackedBytes);  // before the first read, later it has no effect
}

LineReader::LineReader(const std::filesystem::path& path)
    : LineReader(gzopen(path.c_str(), "rb"), path.extension() == kPackedEnding) {}

// A descriptor of its own, because zlib closes the one it has. A pipe has no name that says what is in it, so it may be
// packed or not.
LineReader::LineReader() : LineReader(gzdopen(dup(STDIN_FILENO), "rb"), false) {}

bool LineReader::next() {
    for (;;) {
        const void* const found = std::memchr(buffer_.data() + scanned_, '\n', end_ - scanned_);
        if (found != nullptr) {
            takeLine(static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data()));
            return true;
        }
        scanned_ = end_;  // a line may come in many pieces, none of which is searched twice
        if (atEnd_) {
            // Of a line that is too long nothing may be left; it counts all the same.
            const bool rest = begin_ < end_ || overlong_;
            if (rest) {
                takeLine(end_);
            }
            return rest;
        }
        fill();
    }
}

void LineReader::takeLine(std::size_t end) {
    line_ = std::string_view(buffer_.data() + begin_, end - begin_);
    begin_ = end < end_ ? end + 1 : end_;
    scanned_ = begin_;
    ++number_;
    tooLong_ = overlong_ || line_.size() > kMaxLineBytes;
    overlong_ = false;
    if (tooLong_) {
        line_ = {};
    }
    if (number_ == 1 && line_.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        line_.remove_prefix(kByteOrderMark.size());
    }
    if (!line_.empty() && line_.back() == '\r') {
        line_.remove_suffix(1);
    }
}

void LineReader::fill() {
    makeRoom();
    const std::size_t room = buffer_.size() - kPadding - end_;
    const int read = gzread(file_.get(), buffer_.data() + end_, static_cast<unsigned>(room));
    const std::size_t count = static_cast<std::size_t>(std::max(read, 0));
    // The end, or a fault that cut the file short: only zlib knows which.
    if (count < room) {
        expectGood(file_.get());
    }
    // Asked when something was read, because zlib goes by the first bytes. It passes on as it stands what it does not
    // know: each line of a broken download would be reported by itself.
    if (packed_ && gzdirect(file_.get()) == 1) {
        fail("not packed with gzip");
    }
    atEnd_ = count < room;
    end_ += count;
    // Where it stands in the packed file, for that is the size which a bar can know; a pipe has no such place.
    bytesRead_ = static_cast<std::uint64_t>(std::max<z_off_t>(gzoffset(file_.get()), 0));
}

void LineReader::makeRoom() {
    const std::size_t begun = end_ - begin_;
    // Its beginning is given up, so that a file without line ends does not fill the memory; what follows is read for
    // the end of it.
    if (begun > kMaxLineBytes) {
        overlong_ = true;
        begin_ = end_ = scanned_ = 0;
    } else if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, begun);
        scanned_ -= begin_;
        begin_ = 0;
        end_ = begun;
    }
    // Only where one line takes all of it: any other has just been moved to the front.
    if (end_ + kPadding >= buffer_.size()) {
        buffer_.resize((buffer_.size() - kPadding) * 2 + kPadding);
    }
}

}  // namespace inscenter
