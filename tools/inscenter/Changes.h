#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/inscenter/Snapshot.h"

namespace inscenter {

enum class ChangeKind : std::uint8_t { Listed, Delisted, Changed };

const char* changeName(ChangeKind kind);

/// A field with its two values, as texts. A component of a basket is "stocks[CODE]", its fields "stocks[CODE].FIELD".
struct FieldChange {
    std::string field;
    std::string before;
    std::string after;
};

/// What became of one record.
struct Change {
    ChangeKind kind;
    SnapshotCatalogue catalogue;
    std::string key;                  ///< text, as the class's getKey answers it
    std::string name;                 ///< as it is now, of a delisted record as it was
    std::vector<FieldChange> fields;  ///< of changed records
};

/// The changes from one day to another.
struct Changes {
    std::vector<Change> changes;  ///< by catalogue, then by kind, then by key
    /// Records of each catalogue that both days have.
    std::array<std::size_t, kCatalogues> common{};

    std::size_t count(SnapshotCatalogue catalogue, ChangeKind kind) const;
};

/// Compares the days record by record; of several records with one key the last counts. `ignored` fields make no
/// change.
Changes changesBetween(const Snapshot& before, const Snapshot& after, const std::vector<std::string>& ignored);

}  // namespace inscenter
