#include "platform/record/RecordType.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "platform/bson/ElementCursor.h"
#include "platform/record/Records.h"

namespace mxservice {
namespace {

/// Calls `visit` with a null pointer of the member type that the kind stands for.
template <class Visit>
auto withMemberType(FieldKind kind, Visit&& visit) {
    switch (kind) {
        case FieldKind::Text:
            return visit(static_cast<std::string*>(nullptr));
        case FieldKind::Int8:
            return visit(static_cast<std::int8_t*>(nullptr));
        case FieldKind::Int32:
            return visit(static_cast<std::int32_t*>(nullptr));
        case FieldKind::UInt32:
            return visit(static_cast<std::uint32_t*>(nullptr));
        case FieldKind::Int64:
            return visit(static_cast<std::int64_t*>(nullptr));
        case FieldKind::Double:
            return visit(static_cast<double*>(nullptr));
        case FieldKind::Components:
            break;
    }
    return visit(static_cast<ComponentMap*>(nullptr));
}

template <class T>
bool sameValue(const T& left, const T& right) {
    return left == right;
}

/// A price that is not a number equals itself here: a record must equal its own copy.
bool sameValue(double left, double right) {
    return left == right || (std::isnan(left) && std::isnan(right));
}

bool sameValue(const ComponentMap& left, const ComponentMap& right) {
    const auto sameComponent = [](const auto& a, const auto& b) {
        if (!a.second || !b.second) {
            return a.first == b.first && !a.second == !b.second;
        }
        return a.first == b.first && static_cast<const IData&>(*a.second) == static_cast<const IData&>(*b.second);
    };
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), sameComponent);
}

bson::ElementType elementTypeOf(FieldKind kind) {
    switch (kind) {
        case FieldKind::Text:
            return bson::ElementType::Text;
        case FieldKind::Int8:
        case FieldKind::Int32:
            return bson::ElementType::Int32;
        case FieldKind::UInt32:  // BSON knows no unsigned 32-bit number; 64 bits hold every value
        case FieldKind::Int64:
            return bson::ElementType::Int64;
        case FieldKind::Double:
            return bson::ElementType::Double;
        case FieldKind::Components:
            break;
    }
    return bson::ElementType::Array;
}

std::string headerOf(const std::string& name, FieldKind kind) {
    return static_cast<char>(elementTypeOf(kind)) + name + '\0';
}

}  // namespace

Field::Field(std::string name, FieldKind kind, std::size_t offset, bool date)
    : name_(std::move(name)), header_(headerOf(name_, kind)), kind_(kind), date_(date), offset_(offset) {}

std::size_t Field::size() const {
    return withMemberType(kind_, [](auto* type) { return sizeof *type; });
}

bool Field::equal(const IData& left, const IData& right) const {
    return withMemberType(kind_, [&](auto* type) {
        using Member = std::remove_pointer_t<decltype(type)>;
        return sameValue(in<Member>(left), in<Member>(right));
    });
}

bool Field::isDefault(const IData& record) const {
    return withMemberType(kind_, [&](auto* type) {
        using Member = std::remove_pointer_t<decltype(type)>;
        return sameValue(in<Member>(record), Member());
    });
}

void Field::reset(IData& record) const {
    withMemberType(kind_, [&](auto* type) { in<std::remove_pointer_t<decltype(type)>>(record) = {}; });
}

RecordType::RecordType(std::string name, std::string telltale, std::size_t recordSize, Maker maker,
                       std::vector<Field> fields)
    : name_(std::move(name)),
      telltale_(std::move(telltale)),
      recordSize_(recordSize),
      maker_(maker),
      fields_(std::move(fields)) {
    for (std::size_t i = 0; i < fields_.size(); ++i) {
        indexByKey_.emplace(fields_[i].name(), static_cast<int>(i));
    }
}

int RecordType::indexOf(std::string_view key) const {
    const auto found = indexByKey_.find(key);
    return found == indexByKey_.end() ? -1 : found->second;
}

const Field* RecordType::find(std::string_view key) const {
    const int index = indexOf(key);
    return index < 0 ? nullptr : &fields_[static_cast<std::size_t>(index)];
}

bool operator==(const IData& left, const IData& right) {
    const RecordType& type = left.recordType();
    const auto same = [&](const Field& field) { return field.equal(left, right); };
    return &type == &right.recordType() && std::all_of(type.fields().begin(), type.fields().end(), same);
}

}  // namespace mxservice
