#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// A column of a report's table.
struct ReportColumn {
    std::string name;
    std::string meaning;  ///< for people; may be empty
    /// Appends what stands in the row as a JSON value, null where that says nothing.
    std::function<void(std::string& json, std::size_t row)> append;
};

/// A table of a report.
struct ReportTable {
    const char* id;
    const char* title;
    std::string note;
    /// "SHEET/COLUMN/FROM": a row leads to the rows of another table that have its value of FROM in COLUMN.
    const char* link;
    bool overview;  ///< stands on the first page instead of on one of its own
    std::size_t rows = 0;
    std::vector<ReportColumn> listed = {};   ///< what the list shows, first what names the row
    std::vector<ReportColumn> known = {};    ///< what search and chains look at besides
    std::vector<ReportColumn> details = {};  ///< what is shown of a row that is opened, in no other place
};

/// Puts the data of a report together, as the page's script takes them apart (report/data.js): tables by columns, texts
/// that occur often once. What is large is packed (zlib, base64) in blocks of its own, which the page unpacks when they
/// are asked for; details in blocks of kDetailRows rows each, so that a record that is opened costs one of them.
class ReportData {
public:
    static constexpr std::size_t kDetailRows = 2048;

    void add(const ReportTable& table);

    /// Texts about the whole day. `readings` are those of Spelling.
    void describe(std::string_view title, std::string_view subtitle, const std::vector<std::string>& sources,
                  const std::vector<std::string>& remarks, const std::map<std::string, std::string>& readings);

    /// What stands in the page. No text of a record can end the element that holds it: "<" is escaped.
    std::string finish() &&;

private:
    void addBlock(const std::string& id, const std::string& json);

    std::string about_;
    std::string tables_;
    std::string blocks_;
};

}  // namespace inscenter
