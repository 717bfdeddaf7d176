#pragma once

#include <array>
#include <set>
#include <string>

#include "platform/record/IData.h"
#include "platform/record/RecordType.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {

/// What the two centers answer differently on purpose: neither compared nor counted.
inline constexpr std::array kDeliberateDifferences{
    "hasHkstock: the in-memory center files no listing under HGT",
    "combinedConnectFlags of codes that a connect market lists: each center has a rule of its own",
    "a record asked for by an HGT or SGT key: the persisted center answers a copy that bears that market",
    "names of ETF components that have none, and of the instruments named after them: the persisted center fills them",
    "two funds with one key: the in-memory center keeps the first, the persisted one the last",
    "an exchange-listed fund whose creation code is its own code: full lists hold either of its two instruments",
    "contracts by product, outer markets, price settings, interbank codes, platform codes, trader types 64, 512, 2048 "
    "and 16777216: the persisted center's alone",
    "OTC fund plans by group: the in-memory center's alone"};

/// Compares a record of the in-memory center with the persisted center's answer to the same question, apart from what
/// the two do differently on purpose.
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
