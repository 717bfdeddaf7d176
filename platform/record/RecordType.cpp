#include "platform/record/RecordType.h"

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "platform/bson/ElementCursor.h"
#include "platform/record/DocumentForm.h"
#include "platform/record/Records.h"

namespace mxservice {
namespace {

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
        // A host may leave a place empty. Such a place equals another such place, though no document has either.
        if (!a.second || !b.second) {
            return a.first == b.first && !a.second == !b.second;
        }
        return a.first == b.first && static_cast<const IData&>(*a.second) == static_cast<const IData&>(*b.second);
    };
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), sameComponent);
}

template <class Member>
constexpr bson::ElementType elementTypeOf() {
    if constexpr (std::is_same_v<Member, std::string>) {
        return bson::ElementType::Text;
    } else if constexpr (std::is_same_v<Member, ComponentMap>) {
        return bson::ElementType::Array;
    } else if constexpr (std::is_same_v<Member, double>) {
        return bson::ElementType::Double;
    } else {
        return sizeof(Stored<Member>) == sizeof(std::int32_t) ? bson::ElementType::Int32 : bson::ElementType::Int64;
    }
}

/// Made once a field: a load copies these bytes as they are for every record.
std::string headerOf(const std::string& name, FieldKind kind) {
    const auto type =
        visitMemberType(kind, [](auto member) { return elementTypeOf<typename decltype(member)::type>(); });
    return static_cast<char>(type) + name + '\0';
}

}  // namespace

Field::Field(std::string name, FieldKind kind, std::size_t offset, bool date)
    : name_(std::move(name)), header_(headerOf(name_, kind)), kind_(kind), date_(date), offset_(offset) {}

std::size_t Field::size() const {
    return visitMemberType(kind_, [](auto member) { return sizeof(typename decltype(member)::type); });
}

bool Field::equal(const IData& left, const IData& right) const {
    return visitField(*this, left,
                      [&](const auto& member) { return sameValue(member, in<std::decay_t<decltype(member)>>(right)); });
}

bool Field::isDefault(const IData& record) const {
    return visitField(*this, record,
                      [](const auto& member) { return sameValue(member, std::decay_t<decltype(member)>()); });
}

void Field::reset(IData& record) const {
    visitField(*this, record, [](auto& member) { member = {}; });
}

RecordType::RecordType(std::string name, std::string telltale, std::size_t recordSize, Maker maker,
                       std::vector<Field> fields)
    : name_(std::move(name)),
      telltale_(std::move(telltale)),
      recordSize_(recordSize),
      maker_(maker),
      fields_(std::move(fields)) {
    // The keys of the index are views of the fields' own names: a table is never changed, moved or copied.
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
    // The class first: in a record of another one the fields lie elsewhere.
    return &type == &right.recordType() && std::all_of(type.fields().begin(), type.fields().end(), same);
}

}  // namespace mxservice
