// Days in memory. The first byte picks form and catalogue ('0' and on: NDJSON, 'A' and on: CSV), the rest is the file,
// packed or not. Whatever it holds is read or told; threads and blocks change nothing; what was read survives being
// written and read again in both forms.

#include <simdjson.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>

#include "fuzz/Fuzzing.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"
#include "snapshot/Utf8.h"

namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotFormat;
using mxservice::SnapshotIssue;
using mxservice::SnapshotIssueKind;
using mxservice::SnapshotReadOptions;
using mxservice::SnapshotUnreadable;

bool isText(std::string_view text) {
    return mxservice::snapshot::isUtf8(text) && mxservice::snapshot::printable(text) == text;
}

void requireFiniteUtf8(const IData& record) {
    for (const Field& field : record.recordType().fields()) {
        if (field.kind() == FieldKind::Text) {
            require(mxservice::snapshot::isUtf8(field.in<std::string>(record)), "texts are UTF-8");
        } else if (field.kind() == FieldKind::Double) {
            require(std::isfinite(field.in<double>(record)), "numbers are finite");
        }
    }
}

/// Every record as a line of JSON.
std::string linesOf(const Snapshot& day, SnapshotCatalogue catalogue) {
    std::string lines;
    for (const auto& record : day.records(catalogue)) {
        mxservice::appendJson(lines, *record);
        lines += '\n';
    }
    return lines;
}

void requireJson(const std::string& lines) {
    simdjson::dom::parser parser;
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = lines.find('\n', begin);
        const simdjson::padded_string line(lines.data() + begin, end - begin);
        const auto code = parser.parse(line).error();
        require(code == simdjson::SUCCESS || code == simdjson::NUMBER_ERROR, "what is written as JSON is JSON");
        begin = end + 1;
    }
}

/// All that a read brought, as one text.
std::string imageOf(std::string_view bytes, const SnapshotReadOptions& options) {
    std::string image;
    const auto tell = [&image](const std::vector<SnapshotIssue>& issues) {
        for (const SnapshotIssue& issue : issues) {
            require(isText(issue.file) && isText(issue.field) && isText(issue.reason), "issues can be shown");
            require(!issue.reason.empty(), "every issue has a reason");
            image += issue.file + ':' + std::to_string(issue.line) + ' ' + issue.field + ' ' + issue.reason + '\n';
        }
    };
    try {
        const Snapshot day = Snapshot::read(bytes.data(), bytes.size(), options);
        std::uint64_t lines = 0;
        for (const SnapshotIssue& issue : day.issues) {
            lines += issue.kind == SnapshotIssueKind::LineSkipped ? issue.count : 0;
        }
        require(lines == day.skippedLines, "every skipped line is told or counted");
        tell(day.issues);
        image += linesOf(day, *options.catalogue);
    } catch (const SnapshotUnreadable& failure) {
        require(!failure.issues.empty(), "what cannot be read says why");
        tell(failure.issues);
    }
    return image;
}

void writeAndBack(const Snapshot& day, SnapshotCatalogue catalogue, SnapshotFormat format) {
    static const std::filesystem::path directory =
        std::filesystem::temp_directory_path() / ("fuzz-line-" + std::to_string(::getpid()));
    day.write(directory.string(), format);
    const Snapshot back = Snapshot::read(directory.string());
    std::filesystem::remove_all(directory);
    const auto before = day.records(catalogue);
    const auto after = back.records(catalogue);
    require(back.issues.empty() && before.size() == after.size(), "what was written can be read");
    for (std::size_t i = 0; i < before.size(); ++i) {
        require(*before[i] == *after[i], "what was written is read back equal");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data + 1), size - 1);
    const bool csv = data[0] >= 'A';
    SnapshotReadOptions options;
    options.catalogue = static_cast<SnapshotCatalogue>((data[0] - (csv ? 'A' : '0')) & 7U);
    options.format = csv ? SnapshotFormat::Csv : SnapshotFormat::Ndjson;
    options.issuesPerFile = 5;
    options.threads = 1;
    const std::string image = imageOf(bytes, options);
    options.threads = 2;
    options.blockBytes = 8 + size % 61;
    require(imageOf(bytes, options) == image, "threads and blocks change nothing");
    try {
        const Snapshot day = Snapshot::read(bytes.data(), bytes.size(), options);
        for (const auto& record : day.records(*options.catalogue)) {
            requireFiniteUtf8(*record);
        }
        requireJson(linesOf(day, *options.catalogue));
        if (size % 16 == 0) {  // files cost much more than all the rest
            writeAndBack(day, *options.catalogue, SnapshotFormat::Ndjson);
            writeAndBack(day, *options.catalogue, SnapshotFormat::Csv);
        }
    } catch (const SnapshotUnreadable&) {
        return 0;  // told above
    }
    return 0;
}
