// Messages of a feed. The first byte says what the rest is: 'd' a day and 'c' a change as operations, which are packed
// before they are read, so that bytes reach the reader behind the checksum; 'z' a frame as it stands; 'h' headers, a
// line each. Whatever it holds is refused with a reason, or can be packed again and gives the same book.

#include "feed/Head.h"
#include "feed/Operations.h"
#include "feed/Zstd.h"
#include "fuzz/Fuzzing.h"

namespace {

using namespace mxservice::feed;

constexpr std::uint64_t kRoom = 64U << 20U;

void readDay(const std::string& packed) {
    Book book;
    const Day day = unpackDay(packed, kRoom, book);
    Book again;
    Book third;
    const std::string own = packDay(day, again);
    const Day back = unpackDay(own, 64 * kRoom, third);
    require(again.digest() == third.digest(), "a day that was packed is read back with its digest");
    require(back.calls().size() == day.calls().size(), "and has as many loads");
    for (std::size_t i = 0; i < day.calls().size(); ++i) {
        require(back.calls()[i].records.size() == day.calls()[i].records.size(), "with as many records");
        for (std::size_t k = 0; k < day.calls()[i].records.size(); ++k) {
            require(*back.calls()[i].records[k] == *day.calls()[i].records[k], "which are equal");
        }
    }
}

void readChange(const std::string& packed) {
    Book book;
    const Change change = unpackChange(packed, kRoom, book);
    Book again;
    Book third;
    const Change back = unpackChange(packChange(change, again), 64 * kRoom, third);
    require(again.digest() == third.digest(), "a change that was packed is read back with its digest");
    require(back.upserts.size() == change.upserts.size() && back.removedKeys == change.removedKeys, "and is the same");
}

void readHeaders(std::string_view lines) {
    Headers headers;
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find('\n'), lines.size());
        const std::string_view line = lines.substr(0, end);
        const std::size_t colon = std::min(line.find(':'), line.size());
        headers[std::string(line.substr(0, colon))] = line.substr(std::min(colon + 1, line.size()));
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    Head head;
    std::string reason;
    if (readHead(headers, head, reason) != HeadKind::Good) {
        require(!reason.empty(), "what is refused has a reason");
        return;
    }
    Head again;
    require(readHead(headersOf(head), again, reason) == HeadKind::Good, "a head can be written and read");
    require(again.digest == head.digest && again.revision == head.revision && again.token == head.token,
            "and says the same");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    try {
        if (data[0] == 'h') {
            readHeaders(bytes);
        } else if (data[0] == 'z') {
            readDay(bytes);
        } else {
            Packer packer;
            packer.plain() = bytes;
            data[0] == 'c' ? readChange(packer.finish()) : readDay(packer.finish());
        }
    } catch (const BadBytes& bad) {
        require(*bad.what() != '\0', "what is refused has a reason");
    }
    return 0;
}
