#include "feed/DayFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "feed/RecordBytes.h"
#include "platform/utils/Hash.h"
#include "platform/utils/LogLine.h"

namespace mxservice::feed {
namespace {

constexpr std::string_view kMagic = "PmFeed 1\n";  // stored; never change

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

/// A file that is being written. By the system's calls, for streams neither flush to the disk nor say why they failed;
/// not kept by programs that the host starts.
class Output {
public:
    Output(const std::string& path, int flags) : fd_(::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, 0666)) {
        if (fd_ < 0) {
            fail("open");
        }
    }
    ~Output() { ::close(fd_); }
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    void write(std::string_view bytes) const {
        while (!bytes.empty()) {
            const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
            if (written < 0 && errno != EINTR) {
                fail("write");
            }
            bytes.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
    }
    void flush() const {
        if (::fsync(fd_) != 0) {
            fail("fsync");
        }
    }

private:
    int fd_;
};

/// An entry: its length, sequence, headers, payload, and the hash of all that. A process that dies while it appends
/// leaves a piece of one, and a power cut perhaps a length with zeros behind it: neither has the right hash.
std::string bytesOf(const Entry& entry) {
    std::string body;
    appendNumber(body, entry.sequence);
    appendNumber(body, entry.headers.size());
    for (const auto& [name, value] : entry.headers) {
        appendText(body, name);
        appendText(body, value);
    }
    appendText(body, entry.packed);
    std::string bytes;
    appendText(bytes, body);
    const std::uint64_t hash = utils::hash(body);
    bytes.append(reinterpret_cast<const char*>(&hash), sizeof hash);
    return bytes;
}

Entry readEntry(ByteReader& reader) {
    const std::string body(reader.text());
    const std::uint64_t hash = utils::hash(body);
    if (reader.take(sizeof hash) != std::string_view(reinterpret_cast<const char*>(&hash), sizeof hash)) {
        throw BadBytes("damaged");
    }
    ByteReader fields(body);
    Entry entry;
    entry.sequence = fields.number();
    for (std::uint64_t left = fields.number(); left > 0; --left) {
        std::string name(fields.text());
        entry.headers[std::move(name)] = fields.text();
    }
    entry.packed = fields.text();
    // The bytes are sound, but another version of the library may have written them.
    std::string reason;
    if (readHead(entry.headers, entry.head, reason) != HeadKind::Good) {
        throw BadBytes(reason);
    }
    return entry;
}

void complain(const std::string& path, const char* what) {
    PM_LOG(utils::kLogError, __FILE__, fmt::format("[feed] {}: {}", path, what));
}

}  // namespace

std::vector<Entry> DayFile::read() {
    std::vector<Entry> entries;
    std::ifstream file(path_, std::ios::binary);
    if (path_.empty() || !file) {
        return entries;
    }
    const std::string bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    std::size_t sound = 0;
    try {
        ByteReader reader(bytes);
        if (reader.take(kMagic.size()) != kMagic) {
            throw BadBytes("no file of a day");
        }
        while (!reader.atEnd()) {
            entries.push_back(readEntry(reader));
            sound = bytes.size() - reader.left();
        }
        whole_ = true;
    } catch (const BadBytes& bad) {
        complain(path_, bad.what());
        if (!entries.empty()) {
            cutOff(sound);
        }
    }
    return entries;
}

/// Nobody reads on behind what is damaged: were the end left, one process that died while it appended would cost the
/// next one every change until the next day. What cannot be cut off is not appended to.
void DayFile::cutOff(std::size_t sound) {
    std::error_code failure;
    std::filesystem::resize_file(path_, sound, failure);
    whole_ = !failure;
    if (failure) {
        complain(path_, failure.message().c_str());
    }
}

void DayFile::write(const std::vector<Entry>& entries) {
    if (path_.empty()) {
        return;
    }
    whole_ = false;  // if this fails the file has another day, which the next changes are not of
    const std::string beside = path_ + ".new";
    try {
        {
            const Output output(beside, O_CREAT | O_TRUNC);
            output.write(kMagic);
            for (const Entry& entry : entries) {
                output.write(bytesOf(entry));
            }
            // Before the name changes: a name that survives a power cut must not lead to bytes that did not.
            output.flush();
        }
        // That the new name is on the disk is not waited for: the former file is a whole day, too.
        std::filesystem::rename(beside, path_);
        whole_ = true;
    } catch (const std::exception& failure) {
        complain(path_, failure.what());
        std::error_code ignored;
        std::filesystem::remove(beside, ignored);
    }
}

void DayFile::append(const Entry& entry) {
    if (!whole_) {
        return;
    }
    try {
        // Opened for each, and not made: a file that an operator has removed is an error line, where one that was kept
        // open would take changes that nobody finds.
        Output(path_, O_APPEND).write(bytesOf(entry));
    } catch (const std::exception& failure) {
        whole_ = false;  // what follows half an entry could not be read
        complain(path_, failure.what());
    }
}

}  // namespace mxservice::feed
