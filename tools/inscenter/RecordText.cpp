#include "tools/inscenter/RecordText.h"

#include <algorithm>
#include <cstddef>

namespace inscenter {

using mxservice::Field;
using mxservice::IData;

std::vector<std::string> partsOf(std::string_view text, std::string_view separators) {
    std::vector<std::string> parts;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find_first_of(separators), text.size());
        if (end > 0) {
            parts.emplace_back(text.substr(0, end));
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return parts;
}

std::vector<std::string> fieldNames(const mxservice::RecordType& type) {
    std::vector<std::string> names;
    for (const Field& field : type.fields()) {
        names.push_back(field.name());
    }
    return names;
}

std::string nameOf(const IData& record) {
    for (const char* const name : {"name", "bondName"}) {  // interbank bonds have the second alone
        if (const Field* const field = record.recordType().find(name)) {
            return field->in<std::string>(record);
        }
    }
    return {};
}

}  // namespace inscenter
