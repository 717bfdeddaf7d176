#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/record/Records.h"
#include "snapshot/BlockReader.h"
#include "snapshot/ByteSource.h"
#include "snapshot/Catalogues.h"
#include "snapshot/CsvScanner.h"
#include "snapshot/PackedFile.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"
#include "snapshot/Utf8.h"
#include "system/FileReplacement.h"

namespace mxservice::snapshot {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kWrittenBytes = std::size_t{1} << 16U;  // put together before they are packed or written
constexpr const char* kLineEnd = "\r\n";                      // of CSV
constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";

bool isWritten(const Field& field, const IData& record, bool zeros) {
    // Cells at their default stay empty, which a reader takes for it; so do numbers that no file can hold.
    return visitField(field, record, [&](const auto& member) {
        using Member = std::decay_t<decltype(member)>;
        if constexpr (std::is_floating_point_v<Member>) {
            return std::isfinite(member) && (zeros || !field.isDefault(record));
        } else {
            return (zeros && std::is_arithmetic_v<Member>) || !field.isDefault(record);
        }
    });
}

/// `before`: a cell that stands before those of the record; null: none does.
void appendCsv(std::string& out, const IData& record, bool zeros, const std::string* before = nullptr) {
    if (before != nullptr) {
        appendCsvCell(out, *before);
    }
    const std::vector<Field>& fields = record.recordType().fields();
    std::string cell;
    for (const Field& field : fields) {
        if (before != nullptr || &field != &fields.front()) {
            out += ',';
        }
        if (isWritten(field, record, zeros)) {
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

void appendLine(std::string& out, const IData& record, const SnapshotWriteOptions& options) {
    if (options.format == SnapshotFormat::Csv) {
        appendCsv(out, record, options.zeros);
        return;
    }
    if (!options.zeros) {
        appendJson(out, record);
    } else {
        char separator = '{';
        for (const Field& field : record.recordType().fields()) {
            if (isWritten(field, record, true)) {
                (((out += std::exchange(separator, ',')) += '"') += field.name()) += "\":";
                appendJsonField(out, field, record);
            }
        }
        out += separator == '{' ? "{}" : "}";
    }
    out += '\n';
}

/// Whether reading takes the line as one record again.
// Asked before anything is renamed: a day that is written and cannot be read back would be noticed when it is needed.
bool canBeRead(std::string_view line) {
    const bool joined = line.find('\n') < line.size() - 1;
    return line.size() <= (joined ? kMaxJoinedBytes : kMaxLineBytes);
}

/// Writes the text once it is worth it.
void pass(std::string& text, PackedFile& file) {
    if (text.size() >= kWrittenBytes) {
        file.write(text);
        text.clear();
    }
}

void writeRecords(const Snapshot& snapshot, SnapshotCatalogue catalogue, const SnapshotWriteOptions& options,
                  PackedFile& file) {
    const CatalogueKind& kind = kindOf(catalogue);
    std::string text = options.byteOrderMark ? kByteOrderMark : "";
    if (options.format == SnapshotFormat::Csv) {
        appendHeader(text, kind.table().fields());
    }
    for (const auto& record : kind.all(snapshot)) {
        if (!record) {
            continue;
        }
        const std::size_t begin = text.size();
        appendLine(text, *record, options);
        if (!canBeRead(std::string_view(text).substr(begin))) {
            throw std::runtime_error("cannot be written: the record " + record->getKey() + " is too long");
        }
        pass(text, file);
    }
    file.write(text);
    file.close();
}

void writeComponents(const Snapshot& snapshot, const SnapshotWriteOptions& options, PackedFile& file) {
    std::string text = std::string(options.byteOrderMark ? kByteOrderMark : "") + "fund,";
    appendHeader(text, CETFComponentStockInfo::table().fields());
    for (const auto& fund : snapshot.etfs) {
        const std::string key = fund->getKey();
        for (const auto& [code, component] : fund->components) {
            if (!component) {
                continue;
            }
            appendCsv(text, *component, options.zeros, &key);
            pass(text, file);
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
    write(directory, SnapshotWriteOptions{format, packing, false, false, false});
}

void Snapshot::write(const std::string& directory, const SnapshotWriteOptions& options) const {
    using namespace snapshot;
    const std::filesystem::path root = pathOf(directory);
    std::error_code failure;
    std::filesystem::create_directories(root, failure);
    if (failure) {
        throw std::runtime_error(directory + ": cannot be made: " + failure.message());
    }
    std::vector<std::string> names;
    names.reserve(kEveryCatalogue.size());
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        names.push_back(fileNameOf({catalogue, options.format, options.packing}));
    }
    // The files of all catalogues are written, also of those without records: one of a former day would stay among
    // these.
    expectNoOthers(root, names);
    std::vector<std::unique_ptr<sys::FileReplacement>> written;
    const auto write = [&](const std::string& name, const auto& fill) {
        const fs::path wanted = root / pathOf(name);
        forFile(wanted, [&] {
            PackedFile packed(written.emplace_back(std::make_unique<sys::FileReplacement>(wanted))->path(),
                              options.packing);
            fill(packed);
        });
    };
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        write(names[static_cast<std::size_t>(catalogue)],
              [&](PackedFile& file) { writeRecords(*this, catalogue, options, file); });
    }
    if (options.components && options.format == SnapshotFormat::Csv) {
        // Named as etfs.csv is behind its beginning: ".csv", or that and what it is packed with.
        const std::string& funds = names[static_cast<std::size_t>(SnapshotCatalogue::Etfs)];
        write(kComponentsName + funds.substr(funds.find('.') + 1),
              [&](PackedFile& file) { writeComponents(*this, options, file); });
    }
    // All of them first, so that a full disk leaves the former day whole. A crash from here on leaves some files of
    // this day and some of the former one, each of them whole.
    for (const auto& file : written) {
        forFile(file->wanted(), [&] { file->rename(); });
    }
}

}  // namespace mxservice
