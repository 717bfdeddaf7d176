#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// Where tables for people go.
struct Screen {
    std::size_t columns = 0;  ///< of the terminal; 0: as wide as it takes
    bool colours = false;
};

/// What a line of a table is about, shown as a colour where there are colours.
enum class Tone { Plain, Good, Bad, Changed };

/// Rows of texts under each other, aligned by the columns that a terminal gives each character. On a screen that is too
/// narrow a last column of texts goes on in further lines; else long texts are cut, then columns left out.
struct TextTable {
    struct Column {
        std::string title;
        bool right = false;  ///< numbers
        bool whole = false;  ///< texts that are never cut
    };

    std::vector<Column> columns;
    std::size_t rows = 0;
    /// Asked twice for every cell: harmless text without line breaks.
    std::function<std::string(std::size_t row, std::size_t column)> cell;
    std::function<Tone(std::size_t row)> tone;  ///< may be empty
    std::size_t leastText;                      ///< texts are not cut to fewer columns

    /// Appends the table; `lineDone` is called after each of its lines. Answers the titles of the columns left out.
    std::vector<std::string> append(std::string& out, const Screen& screen,
                                    const std::function<void()>& lineDone) const;
};

/// Cut to so many terminal columns, the last of them showing that something is missing.
std::string cutText(const std::string& text, std::size_t columns);

/// The text in lines of at most so many columns, broken between words. A line goes on under what stands behind its
/// first gap of two blanks, as the descriptions of a list do.
std::string wrapped(std::string_view text, std::size_t columns);

/// Appends the text and blanks up to the width, or the blanks first.
void appendPadded(std::string& out, std::string_view text, std::size_t width, bool right);

/// Appends the text as `tone` where the screen has colours.
void appendToned(std::string& out, std::string_view text, Tone tone, const Screen& screen);

/// Appends a line of a table's head, or of a heading.
void appendBold(std::string& out, std::string_view text, const Screen& screen);

}  // namespace inscenter
