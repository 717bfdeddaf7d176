#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "platform/record/IData.h"

namespace inscenter::generate {

/// One file of a snapshot, written as it grows: a record a line. Every failure throws std::runtime_error that names
/// the file and the reason.
class RecordFile {
public:
    /// Creates the file, or empties it.
    explicit RecordFile(const std::filesystem::path& path);

    void write(const mxservice::IData& record);
    /// Writes what is left. Without it the end of the file is missing.
    void close();

    std::string name() const { return path_.filename().string(); }
    std::size_t records() const { return records_; }

private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    void flush();
    [[noreturn]] void fail(int reason) const;

    std::filesystem::path path_;
    std::unique_ptr<std::FILE, Closer> file_;
    std::string buffer_;
    std::size_t records_ = 0;
};

}  // namespace inscenter::generate
