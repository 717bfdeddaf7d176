#include "tools/inscenter/ReportData.h"

#include <fmt/format.h>
#include <zlib.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/unordered/unordered_flat_map.hpp>

#include <algorithm>
#include <array>
#include <stdexcept>

#include "tools/inscenter/RecordText.h"

namespace inscenter {
namespace {

/// Smaller tables stand in the page as they are: packing them would save nothing that anybody notices.
constexpr std::size_t kPackedRows = 4096;

// A page is text: packed bytes would have to be valid UTF-8. None of these signs ends an element, either.
void appendBase64(std::string& out, const std::vector<Bytef>& bytes) {
    constexpr std::string_view kSigns = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    out.reserve(out.size() + bytes.size() / 3 * 4 + 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        std::uint32_t three = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            three = three << 8U | (i < count ? bytes[at + i] : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            out += i <= count ? kSigns[three >> (18 - 6 * i) & 63U] : '=';
        }
    }
}

// With zlib's header, which browsers call "deflate"; zstd they do not unpack.
std::vector<Bytef> packed(const std::string& text) {
    constexpr int kLevel = 6;
    // The library counts up to 4 GiB on Windows, far more than the columns of a page take.
    const auto plain = static_cast<uLong>(text.size());
    std::vector<Bytef> bytes(compressBound(plain));  // so that room is never what fails below
    auto size = static_cast<uLongf>(bytes.size());
    if (compress2(bytes.data(), &size, reinterpret_cast<const Bytef*>(text.data()), plain, kLevel) != Z_OK) {
        throw std::runtime_error("the report cannot be packed");
    }
    bytes.resize(size);
    return bytes;
}

/// The rows from `begin` to `end`: a list of values, or, where few values occur, these and a list of their places.
void appendColumn(std::string& json, const ReportColumn& column, std::size_t begin, std::size_t end) {
    // With more values than that, their places take as much room as the values.
    const std::size_t most = (end - begin) / 8 + 1;
    boost::unordered_flat_map<std::string, std::size_t> places;
    std::string plain;
    std::string values;
    std::string rows;
    std::string value;
    for (std::size_t row = begin; row < end; ++row) {
        value.clear();
        column.append(value, row);
        if (places.size() <= most) {
            const auto [at, fresh] = places.try_emplace(value, places.size());
            if (fresh) {
                values += values.empty() ? "" : ",";
                values += value;
            }
            rows += rows.empty() ? "" : ",";
            rows += fmt::format_int(at->second).c_str();
        }
        plain += plain.empty() ? "" : ",";
        plain += value;
    }
    // How many values there are is known only now, so both forms were made: asking the records twice takes longer.
    if (places.size() == 1) {
        json += fmt::format(R"({{"values":[{}]}})", values);
    } else if (places.size() <= most) {
        json += fmt::format(R"({{"values":[{}],"places":[{}]}})", values, rows);
    } else {
        json += fmt::format(R"({{"rows":[{}]}})", plain);
    }
}

std::string columnsOf(const std::vector<const ReportColumn*>& columns, std::size_t begin, std::size_t end) {
    std::string json;
    appendJsonArray(json, columns, [&](const ReportColumn* column) { appendColumn(json, *column, begin, end); });
    return json;
}

/// Begins a member behind others of an object.
std::string& member(std::string& json, const char* name) {
    return json.append(",\"").append(name).append("\":");
}

void appendTexts(std::string& json, const std::vector<std::string>& texts) {
    appendJsonArray(json, texts, [&](const std::string& text) { appendJsonString(json, text); });
}

void appendAbout(std::string& json, const std::vector<ReportColumn>& columns) {
    appendJsonArray(json, columns, [&](const ReportColumn& column) {
        appendTexts(json, {column.name, column.meaning});
    });
}

std::vector<const ReportColumn*> pointersTo(std::initializer_list<const std::vector<ReportColumn>*> groups) {
    std::vector<const ReportColumn*> columns;
    for (const auto* const group : groups) {
        for (const ReportColumn& column : *group) {
            columns.push_back(&column);
        }
    }
    return columns;
}

}  // namespace

void ReportData::addBlock(const std::string& id, const std::string& json) {
    blocks_ += fmt::format("<script id=\"{}\" type=\"text/plain\">", id);
    appendBase64(blocks_, packed(json));
    blocks_ += "</script>\n";
}

void ReportData::add(const ReportTable& table) {
    std::string& json = tables_;
    json += json.empty() ? "" : ",\n";
    json += fmt::format(R"({{"id":"{}","overview":{},"link":"{}","length":{},"detailRows":{},"title":)", table.id,
                        table.overview, table.link, table.rows, kDetailRows);
    appendJsonString(json, table.title);
    appendJsonString(member(json, "note"), table.note);
    appendAbout(member(json, "listed"), table.listed);
    appendAbout(member(json, "known"), table.known);
    appendAbout(member(json, "details"), table.details);
    // In this order, which the script takes for the columns' own.
    const std::string columns = columnsOf(pointersTo({&table.listed, &table.known}), 0, table.rows);
    if (table.rows < kPackedRows) {
        member(json, "columns") += columns;
    } else {
        addBlock(table.id, columns);
    }
    json += '}';
    for (std::size_t begin = 0; begin < table.rows && !table.details.empty(); begin += kDetailRows) {
        addBlock(fmt::format("{}.{}", table.id, begin / kDetailRows),
                 columnsOf(pointersTo({&table.details}), begin, std::min(begin + kDetailRows, table.rows)));
    }
}

void ReportData::describe(std::string_view title, std::string_view subtitle, const std::vector<std::string>& sources,
                          const std::vector<std::string>& remarks, const std::map<std::string, std::string>& readings) {
    appendJsonString(member(about_, "title"), title);
    appendJsonString(member(about_, "subtitle"), subtitle);
    appendTexts(member(about_, "sources"), sources);
    appendTexts(member(about_, "remarks"), remarks);
    appendJsonArray(member(about_, "readings"), readings, [&](const auto& reading) {
        appendTexts(about_, {reading.first, reading.second});
    });
}

std::string ReportData::finish() && {
    std::string json = fmt::format("{{\"tables\":[\n{}]{}}}", tables_, about_);
    boost::replace_all(json, "<", "\\u003c");  // or a name with "</script>" in it would end the element
    return fmt::format("<script id=\"data\" type=\"application/json\">{}</script>\n{}", json, blocks_);
}

}  // namespace inscenter
