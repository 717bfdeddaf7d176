#pragma once

#include <set>
#include <string>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// Compares a record of the in-memory center with the persisted center's answer to the same question, apart from what
/// the two do differently on purpose (Differences.h).
class RecordComparison {
public:
    /// Notes which codes of the snapshot are subject to such differences.
    explicit RecordComparison(const Snapshot& snapshot);

    /// Empty when the records are alike or both missing; else what differs. With `relabelled`, the persisted center's
    /// record must bear that market, whatever the other's is.
    std::string difference(const mxservice::IData* server, const mxservice::IData* client,
                           const std::string& relabelled = {}) const;

private:
    std::string fieldDifference(const mxservice::Field& field, const mxservice::IData& server,
                                const mxservice::IData& client) const;
    bool isDeliberate(const mxservice::Field& field, const mxservice::IData& server) const;

    std::set<std::string> connectCodes_;
    std::set<std::string> creationKeys_;  // market and code of the instruments that stand for funds
};

}  // namespace inscenter
