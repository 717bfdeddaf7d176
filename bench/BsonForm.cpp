#include "BsonForm.h"

#include <cstdint>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include "platform/record/RecordType.h"

namespace bench {
namespace {

using mxservice::ComponentMap;
using mxservice::Field;
using mxservice::IData;

void append(bson_t& document, const std::string& name, const std::string& member) {
    bson_append_utf8(&document, name.data(), static_cast<int>(name.size()), member.data(),
                     static_cast<int>(member.size()));
}

void append(bson_t& /*document*/, const std::string& /*name*/, const ComponentMap& /*member*/) {}

template <class Number>
void append(bson_t& document, const std::string& name, Number member) {
    const auto size = static_cast<int>(name.size());
    if constexpr (std::is_floating_point_v<Number>) {
        bson_append_double(&document, name.data(), size, member);
    } else if constexpr (std::in_range<std::int32_t>(std::numeric_limits<Number>::max())) {
        bson_append_int32(&document, name.data(), size, member);
    } else {
        bson_append_int64(&document, name.data(), size, member);
    }
}

void assign(const bson_iter_t& element, std::string& member) {
    std::uint32_t size = 0;
    const char* const text = bson_iter_utf8(&element, &size);
    member.assign(text, size);
}

void assign(const bson_iter_t& /*element*/, ComponentMap& /*member*/) {}

template <class Number>
void assign(const bson_iter_t& element, Number& member) {
    if constexpr (std::is_floating_point_v<Number>) {
        member = bson_iter_double(&element);
    } else if constexpr (std::in_range<std::int32_t>(std::numeric_limits<Number>::max())) {
        member = static_cast<Number>(bson_iter_int32(&element));
    } else {
        member = static_cast<Number>(bson_iter_int64(&element));
    }
}

}  // namespace

std::string_view BsonEncoder::encode(const IData& record) {
    bson_reinit(&document_);
    for (const Field& field : record.recordType().fields()) {
        mxservice::visitField(field, record, [&](const auto& member) { append(document_, field.name(), member); });
    }
    return {reinterpret_cast<const char*>(bson_get_data(&document_)), document_.len};
}

bool decodeBson(std::string_view bytes, IData& record) {
    bson_t document;
    bson_iter_t element;
    if (!bson_init_static(&document, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) ||
        !bson_iter_init(&element, &document)) {
        return false;
    }
    for (const Field& field : record.recordType().fields()) {
        if (!bson_iter_next(&element) || field.name() != bson_iter_key(&element)) {
            return false;
        }
        mxservice::visitField(field, record, [&](auto& member) { assign(element, member); });
    }
    return true;
}

}  // namespace bench
