#include "tools/inscenter/Diff.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>
#include <utility>

#include "platform/record/RecordType.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/StoreDirectory.h"
#include "tools/inscenter/StoreSnapshot.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

Tone toneOf(ChangeKind kind) {
    return kind == ChangeKind::Listed ? Tone::Good : kind == ChangeKind::Delisted ? Tone::Bad : Tone::Changed;
}

/// Fields of which so many records changed that they may hide the rest.
std::vector<std::string> noisyFields(const Changes& changes) {
    constexpr std::size_t kWorthAWord = 20;
    std::map<std::string, std::size_t> counts;
    std::size_t changed = 0;
    for (const Change& change : changes.changes) {
        changed += change.kind == ChangeKind::Changed ? 1 : 0;
        for (const FieldChange& field : change.fields) {
            ++counts[field.field];
        }
    }
    std::vector<std::string> noisy;
    for (const auto& [field, count] : counts) {
        // As the trading day and the last close do from any day to the next; of a few records anybody can read past it.
        if (count >= kWorthAWord && count * 2 > changed) {
            noisy.push_back(field);
        }
    }
    return noisy;
}

/// With the day that the records name: directories are often called after something else.
std::string titleOf(const Side& side) {
    const std::string day = tradingDayOf(side.records);
    return day.empty() ? side.name : fmt::format("{} ({})", side.name, shownDay(day));
}

std::vector<std::string> ignoredFields(const std::string& text) {
    // A slip in a name would ignore nothing, and nobody would notice.
    std::vector<std::string> known;
    for (const mxservice::RecordType* const type : mxservice::TypeManager::instance()->types()) {
        const std::vector<std::string> names = fieldNames(*type);
        known.insert(known.end(), names.begin(), names.end());
    }
    std::sort(known.begin(), known.end());
    known.erase(std::unique(known.begin(), known.end()), known.end());
    std::vector<std::string> fields = partsOf(text);
    for (const std::string& field : fields) {
        if (!std::binary_search(known.begin(), known.end(), field)) {
            throw UnreadableInput(
                fmt::format("--ignore: no record has a field \"{}\"{}", printable(field), didYouMean(field, known)));
        }
    }
    return fields;
}

}  // namespace

std::string shownDay(const std::string& day) {
    return fmt::format("{}-{}-{}", day.substr(0, 4), day.substr(4, 2), day.substr(6));
}

Side readSide(const std::string& path, Console& console) {
    Side side;
    side.name = snapshotName(path);
    // By what is there and not by an option: both days are named in one way.
    side.store = looksLikeStore(path);
    side.skipped = side.store ? readStoredSnapshot(path, side.records, console)
                              : readSnapshot(path, side.records, console).skipped;
    return side;
}

Comparison compareSides(const Side& before, const Side& after, const std::vector<std::string>& ignored,
                        Console& console) {
    Comparison found{{}, titleOf(before), titleOf(after), ""};
    if (before.store == after.store) {
        found.changes = changesBetween(before.records, after.records, ignored);
        return found;
    }
    // As they stand, each connect listing that a store has merged would count as gone.
    const Snapshot stored = storedForm(before.store ? after.records : before.records, console);
    found.changes =
        changesBetween(before.store ? before.records : stored, after.store ? after.records : stored, ignored);
    found.note = "Compared as a store keeps it: instruments, ETFs, interbank bonds and OTC fund plans.";
    return found;
}

Table changeTable(const Changes& changes) {
    Table table{{"change", "catalogue", "key", "name", "field", "old", "new"}, {}};
    const auto add = [&](const Change& change, Cell field, Cell before, Cell after) {
        table.rows.push_back({std::string(changeName(change.kind)), std::string(catalogueName(change.catalogue)),
                              change.key, change.name, std::move(field), std::move(before), std::move(after)});
        table.tones.push_back(toneOf(change.kind));
    };
    for (const Change& change : changes.changes) {
        if (change.fields.empty()) {
            add(change, {}, {}, {});
        }
        for (const FieldChange& field : change.fields) {
            add(change, field.field, field.before, field.after);
        }
    }
    return table;
}

Table changeCountTable(const Changes& changes) {
    Table table{{"catalogue", "listed", "delisted", "changed", "unchanged"}, {}};
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        const auto count = [&](ChangeKind kind) { return static_cast<std::int64_t>(changes.count(catalogue, kind)); };
        const std::int64_t changed = count(ChangeKind::Changed);
        const auto common = static_cast<std::int64_t>(changes.common[static_cast<std::size_t>(catalogue)]);
        std::vector<Cell> row{std::string(catalogueName(catalogue)), count(ChangeKind::Listed),
                              count(ChangeKind::Delisted), changed, common - changed};
        if (common + count(ChangeKind::Listed) + count(ChangeKind::Delisted) > 0) {
            table.rows.push_back(std::move(row));
        }
    }
    return table;
}

DiffOutcome showDiff(const DiffQuery& query, Output& output, Console& console) {
    const std::vector<std::string> ignored = ignoredFields(query.ignored);  // before the days, which take long to read
    const Side before = readSide(query.before, console);
    const Side after = readSide(query.after, console);
    const auto [changes, from, to, note] = compareSides(before, after, ignored, console);
    output.note(fmt::format("From {} to {}.", from, to));
    if (*note != '\0') {
        output.note(note);
    }
    // Programs get one table: of two they could not tell the lines apart.
    if (output.format() == Format::Table) {
        output.table(changeCountTable(changes), "neither has any record");
        output.note("");
    }
    output.table(changeTable(changes), "no difference");
    const std::vector<std::string> noisy = noisyFields(changes);
    if (!noisy.empty()) {
        output.note("");
        output.note(
            fmt::format("Most changed records differ in {0}; --ignore {0} leaves that out.", fmt::join(noisy, ",")));
    }
    return {!changes.changes.empty(), before.skipped + after.skipped == 0};
}

}  // namespace inscenter
