#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <random>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "snapshot/BlockReader.h"
#include "snapshot/ByteSource.h"
#include "snapshot/Catalogues.h"
#include "snapshot/CsvScanner.h"
#include "snapshot/PackedFile.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"
#include "snapshot/Utf8.h"

namespace mxservice::snapshot {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kWrittenBytes = std::size_t{1} << 16U;  // put together before they are packed or written
constexpr const char* kLineEnd = "\r\n";                      // of CSV

/// A file under a name of its own that readers pass over, until it is complete.
class TemporaryFile {
public:
    explicit TemporaryFile(const fs::path& wanted) : wanted_(wanted) {
        // With a dot in front, which readers of directories pass over, and a number, for two may write one day at a
        // time.
        const std::uint64_t number = std::uint64_t{std::random_device()()} << 32U | std::random_device()();
        path_ = wanted.parent_path() / pathOf(fmt::format(".{}.{:016x}", textOf(wanted.filename()), number));
    }
    ~TemporaryFile() {
        std::error_code ignored;
        fs::remove(path_, ignored);  // renamed, it is not there any more
    }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const fs::path& path() const { return path_; }
    const fs::path& wanted() const { return wanted_; }

    void rename() const {
        std::error_code failure;
        fs::rename(path_, wanted_, failure);
        if (failure) {
            throw std::runtime_error("cannot be written: " + failure.message());
        }
    }

private:
    const fs::path wanted_;
    fs::path path_;
};

bool isWritten(const Field& field, const IData& record) {
    // Cells at their default stay empty, which a reader takes for it; so do numbers that no file can hold.
    return !field.isDefault(record) && visitField(field, record, [](const auto& member) {
        if constexpr (std::is_floating_point_v<std::decay_t<decltype(member)>>) {
            return std::isfinite(member);
        } else {
            return true;
        }
    });
}

void appendCsv(std::string& out, const std::vector<Field>& fields, const IData& record) {
    std::string cell;
    for (const Field& field : fields) {
        if (&field != &fields.front()) {
            out += ',';
        }
        if (isWritten(field, record)) {
            cell.clear();
            appendField(cell, field, record);
            appendCsvCell(out, cell);
        }
    }
    out += kLineEnd;
}

void appendHeader(std::string& out, const std::vector<Field>& fields) {
    for (const Field& field : fields) {
        out += &field == &fields.front() ? "" : ",";
        appendCsvCell(out, field.name());
    }
    out += kLineEnd;
}

/// Whether reading takes the line as one record again.
// Asked before anything is renamed: a day that is written and cannot be read back would be noticed when it is needed.
bool canBeRead(std::string_view line) {
    const bool joined = line.find('\n') < line.size() - 1;
    return line.size() <= (joined ? kMaxJoinedBytes : kMaxLineBytes);
}

void writeRecords(const Snapshot& snapshot, const FileName& name, PackedFile& file) {
    const CatalogueKind& kind = kindOf(name.catalogue);
    const std::vector<Field>& fields = kind.table().fields();
    std::string text;
    if (name.format == SnapshotFormat::Csv) {
        appendHeader(text, fields);
    }
    for (const auto& record : kind.all(snapshot)) {
        if (!record) {
            continue;
        }
        const std::size_t begin = text.size();
        if (name.format == SnapshotFormat::Csv) {
            appendCsv(text, fields, *record);
        } else {
            appendJson(text, *record);
            text += '\n';
        }
        if (!canBeRead(std::string_view(text).substr(begin))) {
            throw std::runtime_error("cannot be written: the record " + record->getKey() + " is too long");
        }
        if (text.size() >= kWrittenBytes) {
            file.write(text);
            text.clear();
        }
    }
    file.write(text);
    file.close();
}

/// Throws where the directory holds catalogue files that would be read together with those of `names`.
void expectNoOthers(const fs::path& directory, const std::vector<std::string>& names) {
    std::error_code failure;
    for (fs::directory_iterator entry(directory, failure); !failure && entry != fs::directory_iterator();
         entry.increment(failure)) {
        const std::string name = textOf(entry->path().filename());
        if (readFileName(name) && std::find(names.begin(), names.end(), name) == names.end()) {
            throw std::runtime_error(textOf(entry->path()) +
                                     ": would be read together with the files to be written; nothing was written");
        }
    }
    if (failure) {
        throw std::runtime_error(textOf(directory) + ": cannot be read: " + failure.message());
    }
}

/// Calls `step`; what it throws names the file.
template <class Step>
void forFile(const fs::path& path, const Step& step) {
    try {
        step();
    } catch (const std::runtime_error& failure) {
        throw std::runtime_error(textOf(path) + ": " + failure.what());
    }
}

}  // namespace
}  // namespace mxservice::snapshot

namespace mxservice {

void Snapshot::write(const std::string& directory, SnapshotFormat format, SnapshotPacking packing) const {
    using namespace snapshot;
    const std::filesystem::path root = pathOf(directory);
    std::error_code failure;
    std::filesystem::create_directories(root, failure);
    if (failure) {
        throw std::runtime_error(directory + ": cannot be made: " + failure.message());
    }
    std::vector<FileName> files;
    std::vector<std::string> names;
    forEachCatalogue([&](SnapshotCatalogue catalogue) {
        files.push_back({catalogue, format, packing});
        names.push_back(fileNameOf(files.back()));
    });
    // The files of all catalogues are written, also of those without records: one of a former day would stay among
    // these.
    expectNoOthers(root, names);
    std::vector<std::unique_ptr<TemporaryFile>> written;
    for (const FileName& name : files) {
        const auto& file = *written.emplace_back(std::make_unique<TemporaryFile>(root / pathOf(fileNameOf(name))));
        forFile(file.wanted(), [&] {
            PackedFile packed(file.path(), packing);
            writeRecords(*this, name, packed);
        });
    }
    // All of them first, so that a full disk leaves the former day whole. A crash from here on leaves some files of
    // this day and some of the former one, each of them whole.
    for (const auto& file : written) {
        forFile(file->wanted(), [&] { file->rename(); });
    }
}

}  // namespace mxservice
