#include "BsonForm.h"

#include <cstdint>
#include <string>

#include "platform/record/RecordType.h"

namespace bench {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;

void append(bson_t& document, const Field& field, const IData& record) {
    const char* const name = field.name().data();
    const auto nameSize = static_cast<int>(field.name().size());
    switch (field.kind()) {
        case FieldKind::Text: {
            const std::string& text = field.in<std::string>(record);
            bson_append_utf8(&document, name, nameSize, text.data(), static_cast<int>(text.size()));
            break;
        }
        case FieldKind::Int8:
            bson_append_int32(&document, name, nameSize, field.in<std::int8_t>(record));
            break;
        case FieldKind::Int32:
            bson_append_int32(&document, name, nameSize, field.in<std::int32_t>(record));
            break;
        case FieldKind::UInt32:
            bson_append_int64(&document, name, nameSize, field.in<std::uint32_t>(record));
            break;
        case FieldKind::Int64:
            bson_append_int64(&document, name, nameSize, field.in<std::int64_t>(record));
            break;
        case FieldKind::Double:
            bson_append_double(&document, name, nameSize, field.in<double>(record));
            break;
        case FieldKind::Components:
            break;
    }
}

void assign(const bson_iter_t& element, const Field& field, IData& record) {
    switch (field.kind()) {
        case FieldKind::Text: {
            std::uint32_t size = 0;
            const char* const text = bson_iter_utf8(&element, &size);
            field.in<std::string>(record).assign(text, size);
            break;
        }
        case FieldKind::Int8:
            field.in<std::int8_t>(record) = static_cast<std::int8_t>(bson_iter_int32(&element));
            break;
        case FieldKind::Int32:
            field.in<std::int32_t>(record) = bson_iter_int32(&element);
            break;
        case FieldKind::UInt32:
            field.in<std::uint32_t>(record) = static_cast<std::uint32_t>(bson_iter_int64(&element));
            break;
        case FieldKind::Int64:
            field.in<std::int64_t>(record) = bson_iter_int64(&element);
            break;
        case FieldKind::Double:
            field.in<double>(record) = bson_iter_double(&element);
            break;
        case FieldKind::Components:
            break;
    }
}

}  // namespace

std::string_view BsonEncoder::encode(const IData& record) {
    bson_reinit(&document_);
    for (const Field& field : record.recordType().fields()) {
        append(document_, field, record);
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
        assign(element, field, record);
    }
    return true;
}

}  // namespace bench
