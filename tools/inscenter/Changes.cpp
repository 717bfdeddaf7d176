#include "tools/inscenter/Changes.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "platform/record/Records.h"
#include "tools/inscenter/RecordText.h"

namespace inscenter {
namespace {

using mxservice::ComponentMap;
using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using RecordsByKey = std::map<std::string, const IData*>;

std::string textOf(const Field& field, const IData& record) {
    std::string text;
    appendField(text, field, record);
    return text;
}

/// Collects what is different between two records of one class.
class FieldComparison {
public:
    explicit FieldComparison(const std::vector<std::string>& ignored) : ignored_(ignored) {}

    std::vector<FieldChange> differences(const IData& before, const IData& after) {
        found_.clear();
        compare(before, after, "");
        return std::move(found_);
    }

private:
    void compare(const IData& before, const IData& after, const std::string& prefix) {
        for (const Field& field : before.recordType().fields()) {
            // Compared as values, not as texts: a price that is not a number equals itself. Ignored by the bare name,
            // so that a field of components is in every basket.
            if (field.equal(before, after) ||
                std::find(ignored_.begin(), ignored_.end(), field.name()) != ignored_.end()) {
                continue;
            }
            if (field.kind() == FieldKind::Components) {
                compareBaskets(field.in<ComponentMap>(before), field.in<ComponentMap>(after), field.name());
            } else {
                found_.push_back({prefix + field.name(), textOf(field, before), textOf(field, after)});
            }
        }
    }

    void compareBaskets(const ComponentMap& before, const ComponentMap& after, const std::string& field) {
        // Component by component: a basket of hundreds changes in one or two.
        ComponentMap all = before;
        all.insert(after.begin(), after.end());
        for (const auto& [code, either] : all) {
            const IData* const left = componentIn(before, code);
            const IData* const right = componentIn(after, code);
            const std::string place = fmt::format("{}[{}]", field, code);
            if (left != nullptr && right != nullptr) {
                compare(*left, *right, place + ".");
            } else if (left != right) {
                found_.push_back({place, jsonOf(left), jsonOf(right)});
            }
        }
    }

    static const IData* componentIn(const ComponentMap& basket, const std::string& code) {
        const auto found = basket.find(code);
        return found == basket.end() ? nullptr : found->second.get();
    }

    static std::string jsonOf(const IData* component) {
        std::string json;
        if (component != nullptr) {
            appendJson(json, *component);
        }
        return json;
    }

    const std::vector<std::string>& ignored_;
    std::vector<FieldChange> found_;
};

RecordsByKey byKey(const std::vector<boost::shared_ptr<IData>>& records) {
    RecordsByKey map;
    for (const auto& record : records) {
        map[record->getKey()] = record.get();  // the later of two stays
    }
    return map;
}

}  // namespace

const char* changeName(ChangeKind kind) {
    return kind == ChangeKind::Listed ? "listed" : kind == ChangeKind::Delisted ? "delisted" : "changed";
}

std::size_t Changes::count(SnapshotCatalogue catalogue, ChangeKind kind) const {
    return static_cast<std::size_t>(std::count_if(changes.begin(), changes.end(), [&](const Change& change) {
        return change.catalogue == catalogue && change.kind == kind;
    }));
}

Changes changesBetween(const Snapshot& before, const Snapshot& after, const std::vector<std::string>& ignored) {
    Changes found;
    FieldComparison comparison(ignored);
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        const auto oldRecords = before.records(catalogue);
        const auto newRecords = after.records(catalogue);
        const RecordsByKey was = byKey(oldRecords);
        const RecordsByKey is = byKey(newRecords);
        const auto begin = static_cast<std::ptrdiff_t>(found.changes.size());
        for (const auto& [key, record] : is) {
            const auto former = was.find(key);
            if (former == was.end()) {
                found.changes.push_back({ChangeKind::Listed, catalogue, key, nameOf(*record), {}});
                continue;
            }
            ++found.common[static_cast<std::size_t>(catalogue)];
            std::vector<FieldChange> fields = comparison.differences(*former->second, *record);
            if (!fields.empty()) {
                found.changes.push_back({ChangeKind::Changed, catalogue, key, nameOf(*record), std::move(fields)});
            }
        }
        for (const auto& [key, record] : was) {
            if (is.count(key) == 0) {
                found.changes.push_back({ChangeKind::Delisted, catalogue, key, nameOf(*record), {}});
            }
        }
        // Listed and changed ones are met together, by key; people read one kind after the other.
        std::stable_sort(found.changes.begin() + begin, found.changes.end(),
                         [](const Change& left, const Change& right) { return left.kind < right.kind; });
    }
    return found;
}

}  // namespace inscenter
