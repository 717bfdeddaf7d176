#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

struct gzFile_s;  // a file as zlib reads it

namespace inscenter {

/// A text file line by line, from one buffer that is used again and again: memory does not grow with the file. Line
/// ends (LF or CRLF) and a byte order mark at the beginning are taken off; the last line may lack its end. What is
/// packed with gzip is unpacked on the way.
class LineReader {
public:
    /// So many bytes behind a line may be read, though they mean nothing.
    static constexpr std::size_t kPadding = 64;
    /// Longer lines are passed over.
    static constexpr std::size_t kMaxLineBytes = std::size_t{64} << 20U;

    /// A file whose name ends so must be packed.
    static constexpr std::string_view kPackedEnding = ".gz";

    /// Throws std::runtime_error with the reason when the file cannot be opened.
    explicit LineReader(const std::filesystem::path& path);
    /// Standard input, whatever it is: a pipe, a socket or a file. Throws the same.
    LineReader();

    /// Goes to the next line; false at the end of the file. Throws std::runtime_error when reading fails, as it does
    /// where a packed file is damaged or ends too early.
    bool next();

    /// The line, until the next call. Empty when it is too long.
    std::string_view line() const { return line_; }
    bool tooLong() const { return tooLong_; }
    /// The number of the line, from 1.
    std::size_t number() const { return number_; }
    /// Bytes of the file, as it is stored, that were read so far.
    std::uint64_t bytesRead() const { return bytesRead_; }

private:
    LineReader(gzFile_s* file, bool packed);

    struct Closer {
        void operator()(gzFile_s* file) const;
    };

    void fill();
    void makeRoom();
    void takeLine(std::size_t end);

    std::unique_ptr<gzFile_s, Closer> file_;
    const bool packed_;  // by its name
    std::vector<char> buffer_;
    std::size_t begin_ = 0;    // of what no line was made of yet
    std::size_t scanned_ = 0;  // up to here there is no line end
    std::size_t end_ = 0;
    bool atEnd_ = false;
    bool overlong_ = false;  // the line that is being read has lost its beginning
    bool tooLong_ = false;
    std::string_view line_;
    std::size_t number_ = 0;
    std::uint64_t bytesRead_ = 0;
};

}  // namespace inscenter
