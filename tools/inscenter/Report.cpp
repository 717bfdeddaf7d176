// One page of a market day for a browser. The page holds its tables and shows them itself.

#include <fmt/format.h>

#include <boost/algorithm/string/replace.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <fstream>
#include <memory>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/DayTables.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/FieldMeanings.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/InstrumentKind.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/ReportData.h"
#include "tools/inscenter/Spelling.h"
#include "tools/inscenter/Utf8.h"
#include "tools/inscenter/Verbs.h"
#include "tools/inscenter/report/ReportPage.h"

namespace inscenter {
namespace {

namespace market = mxservice::market;
using mxservice::CInstrumentDetail;
using mxservice::Field;

/// What the list of instruments shows, and what search and option chains ask of each besides; where any record has it.
constexpr std::array kListedFields{"productId",
                                   "isin",
                                   "listingDate",
                                   "expireDate",
                                   "priceTick",
                                   "volumeMultiple",
                                   "lotSize",
                                   "underlyingCode",
                                   "strikePrice",
                                   "mainContractFlag",
                                   "combinedConnectFlags",
                                   "currency"};
constexpr std::array kKnownFields{"platformCode",     "spellName",  "englishName",        "productName",
                                  "underlyingMarket", "optionType", "preSettlementPrice", "preOpenInterest"};

bool given(const Field& field, const std::vector<RecordPtr>& records) {
    return std::any_of(records.begin(), records.end(),
                       [&](const RecordPtr& record) { return !field.isDefault(*record); });
}

/// The field of each of the records, which the column shares. A basket is the number of its components.
// A default is null, which the page shows as an empty cell, and of which a whole column packs to nothing.
ReportColumn fieldColumn(const Field& field, const std::shared_ptr<const std::vector<RecordPtr>>& records) {
    return {field.name(), meaningOf(records->front()->recordType(), field),
            [&field, records](std::string& json, std::size_t row) {
                const mxservice::IData& record = *(*records)[row];
                if (field.isDefault(record)) {
                    json += "null";
                } else if (field.kind() == mxservice::FieldKind::Components) {
                    json += std::to_string(field.in<mxservice::ComponentMap>(record).size());
                } else {
                    appendJsonField(json, field, record);
                }
            }};
}

ReportColumn textColumn(const char* name, const char* meaning, std::function<std::string(std::size_t)> text) {
    return {name, meaning,
            [text = std::move(text)](std::string& json, std::size_t row) { appendJsonString(json, text(row)); }};
}

/// Puts the columns of all other fields that any record has to the details.
void addDetails(ReportTable& table, const std::shared_ptr<const std::vector<RecordPtr>>& records) {
    const auto shown = [&](const Field& field) {
        const auto named = [&](const ReportColumn& column) { return column.name == field.name(); };
        return std::any_of(table.listed.begin(), table.listed.end(), named) ||
               std::any_of(table.known.begin(), table.known.end(), named);
    };
    for (const Field& field : records->front()->recordType().fields()) {
        if (!shown(field) && given(field, *records)) {
            table.details.push_back(fieldColumn(field, records));
        }
    }
}

template <class Map>
ReportTable byKey(ReportTable table, const Map& kept) {
    if (kept.empty()) {
        return table;  // the columns go by the records' class, which nothing names here
    }
    auto keys = std::make_shared<std::vector<std::string>>();
    auto records = std::make_shared<std::vector<RecordPtr>>();
    for (const auto& [key, record] : kept) {
        keys->push_back(key);
        records->push_back(record);
    }
    table.rows = records->size();
    table.listed.push_back(
        textColumn("name", "display name", [records](std::size_t row) { return nameOf(*(*records)[row]); }));
    table.listed.push_back(textColumn("key", "the key under which the center keeps the record",
                                      [keys](std::size_t row) { return (*keys)[row]; }));
    // A name or key that is a field of the class, too, stands in the list once.
    const auto repeats = [&](const Field& field) {
        std::size_t row = 0;
        return field.kind() == mxservice::FieldKind::Text &&
               std::all_of(records->begin(), records->end(), [&](const RecordPtr& record) {
                   const auto& text = field.in<std::string>(*record);
                   return text == (*keys)[row++] || text == nameOf(*record);
               });
    };
    for (const Field* const field : Output::usualFields(*records)) {
        if (!repeats(*field)) {
            table.listed.push_back(fieldColumn(*field, records));
        }
    }
    addDetails(table, records);
    return table;
}

/// Every instrument, and the spelling of the names.
ReportTable instrumentTable(Session& session, Spelling& spelling) {
    ReportTable table{"instruments", "Instruments", "market=SH asks for a whole cell, lotSize= for an empty one.", "",
                      false};
    const auto filed =
        std::make_shared<const std::vector<Filed>>(instrumentsOf(session.center, filedMarkets(session.day.markets)));
    auto records = std::make_shared<std::vector<RecordPtr>>();
    for (const Filed& instrument : *filed) {
        records->push_back(instrument.record);
        spelling.of(instrument.record->name);  // notes the letters whose readings the page gets
    }
    if (records->empty()) {
        return table;
    }
    const mxservice::RecordType& type = CInstrumentDetail::table();
    table.rows = records->size();
    for (const char* const name : {"name", "code", "market"}) {
        table.listed.push_back(fieldColumn(*type.find(name), records));
    }
    table.listed.push_back(textColumn("kind", "what it is, as the center sees it", [&session, filed](std::size_t row) {
        return instrumentKind(session.center, (*filed)[row]);
    }));
    for (const char* const name : kListedFields) {
        if (given(*type.find(name), *records)) {
            table.listed.push_back(fieldColumn(*type.find(name), records));
        }
    }
    table.listed.push_back(textColumn(kFiledField, "the market under which the center files it; with the code its key",
                                      [filed](std::size_t row) { return (*filed)[row].market; }));
    // Also where no record has them, for the page's search and chains ask for each by its name.
    for (const char* const name : kKnownFields) {
        table.known.push_back(fieldColumn(*type.find(name), records));
    }
    addDetails(table, records);
    return table;
}

/// The table with those of its columns that are named, in that order, or as it is.
ReportTable rowsOf(ReportTable table, Table answer, const std::vector<std::string>& columns = {}) {
    const auto rows = std::make_shared<const Table>(std::move(answer));
    table.rows = rows->rows.size();
    for (const std::string& name : columns.empty() ? rows->columns : columns) {
        const auto at = static_cast<std::size_t>(std::find(rows->columns.begin(), rows->columns.end(), name) -
                                                 rows->columns.begin());
        table.listed.push_back(
            {name, "", [rows, at](std::string& json, std::size_t row) { appendJsonCell(json, rows->rows[row][at]); }});
    }
    return table;
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

void addTables(Session& session, ReportData& data, Spelling& spelling) {
    mxservice::IInstrumentCenter& center = session.center;
    data.add(rowsOf({"markets", "Markets", "", "instruments/filed/market", true}, marketTable(session)));
    if (const auto& comparison = session.day.comparison) {
        data.add(rowsOf({"changecounts", "Changes by catalogue", "", "", true}, changeCountTable(comparison->changes)));
        data.add(
            rowsOf({"changes", "Changes",
                    fmt::format("Since {}, without the trading day itself. {}", comparison->before, comparison->note),
                    "", false},
                   changeTable(comparison->changes), {"name", "key", "change", "field", "old", "new", "catalogue"}));
    }
    data.add(instrumentTable(session, spelling));
    data.add(rowsOf({"mains", "Main contracts", "By product.", "", false}, mainsWithNames(session)));
    data.add(
        rowsOf({"codes", "Codes of the day",
                "New issues (ipo), depositary receipts (cdr), NEEQ inquiries (neeq), underlyings of stock options.", "",
                false},
               codeTable(session)));
    data.add(rowsOf({"spreads", "Dalian spreads", "", "", false}, spreadTable(session)));
    data.add(rowsOf({"connect", "Connect eligibility", "Hong Kong stocks that the connect markets reach.", "", false},
                    connectTable(session)));
    data.add(byKey({"etfs", "ETFs", "", "baskets/fund/key", false}, center.getEtfs()));
    data.add(rowsOf({"baskets", "ETF baskets", "", "", false}, basketTable(session)));
    data.add(byKey({"bonds", "Interbank bonds", "", "", false}, center.getBonds()));
    data.add(byKey({"tenderbonds", "Tender bonds", "", "", false}, center.getTrenderBondInfos()));
    data.add(byKey({"counterparties", "Counterparties", "", "", false}, center.getCounterpartys()));
    data.add(byKey({"otc", "OTC fund plans", "", "", false}, center.getOtcInstruments()));
    data.add(byKey({"issuances", "OTC issuances", "", "", false}, center.getIssuanceInfos()));
    // The other center keeps neither; an empty table would read as if the day had none.
    if (session.kind == CenterKind::Client) {
        data.add(rowsOf({"outer", "Outer futures products", "", "", false}, outerTable(session)));
        data.add(byKey({"issuanceprices", "OTC price settings", "", "", false}, center.getIssuancePriceInfos()));
    }
}

std::string subtitleOf(const Session& session) {
    const auto& comparison = session.day.comparison;
    return fmt::format("{}{}, as the {} center answers.", comparison ? comparison->after : session.day.name,
                       comparison ? " compared with " + comparison->before : "",
                       session.kind == CenterKind::Server ? "in-memory" : "persisted");
}

/// Where the day came from and what of it was passed over.
std::vector<std::string> sourcesOf(const Session& session) {
    const Day& day = session.day;
    std::vector<std::string> counts;
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        const std::uint64_t count = day.read.records[static_cast<std::size_t>(catalogue)];
        if (count > 0) {
            counts.push_back(fmt::format("{} {}", count, catalogueName(catalogue)));
        }
    }
    std::vector<std::string> sources{
        fmt::format("{}: {}", day.name, counts.empty() ? "no records" : fmt::format("{}", fmt::join(counts, ", ")))};
    if (day.comparison) {
        sources.push_back("compared with " + day.comparison->before);
    }
    sources.push_back(day.read.skipped == 0 ? "nothing was skipped"
                                            : fmt::format("{} lines and files were skipped", day.read.skipped));
    return sources;
}

}  // namespace

void writeReport(Session& session, const Query& query) {
    const Day& day = session.day;
    ReportData data;
    Spelling spelling;
    addTables(session, data, spelling);
    // Not the clock's day: a page is opened, and often made, long after the day that it shows.
    data.describe("Instruments of " + (day.today.empty() ? day.name : shownDay(day.today)), subtitleOf(session),
                  sourcesOf(session), day.read.remarks, spelling.readings());
    // Whole before the file is touched: until then a page of that name stays as it was.
    std::string html = kReportPage;
    boost::replace_first(html, "%DATA%", std::move(data).finish());
    errno = 0;  // see requireWritten
    std::ofstream file(pathOf(query.page), std::ios::binary);
    file << html;
    file.close();  // what the system has kept back may be refused only now
    requireWritten(file, query.page);
    session.output.table({{"file", "bytes"}, {{query.page, static_cast<std::int64_t>(html.size())}}}, "");
}

}  // namespace inscenter
