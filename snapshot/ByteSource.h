#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iosfwd>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace mxservice::snapshot {

/// A file cannot be read, or not to its end: it is given up, and the others are read.
class FileFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Bytes as they are stored, one after the other.
class ByteSource {
public:
    virtual ~ByteSource() = default;

    /// Up to `room` bytes, at least one; 0 at the end. Throws FileFailure with the reason when reading fails.
    virtual std::size_t read(char* to, std::size_t room) = 0;
    /// How many there are, where that is known.
    virtual std::optional<std::uint64_t> size() const { return std::nullopt; }
};

/// Throws FileFailure with the reason when the file cannot be opened.
std::unique_ptr<ByteSource> fileSource(const std::filesystem::path& path);
/// `stream` must live as long.
std::unique_ptr<ByteSource> streamSource(std::istream& stream);
/// So must the bytes.
std::unique_ptr<ByteSource> memorySource(const char* bytes, std::size_t size);

}  // namespace mxservice::snapshot
