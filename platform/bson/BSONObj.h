#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.h"

namespace bson {

/// The largest document that is read or built, in bytes.
constexpr std::size_t kMaxDocumentBytes = 16U * 1024 * 1024;
/// The deepest nesting of documents and arrays that is read; a flat document has depth 1.
constexpr int kMaxDocumentDepth = 32;

/// An immutable BSON document (bsonspec.org, version 1.1). Copies share the bytes; a document obtained from another
/// shares the other's bytes and keeps them alive. Safe to read from any thread.
///
/// A BSONObj never holds bytes that are not a valid document: whatever comes from outside goes through fromBytes.
class PM_PLATFORM_API BSONObj {
public:
    /// The empty document, five bytes.
    BSONObj();

    /// A copy of the document in the first bytes of `data`. The bytes are checked as a whole, nested documents
    /// included: lengths, terminators, element types, depth and size. When they are refused the result is the empty
    /// document and `*error`, if given, says why and at which byte; on success `*error` is cleared.
    static BSONObj fromBytes(const void* data, std::size_t size, std::string* error = nullptr);

    /// Whether the document has no field.
    bool isEmpty() const;
    /// Whether a field of that name is there, of whatever type.
    bool hasField(std::string_view name) const;

    /// @name Field access
    /// The first field of that name counts. A missing field gives an empty text, zero or the empty document. Numbers
    /// convert between the numeric types: a double is truncated toward zero, and a value outside the target's range
    /// becomes the nearest end of it. A field of any other type counts as missing. Cost: a search from the first field.
    /// @{
    std::string getStringField(std::string_view name) const;  ///< A text.
    std::int32_t getIntField(std::string_view name) const;    ///< A number as 32 bits.
    std::int64_t getLongField(std::string_view name) const;   ///< A number as 64 bits.
    double getDoubleField(std::string_view name) const;       ///< A number.
    bool getBoolField(std::string_view name) const;           ///< A truth value, or whether a number is not 0.
    BSONObj getObjectField(std::string_view name) const;      ///< A nested document; shares the bytes.
    /// @}

    /// The embedded documents of an array in their order; elements of other types are left out. Empty when the field
    /// is missing or no array.
    std::vector<BSONObj> getArrayField(std::string_view name) const;

    /// The names of the document's own fields in their order.
    std::vector<std::string> fieldNames() const;

    /// The bytes; valid as long as this document or a copy of it lives.
    const char* objdata() const { return data_; }
    /// How many they are.
    int objsize() const { return size_; }

    /// Canonical extended JSON. Bytes of a text that are not UTF-8 appear as question marks.
    std::string toJson() const;

    /// Equal bytes.
    friend bool operator==(const BSONObj& left, const BSONObj& right) {
        return std::string_view(left.data_, static_cast<std::size_t>(left.size_)) ==
               std::string_view(right.data_, static_cast<std::size_t>(right.size_));
    }
    /// Other bytes.
    friend bool operator!=(const BSONObj& left, const BSONObj& right) { return !(left == right); }

private:
    friend class BSONObjBuilder;
    BSONObj(std::shared_ptr<const void> owner, const char* data, int size);

    std::shared_ptr<const void> owner_;
    const char* data_;
    int size_;
};

/// Builds a document field by field, in the order of the calls. Not safe for use by several threads at once.
class PM_PLATFORM_API BSONObjBuilder {
public:
    BSONObjBuilder();
    ~BSONObjBuilder();
    BSONObjBuilder(const BSONObjBuilder&) = delete;
    BSONObjBuilder& operator=(const BSONObjBuilder&) = delete;

    /// @name Appending one field
    /// A name holding a NUL byte, a document grown past kMaxDocumentBytes or nested deeper than kMaxDocumentDepth makes
    /// the whole build fail: obj() then gives the empty document. Texts may hold any bytes.
    /// @{

    /// Text.
    BSONObjBuilder& append(std::string_view name, std::string_view value);
    /// Text.
    BSONObjBuilder& append(std::string_view name, const std::string& value);
    /// Text that ends with a NUL.
    BSONObjBuilder& append(std::string_view name, const char* value);
    /// 32-bit number.
    BSONObjBuilder& append(std::string_view name, std::int32_t value);
    /// 64-bit number.
    BSONObjBuilder& append(std::string_view name, std::int64_t value);
    /// Double.
    BSONObjBuilder& append(std::string_view name, double value);
    /// Truth value.
    BSONObjBuilder& append(std::string_view name, bool value);
    /// Nested document.
    BSONObjBuilder& append(std::string_view name, const BSONObj& value);
    /// Array of documents.
    BSONObjBuilder& append(std::string_view name, const std::vector<BSONObj>& values);
    /// @}

    /// False once an append failed.
    bool ok() const;

    /// The finished document; the builder starts anew, empty.
    BSONObj obj();

private:
    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace bson
