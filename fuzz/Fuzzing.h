#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <string_view>

#include "platform/record/RecordType.h"

/// What a fuzzer holds the product to; libFuzzer keeps the input of one that aborts.
inline void require(bool condition, const char* promise) {
    if (!condition) {
        std::cerr << "broken promise: " << promise << '\n';
        std::abort();
    }
}

/// An input begins with a character that picks the record class: from `first` on, one for each class.
inline const mxservice::RecordType& pickedClass(std::uint8_t picked, char first) {
    const auto& types = mxservice::TypeManager::instance()->types();
    return *types[static_cast<std::uint8_t>(picked - static_cast<std::uint8_t>(first)) % types.size()];
}

/// A file without a disk, for what is read by its path.
class MemoryFile {
public:
    MemoryFile() : fd_(::memfd_create("input", MFD_CLOEXEC)) { require(fd_ >= 0, "a file in memory can be made"); }
    ~MemoryFile() { ::close(fd_); }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    void fill(std::string_view bytes) const {
        require(::ftruncate(fd_, 0) == 0 &&
                    ::pwrite(fd_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
                "a file in memory can be written");
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};
