#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

namespace mxservice {

/// Why records are dropped, as reports say it.
constexpr const char* kEmptyPointer = "an empty pointer";
constexpr const char* kForeignRecord = "not of Hong Kong, in a load of one connect market alone";
constexpr const char* kLaterRecord = "a later record has the same key";
constexpr const char* kEarlierRecord = "an earlier record has the same key";
constexpr const char* kConnectFirst = "a connect listing of the code goes first";
constexpr const char* kPlainFirst = "an SH record of the code goes first";

/// Records that a load dropped, the first that it met. No more than an operator looks at: a batch of nothing but
/// duplicates must not be kept twice.
class DroppedList {
public:
    void add(const CInstrumentDetail& record, const char* reason) {
        if (hasRoom()) {
            dropped_.push_back({keyTextOf(record), 0, reason});
        }
    }
    void addEmpty(std::size_t position) {
        if (hasRoom()) {
            dropped_.push_back({{}, position, kEmptyPointer});
        }
    }
    const std::vector<DroppedRecord>& records() const { return dropped_; }

private:
    bool hasRoom() const { return dropped_.size() < kMostDropped; }

    static constexpr std::size_t kMostDropped = 8;
    std::vector<DroppedRecord> dropped_;
};

}  // namespace mxservice
