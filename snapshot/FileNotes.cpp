#include "snapshot/FileNotes.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "snapshot/BlockReader.h"
#include "snapshot/RecordText.h"
#include "snapshot/Utf8.h"

namespace mxservice::snapshot {
namespace {

constexpr std::size_t kMaxUnknownKeys = 100;
constexpr std::size_t kMaxShownBytes = 60;

}  // namespace

std::string shownText(std::string_view found) {
    return printable(found.substr(0, kMaxShownBytes));
}

void FileNotes::addSkipped(LineError error) {
    if (lists(skipped_)) {
        skipped_.first.push_back({line_, std::move(error.field), std::move(error.reason)});
    }
}

void FileNotes::addTooLong() {
    addSkipped({"", fmt::format("longer than {} bytes", kMaxLineBytes)});
}

void FileNotes::addCutNumber(const std::string& field, double number) {
    if (lists(cut_)) {
        std::string text;
        appendNumber(text, number);
        text += " cut to ";
        appendNumber(text, std::trunc(number) + 0.0);  // of -0.5 remains 0, without a sign
        cut_.first.push_back({line_, field, std::move(text)});
    }
}

void FileNotes::addReplaced(std::uint64_t line, std::string_view key) {
    if (lists(replaced_)) {
        replaced_.first.push_back(
            {line, "", fmt::format("takes the place of an earlier record of the same key, \"{}\"", shownText(key))});
    }
}

void FileNotes::addUnknownKey(std::string_view key) {
    // A column that the command-line tool's listings have, and no record.
    if (key != kFiledField) {
        addUnknown(line_, shownText(key));
    }
}

void FileNotes::addUnknown(std::uint64_t line, std::string key) {
    // A key that one line has all lines have: it is told once for the file.
    const auto known = [&key](const Note& note) { return note.field == key; };
    if (std::any_of(unknown_.begin(), unknown_.end(), known)) {
        return;
    }
    // The list is searched for every such key, so it stays short also where each line has others.
    if (unknown_.size() >= std::min(bound_, kMaxUnknownKeys)) {
        moreUnknown_ = true;
        return;
    }
    unknown_.push_back({line, std::move(key), "unknown, ignored"});
}

void FileNotes::merge(Notes& notes, Notes&& later) const {
    // Stretches are merged in their order, so that those told one by one are the first of the file, whoever decoded
    // them.
    const std::size_t room = bound_ - std::min(bound_, notes.first.size());
    const auto end = later.first.begin() + static_cast<std::ptrdiff_t>(std::min(room, later.first.size()));
    std::move(later.first.begin(), end, std::back_inserter(notes.first));
    notes.count += later.count;
}

void FileNotes::merge(FileNotes&& later) {
    merge(skipped_, std::move(later.skipped_));
    merge(cut_, std::move(later.cut_));
    merge(replaced_, std::move(later.replaced_));
    // Each stretch lists as many keys as the whole may, so none of the first ones is missed.
    for (Note& note : later.unknown_) {
        addUnknown(note.line, std::move(note.field));
    }
    moreUnknown_ = moreUnknown_ || later.moreUnknown_;
}

void FileNotes::report(const std::string& file, const std::string& failure, std::vector<SnapshotIssue>& issues) const {
    const auto list = [&](const std::vector<Note>& notes, SnapshotIssueKind kind) {
        for (const Note& note : notes) {
            issues.push_back({file, note.line, note.field, note.reason, kind});
        }
    };
    const auto more = [&](const Notes& notes, const char* what, SnapshotIssueKind kind) {
        if (notes.count > notes.first.size()) {
            const std::uint64_t others = notes.count - notes.first.size();
            issues.push_back({file, 0, "", fmt::format("... and {} more {}", others, what), kind, others});
        }
    };
    // What was lost comes first, then what was changed, then what only looks odd.
    list(skipped_.first, SnapshotIssueKind::LineSkipped);
    if (!failure.empty()) {
        issues.push_back({file, 0, "", failure, SnapshotIssueKind::FileSkipped});
    }
    more(skipped_, "lines skipped", SnapshotIssueKind::LineSkipped);
    list(cut_.first, SnapshotIssueKind::NumberCut);
    more(cut_, "numbers cut to whole ones", SnapshotIssueKind::NumberCut);
    list(replaced_.first, SnapshotIssueKind::RecordReplaced);
    more(replaced_, "records replaced by later ones of the same key", SnapshotIssueKind::RecordReplaced);
    list(unknown_, SnapshotIssueKind::KeyUnknown);
    if (moreUnknown_) {
        issues.push_back({file, 0, "", "... and more unknown keys", SnapshotIssueKind::KeyUnknown, 0});
    }
}

}  // namespace mxservice::snapshot
