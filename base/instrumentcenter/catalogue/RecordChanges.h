#pragma once

#include <boost/shared_ptr.hpp>

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace mxservice {

/// What an operation code of the change operations asks for.
enum class Change { None, Put, Remove };

/// 0 and 2 insert or replace, 3 removes, anything else does nothing.
constexpr Change changeOf(int operation) {
    constexpr int kInsert = 0;
    constexpr int kReplace = 2;
    constexpr int kRemove = 3;
    if (operation == kInsert || operation == kReplace) {
        return Change::Put;
    }
    return operation == kRemove ? Change::Remove : Change::None;
}

/// Records by their own key; of two with one key the later stays. Empty pointers are left out.
template <class Record>
std::map<std::string, boost::shared_ptr<Record>> byOwnKey(const std::vector<boost::shared_ptr<Record>>& records) {
    std::map<std::string, boost::shared_ptr<Record>> recordByKey;
    for (const auto& record : records) {
        if (record) {
            recordByKey[record->getKey()] = record;
        }
    }
    return recordByKey;
}

/// Puts the record under the key or removes what is there; for a table of a version that is being made. The key is the
/// record's own, asked for before: getKey() may be the host's.
template <class Record>
void applyChange(Change change, const std::string& key, const boost::shared_ptr<Record>& record,
                 std::map<std::string, boost::shared_ptr<Record>>& recordByKey) {
    if (change == Change::Put) {
        recordByKey[key] = record;
    } else {
        recordByKey.erase(key);
    }
}

}  // namespace mxservice
