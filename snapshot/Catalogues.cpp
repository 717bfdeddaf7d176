#include "snapshot/Catalogues.h"

#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <type_traits>
#include <utility>

namespace mxservice::snapshot {
namespace {

using boost::shared_ptr;

template <class Record>
shared_ptr<Record> copyOf(const shared_ptr<Record>& record) {
    if (!record) {
        return record;
    }
    auto copy = boost::static_pointer_cast<Record>(record->copy());
    // A copied fund shares its basket, and a load writes the names of components.
    if constexpr (std::is_same_v<Record, CETFDetail>) {
        for (auto& [code, component] : copy->components) {
            component = copyOf(component);
        }
    }
    return copy;
}

template <class Record>
const shared_ptr<Record>& pointerIn(const shared_ptr<Record>& record) {
    return record;
}
template <class Record>
const shared_ptr<Record>& pointerIn(const std::pair<const std::string, shared_ptr<Record>>& entry) {
    return entry.second;
}

/// A catalogue that is a list, or a map by the records' keys.
template <auto member>
struct Access {
    using Records = std::decay_t<decltype(std::declval<Snapshot>().*member)>;
    using Pointer = std::decay_t<decltype(pointerIn(*std::declval<Records>().begin()))>;
    using Record = typename Pointer::element_type;
    static constexpr bool kList = std::is_same_v<Records, std::vector<Pointer>>;

    static bool add(Snapshot& snapshot, shared_ptr<IData> record) {
        Pointer pointer = boost::static_pointer_cast<Record>(std::move(record));
        // A list keeps all of one key, as a center takes them; which of them stays is the center's to say.
        if constexpr (kList) {
            (snapshot.*member).push_back(std::move(pointer));
            return true;
        } else {
            std::string key = pointer->getKey();
            return (snapshot.*member).insert_or_assign(std::move(key), std::move(pointer)).second;
        }
    }

    static std::vector<shared_ptr<IData>> all(const Snapshot& snapshot) {
        std::vector<shared_ptr<IData>> records;
        records.reserve((snapshot.*member).size());
        for (const auto& entry : snapshot.*member) {
            records.push_back(pointerIn(entry));
        }
        return records;
    }

    static void copy(const Snapshot& from, Snapshot& to) {
        for (const auto& entry : from.*member) {
            if constexpr (kList) {
                (to.*member).push_back(copyOf(entry));
            } else {
                (to.*member).emplace_hint((to.*member).end(), entry.first, copyOf(entry.second));
            }
        }
    }
};

template <auto member>
constexpr CatalogueKind kind(const char* name) {
    using Of = Access<member>;
    return {name, &Of::Record::table, &Of::add, &Of::all, &Of::copy};
}

// In the order of the enumeration. No name begins with another, so that a file belongs to one catalogue.
constexpr std::array<CatalogueKind, kSnapshotCatalogues> kKinds{kind<&Snapshot::instruments>("instruments"),
                                                                kind<&Snapshot::etfs>("etfs"),
                                                                kind<&Snapshot::bonds>("bonds"),
                                                                kind<&Snapshot::tenderBonds>("tenderbonds"),
                                                                kind<&Snapshot::counterparties>("counterparties"),
                                                                kind<&Snapshot::otcPlans>("otcfundplans"),
                                                                kind<&Snapshot::issuances>("issuances"),
                                                                kind<&Snapshot::issuancePrices>("issuanceprices")};

constexpr std::array<const char*, 2> kFormatEndings{".ndjson", ".csv"};
constexpr std::array<const char*, 3> kPackedEndings{"", ".gz", ".zst"};

bool takeEnding(std::string_view& name, std::string_view ending) {
    const bool found = name.ends_with(ending);
    name.remove_suffix(found ? ending.size() : 0);
    return found;
}

}  // namespace

const CatalogueKind& kindOf(SnapshotCatalogue catalogue) {
    return kKinds[static_cast<std::size_t>(catalogue)];
}

std::optional<FileName> readFileName(std::string_view name) {
    const SnapshotPacking packing = takeEnding(name, kPackedEndings[1])   ? SnapshotPacking::Gzip
                                    : takeEnding(name, kPackedEndings[2]) ? SnapshotPacking::Zstd
                                                                          : SnapshotPacking::None;
    const bool json = takeEnding(name, kFormatEndings[0]);
    const auto found = std::find_if(kKinds.begin(), kKinds.end(),
                                    [&](const CatalogueKind& kind) { return name.starts_with(kind.name); });
    if (found == kKinds.end() || (!json && !takeEnding(name, kFormatEndings[1]))) {
        return std::nullopt;
    }
    return FileName{static_cast<SnapshotCatalogue>(found - kKinds.begin()),
                    json ? SnapshotFormat::Ndjson : SnapshotFormat::Csv, packing};
}

std::string fileNameOf(const FileName& file) {
    return std::string(kindOf(file.catalogue).name) + kFormatEndings[static_cast<std::size_t>(file.format)] +
           kPackedEndings[static_cast<std::size_t>(file.packing)];
}

bool isIgnoredSilently(std::string_view name) {
    return name.starts_with('.') || name.starts_with("README") || name.starts_with(kComponentsName);
}

}  // namespace mxservice::snapshot

namespace mxservice {

const char* catalogueName(SnapshotCatalogue catalogue) {
    return snapshot::kindOf(catalogue).name;
}

const RecordType& catalogueType(SnapshotCatalogue catalogue) {
    return snapshot::kindOf(catalogue).table();
}

}  // namespace mxservice
