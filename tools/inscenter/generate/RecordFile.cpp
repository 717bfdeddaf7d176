#include "tools/inscenter/generate/RecordFile.h"

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "tools/inscenter/RecordText.h"

namespace inscenter::generate {
namespace {

constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

}  // namespace

RecordFile::RecordFile(const std::filesystem::path& path) : path_(path), file_(std::fopen(path.c_str(), "wb")) {
    if (!file_) {
        fail(errno);
    }
}

void RecordFile::write(const mxservice::IData& record) {
    appendJson(buffer_, record);
    buffer_ += '\n';
    ++records_;
    if (buffer_.size() >= kBufferBytes) {
        flush();
    }
}

void RecordFile::close() {
    flush();
    if (std::fclose(file_.release()) != 0) {
        fail(errno);
    }
}

void RecordFile::flush() {
    if (std::fwrite(buffer_.data(), 1, buffer_.size(), file_.get()) != buffer_.size()) {
        fail(errno);
    }
    buffer_.clear();
}

void RecordFile::fail(int reason) const {
    throw std::runtime_error(path_.string() + ": cannot be written: " + std::generic_category().message(reason));
}

}  // namespace inscenter::generate
