#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <string_view>

#include "snapshot/PlainReader.h"

namespace mxservice::snapshot {

/// So many bytes behind a line may be read, though they mean nothing.
constexpr std::size_t kPadding = 64;
/// Longer lines are passed over.
constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20U;

/// Memory that grows and is not cleared.
class Buffer {
public:
    Buffer() = default;
    explicit Buffer(std::size_t capacity)
        : bytes_(std::make_unique_for_overwrite<char[]>(capacity + kPadding)), capacity_(capacity) {}
    char* data() { return bytes_.get(); }
    const char* data() const { return bytes_.get(); }
    /// Without the padding.
    std::size_t capacity() const { return capacity_; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t capacity_ = 0;
};

/// Some whole lines of a file.
struct TextBlock {
    Buffer buffer;
    std::size_t begin = 0;
    std::size_t end = 0;
    std::uint64_t firstLine = 1;
    /// Lines directly before the first one that were too long to keep.
    std::uint64_t overlong = 0;

    std::string_view text() const { return {buffer.data() + begin, end - begin}; }
};

bool isBlank(std::string_view line);

std::uint64_t countLineEnds(std::string_view text);

/// Cuts a text into blocks of whole lines, or of whole CSV records. A byte order mark at the beginning is taken off;
/// the last line may lack its end. Memory grows to the longest line, but not beyond kMaxLineBytes.
class BlockReader {
public:
    /// `blockBytes`: a block is so large, or one line.
    BlockReader(std::unique_ptr<PlainReader> source, std::size_t blockBytes);

    /// The next block ends with the first line that is not blank, if there is one in reach.
    void cutFirstLine() { cut_ = Cut::FirstLine; }
    /// From here on blocks end where a CSV record of so many columns does.
    void cutRecords(std::size_t columns) {
        cut_ = Cut::Records;
        columns_ = columns;
    }

    /// The next block; false at the end. Throws FileFailure when reading fails: first the whole lines before
    /// that are handed out.
    bool next(TextBlock& block);

    /// Bytes of the file, as it is stored, that were read so far.
    std::uint64_t bytesRead() const { return source_->bytesRead(); }
    /// Whether the file has been read to its end, and was not of the size that it had at first.
    bool changed() const;

private:
    enum class Cut : std::uint8_t { Lines, FirstLine, Records };

    bool fill();
    void skipMark();
    std::size_t cut() const;
    std::size_t cutRecords(std::string_view text) const;
    void dropLine();

    std::unique_ptr<PlainReader> source_;
    const std::size_t blockBytes_;
    Cut cut_ = Cut::Lines;
    std::size_t columns_ = 0;
    Buffer buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool atEnd_ = false;
    bool first_ = true;
    std::exception_ptr failure_;
    std::uint64_t line_ = 1;
    std::uint64_t overlong_ = 0;
};

}  // namespace mxservice::snapshot
