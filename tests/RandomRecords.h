#pragma once

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>

#include <limits>
#include <random>
#include <string>

#include "platform/record/Records.h"

/// Fills every field of a record from its class's table, so that no field is forgotten when one is added.
class RandomRecords {
public:
    explicit RandomRecords(unsigned seed) : random_(seed) {}

    template <class Record>
    boost::shared_ptr<Record> make() {
        return boost::static_pointer_cast<Record>(fill(Record::table().make()));
    }

    boost::shared_ptr<mxservice::IData> fill(boost::shared_ptr<mxservice::IData> record) {
        for (const mxservice::Field& field : record->recordType().fields()) {
            fill(field, *record);
        }
        return record;
    }

    std::uint64_t number() { return random_(); }

private:
    std::string text() {
        // Bytes of every value, NUL among them; long ones leave the string's own buffer.
        std::string bytes(random_() % 40, ' ');
        for (char& byte : bytes) {
            byte = static_cast<char>(random_());
        }
        return bytes;
    }

    void fill(const mxservice::Field& field, mxservice::IData& record) {
        using mxservice::FieldKind;
        switch (field.kind()) {
            case FieldKind::Text:
                field.in<std::string>(record) = text();
                break;
            case FieldKind::Int8:
                field.in<std::int8_t>(record) = static_cast<std::int8_t>(random_());
                break;
            case FieldKind::Int32:
                field.in<std::int32_t>(record) = static_cast<std::int32_t>(random_());
                break;
            case FieldKind::UInt32:
                field.in<std::uint32_t>(record) = static_cast<std::uint32_t>(random_());
                break;
            case FieldKind::Int64:
                field.in<std::int64_t>(record) = static_cast<std::int64_t>(random_());
                break;
            case FieldKind::Double:
                field.in<double>(record) =
                    random_() % 8 == 0 ? std::numeric_limits<double>::quiet_NaN() : static_cast<double>(random_()) / 7;
                break;
            case FieldKind::Components:
                for (int i = 0; i < 3; ++i) {
                    const auto component = make<mxservice::CETFComponentStockInfo>();
                    field.in<mxservice::ComponentMap>(record)[component->code] = component;
                }
                break;
        }
    }

    std::mt19937_64 random_;
};
