#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "snapshot/BlockPipeline.h"
#include "snapshot/BlockReader.h"
#include "snapshot/Catalogues.h"
#include "snapshot/Snapshot.h"
#include "snapshot/Utf8.h"

namespace mxservice::snapshot {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kBlockBytes = std::size_t{1} << 18U;  // fits a processor's own cache with the records made of it
constexpr std::size_t kListedFiles = 1000;                  // of those that are passed over

/// A file of a catalogue, before it is opened.
struct Found {
    fs::path path;
    FileName name;
};

/// What of a read goes on from file to file: everything that is taken from the pipeline ends here.
class Assembly {
public:
    Assembly(Snapshot& snapshot, std::size_t bound) : snapshot_(snapshot), bound_(bound) {}

    void take(DecodedBlock decoded) {
        const ReadFile& file = *decoded.block.file;
        const CatalogueKind& kind = kindOf(file.catalogue);
        if (!open_) {
            notes_ = FileNotes(bound_);
            open_ = true;
        }
        notes_.merge(std::move(decoded.notes));
        snapshot_.recordsRead[static_cast<std::size_t>(file.catalogue)] += decoded.records.size();
        for (DecodedRecord& record : decoded.records) {
            const IData& added = *record.record;
            // Before a map of the catalogue: of two records with one key the center would get only the later.
            if (!kind.add(snapshot_, std::move(record.record))) {
                notes_.addReplaced(record.line, added.getKey());
            }
        }
        any_ = any_ || !decoded.records.empty();
        if (decoded.block.last) {
            end(decoded.block);
        }
    }

    /// Whether a file was read to its end, or a record of one that broke off.
    bool any() const { return any_; }

private:
    void end(const Block& last) {
        const ReadFile& file = *last.file;
        notes_.report(file.name, last.failure, snapshot_.issues);
        if (last.changed) {
            snapshot_.issues.push_back({file.name, 0, "", "changed while it was read", SnapshotIssueKind::FileChanged});
        }
        snapshot_.skippedLines += notes_.skippedLines();
        snapshot_.skippedFiles += last.failure.empty() ? 0U : 1U;
        any_ = any_ || last.failure.empty();
        open_ = false;
    }

    Snapshot& snapshot_;
    const std::size_t bound_;
    FileNotes notes_{0};
    bool open_ = false;
    bool any_ = false;
};

/// One read of a snapshot.
class Reading {
public:
    Reading(Snapshot& snapshot, const SnapshotReadOptions& options)
        : options_(options),
          assembly_(snapshot, options.issuesPerFile),
          pipeline_(options.threads, [this](DecodedBlock decoded) { assembly_.take(std::move(decoded)); }) {}

    /// `open` gives the file, or throws FileFailure where it cannot be opened.
    template <class Open>
    void readFile(const std::string& name, const FileName& kind, const Open& open) {
        auto file = std::make_shared<ReadFile>();
        file->name = printable(name);
        file->catalogue = kind.catalogue;
        file->format = kind.format;
        Block last;
        last.file = file;
        last.last = true;
        FileNotes notes(options_.issuesPerFile);
        try {
            BlockReader reader(std::make_unique<PlainReader>(open(), kind.packing),
                               options_.blockBytes != 0 ? options_.blockBytes : kBlockBytes);
            if (kind.format == SnapshotFormat::Csv) {
                readHeader(reader, *file, notes);
            }
            TextBlock text;
            while (reader.next(text)) {
                putText(file, std::move(text), notes);
                tell(reader.bytesRead());
            }
            last.changed = reader.changed();
        } catch (const FileFailure& failure) {
            // A file is given up, not the day: what the others hold is worth an answer.
            last.failure = failure.what();
        }
        last.notes = std::move(notes);
        pipeline_.put(std::move(last));
    }

    void finish() { pipeline_.finish(); }
    bool any() const { return assembly_.any(); }

    /// For the progress: all files together, and one that is done with, which may have been given up before its end.
    void expect(std::uint64_t bytes) { total_ += bytes; }
    void passed(std::uint64_t bytes) {
        done_ += bytes;
        tell(0);
    }

private:
    /// The first line names the columns. Without them no cell means anything: the file is given up with one issue
    /// instead of one for each line.
    static void readHeader(BlockReader& reader, ReadFile& file, FileNotes& notes) {
        reader.cutFirstLine();
        TextBlock text;
        while (reader.next(text)) {
            addOverlong(text, notes);
            std::string_view line = text.text();
            const std::size_t before = line.substr(0, line.size() - (line.ends_with('\n') ? 1 : 0)).rfind('\n') + 1;
            line.remove_prefix(before);
            const std::string_view blank = text.text().substr(0, before);
            notes.beginLine(text.firstLine + countLineEnds(blank));
            if (!isBlank(line)) {
                takeColumns(line, file, notes);
                break;
            }
        }
        reader.cutRecords(file.columns.size());
    }

    static void takeColumns(std::string_view line, ReadFile& file, FileNotes& notes) {
        CsvCells names;
        LineError error;
        const CsvRecord header = scanCsv(line, true, 0, names);
        const bool sound = isUtf8(line) ? header.state == CsvRecord::State::Whole || refuse(error, "", header.reason)
                                        : refuse(error, "", "not UTF-8");
        if (!sound || !readColumns(names, kindOf(file.catalogue).table(), file.columns, notes, error)) {
            throw FileFailure("cannot be read: " +
                              (error.field.empty() ? error.reason : "field " + error.field + ": " + error.reason));
        }
    }

    static void addOverlong(const TextBlock& text, FileNotes& notes) {
        for (std::uint64_t left = text.overlong; left > 0; --left) {
            notes.beginLine(text.firstLine - left);
            notes.addTooLong();
        }
    }

    void putText(const std::shared_ptr<const ReadFile>& file, TextBlock text, FileNotes& notes) {
        addOverlong(text, notes);
        Block block;
        block.file = file;
        block.text = std::move(text);
        block.notes = std::exchange(notes, FileNotes(options_.issuesPerFile));
        pipeline_.put(std::move(block));
    }

    void tell(std::uint64_t ofThisFile) const {
        if (options_.progress) {
            options_.progress(done_ + ofThisFile, total_);
        }
    }

    const SnapshotReadOptions& options_;
    Assembly assembly_;
    BlockPipeline pipeline_;  // goes first: its threads know the assembly
    std::uint64_t done_ = 0;
    std::uint64_t total_ = 0;
};

/// The files of the directory that hold a catalogue, in the order of their names; issues for the others.
std::vector<Found> listFiles(const fs::path& directory, Snapshot& snapshot) {
    std::vector<fs::path> paths;
    try {
        for (const auto& entry : fs::directory_iterator(directory)) {
            paths.push_back(entry.path());
        }
    } catch (const fs::filesystem_error& failure) {
        throw SnapshotUnreadable(textOf(directory) + ": cannot be read: " + failure.code().message(), {});
    }
    // A directory has no order of its own. Of two records with one key the later stays, so the answer would depend on
    // the disk.
    std::sort(paths.begin(), paths.end());
    std::vector<Found> files;
    for (const fs::path& path : paths) {
        const std::string name = textOf(path.filename());
        if (const auto kind = readFileName(name)) {
            files.push_back({path, *kind});
        } else if (!isIgnoredSilently(name) && snapshot.skippedFiles++ < kListedFiles) {
            snapshot.issues.push_back(
                {printable(textOf(path)), 0, "", "no catalogue file, skipped", SnapshotIssueKind::FileSkipped});
        }
    }
    if (snapshot.skippedFiles > kListedFiles) {
        const std::uint64_t others = snapshot.skippedFiles - kListedFiles;
        snapshot.issues.push_back({printable(textOf(directory)), 0, "",
                                   fmt::format("... and {} more files that are no catalogue files, skipped", others),
                                   SnapshotIssueKind::FileSkipped, others});
    }
    return files;
}

std::uint64_t sizeOf(const fs::path& path) {
    std::error_code failure;
    // For the progress alone: a file that cannot be measured is reported where it is read.
    const auto size = fs::file_size(path, failure);
    return failure ? 0 : size;
}

void readFiles(const std::vector<Found>& files, Reading& reading) {
    for (const Found& file : files) {
        reading.expect(sizeOf(file.path));
    }
    for (const Found& file : files) {
        reading.readFile(textOf(file.path), file.name, [&file] { return fileSource(file.path); });
        reading.passed(sizeOf(file.path));
    }
    reading.finish();
}

Snapshot readDirectory(const fs::path& directory, const SnapshotReadOptions& options) {
    Snapshot snapshot;
    const std::vector<Found> files = listFiles(directory, snapshot);
    Reading reading(snapshot, options);
    readFiles(files, reading);
    if (!reading.any()) {
        throw SnapshotUnreadable(textOf(directory) + ": holds no catalogue file that can be read",
                                 std::move(snapshot.issues));
    }
    return snapshot;
}

[[noreturn]] void failAlone(Snapshot& snapshot) {
    // What is not there was given up, and says why.
    const SnapshotIssue why = *std::find_if(snapshot.issues.begin(), snapshot.issues.end(), [](const auto& issue) {
        return issue.kind == SnapshotIssueKind::FileSkipped;
    });
    throw SnapshotUnreadable(why.file + ": " + why.reason, std::move(snapshot.issues));
}

Snapshot readSingleFile(const fs::path& path, const SnapshotReadOptions& options) {
    std::optional<FileName> name = readFileName(textOf(path.filename()));
    if (!name && options.catalogue) {
        name = FileName{*options.catalogue, options.format.value_or(SnapshotFormat::Ndjson), SnapshotPacking::None};
    }
    if (!name) {
        throw SnapshotUnreadable(textOf(path) + ": the name tells no catalogue", {});
    }
    Snapshot snapshot;
    Reading reading(snapshot, options);
    readFiles({{path, *name}}, reading);
    if (!reading.any()) {
        failAlone(snapshot);
    }
    return snapshot;
}

Snapshot readSource(std::unique_ptr<ByteSource> source, const SnapshotReadOptions& options) {
    Snapshot snapshot;
    Reading reading(snapshot, options);
    reading.expect(source->size().value_or(0));
    const FileName kind{options.catalogue.value_or(SnapshotCatalogue::Instruments),
                        options.format.value_or(SnapshotFormat::Ndjson), SnapshotPacking::None};
    reading.readFile(options.name, kind, [&source] { return std::move(source); });
    reading.finish();
    if (!reading.any()) {
        failAlone(snapshot);
    }
    return snapshot;
}

}  // namespace
}  // namespace mxservice::snapshot

namespace mxservice {

SnapshotUnreadable::SnapshotUnreadable(const std::string& reason, std::vector<SnapshotIssue> met)
    : std::runtime_error(reason), issues(std::move(met)) {}

SnapshotUnreadable::~SnapshotUnreadable() = default;

Snapshot Snapshot::read(const std::string& path) {
    return read(path, SnapshotReadOptions());
}

Snapshot Snapshot::read(const std::string& path, const SnapshotReadOptions& options) {
    const std::filesystem::path found = snapshot::pathOf(path);
    std::error_code failure;
    const std::filesystem::file_status status = std::filesystem::status(found, failure);
    if (failure) {
        throw SnapshotUnreadable(path + ": cannot be read: " + failure.message(), {});
    }
    return std::filesystem::is_directory(status) ? snapshot::readDirectory(found, options)
                                                 : snapshot::readSingleFile(found, options);
}

Snapshot Snapshot::read(std::istream& stream, const SnapshotReadOptions& options) {
    return snapshot::readSource(snapshot::streamSource(stream), options);
}

Snapshot Snapshot::read(const char* bytes, std::size_t size, const SnapshotReadOptions& options) {
    return snapshot::readSource(snapshot::memorySource(bytes, size), options);
}

}  // namespace mxservice
