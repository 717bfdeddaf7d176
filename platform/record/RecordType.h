#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/Export.h"
#include "platform/record/IData.h"

namespace mxservice {

class CETFComponentStockInfo;

/// The basket of an ETF, by component code.
using ComponentMap = std::map<std::string, boost::shared_ptr<CETFComponentStockInfo>>;

/// What a field holds: std::string, std::int8_t, std::int32_t, std::uint32_t, std::int64_t, double, ComponentMap.
enum class FieldKind : std::uint8_t { Text, Int8, Int32, UInt32, Int64, Double, Components };

/// One field of a record class: its document key, what it holds and where.
class PM_PLATFORM_API Field {
public:
    /// A field of that document key, `offset` bytes from the start of the record. `date` is for texts only.
    Field(std::string name, FieldKind kind, std::size_t offset, bool date = false);

    /// The document key.
    const std::string& name() const { return name_; }
    /// What the member is.
    FieldKind kind() const { return kind_; }
    /// Whether the text is a date, YYYYMMDD or empty. One field is a date in most records only: the listingDate of an
    /// outer futures record is a market key.
    bool isDate() const { return date_; }
    /// What stands before the field's value in a document: type, name, NUL.
    const std::string& header() const { return header_; }
    /// Bytes from the start of the record to the member.
    std::size_t offset() const { return offset_; }
    /// Bytes that the member takes.
    std::size_t size() const;

    /// The member itself; T must be the type that kind() stands for, and the record of the class that owns the field.
    template <class T>
    T& in(IData& record) const {
        return *reinterpret_cast<T*>(reinterpret_cast<char*>(&record) + offset_);
    }
    /// The same, not to be changed.
    template <class T>
    const T& in(const IData& record) const {
        return *reinterpret_cast<const T*>(reinterpret_cast<const char*>(&record) + offset_);
    }

    /// Whether the member is equal in two records of the class; baskets by content.
    bool equal(const IData& left, const IData& right) const;
    /// Whether the member has the value of a new record.
    bool isDefault(const IData& record) const;
    /// Gives the member the value of a new record.
    void reset(IData& record) const;

private:
    std::string name_;
    std::string header_;
    FieldKind kind_;
    bool date_;
    std::size_t offset_;
};

/// Stands for a member type where there is no member at hand.
template <class Member>
struct MemberType {
    using type = Member;  ///< the type itself
};

/// Calls `visit` with the MemberType that the kind stands for, and answers what it does. No other place tells the kinds
/// apart: whatever depends on them is a visitor, which does not compile while it leaves a kind out.
template <class Visit>
decltype(auto) visitMemberType(FieldKind kind, Visit&& visit) {
    switch (kind) {
        case FieldKind::Text:
            return visit(MemberType<std::string>());
        case FieldKind::Int8:
            return visit(MemberType<std::int8_t>());
        case FieldKind::Int32:
            return visit(MemberType<std::int32_t>());
        case FieldKind::UInt32:
            return visit(MemberType<std::uint32_t>());
        case FieldKind::Int64:
            return visit(MemberType<std::int64_t>());
        case FieldKind::Double:
            return visit(MemberType<double>());
        case FieldKind::Components:
            break;
    }
    return visit(MemberType<ComponentMap>());
}

/// Calls `visit` with the field's member in the record, as what it is, and answers what it does. `Record` is IData or
/// const IData, or a class of record; it must be of the class that owns the field.
template <class Record, class Visit>
decltype(auto) visitField(const Field& field, Record& record, Visit&& visit) {
    return visitMemberType(field.kind(), [&](auto member) -> decltype(auto) {
        return visit(field.template in<typename decltype(member)::type>(record));
    });
}

/// The field table of one record class, the one place where its fields are listed. Immutable; made once per class and
/// alive until the process ends.
class PM_PLATFORM_API RecordType {
public:
    /// Makes a record with every field at its default.
    using Maker = boost::shared_ptr<IData> (*)();

    /// `telltale` is the document key that no class met before it in a document has (see TypeManager). `recordSize` is
    /// the size of the class; together with the fields it lets a test see that no member is left out of the table.
    RecordType(std::string name, std::string telltale, std::size_t recordSize, Maker maker, std::vector<Field> fields);

    /// The class name.
    const std::string& name() const { return name_; }
    /// The document key that tells the class.
    const std::string& telltale() const { return telltale_; }
    /// The size of the class in bytes.
    std::size_t recordSize() const { return recordSize_; }
    /// The fields in the order of the document.
    const std::vector<Field>& fields() const { return fields_; }

    /// Position of the field with that document key, or -1.
    int indexOf(std::string_view key) const;
    /// The field with that document key, or null.
    const Field* find(std::string_view key) const;

    /// A new record with every field at its default.
    boost::shared_ptr<IData> make() const { return maker_(); }

    /// IData::appendDocument of a record of this class, without asking the record for its class: for callers that hold
    /// a lock, under which nothing of a host's own class may run.
    bool appendDocument(const IData& record, std::string& bytes) const;

private:
    std::string name_;
    std::string telltale_;
    std::size_t recordSize_;
    Maker maker_;
    std::vector<Field> fields_;
    std::unordered_map<std::string_view, int> indexByKey_;
};

/// Knows every record class. Safe from any thread.
class PM_PLATFORM_API TypeManager {
public:
    /// The process's one; never null.
    static TypeManager* instance();

    /// A new record of the class that the document belongs to, filled from it. A document shows its class by the first
    /// of its keys that is a class's telltale; one without any telltale but with "market" and "code" is an instrument.
    /// With `complete`, fields that the document lacks have their defaults (as in any new record); the flag is the
    /// record library's and changes nothing else. Null when no class fits; `*error`, if given, then says so.
    boost::shared_ptr<IData> parse(const bson::BSONObj& object, bool complete, std::string* error) const;

    /// The same from the bytes of a document that nobody has checked yet; they are checked as they are read. Null also
    /// when they are damaged.
    boost::shared_ptr<IData> parse(std::string_view bytes, std::string* error) const;

    /// The class by its name ("CInstrumentDetail"), or null.
    const RecordType* find(std::string_view name) const;
    /// Every class.
    const std::vector<const RecordType*>& types() const { return types_; }

    TypeManager(const TypeManager&) = delete;
    TypeManager& operator=(const TypeManager&) = delete;

private:
    TypeManager();
    std::vector<const RecordType*> types_;
};

}  // namespace mxservice
