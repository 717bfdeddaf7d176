// One page of a market day for a browser. The page holds its tables as JSON and shows them itself.

#include <fmt/format.h>

#include <boost/algorithm/string/replace.hpp>

#include <cerrno>
#include <fstream>
#include <list>
#include <string_view>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/DayTables.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Utf8.h"
#include "tools/inscenter/Verbs.h"
#include "tools/inscenter/report/ReportPage.h"

namespace inscenter {
namespace {

namespace market = mxservice::market;
using mxservice::CETFComponentStockInfo;
using mxservice::CInstrumentDetail;
using mxservice::Field;

/// A table of the page.
struct Sheet {
    const char* id;
    const char* title;
    const char* note;
    const char* link;  ///< "SHEET/COLUMN": where a row leads to, and the column that its first cell picks from
    bool overview;     ///< stands on the first page instead of on one of its own
};

/// A field as the page shows it, without a value that says nothing and with a basket as the number of its components.
Cell shownCell(const Field& field, const mxservice::IData& record) {
    const Cell cell = field.isDefault(record) ? Cell() : cellOf(field, record);
    const auto* const basket = std::get_if<Basket>(&cell);
    return basket == nullptr ? cell : static_cast<std::int64_t>((*basket)->size());
}

/// A row of a table that is made of a record.
struct Line {
    std::string first;
    RecordPtr record;
};

/// The records with the columns that their lists show, behind a first column.
Table recordTable(const char* firstColumn, const std::vector<Line>& lines) {
    Table table;
    std::vector<RecordPtr> records;
    records.reserve(lines.size());
    for (const Line& line : lines) {
        records.push_back(line.record);
    }
    if (records.empty()) {
        return table;
    }
    const std::vector<const Field*> fields = Output::usualFields(records);
    table.columns.emplace_back(firstColumn);
    for (const Field* const field : fields) {
        table.columns.push_back(field->name());
    }
    for (const Line& line : lines) {
        std::vector<Cell>& row = table.rows.emplace_back();
        row.emplace_back(line.first);
        for (const Field* const field : fields) {
            row.push_back(shownCell(*field, *line.record));
        }
    }
    return table;
}

template <class Map>
Table byKey(const Map& records) {
    std::vector<Line> lines;
    lines.reserve(records.size());
    for (const auto& [key, record] : records) {
        lines.push_back({key, record});
    }
    return recordTable("key", lines);
}

/// Every instrument with the market under which it is filed.
Table instrumentTable(Session& session) {
    std::vector<Line> lines;
    for (const Filed& instrument : instrumentsOf(session.center, filedMarkets(session.day.markets))) {
        lines.push_back({instrument.market, instrument.record});
    }
    return recordTable(kFiledField, lines);
}

Table basketTable(Session& session) {
    Table table{{"fund", "fundName", "component", "name", "quantity", "substitution", "amount"}, {}};
    for (const auto& [key, fund] : session.center.getEtfs()) {
        for (const auto& [code, component] : fund->components) {
            if (component) {
                table.rows.push_back({key, fund->name, component->market + component->code, component->name,
                                      component->quantity, std::int64_t{component->substituteFlag},
                                      component->creationSubstituteAmount});
            }
        }
    }
    return table;
}

/// Which connect market reaches a Hong Kong stock; each center has its own flags.
std::pair<bool, bool> reachedThrough(CenterKind kind, std::uint32_t flags) {
    if (kind == CenterKind::Server) {
        return {flags == 1 || flags == 5, flags == 3 || flags == 5};  // numbers of its own: 1, 3 and 5 for both
    }
    return {(flags & 3U) != 0, (flags >> 2U) != 0};  // the flag values of the listings, Shenzhen's two bits up
}

Table connectTable(Session& session) {
    Table table{{"code", "name", "throughShanghai", "throughShenzhen", "flags"}, {}};
    for (const auto& [key, record] : session.center.getInstruments(market::kHongKong)) {
        if (record->combinedConnectFlags != 0) {
            const auto [shanghai, shenzhen] = reachedThrough(session.kind, record->combinedConnectFlags);
            table.rows.push_back({record->code, record->name, std::string(shanghai ? "yes" : ""),
                                  std::string(shenzhen ? "yes" : ""), std::int64_t{record->combinedConnectFlags}});
        }
    }
    return table;
}

/// Puts the page's data together.
class Page {
public:
    Page(std::string_view title, std::string_view subtitle) {
        json_ = "{\"title\":";
        appendJsonString(json_, title);
        json_ += ",\"subtitle\":";
        appendJsonString(json_, subtitle);
        json_ += ",\"tables\":[";
    }

    void add(const Sheet& sheet, const Table& table) {
        json_ += empty_ ? "" : ",";
        empty_ = false;
        json_ += fmt::format(R"({{"id":"{}","overview":{},"link":"{}","title":)", sheet.id, sheet.overview, sheet.link);
        appendJsonString(json_, sheet.title);
        json_ += ",\"note\":";
        appendJsonString(json_, sheet.note);
        json_ += ",\"columns\":";
        appendJsonCell(json_, table.columns);
        json_ += ",\"rows\":";
        appendJsonArray(json_, table.rows, [this](const std::vector<Cell>& row) {
            json_ += '\n';
            appendJsonArray(json_, row, [this](const Cell& cell) { appendJsonCell(json_, cell); });
        });
        json_ += '}';
    }

    /// The whole page. No text of a record can end the block that holds the data: "<" is escaped in it.
    std::string finish() && {
        json_ += "]}";
        boost::replace_all(json_, "<", "\\u003c");
        std::string html = kReportPage;
        // Once: a text among the data may say the same, and stays as it is.
        boost::replace_first(html, "%DATA%", json_);
        return html;
    }

private:
    std::string json_;
    bool empty_ = true;
};

Table mainsWithNames(Session& session) {
    const Table products = productTable(session);
    Table table{{"product", "market", "name", "listed", "mainContracts"}, {}};
    for (auto row : mainTable(session).rows) {
        std::vector<Cell> line{row[0], {}, {}, {}, row[1]};
        for (const auto& product : products.rows) {
            if (product[0] == row[0]) {
                std::copy(product.begin() + 1, product.begin() + 4, line.begin() + 1);
            }
        }
        table.rows.push_back(std::move(line));
    }
    return table;
}

void addTables(Session& session, Page& page) {
    mxservice::IInstrumentCenter& center = session.center;
    page.add({"markets", "Markets", "", "instruments/filed", true}, marketTable(session));
    if (const auto& comparison = session.day.comparison) {
        const std::string note =
            fmt::format("Since {}, without the trading day itself. {}", comparison->before, comparison->note);
        page.add({"changecounts", "Changes by catalogue", "", "", true}, changeCountTable(comparison->changes));
        page.add({"changes", "Changes", note.c_str(), "", false}, changeTable(comparison->changes));
    }
    page.add({"instruments", "Instruments",
              "Of several words all must occur, in any column; market=SH asks for a whole cell.", "", false},
             instrumentTable(session));
    page.add({"mains", "Main contracts", "By product.", "", false}, mainsWithNames(session));
    page.add({"codes", "Codes of the day",
              "New issues (ipo), depositary receipts (cdr), NEEQ inquiries (neeq), underlyings of stock options.", "",
              false},
             codeTable(session));
    page.add({"spreads", "Dalian spreads", "", "", false}, spreadTable(session));
    page.add({"connect", "Connect eligibility", "Hong Kong stocks that the connect markets reach.", "", false},
             connectTable(session));
    page.add({"etfs", "ETFs", "A row leads to the fund's basket.", "baskets/fund", false}, byKey(center.getEtfs()));
    page.add({"baskets", "ETF baskets", "", "", false}, basketTable(session));
    page.add({"bonds", "Interbank bonds", "", "", false}, byKey(center.getBonds()));
    page.add({"tenderbonds", "Tender bonds", "", "", false}, byKey(center.getTrenderBondInfos()));
    page.add({"counterparties", "Counterparties", "", "", false}, byKey(center.getCounterpartys()));
    page.add({"otc", "OTC fund plans", "", "", false}, byKey(center.getOtcInstruments()));
    page.add({"issuances", "OTC issuances", "", "", false}, byKey(center.getIssuanceInfos()));
    // The other center keeps neither; an empty table would read as if the day had none.
    if (session.kind == CenterKind::Client) {
        page.add({"outer", "Outer futures products", "", "", false}, outerTable(session));
        page.add({"issuanceprices", "OTC price settings", "", "", false}, byKey(center.getIssuancePriceInfos()));
    }
}

std::string subtitleOf(const Session& session) {
    const auto& comparison = session.day.comparison;
    return fmt::format("{}{}, as the {} center answers.", comparison ? comparison->after : session.day.name,
                       comparison ? " compared with " + comparison->before : "",
                       session.kind == CenterKind::Server ? "in-memory" : "persisted");
}

}  // namespace

void writeReport(Session& session, const Query& query) {
    const Day& day = session.day;
    // Not the clock's day: a page is opened, and often made, long after the day that it shows.
    Page page("Instruments of " + (day.today.empty() ? day.name : shownDay(day.today)), subtitleOf(session));
    addTables(session, page);
    // Whole before the file is touched: until then a page of that name stays as it was.
    const std::string html = std::move(page).finish();
    errno = 0;
    std::ofstream file(pathOf(query.page), std::ios::binary);
    file << html;
    file.close();  // what the system has kept back may be refused only now
    requireWritten(file, query.page);
    session.output.table({{"file", "bytes"}, {{query.page, static_cast<std::int64_t>(html.size())}}}, "");
}

}  // namespace inscenter
