#pragma once

#include <cstdint>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>

#include "system/Path.h"

namespace sys {

/// A file under a name of its own beside the one whose place it takes once it is whole: until then readers find the
/// former one. What throws does so as std::runtime_error with the reason.
class FileReplacement {
public:
    /// Links are followed: the file that they lead to is the one to be replaced. Throws where something stands there
    /// that is no file, as a device or a link to nothing.
    explicit FileReplacement(const std::filesystem::path& wanted) : wanted_(wanted) {
        std::error_code failure;
        if (std::filesystem::exists(std::filesystem::symlink_status(wanted, failure))) {
            wanted_ = std::filesystem::canonical(wanted, failure);
            expect(failure);
            former_ = std::filesystem::status(wanted_, failure);
            expect(failure);
            if (!std::filesystem::is_regular_file(former_)) {
                throw std::runtime_error("cannot be written: it is no regular file");
            }
        }
        // With a dot in front, which readers of directories pass over, and a number, for two may write one file at a
        // time.
        std::random_device random;
        const std::uint64_t number = std::uint64_t{random()} << 32U | random();
        path_ = wanted_.parent_path() / pathOf("." + textOf(wanted_.filename()) + "." + std::to_string(number));
    }
    ~FileReplacement() {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);  // renamed, it is not there any more
    }
    FileReplacement(const FileReplacement&) = delete;
    FileReplacement& operator=(const FileReplacement&) = delete;

    /// Where to write.
    const std::filesystem::path& path() const { return path_; }
    /// What is replaced, links followed.
    const std::filesystem::path& wanted() const { return wanted_; }

    /// Takes the place, with the permissions of the former file.
    void rename() const {
        std::error_code failure;
        if (std::filesystem::exists(former_)) {
            std::filesystem::permissions(path_, former_.permissions(), failure);
            expect(failure);
        }
        std::filesystem::rename(path_, wanted_, failure);
        expect(failure);
    }

private:
    static void expect(const std::error_code& failure) {
        if (failure) {
            throw std::runtime_error("cannot be written: " + failure.message());
        }
    }

    std::filesystem::path wanted_;
    std::filesystem::path path_;
    std::filesystem::file_status former_{std::filesystem::file_type::not_found};
};

}  // namespace sys
