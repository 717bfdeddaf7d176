#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace mxservice::snapshot {

/// Behind the first line of a record over several lines there may be so many bytes. The bound is what an open quotation
/// may cost: so far is looked for its end.
constexpr std::size_t kMaxJoinedBytes = std::size_t{1} << 20U;

/// The first record of a CSV text.
struct CsvRecord {
    enum class State : std::uint8_t {
        Whole,
        Bad,   ///< `reason` says why; the record is its first line alone
        Short  ///< the text ends within the record
    };
    State state = State::Short;
    std::size_t size = 0;  ///< bytes that it takes, line end included
    std::size_t lines = 1;
    const char* reason = "";
};

/// The cells of a record; their texts are used again for the next one.
class CsvCells {
public:
    void clear() { count_ = 0; }
    std::string& add();
    std::size_t size() const { return count_; }
    const std::string& operator[](std::size_t index) const { return texts_[index]; }

private:
    std::vector<std::string> texts_;
    std::size_t count_ = 0;
};

/// Takes the first record off `text`, by RFC 4180: a quoted cell may hold line breaks. `end`: nothing follows the text.
/// A record over several lines must have `columns` cells; else the quotation that makes it go on was not meant, and
/// costs its own line only. Where two looks at one text have the same beginning, both find the same records.
CsvRecord scanCsv(std::string_view text, bool end, std::size_t columns, CsvCells& cells);

}  // namespace mxservice::snapshot
