#include "tools/inscenter/RecordText.h"

#include <algorithm>
#include <cstddef>

namespace inscenter {

using mxservice::Field;
using mxservice::IData;

std::vector<std::string> splitAtCommas(std::string_view list) {
    std::vector<std::string> texts;
    while (!list.empty()) {
        const std::size_t comma = std::min(list.find(','), list.size());
        if (comma > 0) {
            texts.emplace_back(list.substr(0, comma));
        }
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return texts;
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
