#pragma once

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "TemporaryStore.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"

namespace snapshottest {

using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotIssue;
using mxservice::SnapshotReadOptions;

/// The issues as people read them, a line each, without the directory.
inline std::string told(const std::vector<SnapshotIssue>& issues) {
    std::string text;
    for (const SnapshotIssue& issue : issues) {
        text += std::filesystem::path(issue.file).filename().string();
        text += issue.line == 0 ? "" : ":" + std::to_string(issue.line);
        text += issue.field.empty() ? ": " : ": field " + issue.field + ": ";
        text += issue.reason + "\n";
    }
    return text;
}

/// A snapshot in a directory of its own, and what reading it brings.
class SnapshotTest : public ::testing::Test {
protected:
    /// Answers the name, with which issues begin here.
    std::string write(const std::string& name, const std::string& bytes) const {
        std::ofstream(directory_.path() / name, std::ios::binary) << bytes;
        return name;
    }

    void read() {
        SnapshotReadOptions options;
        options.issuesPerFile = 20;
        day_ = Snapshot::read(directory_.path().string(), options);
    }
    std::uint64_t skipped() const { return day_.skippedLines + day_.skippedFiles; }
    std::string told() const { return snapshottest::told(day_.issues); }

    std::vector<std::string> codes() const {
        std::vector<std::string> all;
        for (const auto& instrument : day_.instruments) {
            all.push_back(instrument->code);
        }
        return all;
    }

    TemporaryDirectory directory_;
    Snapshot day_;
};

/// All that was read, as text.
inline std::string imageOf(const Snapshot& day) {
    std::string image = told(day.issues) + fmt::format("{} {}\n", day.skippedLines, day.skippedFiles);
    for (const SnapshotCatalogue catalogue : mxservice::kEveryCatalogue) {
        image += fmt::format("{}: {}\n", mxservice::catalogueName(catalogue),
                             day.recordsRead[static_cast<std::size_t>(catalogue)]);
        for (const auto& record : day.records(catalogue)) {
            mxservice::appendJson(image, *record);
            image += '\n';
        }
    }
    return image;
}

}  // namespace snapshottest
