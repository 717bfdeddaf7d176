#include "tools/inscenter/Snapshot.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/inscenter/FeedVerbs.h"
#include "tools/inscenter/StoreDirectory.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using mxservice::SnapshotIssue;
using mxservice::SnapshotIssueKind;
using mxservice::SnapshotReadOptions;
using mxservice::SnapshotUnreadable;

constexpr std::size_t kShownLines = 20;  // of a file: one wrong column spoils every line

/// Stands for standard input where a directory is named.
constexpr const char* kStandardInput = "-";

/// The unknown keys of a file from `at` on, in one message; `at` is the last of them then.
std::string unknownKeys(const std::vector<SnapshotIssue>& issues, std::size_t& at) {
    const SnapshotIssue& first = issues[at];
    std::vector<std::string> keys;
    bool more = false;
    for (std::size_t i = at;
         i < issues.size() && issues[i].kind == SnapshotIssueKind::KeyUnknown && issues[i].file == first.file; ++i) {
        at = i;
        more = issues[i].field.empty() && issues[i].count == 0;
        if (!more) {
            keys.push_back(issues[i].field);
        }
    }
    return fmt::format("{}: unknown {} ignored: {}{}", first.file, keys.size() == 1 ? "key" : "keys",
                       fmt::join(keys, ", "), more ? ", ..." : "");
}

/// Answers what it has said.
std::vector<std::string> report(const std::vector<SnapshotIssue>& issues, Console& console) {
    std::vector<std::string> remarks;
    for (std::size_t i = 0; i < issues.size(); ++i) {
        const SnapshotIssue& issue = issues[i];
        if (issue.kind == SnapshotIssueKind::KeyUnknown) {
            remarks.push_back(unknownKeys(issues, i));
            continue;
        }
        const std::string place = issue.line == 0 ? issue.file : fmt::format("{}:{}", issue.file, issue.line);
        const std::string field = issue.field.empty() ? "" : fmt::format("field {}: ", issue.field);
        remarks.push_back(fmt::format("{}: {}{}", place, field, issue.reason));
    }
    for (const std::string& remark : remarks) {
        console.message(remark);
    }
    return remarks;
}

Snapshot readFrom(const std::string& directory, const SnapshotReadOptions& options) {
    if (directory == kStandardInput) {
        std::istream input(std::cin.rdbuf());  // with states of its own
        return Snapshot::read(input, options);
    }
    if (isFeed(directory)) {
        return readFeed(directory);
    }
    // One file is a day to the library; to the tool it is a slip of the fingers, as it is with stores.
    if (std::error_code ignored; std::filesystem::is_regular_file(pathOf(directory), ignored)) {
        throw SnapshotUnreadable(fmt::format("{}: cannot be read: {}", directory,
                                             std::make_error_code(std::errc::not_a_directory).message()),
                                 {});
    }
    return Snapshot::read(directory, options);
}

[[noreturn]] void giveUp(const std::string& directory, const SnapshotUnreadable& failure, Console& console) {
    const bool onlyOthers = std::all_of(failure.issues.begin(), failure.issues.end(), [](const SnapshotIssue& issue) {
        return issue.kind == SnapshotIssueKind::FileSkipped;
    });
    // Before the others are named: one sentence says more than a line about each database.
    if (directory != kStandardInput && onlyOthers && looksLikeStore(directory)) {
        throw UnreadableInput(fmt::format(
            "{}: is a store, not a snapshot; --store in the place of --data asks it, and \"diff\" compares it",
            directory));
    }
    report(failure.issues, console);
    throw UnreadableInput(directory == kStandardInput ? "standard input holds no record" : failure.what());
}

}  // namespace

std::string snapshotName(const std::string& path) {
    return path == kStandardInput ? "standard input" : isFeed(path) ? withoutSecrets(path) : path;
}

std::string tradingDayOf(const Snapshot& snapshot) {
    std::string day;
    const auto agrees = [&day](const auto& record) {
        day = day.empty() ? record->tradingDay : day;
        return record->tradingDay.empty() || record->tradingDay == day;
    };
    const auto agree = [&](const auto& records) { return std::all_of(records.begin(), records.end(), agrees); };
    // The other classes have no trading day.
    const bool agreed = agree(snapshot.instruments) && agree(snapshot.etfs) && agree(snapshot.otcPlans) &&
                        std::all_of(snapshot.issuancePrices.begin(), snapshot.issuancePrices.end(),
                                    [&](const auto& entry) { return agrees(entry.second); });
    return agreed ? day : std::string();
}

Counts countsOf(const Snapshot& snapshot) {
    Counts counts{};
    std::transform(kEveryCatalogue.begin(), kEveryCatalogue.end(), counts.begin(),
                   [&](SnapshotCatalogue catalogue) { return snapshot.records(catalogue).size(); });
    return counts;
}

ReadReport readSnapshot(const std::string& directory, Snapshot& snapshot, Console& console) {
    const auto began = std::chrono::steady_clock::now();
    SnapshotReadOptions options;
    options.name = snapshotName(directory);
    options.issuesPerFile = kShownLines;
    bool measured = false;
    options.progress = [&](std::uint64_t done, std::uint64_t total) {
        if (!measured) {  // how much there is the library knows only when it has listed the files
            console.begin("reading", total);
            measured = true;
        }
        console.advance(done);
    };
    try {
        snapshot = readFrom(directory, options);
    } catch (const SnapshotUnreadable& failure) {
        console.end();
        giveUp(directory, failure, console);
    }
    console.end();
    std::vector<std::string> remarks = report(snapshot.issues, console);
    // A pipe without a record is mostly that of a program that failed; a file may well be empty.
    if (directory == kStandardInput && snapshot.instruments.empty()) {
        throw UnreadableInput("standard input holds no record");
    }
    ReadReport read{snapshot.recordsRead, snapshot.skippedLines + snapshot.skippedFiles, 0, std::move(remarks)};
    read.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return read;
}

}  // namespace inscenter
