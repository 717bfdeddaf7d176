#include "snapshot/BlockDecoder.h"

#include <algorithm>
#include <utility>

#include "snapshot/Catalogues.h"
#include "snapshot/Utf8.h"

namespace mxservice::snapshot {
namespace {

constexpr std::size_t kBytesARecord = 512;  // a guess that spares most of the growing

/// Goes through one block.
class Decoding {
public:
    Decoding(const ReadFile& file, DecodedBlock& decoded)
        : type_(kindOf(file.catalogue).table()),
          identity_(identityFields(type_)),
          dates_(dateFields(type_)),
          json_(type_),
          csv_(type_, file.columns),
          columns_(file.columns.size()),
          decoded_(decoded),
          notes_(decoded.notes) {}

    void readLines(const TextBlock& block) {
        std::uint64_t number = block.firstLine;
        for (std::string_view rest = block.text(); !rest.empty(); ++number) {
            const std::size_t end = std::min(rest.find('\n'), rest.size());
            const std::string_view line = rest.substr(0, end - (end > 0 && rest[end - 1] == '\r' ? 1 : 0));
            notes_.beginLine(number);
            if (!isTooLong(line) && !isBlank(line)) {
                LineError error;
                boost::shared_ptr<IData> record = type_.make();
                // A record for each line, also for one that is refused: those are few.
                const bool read = json_.readLine(line, *record, notes_, error);
                keep(read, std::move(record), error);
            }
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }

    void readCells(const TextBlock& block) {
        std::uint64_t number = block.firstLine;
        for (std::string_view rest = block.text(); !rest.empty();) {
            // What goes on behind the block is no part of its last record: the block was cut where one ends.
            const CsvRecord found = scanCsv(rest, true, columns_, cells_);
            const std::string_view text = rest.substr(0, found.size);
            notes_.beginLine(number);
            if ((found.lines > 1 || !isTooLong(text)) && !isBlank(text)) {
                LineError error;
                boost::shared_ptr<IData> record = type_.make();
                const bool read = isSound(found, text, error) && csv_.readCells(cells_, *record, notes_, error);
                keep(read, std::move(record), error);
            }
            number += found.lines;
            rest.remove_prefix(found.size);
        }
    }

private:
    bool isTooLong(std::string_view line) {
        if (line.size() > kMaxLineBytes) {
            notes_.addTooLong();
        }
        return line.size() > kMaxLineBytes;
    }

    static bool isSound(const CsvRecord& found, std::string_view text, LineError& error) {
        if (found.state == CsvRecord::State::Bad) {
            // What is wrong with the bytes comes first: it explains the rest.
            return refuse(error, "", isUtf8(text) ? found.reason : "not UTF-8");
        }
        return isUtf8(text) || refuse(error, "", "not UTF-8");
    }

    void keep(bool read, boost::shared_ptr<IData> record, LineError& error) {
        // Looked at once the line is whole: which of its fields came first does not matter.
        if (read && hasIdentity(*record, identity_, error) && hasDays(*record, dates_, error)) {
            decoded_.records.push_back({std::move(record), notes_.line()});
        } else {
            notes_.addSkipped(std::move(error));
        }
    }

    const RecordType& type_;
    const std::vector<const Field*> identity_;
    const std::vector<const Field*> dates_;
    JsonRecordReader json_;
    CsvRecordReader csv_;
    const std::size_t columns_;
    CsvCells cells_;
    DecodedBlock& decoded_;
    FileNotes& notes_;
};

}  // namespace

DecodedBlock decode(Block block) {
    DecodedBlock decoded;
    const ReadFile& file = *block.file;
    decoded.notes = std::move(block.notes);
    decoded.records.reserve(block.text.text().size() / kBytesARecord);
    Decoding decoding(file, decoded);
    if (file.format == SnapshotFormat::Ndjson) {
        decoding.readLines(block.text);
    } else {
        decoding.readCells(block.text);
    }
    block.text = {};  // records wait longer than their text has to
    decoded.block = std::move(block);
    return decoded;
}

}  // namespace mxservice::snapshot
