#include "platform/bson/ElementCursor.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>

#include "platform/bson/BSONObj.h"

namespace bson {
namespace {

constexpr std::size_t kLengthBytes = sizeof(std::int32_t);
constexpr std::size_t kMinDocumentBytes = 5;
constexpr std::size_t kBinaryHeaderBytes = 5;
constexpr std::size_t kObjectIdBytes = 12;
constexpr std::ptrdiff_t kDamaged = -1;

/// Values lie wherever the name before them ends, on no boundary of their own.
template <class Number>
Number read(const char* at) {
    Number number;
    std::memcpy(&number, at, sizeof number);
    return number;
}

// Lengths are compared with what is left of the document, signed and by subtraction from what is known to be there: a
// length that a damaged document makes negative or huge neither wraps nor points anywhere.

/// The length of a "length, bytes, NUL" text at `at`, or kDamaged.
std::ptrdiff_t textSize(const char* at, std::ptrdiff_t left) {
    if (left < static_cast<std::ptrdiff_t>(kLengthBytes)) {
        return kDamaged;
    }
    const std::ptrdiff_t length = read<std::int32_t>(at);
    const auto header = static_cast<std::ptrdiff_t>(kLengthBytes);
    if (length < 1 || length > left - header || at[header + length - 1] != '\0') {
        return kDamaged;
    }
    return header + length;
}

std::ptrdiff_t documentSize(const char* at, std::ptrdiff_t left) {
    if (left < static_cast<std::ptrdiff_t>(kMinDocumentBytes)) {
        return kDamaged;
    }
    const std::ptrdiff_t length = read<std::int32_t>(at);
    // Its last byte is looked at here, so that whoever walks it need not look for an end within.
    const bool plausible = length >= static_cast<std::ptrdiff_t>(kMinDocumentBytes) && length <= left;
    return plausible && at[length - 1] == '\0' ? length : kDamaged;
}

/// With its NUL. `left` ends before the document's own closing zero, which no name may take for its end.
std::ptrdiff_t cstringSize(const char* at, std::ptrdiff_t left) {
    const void* const zero = left > 0 ? std::memchr(at, 0, static_cast<std::size_t>(left)) : nullptr;
    return zero == nullptr ? kDamaged : static_cast<const char*>(zero) - at + 1;
}

std::ptrdiff_t binarySize(const char* at, std::ptrdiff_t left) {
    const auto header = static_cast<std::ptrdiff_t>(kBinaryHeaderBytes);
    if (left < header) {
        return kDamaged;
    }
    const std::ptrdiff_t length = read<std::int32_t>(at);
    return length >= 0 && length <= left - header ? header + length : kDamaged;
}

std::ptrdiff_t regexSize(const char* at, std::ptrdiff_t left) {
    const std::ptrdiff_t pattern = cstringSize(at, left);
    if (pattern == kDamaged) {
        return kDamaged;
    }
    const std::ptrdiff_t options = cstringSize(at + pattern, left - pattern);
    return options == kDamaged ? kDamaged : pattern + options;
}

std::ptrdiff_t fixedSize(std::ptrdiff_t size, std::ptrdiff_t left) {
    return left >= size ? size : kDamaged;
}

/// The number of value bytes of an element of this type, or kDamaged when it does not fit or the type is unknown.
/// By the numbers of the standard: most of these types are only walked past, and have no name here.
/// The deprecated code with scope (0x0F) and database pointer (0x0C) are refused: nothing of ours ever wrote them.
std::ptrdiff_t valueSize(std::uint8_t type, const char* at, std::ptrdiff_t left) {
    switch (type) {
        case 0x10:
            return fixedSize(4, left);
        case 0x01:
        case 0x09:
        case 0x11:
        case 0x12:
            return fixedSize(8, left);
        case 0x02:
        case 0x0D:
        case 0x0E:
            return textSize(at, left);
        case 0x03:
        case 0x04:
            return documentSize(at, left);
        case 0x08:  // as strict as libbson, so that both take the same documents
            return left >= 1 && (at[0] == 0 || at[0] == 1) ? 1 : kDamaged;
        case 0x05:
            return binarySize(at, left);
        case 0x07:
            return fixedSize(kObjectIdBytes, left);
        case 0x0B:
            return regexSize(at, left);
        case 0x13:
            return fixedSize(16, left);
        case 0x06:
        case 0x0A:
        case 0x7F:
        case 0xFF:
            return 0;
        default:
            return kDamaged;
    }
}

bool checkLevel(const char* data, std::size_t size, int depth, const char* origin, std::string* error) {
    const auto refuse = [&](const char* reason, std::size_t offset) {
        if (error != nullptr) {
            *error = fmt::format("{} at byte {}", reason, static_cast<std::size_t>(data - origin) + offset);
        }
        return false;
    };
    // Before a level is entered: bytes that nest documents by the thousand must not use up the stack.
    if (depth > kMaxDocumentDepth) {
        return refuse("documents nested too deep", 0);
    }
    ElementCursor cursor(data, size);
    for (Element element; cursor.next(element);) {
        const bool nested = element.type == ElementType::Document || element.type == ElementType::Array;
        if (nested && !checkLevel(element.value, element.valueSize, depth + 1, origin, error)) {
            return false;
        }
    }
    return cursor.failure() == nullptr || refuse(cursor.failure(), cursor.offset());
}

}  // namespace

bool Element::isNumber() const {
    return type == ElementType::Int32 || type == ElementType::Int64 || type == ElementType::Double ||
           type == ElementType::Bool;
}

std::int64_t Element::toInt64() const {
    switch (type) {
        case ElementType::Int32:
            return read<std::int32_t>(value);
        case ElementType::Int64:
            return read<std::int64_t>(value);
        case ElementType::Bool:
            return value[0] != 0 ? 1 : 0;
        case ElementType::Double: {
            // To convert a number that has no place in the type is undefined, and a damaged price may be any.
            constexpr double kTwoTo63 = 9223372036854775808.0;
            const double number = read<double>(value);
            if (std::isnan(number)) {
                return 0;
            }
            if (number >= kTwoTo63) {
                return std::numeric_limits<std::int64_t>::max();
            }
            return number < -kTwoTo63 ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(number);
        }
        default:
            return 0;
    }
}

double Element::toDouble() const {
    return type == ElementType::Double ? read<double>(value) : static_cast<double>(toInt64());
}

ElementCursor::ElementCursor(const char* data, std::size_t size) : begin_(data), at_(data), end_(data) {
    if (size > kMaxDocumentBytes) {
        failure_ = "document larger than 16 MiB";
        return;
    }
    // The size has to be the document's own. Else bytes behind its end would be walked as elements, or its last ones
    // not at all.
    const std::ptrdiff_t length = documentSize(data, static_cast<std::ptrdiff_t>(size));
    if (length != static_cast<std::ptrdiff_t>(size)) {
        failure_ = "document length or terminator does not fit";
        return;
    }
    at_ = data + kLengthBytes;
    end_ = data + size - 1;
}

bool ElementCursor::fail(const char* reason) {
    failure_ = reason;
    return false;
}

bool ElementCursor::next(Element& element) {
    if (failure_ != nullptr || at_ == end_) {
        return false;
    }
    const auto type = static_cast<std::uint8_t>(*at_);
    const char* const name = at_ + 1;
    const std::ptrdiff_t nameSize = cstringSize(name, end_ - name);
    if (nameSize == kDamaged) {
        return fail("field name without end");
    }
    const char* const value = name + nameSize;
    const std::ptrdiff_t size = valueSize(type, value, end_ - value);
    if (size == kDamaged) {
        return fail("field of unknown type or with a value that does not fit");
    }
    // Filled in when all of it is known to be sound: after a failure the caller's element is the one before.
    element.type = static_cast<ElementType>(type);
    element.name = {name, static_cast<std::size_t>(nameSize - 1)};
    element.value = value;
    element.valueSize = static_cast<std::size_t>(size);
    at_ = value + size;
    return true;
}

bool checkDocument(const char* data, std::size_t size, std::string* error) {
    return checkLevel(data, size, 1, data, error);
}

}  // namespace bson
