#include "tools/inscenter/RecordSelection.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iomanip>
#include <string_view>
#include <utility>

#include "platform/record/Records.h"
#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Sql.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::RecordType;

const Field& fieldOf(const RecordType& type, std::string_view name) {
    const Field* const field = type.find(name);
    if (field == nullptr) {
        throw BadSelection(
            fmt::format("{} has no field \"{}\"{}", type.name(), printable(name), didYouMean(name, fieldNames(type))));
    }
    return *field;
}

double numberOf(const Field& field, std::string_view text) {
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size() || !std::isfinite(number)) {
        throw BadSelection(fmt::format("field {} holds numbers: \"{}\" is none", field.name(), printable(text)));
    }
    return number;
}

}  // namespace

void RecordSelection::add(const std::string& text) {
    // The longer signs first: "<=" begins with "<".
    constexpr std::array<std::string_view, 7> kSigns{"!=", "<=", ">=", "=", "<", ">", "~"};
    // The first of them ends the name; no field has one in its name, but a value may.
    const std::size_t at = text.find_first_of("!<>=~");
    const auto* const sign = std::find_if(kSigns.begin(), kSigns.end(), [&](std::string_view known) {
        return at != std::string::npos && text.compare(at, known.size(), known) == 0;
    });
    if (sign == kSigns.end()) {
        throw BadSelection(
            fmt::format("\"{}\" is no condition: FIELD=VALUE, also with !=, <, <=, >, >= or ~", printable(text)));
    }
    const Field& field = fieldOf(*type_, std::string_view(text).substr(0, at));
    const std::string value = text.substr(at + sign->size());
    if (*sign == "~") {
        parts_.emplace_back(&field, foldedText(value));  // once, not for every record
        return;
    }
    const std::string name = quotedName(field.name());
    where_ += where_.empty() ? " where " : " and ";
    if (field.kind() != FieldKind::Text) {
        where_ += fmt::format("{} {} {:.17g}", name, *sign, numberOf(field, value));
        return;
    }
    // Texts by their bytes, which for dates is the order of the days. An unknown date is neither before nor after
    // another.
    const bool ordering = *sign != "=" && *sign != "!=";
    where_ += fmt::format("{} {} {}{}", name, *sign, fmt::streamed(std::quoted(value, '\'', '\'')),
                          ordering ? " and " + name + " <> ''" : "");
}

RecordSelection::RecordSelection(const RecordType& type, const SelectionTexts& texts)
    : type_(&type), limit_(texts.limit) {
    for (const std::string& text : texts.conditions) {
        add(text);
    }
    for (const std::string& name : partsOf(texts.fields)) {
        fields_.push_back(&fieldOf(type, name));
    }
    if (!texts.sort.empty()) {
        const bool descending = texts.sort.front() == '-';
        const Field& field = fieldOf(type, std::string_view(texts.sort).substr(descending ? 1 : 0));
        // Of equal ones the order of the markets and keys remains, and a second run shows the same page.
        order_ = fmt::format(" order by {}{}, rowid", quotedName(field.name()), descending ? " desc" : "");
    }
}

std::size_t RecordSelection::apply(std::vector<RecordPtr>& records) const {
    // Here and not by the statement: a basket counts there, but what is looked for stands in its components.
    const auto lacks = [](const RecordPtr& record, const auto& part) {
        std::string text;
        appendField(text, *part.first, *record);
        return foldedText(text).find(part.second) == std::string::npos;
    };
    const auto unwanted = [&](const RecordPtr& record) {
        return std::any_of(parts_.begin(), parts_.end(), [&](const auto& part) { return lacks(record, part); });
    };
    std::erase_if(records, unwanted);
    if (!where_.empty() || !order_.empty()) {
        Sql::Tables tables;
        tables.emplace_back("records", *type_, records);
        std::vector<RecordPtr> chosen;
        for (const auto& row : Sql(std::move(tables)).ask("select rowid from records" + where_ + order_).rows) {
            chosen.push_back(records[static_cast<std::size_t>(std::get<std::int64_t>(row.front()))]);
        }
        records = std::move(chosen);
    }
    // The limit last, so that it leaves the first of what was asked for and not of what there is.
    const std::size_t shown = std::min(records.size(), limit_.value_or(records.size()));
    const std::size_t more = records.size() - shown;
    records.resize(shown);
    return more;
}

}  // namespace inscenter
