#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>

namespace bson {

/// Element types of bsonspec.org that the platform writes, converts or prints.
enum class ElementType : std::uint8_t {
    Double = 0x01,
    Text = 0x02,
    Document = 0x03,
    Array = 0x04,
    Binary = 0x05,  // its length, its kind in one byte, then the bytes
    Bool = 0x08,
    Regex = 0x0B,
    Code = 0x0D,    // laid out as a text
    Symbol = 0x0E,  // laid out as a text
    Int32 = 0x10,
    Int64 = 0x12,
};

/// One element of a document: its name and the bytes of its value, both inside the document.
struct Element {
    ElementType type;
    std::string_view name;
    const char* value;
    std::size_t valueSize;

    bool isText() const { return type == ElementType::Text; }
    bool isNumber() const;
    /// The text without its terminator; only for a text.
    std::string_view text() const { return {value + sizeof(std::int32_t), valueSize - sizeof(std::int32_t) - 1}; }
    std::int64_t toInt64() const;
    double toDouble() const;
    /// toInt64 limited to the range of Integer.
    template <class Integer>
    Integer toInteger() const {
        const std::int64_t number = toInt64();
        if (number < static_cast<std::int64_t>(std::numeric_limits<Integer>::min())) {
            return std::numeric_limits<Integer>::min();
        }
        if (number > static_cast<std::int64_t>(std::numeric_limits<Integer>::max())) {
            return std::numeric_limits<Integer>::max();
        }
        return static_cast<Integer>(number);
    }
};

/// Walks the elements of one document without ever reading outside the bytes it was given: every length and
/// terminator is checked before it is followed. Nested documents are handed out as values, not entered, so a document
/// that is not known to be valid is checked level by level as it is read.
class ElementCursor {
public:
    /// `data` holds `size` bytes; when they do not begin with a plausible document the cursor is failed from the start.
    ElementCursor(const char* data, std::size_t size);

    /// Moves to the next element. False at the end of the document and on damage; failure() tells them apart.
    bool next(Element& element);

    /// For who knows what to expect, several times faster than next(). Reads the next element if it begins with
    /// `header` (type, name, NUL; the type being that of Plain, or a text's). False, without moving, when it does not,
    /// and at the end and on damage: next() then tells which.
    template <class Plain>
    bool nextPlain(std::string_view header, Plain& value) {
        if (left() < header.size() + sizeof value || !sameBytes(at_, header.data(), header.size())) {
            return false;
        }
        std::memcpy(&value, at_ + header.size(), sizeof value);
        at_ += header.size() + sizeof value;
        return true;
    }
    bool nextText(std::string_view header, std::string_view& text) {
        const std::size_t before = header.size() + sizeof(std::int32_t);
        if (left() <= before || !sameBytes(at_, header.data(), header.size())) {
            return false;
        }
        std::uint32_t size = 0;  // with the closing NUL
        std::memcpy(&size, at_ + header.size(), sizeof size);
        if (size < 1 || size > left() - before || at_[before + size - 1] != '\0') {
            return false;
        }
        text = {at_ + before, size - 1};
        at_ += before + size;
        return true;
    }

    /// Why the walk stopped early; null after a walk that reached the end.
    const char* failure() const { return failure_; }
    /// Offset of the byte at which the walk stands.
    std::size_t offset() const { return static_cast<std::size_t>(at_ - begin_); }

private:
    bool fail(const char* reason);
    std::size_t left() const { return static_cast<std::size_t>(end_ - at_); }

    /// For so few bytes that a call would take longer.
    static bool sameBytes(const char* left, const char* right, std::size_t size) {
        using Word = std::uint64_t;
        const auto sameWord = [](const char* a, const char* b) {
            Word first = 0;
            Word second = 0;
            std::memcpy(&first, a, sizeof first);
            std::memcpy(&second, b, sizeof second);
            return first == second;
        };
        if (size < sizeof(Word)) {
            return std::memcmp(left, right, size) == 0;
        }
        const std::size_t last = size - sizeof(Word);
        for (std::size_t at = 0; at < last; at += sizeof(Word)) {
            if (!sameWord(left + at, right + at)) {
                return false;
            }
        }
        return sameWord(left + last, right + last);
    }

    const char* begin_;
    const char* at_;
    const char* end_;  // the document's closing zero byte
    const char* failure_ = nullptr;
};

/// Checks a whole document with everything nested in it. True when it may be used; otherwise `*error`, if given, names
/// the reason and the byte. `size` must be exactly the document's length.
bool checkDocument(const char* data, std::size_t size, std::string* error);

}  // namespace bson
