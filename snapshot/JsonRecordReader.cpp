#include "snapshot/JsonRecordReader.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <boost/make_shared.hpp>

#include <charconv>
#include <numeric>
#include <vector>

#include "platform/record/Records.h"
#include "snapshot/FileNotes.h"

namespace mxservice::snapshot {

/// Which field came behind which in the line before: lines of one file mostly name the same ones, in one order, and a
/// comparison there spares the search. The first guess is the order of the table.
class FieldOrder {
public:
    explicit FieldOrder(const RecordType& type) : next_(type.fields().size() + 1) {
        std::iota(next_.begin(), next_.end(), std::size_t{0});
    }
    /// What came behind the field before `place`, mostly; 0 is the first of a line.
    std::size_t& operator[](std::size_t place) { return next_[place]; }

private:
    std::vector<std::size_t> next_;
};

namespace {

using simdjson::ondemand::json_type;
using simdjson::ondemand::value;

// The parser looks at whole blocks, and so beyond the end of its text.
static_assert(kPadding >= simdjson::SIMDJSON_PADDING);

bool refuseJson(LineError& error, simdjson::error_code code) {
    switch (code) {
        case simdjson::UTF8_ERROR:
            return refuse(error, "", "not UTF-8");
        case simdjson::UNESCAPED_CHARS:
            return refuse(error, "", "not valid JSON: control character within a text");
        case simdjson::UNCLOSED_STRING:
            return refuse(error, "", "not valid JSON: a text is not closed");
        case simdjson::INCOMPLETE_ARRAY_OR_OBJECT:
            return refuse(error, "", "not valid JSON: an object or array is not closed");
        default:
            return refuse(error, "", "not valid JSON");
    }
}

const char* nameOf(json_type type) {
    switch (type) {
        case json_type::array:
            return "an array";
        case json_type::object:
            return "an object";
        case json_type::number:
            return "a number";
        case json_type::string:
            return "a text";
        case json_type::boolean:
            return "true or false";
        default:
            return "null";
    }
}

/// Says what is wrong with a value that could not be read as `wanted`.
bool refuseValue(LineError& error, const Field& field, value& found, json_type wanted) {
    json_type type{};
    if (const auto code = found.type().get(type)) {
        return refuseJson(error, code);
    }
    if (type != wanted) {
        return refuse(error, field.name(), fmt::format("{} expected, {} found", nameOf(wanted), nameOf(type)));
    }
    if (type != json_type::number) {
        return refuse(error, field.name(), "not a valid text");
    }
    // The parser has one code for what is no number and what is too large; the digits tell which.
    const std::string_view token = found.raw_json_token();
    double number = 0;
    const auto parsed = std::from_chars(token.data(), token.data() + token.size(), number);
    const bool tooLarge = parsed.ec == std::errc::result_out_of_range;
    return refuse(error, field.name(), tooLarge ? "number out of range" : "not a valid number");
}

bool isNull(value& found) {
    bool null = false;
    return found.is_null().get(null) == simdjson::SUCCESS && null;
}

/// One pass over a line; lives as long as the line is read. Values are asked for one by one instead of parsing the line
/// into a tree first: of a number that is out of range a tree says that the line is bad, but not which field.
class Pass {
public:
    Pass(FieldOrder& components, FileNotes& notes, LineError& error)
        : components_(components), notes_(notes), error_(error) {}

    bool readObject(simdjson::ondemand::object object, const RecordType& type, FieldOrder& order, IData& record) {
        const std::vector<Field>& fields = type.fields();
        std::size_t place = 0;
        for (auto entry : object) {
            if (const auto code = entry.error()) {
                return refuseJson(error_, code);
            }
            // Looked at where it stands: copies of members took a third of the time of a line.
            simdjson::ondemand::field& member = entry.value_unsafe();
            std::size_t index = order[place];
            if (index >= fields.size() || !member.key().unsafe_is_equal(fields[index].name())) {
                std::string_view key;
                if (const auto code = member.unescaped_key().get(key)) {
                    return refuseJson(error_, code);
                }
                const int known = type.indexOf(key);
                if (known < 0) {
                    notes_.addUnknownKey(key);
                    skipped_ = true;
                    continue;
                }
                index = order[place] = static_cast<std::size_t>(known);
            }
            if (!readField(fields[index], member.value(), record)) {
                return false;
            }
            place = index + 1;
        }
        return true;
    }

    bool readComponents(simdjson::ondemand::array items, const Field& field, IData& record) {
        static const RecordType& type = CETFComponentStockInfo::table();
        static const std::vector<const Field*> identity = identityFields(type);
        ComponentMap& components = field.in<ComponentMap>(record);
        components.clear();  // of a key that is repeated the last value counts, and not both together
        std::size_t number = 0;
        for (auto item : items) {
            ++number;
            value found;
            if (const auto code = item.get(found)) {
                return refuseJson(error_, code);
            }
            simdjson::ondemand::object object;
            if (found.get_object().get(object) != simdjson::SUCCESS) {
                return refuse(error_, field.name(), fmt::format("component {} is no object", number));
            }
            auto component = boost::make_shared<CETFComponentStockInfo>();
            // The basket is a map by code: of two components without one the first would be lost.
            if (!readObject(object, type, components_, *component) || !hasIdentity(*component, identity, error_)) {
                if (!error_.field.empty()) {
                    error_.field = fmt::format("{}[{}].{}", field.name(), number, error_.field);
                }
                return false;
            }
            components[component->code] = component;
        }
        return true;
    }

    /// Whether a value was passed over, of which nobody knows whether it is well-formed: the parser looks only at what
    /// it is asked for.
    bool skipped() const { return skipped_; }

private:
    bool readField(const Field& field, value& found, IData& record) {
        if (field.kind() == FieldKind::Text) {
            return readText(field, found, record);
        }
        if (field.kind() == FieldKind::Components) {
            simdjson::ondemand::array items;
            if (found.get_array().get(items) == simdjson::SUCCESS) {
                return readComponents(items, field, record);
            }
            return isNull(found) || refuseValue(error_, field, found, json_type::array);
        }
        // Whole numbers as such first: a double does not hold all of 64 bits.
        std::int64_t whole = 0;
        if (field.kind() != FieldKind::Double && found.get_int64().get(whole) == simdjson::SUCCESS) {
            return assignInteger(field, record, whole, error_);
        }
        return readNumber(field, found, record);
    }

    bool readText(const Field& field, value& found, IData& record) {
        std::string_view text;
        if (found.get_string().get(text) == simdjson::SUCCESS) {
            field.in<std::string>(record).assign(text);
            return true;
        }
        std::int64_t day = 0;
        if (field.isDate() && found.get_int64().get(day) == simdjson::SUCCESS) {
            return assignDay(field, record, day, error_);
        }
        return isNull(found) || refuseValue(error_, field, found, json_type::string);
    }

    bool readNumber(const Field& field, value& found, IData& record) {
        double number = 0;
        if (found.get_double().get(number) == simdjson::SUCCESS) {
            return assignNumber(field, record, number, notes_, error_);
        }
        return isNull(found) || refuseValue(error_, field, found, json_type::number);
    }

    FieldOrder& components_;
    FileNotes& notes_;
    LineError& error_;
    bool skipped_ = false;
};

}  // namespace

struct JsonRecordReader::State {
    explicit State(const RecordType& type) : order(type) {}

    FieldOrder order;
    FieldOrder components{CETFComponentStockInfo::table()};
    simdjson::ondemand::parser parser;
    simdjson::dom::parser whole;  // of lines with keys that nobody knows

    /// Whether nothing stands behind the value that was read, and what was passed over in it is well-formed.
    bool ends(simdjson::ondemand::document& document, simdjson::padded_string_view text, bool skipped,
              LineError& error) {
        // Asked before the tree, which would call two good values on one line bad JSON.
        if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) {
            return refuse(error, "", "more than one JSON value");
        }
        const auto code = skipped ? whole.parse(text.data(), text.size(), false).error() : simdjson::SUCCESS;
        return code == simdjson::SUCCESS || refuseJson(error, code);
    }
};

JsonRecordReader::JsonRecordReader(const RecordType& type) : type_(type), state_(std::make_unique<State>(type)) {}

JsonRecordReader::~JsonRecordReader() = default;

bool JsonRecordReader::readLine(std::string_view line, IData& record, FileNotes& notes, LineError& error) {
    if (line.find('\0') != std::string_view::npos) {
        return refuse(error, "", "NUL byte");
    }
    const simdjson::padded_string_view padded(line, line.size() + kPadding);
    simdjson::ondemand::document document;
    if (const auto code = state_->parser.iterate(padded).get(document)) {
        return refuseJson(error, code);
    }
    simdjson::ondemand::object object;
    if (const auto code = document.get_object().get(object)) {
        return code == simdjson::INCORRECT_TYPE ? refuse(error, "", "a JSON object expected") : refuseJson(error, code);
    }
    Pass pass(state_->components, notes, error);
    return pass.readObject(object, type_, state_->order, record) &&
           state_->ends(document, padded, pass.skipped(), error);
}

bool JsonRecordReader::readComponents(std::string_view array, const Field& field, IData& record, FileNotes& notes,
                                      LineError& error) {
    // A copy: behind the cell nothing may be read.
    const simdjson::padded_string padded(array);
    simdjson::ondemand::document document;
    simdjson::ondemand::array items;
    if (state_->parser.iterate(padded).get(document) != simdjson::SUCCESS ||
        document.get_array().get(items) != simdjson::SUCCESS) {
        return refuse(error, field.name(), "a JSON array expected");
    }
    Pass pass(state_->components, notes, error);
    const bool good =
        pass.readComponents(items, field, record) && state_->ends(document, padded, pass.skipped(), error);
    // What is wrong with the cell as a whole still belongs to one column of the line.
    if (!good && error.field.empty()) {
        error.field = field.name();
    }
    return good;
}

}  // namespace mxservice::snapshot
