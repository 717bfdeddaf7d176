#include "snapshot/FieldValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <type_traits>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/record/Records.h"
#include "platform/utils/Calendar.h"
#include "snapshot/FileNotes.h"

namespace mxservice::snapshot {
namespace {

bool refuseRange(const Field& field, LineError& error) {
    return refuse(error, field.name(), "number out of range");
}

bool refuseDay(const Field& field, std::string_view found, LineError& error) {
    return refuse(error, field.name(),
                  fmt::format("a day of the form YYYYMMDD expected, \"{}\" found", shownText(found)));
}

/// Outer futures records carry the key of their market where others have the day of their listing.
bool isMarketKey(const Field& field, const IData& record) {
    const auto* const instrument = dynamic_cast<const CInstrumentDetail*>(&record);
    return instrument != nullptr && &field.in<std::string>(record) == &instrument->listingDate &&
           instrument->market == market::kOuterFuture;
}

}  // namespace

bool refuse(LineError& error, std::string field, std::string reason) {
    error = {std::move(field), std::move(reason)};
    return false;
}

bool assignInteger(const Field& field, IData& record, std::int64_t value, LineError& error) {
    const bool fits = visitField(field, record, [value](auto& member) {
        using Member = std::decay_t<decltype(member)>;
        // A price takes any whole number: the digits that a double drops are no digits of a price.
        if constexpr (std::is_integral_v<Member>) {
            if (!std::in_range<Member>(value)) {
                return false;
            }
        }
        if constexpr (std::is_arithmetic_v<Member>) {
            member = static_cast<Member>(value);
        }
        return std::is_arithmetic_v<Member>;
    });
    return fits || refuseRange(field, error);
}

bool assignNumber(const Field& field, IData& record, double value, FileNotes& notes, LineError& error) {
    if (field.kind() == FieldKind::Double) {
        field.in<double>(record) = value;
        return true;
    }
    // Compared before it is cut: what a conversion of a larger number gives is undefined.
    constexpr double kLimit = 9223372036854775808.0;  // 2 to the 63rd, the first double that no 64-bit number holds
    const double whole = std::trunc(value);
    if (!(whole >= -kLimit && whole < kLimit)) {
        return refuseRange(field, error);
    }
    if (!assignInteger(field, record, static_cast<std::int64_t>(whole), error)) {
        return false;
    }
    if (whole != value) {
        notes.addCutNumber(field.name(), value);
    }
    return true;
}

bool assignDay(const Field& field, IData& record, std::int64_t value, LineError& error) {
    // Spreadsheets and scripts write days as numbers.
    std::string day = std::to_string(value);
    if (!utils::isDay(day)) {
        return refuseDay(field, day, error);
    }
    field.in<std::string>(record) = std::move(day);
    return true;
}

std::vector<const Field*> dateFields(const RecordType& type) {
    std::vector<const Field*> dates;
    for (const Field& field : type.fields()) {
        if (field.isDate()) {
            dates.push_back(&field);
        }
    }
    return dates;
}

bool hasDays(const IData& record, const std::vector<const Field*>& dates, LineError& error) {
    for (const Field* const field : dates) {
        const std::string& day = field->in<std::string>(record);
        // A day that is none would sort among the others, and be asked for by nobody.
        if (!day.empty() && !utils::isDay(day) && !isMarketKey(*field, record)) {
            return refuseDay(*field, day, error);
        }
    }
    return true;
}

std::vector<const Field*> identityFields(const RecordType& type) {
    const bool needsMarket = &type == &CInstrumentDetail::table() || &type == &CETFDetail::table();
    std::vector<const Field*> identity;
    const auto add = [&](const char* key) {
        if (const Field* const field = type.find(key)) {
            identity.push_back(field);
        }
    };
    // Each class has one of these.
    for (const char* const key : {"code", "etfcode", "bondCode", "id"}) {
        add(key);
    }
    if (needsMarket) {
        add("market");
        add("exchid");  // which ETFs call it
    }
    return identity;
}

bool hasIdentity(const IData& record, const std::vector<const Field*>& identity, LineError& error) {
    for (const Field* const field : identity) {
        if (field->in<std::string>(record).empty()) {
            return refuse(error, field->name(), "missing");
        }
    }
    return true;
}

}  // namespace mxservice::snapshot
