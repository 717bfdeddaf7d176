#include "tools/inscenter/TextTable.h"

#include <algorithm>
#include <numeric>

#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

// Two blanks, because one stands between the words of a text.
constexpr std::string_view kGap = "  ";
constexpr std::string_view kEllipsis = "\xE2\x80\xA6";  // U+2026
constexpr std::size_t kLeastWrapped = 20;               // a last column is not wrapped into less
// Colours by ECMA-48, SGR.
constexpr const char* kBold = "\x1B[1m";
constexpr const char* kRed = "\x1B[31m";
constexpr const char* kGreen = "\x1B[32m";
constexpr const char* kYellow = "\x1B[33m";
constexpr const char* kUsual = "\x1B[0m";

const char* colourOf(Tone tone) {
    switch (tone) {
        case Tone::Good:
            return kGreen;
        case Tone::Bad:
            return kRed;
        case Tone::Changed:
            return kYellow;
        case Tone::Plain:
            break;
    }
    return "";
}

/// The longest beginning of the text that takes no more than so many columns, as bytes.
std::size_t fitting(std::string_view text, std::size_t columns) {
    std::size_t bytes = 0;
    std::size_t width = 0;
    while (bytes < text.size()) {
        const std::string_view next = text.substr(bytes, decodeUtf8(text.substr(bytes)).length);
        width += displayWidth(next);
        if (width > columns) {
            break;
        }
        bytes += next.size();
    }
    return bytes;
}

/// Takes the next line of at most so many columns off the text, at a blank where there is one.
std::string takeLine(std::string_view& text, std::size_t columns) {
    // At least a letter: where not even one has room, the caller would wait for the end of the text for ever.
    std::size_t end = text.empty() ? 0 : std::max(fitting(text, columns), decodeUtf8(text).length);
    if (end < text.size()) {
        const std::size_t blank = text.substr(0, end + 1).rfind(' ');
        if (blank != std::string_view::npos && blank > 0) {
            end = blank;
        }
    }
    std::string line(text.substr(0, end));
    text.remove_prefix(end);
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    return line;
}

/// The column, or a smaller one where it leaves too little room.
std::size_t roomy(std::size_t column, std::size_t columns) {
    return column + kLeastWrapped <= columns ? column : std::min(column, 2 * kGap.size());
}

/// Where the lines begin in which a line goes on: under what stands behind its gap.
std::size_t hangOf(std::string_view line, std::size_t indent, std::size_t columns) {
    const std::size_t gap = line.find(kGap, indent);
    const std::size_t behind = gap == std::string_view::npos ? gap : line.find_first_not_of(' ', gap);
    const std::size_t usual = indent <= kGap.size() ? 2 * indent : indent;
    return roomy(behind == std::string_view::npos ? usual : behind, columns);
}

/// How the columns share the screen.
class Layout {
public:
    Layout(const TextTable& table, const Screen& screen) : table_(table), columns_(screen.columns) {
        measure();
        if (columns_ > 0 && widthOf(widths_.size()) > columns_) {
            fit();
        }
    }

    std::size_t shown() const { return widths_.size(); }

    void appendHead(std::string& out) const {
        for (std::size_t i = 0; i < widths_.size(); ++i) {
            appendCell(out, cutText(table_.columns[i].title, widths_[i]), i);
        }
        endLine(out);
    }

    void appendRow(std::string& out, std::size_t row) const {
        for (std::size_t i = 0; i < widths_.size(); ++i) {
            const std::string text = table_.cell(row, i);
            if (i + 1 < widths_.size() || !wrapped_) {
                appendCell(out, cutText(text, widths_[i]), i);
                continue;
            }
            std::string_view rest = text;
            out += takeLine(rest, widths_[i]);
            while (!rest.empty()) {
                endLine(out);
                out.append(widthOf(i) + kGap.size(), ' ');
                out += takeLine(rest, widths_[i]);
            }
        }
        endLine(out);
    }

private:
    static void endLine(std::string& out) {
        out.erase(out.find_last_not_of(' ') + 1);
        out += '\n';
    }

    void appendCell(std::string& out, std::string_view text, std::size_t column) const {
        appendPadded(out, text, widths_[column], table_.columns[column].right);
        out += kGap;
    }

    void measure() {
        for (std::size_t i = 0; i < table_.columns.size(); ++i) {
            std::size_t width = displayWidth(table_.columns[i].title);
            for (std::size_t row = 0; row < table_.rows; ++row) {
                width = std::max(width, displayWidth(table_.cell(row, i)));
            }
            widths_.push_back(width);
        }
    }

    /// Columns that the first `count` columns take.
    std::size_t widthOf(std::size_t count) const {
        const std::size_t gaps = count == 0 ? 0 : (count - 1) * kGap.size();
        return std::accumulate(widths_.begin(), widths_.begin() + static_cast<std::ptrdiff_t>(count), gaps);
    }

    /// The widest column of texts that may be cut, or null.
    std::size_t* widest() {
        std::size_t* found = nullptr;
        for (std::size_t i = 0; i < widths_.size(); ++i) {
            // A part of a number or code reads like another one.
            if (!table_.columns[i].right && !table_.columns[i].whole &&
                widths_[i] > (found == nullptr ? table_.leastText : *found)) {
                found = &widths_[i];
            }
        }
        return found;
    }

    void fit() {
        const std::size_t last = widths_.back();
        if (!table_.columns.back().right && last > kLeastWrapped) {
            // Without it first: a last column of texts can go on in further lines, so it takes what the others leave.
            // Where they leave too little, it is cut as they are.
            widths_.back() = 0;
            cut(columns_ - std::min(kLeastWrapped, columns_));
            const std::size_t before = widthOf(widths_.size());
            wrapped_ = before + kLeastWrapped <= columns_;
            widths_.back() = wrapped_ ? std::min(last, columns_ - before) : last;
        }
        cut(columns_);
        while (widthOf(widths_.size()) > columns_ && widths_.size() > 1) {
            widths_.pop_back();  // from the right: what tells most stands first
        }
    }

    /// Cuts texts, the longest first, until the columns fit or none can be cut.
    void cut(std::size_t columns) {
        for (std::size_t* text = widest(); text != nullptr && widthOf(widths_.size()) > columns; text = widest()) {
            --*text;  // one at a time off the widest, so that no short text is cut before a long one
        }
    }

    const TextTable& table_;
    const std::size_t columns_;
    std::vector<std::size_t> widths_;
    bool wrapped_ = false;
};

void appendColoured(std::string& out, std::string_view text, const char* colour, const Screen& screen) {
    const bool coloured = screen.colours && *colour != '\0';
    // The line break stays outside, so that no colour reaches into what follows.
    const bool line = text.ends_with('\n');
    out += coloured ? colour : "";
    out += text.substr(0, text.size() - (line ? 1 : 0));
    out += coloured ? kUsual : "";
    out += line ? "\n" : "";
}

}  // namespace

std::string cutText(const std::string& text, std::size_t columns) {
    if (displayWidth(text) <= columns) {
        return text;
    }
    return text.substr(0, fitting(text, columns == 0 ? 0 : columns - 1)) + std::string(kEllipsis);
}

std::string wrapped(std::string_view text, std::size_t columns) {
    std::string out;
    while (!text.empty()) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
        const std::size_t hang = hangOf(line, indent, columns);
        line.remove_prefix(indent);
        for (std::size_t begin = roomy(indent, columns); !line.empty(); begin = hang) {
            out.append(begin, ' ') += takeLine(line, columns - std::min(begin, columns - 1));
            out.erase(out.find_last_not_of(' ') + 1);
            out += line.empty() ? "" : "\n";
        }
        out += '\n';
    }
    return out;
}

void appendPadded(std::string& out, std::string_view text, std::size_t width, bool right) {
    const std::size_t own = displayWidth(text);
    const std::string padding(width > own ? width - own : 0, ' ');
    out += right ? padding : std::string();
    out += text;
    out += right ? std::string() : padding;
}

void appendToned(std::string& out, std::string_view text, Tone tone, const Screen& screen) {
    appendColoured(out, text, colourOf(tone), screen);
}

void appendBold(std::string& out, std::string_view text, const Screen& screen) {
    appendColoured(out, text, kBold, screen);
}

std::vector<std::string> TextTable::append(std::string& out, const Screen& screen,
                                           const std::function<void()>& lineDone) const {
    const Layout layout(*this, screen);
    std::string line;
    layout.appendHead(line);
    appendBold(out, line, screen);
    for (std::size_t row = 0; row < rows; ++row) {
        line.clear();
        layout.appendRow(line, row);
        appendToned(out, line, tone ? tone(row) : Tone::Plain, screen);
        lineDone();
    }
    std::vector<std::string> missing;
    for (std::size_t i = layout.shown(); i < columns.size(); ++i) {
        missing.push_back(columns[i].title);
    }
    return missing;
}

}  // namespace inscenter
