#include "snapshot/BlockReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "snapshot/CsvScanner.h"

namespace mxservice::snapshot {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::size_t kLeastBytes = 8;  // a mark at the beginning is seen as a whole
constexpr const char* kBlanks = " \t\r\n";

/// Up to where its first line that is not blank goes; to its end when all are.
std::size_t firstLineIn(std::string_view text) {
    const std::size_t end = text.find('\n', std::min(text.find_first_not_of(kBlanks), text.size()));
    return end == std::string_view::npos ? text.size() : end + 1;
}

}  // namespace

bool isBlank(std::string_view line) {
    return line.find_first_not_of(kBlanks) == std::string_view::npos;
}

/// By searching: lines are so long that this is several times as fast as a look at each letter.
std::uint64_t countLineEnds(std::string_view text) {
    std::uint64_t count = 0;
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        ++count;
    }
    return count;
}

BlockReader::BlockReader(std::unique_ptr<PlainReader> source, std::size_t blockBytes)
    : source_(std::move(source)), blockBytes_(std::max(blockBytes, kLeastBytes)), buffer_(blockBytes_) {}

bool BlockReader::changed() const {
    return atEnd_ && !failure_ && source_->sizeAtFirst().value_or(bytesRead()) != bytesRead();
}

bool BlockReader::fill() {
    // A file that grows has an end all the same, and behind a fault nothing follows on what was read before it.
    if (atEnd_ || failure_) {
        return false;
    }
    try {
        while (end_ < buffer_.capacity()) {
            const std::size_t count = source_->read(buffer_.data() + end_, buffer_.capacity() - end_);
            if (count == 0) {
                atEnd_ = true;
                break;
            }
            end_ += count;
        }
    } catch (const FileFailure&) {
        // Thrown when what came before is handed out.
        failure_ = std::current_exception();
    }
    return failure_ == nullptr && !atEnd_;
}

void BlockReader::skipMark() {
    const std::string_view text(buffer_.data(), end_);
    begin_ = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    first_ = false;
}

std::size_t BlockReader::cut() const {
    std::string_view text(buffer_.data() + begin_, end_ - begin_);
    if (!atEnd_) {
        // Also where reading has failed: of a line that breaks off nobody knows how it went on.
        text = text.substr(0, text.rfind('\n') + 1);
    }
    switch (cut_) {
        case Cut::Lines:
            break;
        case Cut::FirstLine:
            text = text.substr(0, firstLineIn(text));
            break;
        case Cut::Records:
            return begin_ + cutRecords(text);
    }
    return begin_ + text.size();
}

std::size_t BlockReader::cutRecords(std::string_view text) const {
    CsvCells cells;
    std::size_t size = 0;
    while (size < text.size()) {
        const std::size_t lineEnd = text.find('\n', size);
        if (lineEnd != std::string_view::npos &&
            text.substr(size, lineEnd - size).find('"') == std::string_view::npos) {
            size = lineEnd + 1;  // a record that goes on has a mark in its first line
            continue;
        }
        const CsvRecord record = scanCsv(text.substr(size), atEnd_ || failure_, columns_, cells);
        if (record.state == CsvRecord::State::Short) {
            break;
        }
        size += record.size;
    }
    return size;
}

void BlockReader::dropLine() {
    // Read for its end alone: a file without line ends does not fill the memory.
    for (;;) {
        const char* const begin = buffer_.data() + begin_;
        const void* const found = std::memchr(begin, '\n', end_ - begin_);
        if (found != nullptr) {
            begin_ += static_cast<std::size_t>(static_cast<const char*>(found) - begin) + 1;
            break;
        }
        begin_ = end_ = 0;
        if (atEnd_ || failure_) {
            break;
        }
        buffer_ = Buffer(blockBytes_);
        fill();
    }
    ++overlong_;
    ++line_;
}

bool BlockReader::next(TextBlock& block) {
    std::size_t cutAt = begin_;
    for (;;) {
        const bool more = fill();
        if (first_) {
            skipMark();
        }
        cutAt = cut();
        if (cutAt > begin_ || !more) {
            break;
        }
        if (end_ - begin_ > kMaxLineBytes) {
            dropLine();
            continue;
        }
        // One line takes all of it. Twice as large each time, so that none is searched over and over.
        Buffer larger(std::max(2 * (end_ - begin_), blockBytes_));
        std::memcpy(larger.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
        buffer_ = std::move(larger);
    }
    if (cutAt == begin_ && overlong_ == 0) {
        if (failure_) {
            std::rethrow_exception(std::exchange(failure_, nullptr));
        }
        return false;
    }
    // What is behind the cut begins the next block, which gets a buffer of its own: this one goes to another thread.
    Buffer rest(blockBytes_ + end_ - cutAt);
    std::memcpy(rest.data(), buffer_.data() + cutAt, end_ - cutAt);
    block.begin = begin_;
    block.end = cutAt;
    block.firstLine = line_;
    block.overlong = std::exchange(overlong_, 0);
    block.buffer = std::exchange(buffer_, std::move(rest));
    end_ -= cutAt;
    begin_ = 0;
    line_ += countLineEnds(block.text());
    return true;
}

}  // namespace mxservice::snapshot
