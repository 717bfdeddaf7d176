// Files of snapshot lines. The first byte picks form and class ('0' and on: NDJSON, 'A' and on: CSV), the rest is the
// file. Every line either gives a reason or a record that survives being written and read again in both forms.

#include <simdjson.h>

#include <cmath>
#include <stdexcept>

#include "fuzz/Fuzzing.h"
#include "tools/inscenter/CsvRecordReader.h"
#include "tools/inscenter/JsonRecordReader.h"
#include "tools/inscenter/LineReader.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Utf8.h"

namespace {

using inscenter::CsvRecordReader;
using inscenter::FileNotes;
using inscenter::JsonRecordReader;
using inscenter::LineError;
using inscenter::LineReader;
using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

/// A parser that looks at everything is the judge of what is JSON; of numbers only ours takes those beyond 64 bits.
void requireJson(std::string_view line) {
    simdjson::dom::parser parser;
    simdjson::dom::object object;
    const auto code = parser.parse(simdjson::padded_string(line)).get_object().get(object);
    require(code == simdjson::SUCCESS || code == simdjson::NUMBER_ERROR, "an accepted line is a JSON object");
}

void requireFiniteUtf8(const IData& record) {
    for (const Field& field : record.recordType().fields()) {
        if (field.kind() == FieldKind::Text) {
            require(inscenter::isUtf8(field.in<std::string>(record)), "texts are UTF-8");
        } else if (field.kind() == FieldKind::Double) {
            require(std::isfinite(field.in<double>(record)), "numbers are finite");
        }
    }
}

void jsonAndBack(const IData& record) {
    std::string line;
    inscenter::appendJson(line, record);
    requireJson(line);
    const simdjson::padded_string padded(line);
    const auto again = record.recordType().make();
    FileNotes notes;
    LineError error;
    require(JsonRecordReader(record.recordType()).readLine({padded.data(), padded.size()}, *again, notes, error),
            "what was written as JSON can be read");
    require(*again == record && notes.notes().empty(), "what was written as JSON is read back equal");
}

/// A cell of a CSV line holds neither a line break nor a NUL.
bool fitsCsv(const IData& record) {
    for (const Field& field : record.recordType().fields()) {
        if (field.kind() == FieldKind::Text &&
            field.in<std::string>(record).find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
            return false;
        }
    }
    return true;
}

void csvAndBack(const IData& record) {
    std::string header;
    std::string line;
    for (const Field& field : record.recordType().fields()) {
        const char* const separator = header.empty() ? "" : ",";
        std::string cell;
        inscenter::appendField(cell, field, record);
        line += separator;
        inscenter::appendCsvCell(line, cell);
        header += separator + field.name();
    }
    const auto again = record.recordType().make();
    CsvRecordReader reader(record.recordType());
    FileNotes notes;
    LineError error;
    require(reader.readHeader(header, notes, error) && reader.readLine(line, *again, notes, error),
            "what was written as CSV can be read");
    require(*again == record && notes.notes().empty(), "what was written as CSV is read back equal");
}

void readFile(const RecordType& type, bool csv, const std::string& path) {
    LineReader lines(path);
    JsonRecordReader json(type);
    CsvRecordReader table(type);
    FileNotes notes;
    bool header = csv;
    for (std::size_t number = 1; lines.next(); ++number) {
        require(lines.number() == number && lines.line().find('\n') == std::string_view::npos, "lines are counted");
        const auto record = type.make();
        LineError error;
        if (header) {
            if (!table.readHeader(lines.line(), notes, error)) {
                require(!error.reason.empty(), "a refused header has a reason");
                return;
            }
            header = false;
            continue;
        }
        const bool read = csv ? table.readLine(lines.line(), *record, notes, error)
                              : json.readLine(lines.line(), *record, notes, error);
        if (!read) {
            require(!error.reason.empty(), "a refused line has a reason");
            continue;
        }
        if (!csv) {
            requireJson(lines.line());
        }
        requireFiniteUtf8(*record);
        jsonAndBack(*record);
        if (fitsCsv(*record)) {
            csvAndBack(*record);
        }
    }
    for (const inscenter::FileNote& note : notes.notes()) {
        require(inscenter::isUtf8(note.text), "what is said of a file is UTF-8");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    static const MemoryFile file;
    file.fill({reinterpret_cast<const char*>(data + 1), size - 1});
    const bool csv = data[0] >= 'A';
    try {
        readFile(pickedClass(data[0], csv ? 'A' : '0'), csv, file.path());
    } catch (const std::runtime_error&) {
        require(size > 2 && data[1] == 0x1f && data[2] == 0x8b, "only a damaged packed file cannot be read");
    }
    return 0;
}
