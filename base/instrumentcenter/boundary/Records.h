#pragma once

#include <string>
#include <vector>

#include "platform/record/Records.h"

namespace mxservice {

#ifdef PM_NAMED_PLATFORM_ONLY

// No named operation compares records: each that is handed in again counts as changed, in fields that nobody tells.

inline bool areEqual(const CInstrumentDetail& left, const CInstrumentDetail& right) {
    return &left == &right;
}
inline std::vector<std::string> differingFields(const IData& /*before*/, const IData& /*after*/) {
    return {};
}

#else

inline bool areEqual(const CInstrumentDetail& left, const CInstrumentDetail& right) {
    return left == right;
}
/// The document keys of the fields that differ; every key of both records where their classes differ.
inline std::vector<std::string> differingFields(const IData& before, const IData& after) {
    const bool sameClass = &before.recordType() == &after.recordType();
    std::vector<std::string> keys;
    for (const Field& field : before.recordType().fields()) {
        if (!sameClass || !field.equal(before, after)) {
            keys.push_back(field.name());
        }
    }
    if (!sameClass) {
        for (const Field& field : after.recordType().fields()) {
            if (before.recordType().find(field.name()) == nullptr) {
                keys.push_back(field.name());
            }
        }
    }
    return keys;
}

#endif

}  // namespace mxservice
