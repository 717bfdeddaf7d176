#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace bson {

/// Element types of bsonspec.org that the platform writes or converts.
enum class ElementType : std::uint8_t {
    Double = 0x01,
    Text = 0x02,
    Document = 0x03,
    Array = 0x04,
    Bool = 0x08,
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

    /// Why the walk stopped early; null after a walk that reached the end.
    const char* failure() const { return failure_; }
    /// Offset of the byte at which the walk stands.
    std::size_t offset() const { return static_cast<std::size_t>(at_ - begin_); }

private:
    bool fail(const char* reason);

    const char* begin_;
    const char* at_;
    const char* end_;  // the document's closing zero byte
    const char* failure_ = nullptr;
};

/// Checks a whole document with everything nested in it. True when it may be used; otherwise `*error`, if given, names
/// the reason and the byte. `size` must be exactly the document's length.
bool checkDocument(const char* data, std::size_t size, std::string* error);

}  // namespace bson
