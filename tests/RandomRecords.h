#pragma once

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>

#include <limits>
#include <random>
#include <string>
#include <type_traits>

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
        mxservice::visitField(field, record, [this](auto& member) {
            using Member = std::decay_t<decltype(member)>;
            if constexpr (std::is_same_v<Member, std::string>) {
                member = text();
            } else if constexpr (std::is_integral_v<Member>) {
                member = static_cast<Member>(random_());
            } else if constexpr (std::is_floating_point_v<Member>) {
                member =
                    random_() % 8 == 0 ? std::numeric_limits<Member>::quiet_NaN() : static_cast<Member>(random_()) / 7;
            } else {
                for (int i = 0; i < 3; ++i) {
                    const auto component = make<mxservice::CETFComponentStockInfo>();
                    member[component->code] = component;
                }
            }
        });
    }

    std::mt19937_64 random_;
};
