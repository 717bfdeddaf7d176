#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "snapshot/FieldValue.h"
#include "snapshot/Snapshot.h"

namespace mxservice::snapshot {

/// The beginning of a key or value of a file, as a message may show it.
std::string shownText(std::string_view found);

/// What is to be said of a file, or of a stretch of it: of each kind the first few, and how many more there were.
/// Notes of stretches that are merged in the order of the file are those of the whole, wherever it was cut.
class FileNotes {
public:
    /// `bound`: so many of each kind are listed.
    explicit FileNotes(std::size_t bound) : bound_(bound) {}

    /// What is added from here on stands in that line.
    void beginLine(std::uint64_t number) { line_ = number; }
    std::uint64_t line() const { return line_; }

    /// The line makes no record.
    void addSkipped(LineError error);
    /// The line is too long to be kept.
    void addTooLong();
    /// A number whose fraction was cut off because the field holds whole numbers.
    void addCutNumber(const std::string& field, double number);
    /// A record of that line has taken the place of one with the same key.
    void addReplaced(std::uint64_t line, std::string_view key);
    /// A key that no field has.
    void addUnknownKey(std::string_view key);

    /// Adds those of the stretch behind this one.
    void merge(FileNotes&& later);

    std::uint64_t skippedLines() const { return skipped_.count; }

    /// Appends all of them. `failure`: why the file was given up, empty when it was not.
    void report(const std::string& file, const std::string& failure, std::vector<SnapshotIssue>& issues) const;

private:
    struct Note {
        std::uint64_t line;
        std::string field;
        std::string reason;
    };
    /// The first notes of a kind, and how many there were.
    struct Notes {
        std::vector<Note> first;
        std::uint64_t count = 0;
    };

    bool lists(Notes& notes) const { return notes.count++ < bound_; }
    void merge(Notes& notes, Notes&& later) const;
    void addUnknown(std::uint64_t line, std::string key);

    std::size_t bound_;
    std::uint64_t line_ = 0;
    Notes skipped_;
    Notes cut_;
    Notes replaced_;
    std::vector<Note> unknown_;
    bool moreUnknown_ = false;
};

}  // namespace mxservice::snapshot
