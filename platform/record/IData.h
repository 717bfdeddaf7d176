#pragma once

#include <boost/shared_ptr.hpp>

#include <iosfwd>
#include <string>
#include <string_view>

#include "platform/Export.h"
#include "platform/bson/BSONObj.h"

namespace mxservice {

class RecordType;

/// Base of every record. A record is a plain value with public members; its class's field table (see RecordType) gives
/// it its document form, equality and printing. Records carry no lock: a record that threads share is not changed.
class PM_PLATFORM_API IData {
public:
    virtual ~IData();

    /// The field table of the record's class.
    virtual const RecordType& recordType() const = 0;

    /// The text that tells this record from others of its class; each class says which.
    virtual std::string getKey() const = 0;

    /// A new record of the same class with equal fields. Baskets are shared with the copy, not copied.
    virtual boost::shared_ptr<IData> copy() const = 0;

    /// Appends every field under its document key, in the order of the table. Stored; never change.
    void appendElements(bson::BSONObjBuilder& builder) const;
    /// The form of the instrument documents: the same fields in the same order.
    void appendElements_v2(bson::BSONObjBuilder& builder) const;

    /// Appends the same document as toBsonWithBson gives, byte for byte, to `bytes`; several times faster. False, with
    /// `bytes` as it was, when the document would exceed bson::kMaxDocumentBytes.
    bool appendDocument(std::string& bytes) const;

    /// The record as a finished document; the empty document when it would exceed bson::kMaxDocumentBytes.
    bson::BSONObj toBsonWithBson() const;

    /// Fills the record from a document, whatever the order of its fields. Unknown fields are passed over, numbers are
    /// converted as BSONObj does, a field of an unfit type counts as missing. With `resetMissing`, fields that the
    /// document lacks go back to their defaults, otherwise they stay as they are. Answers true; the document was
    /// checked when it was made. `*error`, if given, is cleared.
    bool bsonValueFromObj(const bson::BSONObj& object, bool resetMissing, std::string* error);

    /// The same from the bytes of a document that nobody has checked yet; they are checked as they are read. False when
    /// they are damaged: the record is then of no use and `*error`, if given, says where.
    bool readDocument(std::string_view bytes, bool resetMissing, std::string* error);

protected:
    /// Copied through its class alone.
    IData() = default;
    IData(const IData&) = default;             ///< Copied through its class alone.
    IData& operator=(const IData&) = default;  ///< Copied through its class alone.
};

/// Same class and every field equal; baskets are compared by content.
PM_PLATFORM_API bool operator==(const IData& left, const IData& right);
inline bool operator!=(const IData& left, const IData& right) {
    return !(left == right);
}

/// The class name and the fields that differ from their defaults: "CInstrumentDetail{market=SH, code=600000}".
PM_PLATFORM_API std::ostream& operator<<(std::ostream& out, const IData& record);

}  // namespace mxservice
