#include "snapshot/ByteSource.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <istream>
#include <system_error>

namespace mxservice::snapshot {
namespace {

namespace fs = std::filesystem;

[[noreturn]] std::size_t fail(std::error_code code) {
    throw FileFailure("cannot be read: " + code.message());
}

/// What the system said last; streams only tell that something went wrong.
std::error_code lastError() {
    return errno != 0 ? std::error_code(errno, std::generic_category()) : std::make_error_code(std::io_errc::stream);
}

class StreamSource : public ByteSource {
public:
    explicit StreamSource(std::istream& stream) : stream_(stream) {
        // Of a file that could not be opened, for one: without a word it would be taken for an empty one.
        if (stream_.fail()) {
            failed_ = std::make_error_code(std::io_errc::stream);
        }
    }

    std::size_t read(char* to, std::size_t room) override {
        if (!stream_) {  // it has told its end before, or a fault behind the last bytes
            return failed_ ? fail(*failed_) : 0;
        }
        errno = 0;
        try {
            stream_.read(to, static_cast<std::streamsize>(room));
        } catch (const std::ios_base::failure&) {  // of a stream whose owner wants to hear of its states so
        }
        if (stream_.bad()) {
            failed_ = lastError();
        }
        const auto count = static_cast<std::size_t>(stream_.gcount());
        // What came before a fault is handed out first.
        return count == 0 && failed_ ? fail(*failed_) : count;
    }

private:
    std::istream& stream_;
    std::optional<std::error_code> failed_;
};

class FileSource : public ByteSource {
public:
    explicit FileSource(const fs::path& path) {
        std::error_code failure;
        // Asked first: some systems open a directory like a file and give no bytes of it.
        if (fs::is_directory(path, failure)) {
            fail(std::make_error_code(std::errc::is_a_directory));
        }
        errno = 0;
        file_.rdbuf()->pubsetbuf(nullptr, 0);  // who reads here takes large pieces
        file_.open(path, std::ios::binary);
        if (!file_) {
            fail(lastError());
        }
        const auto size = fs::file_size(path, failure);
        if (!failure && fs::is_regular_file(path, failure)) {
            size_ = size;
        }
    }

    std::size_t read(char* to, std::size_t room) override { return bytes_.read(to, room); }
    std::optional<std::uint64_t> size() const override { return size_; }

private:
    std::ifstream file_;
    StreamSource bytes_{file_};
    std::optional<std::uint64_t> size_;
};

class MemorySource : public ByteSource {
public:
    MemorySource(const char* bytes, std::size_t size) : bytes_(bytes), size_(size) {}
    std::size_t read(char* to, std::size_t room) override {
        const std::size_t count = std::min(room, size_ - at_);
        if (count > 0) {
            std::memcpy(to, bytes_ + at_, count);
        }
        // No end is kept apart: at the end this gives nothing, as often as it is asked.
        at_ += count;
        return count;
    }
    std::optional<std::uint64_t> size() const override { return size_; }

private:
    const char* bytes_;
    std::size_t size_;
    std::size_t at_ = 0;
};

}  // namespace

std::unique_ptr<ByteSource> fileSource(const std::filesystem::path& path) {
    return std::make_unique<FileSource>(path);
}

std::unique_ptr<ByteSource> streamSource(std::istream& stream) {
    return std::make_unique<StreamSource>(stream);
}

std::unique_ptr<ByteSource> memorySource(const char* bytes, std::size_t size) {
    return std::make_unique<MemorySource>(bytes, size);
}

}  // namespace mxservice::snapshot
