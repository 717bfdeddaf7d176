#include "tools/inscenter/FieldValue.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/record/Records.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

constexpr std::size_t kMaxUnknownKeys = 20;
constexpr std::size_t kMaxKeyBytes = 60;

bool refuseRange(const Field& field, LineError& error) {
    error = {field.name(), "number out of range"};
    return false;
}

template <class Member>
bool assign(const Field& field, IData& record, std::int64_t value, LineError& error) {
    if (value < std::numeric_limits<Member>::min() || value > std::numeric_limits<Member>::max()) {
        return refuseRange(field, error);
    }
    field.in<Member>(record) = static_cast<Member>(value);
    return true;
}

}  // namespace

std::string LineError::text() const {
    return field.empty() ? reason : fmt::format("field {}: {}", field, reason);
}

void FileNotes::addUnknownKey(std::string_view key) {
    if (key == kFiledField) {  // of an answer of this tool that is now read as a snapshot
        return;
    }
    const std::string shown = printable(key.substr(0, kMaxKeyBytes));
    if (std::find(unknownKeys_.begin(), unknownKeys_.end(), shown) != unknownKeys_.end()) {
        return;
    }
    if (unknownKeys_.size() == kMaxUnknownKeys) {
        moreUnknownKeys_ = true;
        return;
    }
    unknownKeys_.push_back(shown);
}

void FileNotes::addCutNumber(const std::string& field) {
    ++cutNumbers_[field];
}

std::vector<std::string> FileNotes::texts() const {
    std::vector<std::string> lines;
    if (!unknownKeys_.empty()) {
        lines.push_back(fmt::format("unknown {} ignored: {}{}", unknownKeys_.size() == 1 ? "key" : "keys",
                                    fmt::join(unknownKeys_, ", "), moreUnknownKeys_ ? ", ..." : ""));
    }
    for (const auto& [field, count] : cutNumbers_) {
        lines.push_back(
            fmt::format("field {}: {} {} cut to whole numbers", field, count, count == 1 ? "fraction" : "fractions"));
    }
    return lines;
}

bool assignInteger(const Field& field, IData& record, std::int64_t value, LineError& error) {
    switch (field.kind()) {
        case FieldKind::Int8:
            return assign<std::int8_t>(field, record, value, error);
        case FieldKind::Int32:
            return assign<std::int32_t>(field, record, value, error);
        case FieldKind::UInt32:
            return assign<std::uint32_t>(field, record, value, error);
        case FieldKind::Int64:
            return assign<std::int64_t>(field, record, value, error);
        default:
            field.in<double>(record) = static_cast<double>(value);
            return true;
    }
}

bool assignNumber(const Field& field, IData& record, double value, FileNotes& notes, LineError& error) {
    if (field.kind() == FieldKind::Double) {
        field.in<double>(record) = value;
        return true;
    }
    constexpr double kLimit = 9223372036854775808.0;  // 2 to the 63rd, the first double that no 64-bit number holds
    const double whole = std::trunc(value);
    if (!(whole >= -kLimit && whole < kLimit)) {
        return refuseRange(field, error);
    }
    if (!assignInteger(field, record, static_cast<std::int64_t>(whole), error)) {
        return false;
    }
    if (whole != value) {
        notes.addCutNumber(field.name());
    }
    return true;
}

std::vector<const Field*> identityFields(const RecordType& type) {
    const bool needsMarket =
        &type == &mxservice::CInstrumentDetail::table() || &type == &mxservice::CETFDetail::table();
    std::vector<const Field*> identity;
    const auto add = [&](const char* key) {
        if (const Field* const field = type.find(key)) {
            identity.push_back(field);
        }
    };
    for (const char* const key : {"code", "etfcode", "bondCode", "id"}) {
        add(key);
    }
    if (needsMarket) {
        add("market");
        add("exchid");
    }
    return identity;
}

bool hasIdentity(const IData& record, const std::vector<const Field*>& identity, LineError& error) {
    for (const Field* const field : identity) {
        if (field->in<std::string>(record).empty()) {
            error = {field->name(), "missing"};
            return false;
        }
    }
    return true;
}

}  // namespace inscenter
