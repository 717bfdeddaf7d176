#include "tools/inscenter/RecordSelection.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>

#include "platform/record/Records.h"
#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

const Field& fieldOf(const RecordType& type, std::string_view name) {
    const Field* const field = type.find(name);
    if (field == nullptr) {
        throw BadSelection(
            fmt::format("{} has no field \"{}\"{}", type.name(), printable(name), didYouMean(name, fieldNames(type))));
    }
    return *field;
}

/// What a field that is no text is ordered by: a basket by its size. Beyond 2 to the 53rd neighbours count as equal,
/// which no volume or price of a day reaches.
double numberIn(const Field& field, const IData& record) {
    return mxservice::visitField(field, record, [](const auto& member) {
        if constexpr (std::is_arithmetic_v<std::decay_t<decltype(member)>>) {
            return static_cast<double>(member);
        } else {
            return static_cast<double>(member.size());
        }
    });
}

template <class Value>
int order(const Value& left, const Value& right) {
    return left < right ? -1 : right < left ? 1 : 0;
}

double numberOf(const Field& field, std::string_view text) {
    double number = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (failure != std::errc() || end != text.data() + text.size()) {
        throw BadSelection(fmt::format("field {} holds numbers: \"{}\" is none", field.name(), printable(text)));
    }
    return number;
}

}  // namespace

RecordSelection::Condition RecordSelection::parse(const RecordType& type, const std::string& text) {
    // The longer signs first: "<=" begins with "<".
    constexpr std::array<std::pair<std::string_view, Comparison>, 7> kSigns{{{"!=", Comparison::NotEqual},
                                                                             {"<=", Comparison::LessOrEqual},
                                                                             {">=", Comparison::GreaterOrEqual},
                                                                             {"=", Comparison::Equal},
                                                                             {"<", Comparison::Less},
                                                                             {">", Comparison::Greater},
                                                                             {"~", Comparison::Holds}}};
    // The first of them ends the name; no field has one in its name, but a value may.
    const std::size_t at = text.find_first_of("!<>=~");
    const auto sign = std::find_if(kSigns.begin(), kSigns.end(), [&](const auto& known) {
        return at != std::string::npos && text.compare(at, known.first.size(), known.first) == 0;
    });
    if (sign == kSigns.end()) {
        throw BadSelection(
            fmt::format("\"{}\" is no condition: FIELD=VALUE, also with !=, <, <=, >, >= or ~", printable(text)));
    }
    Condition condition{&fieldOf(type, std::string_view(text).substr(0, at)), sign->second,
                        text.substr(at + sign->first.size()), 0};
    if (condition.comparison == Comparison::Holds) {
        condition.text = foldedText(condition.text);  // once, not for every record
    } else if (condition.field->kind() != FieldKind::Text) {
        condition.number = numberOf(*condition.field, condition.text);
    }
    return condition;
}

RecordSelection::RecordSelection(const RecordType& type, const SelectionTexts& texts)
    : type_(&type), limit_(texts.limit) {
    for (const std::string& text : texts.conditions) {
        conditions_.push_back(parse(type, text));
    }
    for (const std::string& name : splitAtCommas(texts.fields)) {
        fields_.push_back(&fieldOf(type, name));
    }
    if (!texts.sort.empty()) {
        descending_ = texts.sort.front() == '-';
        sort_ = &fieldOf(type, std::string_view(texts.sort).substr(descending_ ? 1 : 0));
    }
}

bool RecordSelection::meets(const IData& record, const Condition& condition) {
    const Field& field = *condition.field;
    if (condition.comparison == Comparison::Holds) {
        std::string text;
        appendField(text, field, record);
        return foldedText(text).find(condition.text) != std::string::npos;
    }
    const bool ordering = condition.comparison != Comparison::Equal && condition.comparison != Comparison::NotEqual;
    if (ordering && field.kind() == FieldKind::Text && field.in<std::string>(record).empty()) {
        return false;  // an unknown date is neither before nor after another
    }
    // Texts by their bytes, which for dates is the order of the days.
    const int found = field.kind() == FieldKind::Text ? order(field.in<std::string>(record), condition.text)
                                                      : order(numberIn(field, record), condition.number);
    switch (condition.comparison) {
        case Comparison::Equal:
            return found == 0;
        case Comparison::NotEqual:
            return found != 0;
        case Comparison::Less:
            return found < 0;
        case Comparison::LessOrEqual:
            return found <= 0;
        case Comparison::Greater:
            return found > 0;
        case Comparison::GreaterOrEqual:
            return found >= 0;
        case Comparison::Holds:
            break;
    }
    return false;
}

std::size_t RecordSelection::apply(std::vector<RecordPtr>& records) const {
    const auto unwanted = [this](const RecordPtr& record) {
        return !std::all_of(conditions_.begin(), conditions_.end(),
                            [&](const Condition& condition) { return meets(*record, condition); });
    };
    records.erase(std::remove_if(records.begin(), records.end(), unwanted), records.end());
    if (sort_ != nullptr) {
        const auto before = [this](const RecordPtr& left, const RecordPtr& right) {
            const IData& first = descending_ ? *right : *left;
            const IData& second = descending_ ? *left : *right;
            return sort_->kind() == FieldKind::Text ? sort_->in<std::string>(first) < sort_->in<std::string>(second)
                                                    : numberIn(*sort_, first) < numberIn(*sort_, second);
        };
        // Stable: of equal ones the order of the markets and keys remains, and a second run shows the same page.
        std::stable_sort(records.begin(), records.end(), before);
    }
    // The limit last, so that it leaves the first of what was asked for and not of what there is.
    const std::size_t shown = std::min(records.size(), limit_.value_or(records.size()));
    const std::size_t more = records.size() - shown;
    records.resize(shown);
    return more;
}

}  // namespace inscenter
