#include "snapshot/CsvScanner.h"

#include <algorithm>

namespace mxservice::snapshot {
namespace {

constexpr const char* kQuotation = "not valid CSV: a quotation mark is not closed or stands where none may";
constexpr const char* kReturn = "not valid CSV: a carriage return within a line";
constexpr const char* kNul = "NUL byte";

std::string_view withoutReturn(std::string_view line) {
    return line.substr(0, line.size() - (line.ends_with('\r') ? 1 : 0));
}

/// What stands outside of quotation marks and may not; null when nothing does.
const char* faultIn(std::string_view plain) {
    return plain.find('\0') != std::string_view::npos   ? kNul
           : plain.find('\r') != std::string_view::npos ? kReturn
                                                        : nullptr;
}

void splitPlain(std::string_view line, CsvCells& cells) {
    for (;;) {
        const std::size_t comma = line.find(',');
        cells.add().assign(line.substr(0, comma));
        if (comma == std::string_view::npos) {
            return;
        }
        line.remove_prefix(comma + 1);
    }
}

/// A record that has a quotation mark, cell by cell.
class QuotedRecord {
public:
    QuotedRecord(std::string_view text, CsvCells& cells) : text_(text), cells_(cells) {}

    /// Why the record cannot be; null when it ended, or when the text did.
    const char* scan() {
        do {
            std::string& cell = cells_.add();
            cell.clear();
            const char* const fault = text_.substr(at_).starts_with('"') ? scanQuoted(cell) : scanPlain(cell);
            if (fault != nullptr || open_) {
                return fault;
            }
        } while (takes(','));
        takes('\r');
        ended_ = takes('\n');
        // Behind a cell stands a comma or the end of the line.
        return ended_ || at_ == text_.size() ? nullptr : kQuotation;
    }

    std::size_t size() const { return at_; }
    /// Whether the record ended with a line end, and not with the text.
    bool ended() const { return ended_; }
    /// Whether the text ended between quotation marks.
    bool open() const { return open_; }

private:
    bool takes(char wanted) {
        const bool found = at_ < text_.size() && text_[at_] == wanted;
        at_ += found ? 1 : 0;
        return found;
    }

    const char* scanPlain(std::string& cell) {
        const std::size_t end = std::min(text_.find_first_of(",\"\n", at_), text_.size());
        const std::string_view raw = text_.substr(at_, end - at_);
        const bool last = end == text_.size() || text_[end] == '\n';
        const std::string_view plain = last ? withoutReturn(raw) : raw;
        at_ = end;
        cell.assign(plain);
        return end < text_.size() && text_[end] == '"' ? kQuotation : faultIn(plain);
    }

    const char* scanQuoted(std::string& cell) {
        takes('"');
        for (;;) {
            const std::size_t mark = text_.find('"', at_);
            cell.append(text_.substr(at_, mark - at_));
            if (mark == std::string_view::npos) {
                at_ = text_.size();
                open_ = true;
                return nullptr;
            }
            at_ = mark + 1;
            if (!takes('"')) {  // two of them are one that belongs to the text
                return nullptr;
            }
            cell += '"';
        }
    }

    const std::string_view text_;
    CsvCells& cells_;
    std::size_t at_ = 0;
    bool open_ = false;
    bool ended_ = false;
};

}  // namespace

std::string& CsvCells::add() {
    if (count_ == texts_.size()) {
        texts_.emplace_back();
    }
    return texts_[count_++];
}

CsvRecord scanCsv(std::string_view text, bool end, std::size_t columns, CsvCells& cells) {
    cells.clear();
    const std::size_t lineEnd = text.find('\n');
    if (lineEnd == std::string_view::npos && !end) {
        return {};
    }
    const std::string_view line = withoutReturn(text.substr(0, lineEnd));
    const std::size_t lineSize = lineEnd == std::string_view::npos ? text.size() : lineEnd + 1;
    const auto bad = [&](const char* reason) { return CsvRecord{CsvRecord::State::Bad, lineSize, 1, reason}; };
    if (line.find('"') == std::string_view::npos) {  // most lines, and a third of the time
        if (const char* const fault = faultIn(line)) {
            return bad(fault);
        }
        splitPlain(line, cells);
        return {CsvRecord::State::Whole, lineSize};
    }
    const bool cut = text.size() - lineSize > kMaxJoinedBytes;
    QuotedRecord record(text.substr(0, lineSize + (cut ? kMaxJoinedBytes : text.size() - lineSize)), cells);
    if (const char* const fault = record.scan()) {
        // Behind the first line nothing is wrong with the line but that its quotation goes on.
        return bad(record.size() < lineSize ? fault : kQuotation);
    }
    if (!record.ended() && (cut || !end)) {
        return cut ? bad(kQuotation) : CsvRecord{};
    }
    if (record.open()) {
        return bad(kQuotation);
    }
    const std::string_view taken = text.substr(0, record.size());
    const auto breaks = static_cast<std::size_t>(std::count(taken.begin(), taken.end(), '\n'));
    const std::size_t lines = breaks + (record.ended() ? 0 : 1);
    // A quotation that was left open swallows what follows up to the next mark. Where that happens to end well, the
    // number of cells tells it from a text with a line break.
    if (lines > 1 && cells.size() != columns) {
        return bad(kQuotation);
    }
    return {CsvRecord::State::Whole, record.size(), lines};
}

}  // namespace mxservice::snapshot
