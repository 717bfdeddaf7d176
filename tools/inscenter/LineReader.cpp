#include "tools/inscenter/LineReader.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace inscenter {
namespace {

constexpr std::size_t kFirstBytes = std::size_t{1} << 20U;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

[[noreturn]] void fail(int reason) {
    throw std::runtime_error("cannot be read: " + std::generic_category().message(reason));
}

}  // namespace

LineReader::LineReader(std::FILE* file) : file_(file), buffer_(kFirstBytes + kPadding) {
    if (!file_) {
        fail(errno);
    }
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
}

LineReader::LineReader(const std::filesystem::path& path) : LineReader(std::fopen(path.c_str(), "rb")) {}

LineReader::LineReader() : LineReader(fdopen(dup(STDIN_FILENO), "rb")) {}

bool LineReader::next() {
    for (;;) {
        const void* const found = std::memchr(buffer_.data() + scanned_, '\n', end_ - scanned_);
        if (found != nullptr) {
            takeLine(static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data()));
            return true;
        }
        scanned_ = end_;
        if (atEnd_) {
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
    const std::size_t count = std::fread(buffer_.data() + end_, 1, room, file_.get());
    if (count < room && std::ferror(file_.get()) != 0) {
        fail(errno);
    }
    atEnd_ = count < room;
    end_ += count;
    bytesRead_ += count;
}

void LineReader::makeRoom() {
    const std::size_t begun = end_ - begin_;
    if (begun > kMaxLineBytes) {
        overlong_ = true;
        begin_ = end_ = scanned_ = 0;
    } else if (begin_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, begun);
        scanned_ -= begin_;
        begin_ = 0;
        end_ = begun;
    }
    if (end_ + kPadding >= buffer_.size()) {
        buffer_.resize((buffer_.size() - kPadding) * 2 + kPadding);
    }
}

}  // namespace inscenter
