#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ToolFixture.h"

// What compares two days, or both centers.

namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tooltest::linesOf;
using tooltest::Result;
using tooltest::run;
using tooltest::squeezed;

/// Sets a variable of the environment for as long as it lives; an empty one is none.
class Setting {
public:
    Setting(const char* name, const std::string& value) : name_(name) {
        const char* const before = std::getenv(name);
        before_ = before == nullptr ? std::nullopt : std::optional<std::string>(before);
        set(name, value);
    }
    ~Setting() { set(name_, before_.value_or("")); }
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

private:
    static void set(const char* name, const std::string& value) {
#ifdef _WIN32
        ::_putenv_s(name, value.c_str());
#else
        value.empty() ? ::unsetenv(name) : ::setenv(name, value.c_str(), 1);
#endif
    }

    const char* name_;
    std::optional<std::string> before_;
};

/// What a report's page holds.
struct Page {
    std::string heading;                                     ///< title and subtitle, a line each
    std::string sources;                                     ///< and remarks, as JSON
    std::map<std::string, std::vector<std::string>> tables;  ///< rows as JSON, commas between their values
};

/// One value of a column: each row has its own, or all have one, or their places in a list of values stand there.
std::string cellOf(simdjson::dom::element column, std::size_t row) {
    simdjson::dom::element found;
    if (column["rows"].get(found) == simdjson::SUCCESS) {
        return simdjson::minify(found.at(row));
    }
    const bool placed = column["places"].get(found) == simdjson::SUCCESS;
    return simdjson::minify(column["values"].at(placed ? found.at(row).get_uint64().value() : 0));
}

std::vector<std::string> rowsOf(simdjson::dom::element table) {
    std::vector<std::string> rows(table["length"].get_uint64().value());
    for (const simdjson::dom::element column : table["columns"].get_array()) {
        for (std::size_t row = 0; row < rows.size(); ++row) {
            rows[row] += (rows[row].empty() ? "" : ",") + cellOf(column, row);
        }
    }
    return rows;
}

Page pageIn(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    const std::string html{std::istreambuf_iterator<char>(stream), {}};
    const std::string begin = "<script id=\"data\" type=\"application/json\">";
    const std::size_t at = html.find(begin) + begin.size();
    const std::string json = html.substr(at, html.find('<', at) - at);
    EXPECT_EQ(html.substr(at + json.size(), 9), "</script>");
    Page page;
    simdjson::dom::parser parser;
    simdjson::dom::element data;
    EXPECT_EQ(parser.parse(json).get(data), simdjson::SUCCESS);
    for (const char* const part : {"title", "subtitle"}) {
        page.heading += std::string(data[part].get_string().value()) + '\n';
    }
    page.sources = simdjson::minify(data["sources"]) + simdjson::minify(data["remarks"]);
    for (const simdjson::dom::element table : data["tables"].get_array()) {
        page.tables[std::string(table["id"].get_string().value())] = rowsOf(table);
    }
    return page;
}

class ToolPairsTest : public tooltest::ToolTest {
protected:
    /// The day as a directory, and a later one that begins as a copy of it.
    ToolPairsTest() {
        for (const auto& file : std::filesystem::directory_iterator(day_.path())) {
            std::filesystem::copy_file(file.path(), later_.path() / file.path().filename());
        }
    }

    void writeLater(const std::string& name, const std::string& bytes) {
        std::ofstream(later_.path() / name, std::ios::binary) << bytes;
    }
    Result diff(std::vector<std::string> options = {}) {
        options.insert(options.begin(), {"diff", day_.path().string(), later_.path().string()});
        return run(options);
    }

    TemporaryDirectory later_;
};

TEST_F(ToolPairsTest, DiffNamesWhatWasListedDelistedAndChanged) {
    EXPECT_THAT(diff().out, HasSubstr("no difference"));
    EXPECT_EQ(diff({"--jsonl"}).out, "");

    writeLater("instruments.ndjson",
               R"-({"market":"SH","code":"600000","name":"浦发","priceTick":0.01,"tradingDay":"20260303"}
{"market":"SH","code":"600009","name":"新"}
)-");
    writeLater("etfs.ndjson", R"({"exchid":"SH","etfcode":"510050","prcode":"510051","stocks":[)"
                              R"({"market":"SH","code":"600000","name":"浦发银行","quantity":200},)"
                              R"({"market":"SH","code":"600009"}]})");
    writeLater("bonds.ndjson", R"({"bondCode":"220002","bondName":"22国债02"})");
    EXPECT_THAT(diff().out,
                StartsWith("From " + day_.path().string() + " to " + later_.path().string() + " (2026-03-03).\n"));
    const Result found = diff({"--ignore", "tradingDay", "--format", "csv"});
    EXPECT_EQ(found.code, 0);
    std::vector<std::string> lines = linesOf(found.out);
    EXPECT_EQ(lines.front(), "change,catalogue,key,name,field,old,new\r");
    const auto count = [&](const std::string& begin) {
        return std::count_if(lines.begin(), lines.end(), [&](const auto& line) { return line.starts_with(begin); });
    };
    EXPECT_EQ(count("listed,instruments,"), 1);
    EXPECT_EQ(count("delisted,instruments,"), 12);
    EXPECT_THAT(found.out, AllOf(HasSubstr("listed,instruments,SH600009,新,,,\r\n"),
                                 HasSubstr("changed,instruments,SH600000,浦发,name,浦发银行,浦发\r\n"),
                                 HasSubstr("changed,instruments,SH600000,浦发,priceTick,0,0.01\r\n"),
                                 HasSubstr("changed,instruments,SH600000,浦发,listingDate,19991110,\r\n"),
                                 Not(HasSubstr("tradingDay")),
                                 HasSubstr("changed,etfs,SH510050,,stocks[600000].quantity,100,200\r\n"),
                                 HasSubstr(R"(stocks[600009],,"{""market"":""SH"",""code"":""600009""}")")));
    EXPECT_THAT(found.out, AllOf(HasSubstr("listed,bonds,220002,22国债02,,,\r\n"),
                                 HasSubstr("delisted,bonds,220001,22国债01,,,\r\n")));
    EXPECT_THAT(squeezed(diff().out),
                AllOf(HasSubstr("instruments 1 12 1 0\n"), HasSubstr("counterparties 0 0 0 1\n")));

    const auto many = [](const std::string& day) {
        std::string records;
        for (int code = 830000; code < 830020; ++code) {
            records += R"({"market":"BJ","code":")" + std::to_string(code) + R"(","tradingDay":")" + day + "\"}\n";
        }
        return records;
    };
    write("instruments2.ndjson", many("20260302"));
    writeLater("instruments2.ndjson", many("20260303"));
    EXPECT_THAT(diff().out, HasSubstr("\n\nMost changed records differ in tradingDay; --ignore tradingDay leaves"));
}

TEST_F(ToolPairsTest, DiffOfASnapshotAndItsStoreIsEmptyAlthoughListingsWereMerged) {
    ASSERT_EQ(askClient({"summary"}).code, 0);
    const std::string store = (store_.path() / "db").string();
    const TemporaryDirectory scratch;
    const Setting temporaryFiles("TMPDIR", scratch.path().string());
    const Setting onWindows("TMP", scratch.path().string());
    for (const auto& [before, after] :
         {std::pair<std::string, std::string>{store, day_.path().string()}, {day_.path().string(), store}}) {
        const Result same = run({"diff", before, after});
        EXPECT_EQ(same.code, 0) << same.err;
        EXPECT_THAT(squeezed(same.out), AllOf(HasSubstr("no difference"), HasSubstr("instruments 0 0 0 13\n"),
                                              Not(HasSubstr("counterparties"))));
    }
    EXPECT_TRUE(std::filesystem::is_empty(scratch.path())) << "stores of the comparison's own";
    write("instruments2.ndjson", R"({"market":"HK","code":"00009","name":"九"})");
    EXPECT_THAT(
        linesOf(run({"diff", store, day_.path().string(), "--jsonl"}).out),
        ElementsAre(StartsWith(R"({"change":"listed","catalogue":"instruments","key":"HK00009","name":"九",)")));
    EXPECT_THAT(run({"diff", store, store}).out, HasSubstr("no difference"));
}

TEST_F(ToolPairsTest, DiffSaysWhatItCannotUse) {
    EXPECT_EQ(diff({"--ignore", "nme"}).code, 2);
    EXPECT_THAT(diff({"--ignore", "nme"}).err, HasSubstr("did you mean name?"));
    EXPECT_EQ(run({"diff", day_.path().string()}).code, 2);
    EXPECT_EQ(run({"diff", day_.path().string(), (day_.path() / "missing").string()}).code, 2);
    EXPECT_EQ(run({"diff", "-", "-"}).code, 2);
    EXPECT_EQ(run({"diff", day_.path().string(), later_.path().string(), "--data", day_.path().string()}).code, 2);
    writeLater("instruments2.ndjson", "{\n");
    EXPECT_EQ(diff().code, 3);
    EXPECT_EQ(run({"diff", later_.path().string(), day_.path().string()}).code, 3) << "of the older day, too";
    ASSERT_EQ(askClient({"summary"}).code, 0);
    const Result store = run({"summary", "--data", (store_.path() / "db").string()});
    EXPECT_EQ(store.code, 2);
    EXPECT_THAT(linesOf(store.err), ElementsAre(HasSubstr("db: is a store, not a snapshot")));
}

TEST_F(ToolPairsTest, TourShowsWhatEachCenterKeepsOfEveryCatalogue) {
    const std::vector<std::string> arguments{"tour", "--store", (store_.path() / "db").string(), "--today", "20260302"};
    const Result tour = ask(arguments);
    EXPECT_EQ(tour.code, 0) << tour.err;
    EXPECT_THAT(squeezed(tour.out),
                AllOf(HasSubstr("Price settings of OTC enquiries (inscenter issuanceprices)\n"
                                " in memory nothing\n persisted 1: I1 at 10.5\n on purpose price"),
                      HasSubstr(" in memory 1: group 2: 1\n persisted nothing\n"),
                      HasSubstr("New issues of the day (inscenter codes)\n both 1: SH730001\n"),
                      HasSubstr(" persisted 1: SH019547 is 220001\n"), HasSubstr(" both 1: SH510050 of 1\n")));
    std::vector<std::string> json = arguments;
    json.emplace_back("--jsonl");
    EXPECT_THAT(ask(json).out, HasSubstr(R"({"catalogue":"Outer futures products","inMemory":0,"persisted":1,)"));
    EXPECT_EQ(ask({"tour"}).code, 2);
}

TEST_F(ToolPairsTest, ReportHoldsTheDayAsJsonThatNoRecordCanEnd) {
    write("instruments2.ndjson", R"-({"market":"SH","code":"600009","name":"</script><b>\"&<!--"})-");
    const auto pageOf = [&](std::vector<std::string> options, int code = 0) {
        const std::string file = (store_.path() / "day.html").string();
        options.insert(options.begin(), {"report", "--html", file});
        const Result result = ask(options);
        EXPECT_EQ(result.code, code) << result.err;
        return pageIn(file);
    };
    const std::string day = day_.path().string();
    EXPECT_EQ(pageOf({}).heading, "Instruments of " + day + "\n" + day + ", as the in-memory center answers.\n");
    Page page = pageOf({"--today", "20260302"});
    EXPECT_THAT(page.heading, StartsWith("Instruments of 2026-03-02\n"));
    EXPECT_THAT(page.tables["instruments"], SizeIs(16));  // with those that stand for the fund and the bond
    EXPECT_THAT(page.tables["instruments"], Contains(HasSubstr(R"("</script><b>\"&<!--")")));
    EXPECT_THAT(page.tables["connect"], ElementsAre(R"("00005","HSBC","yes","",1)"));
    EXPECT_THAT(page.tables["mains"], ElementsAre(R"("a","DCE","豆一",1,["DCEa2705"])"));
    EXPECT_THAT(page.tables["codes"], Contains(R"("ipo","SH730001","申购")"));
    EXPECT_THAT(page.tables["baskets"], ElementsAre(R"("SH510050","","SH600000","浦发银行",100,0,0)"));
    EXPECT_EQ(page.tables.count("changes"), 0U);
    write("issuanceprices.ndjson", R"({"code":"I1","enquiryPrice":10.5,"tradingDay":"20260302"})");
    page = pageOf({"--against", later_.path().string()});
    EXPECT_THAT(page.tables["changes"], ElementsAre(HasSubstr(R"("SH600009","listed",)")));
    EXPECT_EQ(page.heading, "Instruments of 2026-03-02\n" + day + " (2026-03-02) compared with " +
                                later_.path().string() + ", as the in-memory center answers.\n");
    // The store holds what the day had, and is open for the center that answers here.
    ASSERT_EQ(askClient({"summary"}).code, 0);
    write("instruments3.ndjson", R"({"market":"HK","code":"00009","name":"九"})");
    const std::string store = (store_.path() / "db").string();
    EXPECT_THAT(pageOf({"--against", store}).tables["changes"], ElementsAre(HasSubstr(R"("HK00009","listed",)")));
    EXPECT_THAT(pageOf({"--against", store, "--center", "client", "--store", store}).tables["changes"], SizeIs(1));
    page = pageOf({"--against", store});
    EXPECT_THAT(page.tables["changes"], IsEmpty());
    EXPECT_THAT(page.sources, HasSubstr(R"("nothing was skipped"][])"));
    write("instruments4.ndjson", "{\n");
    EXPECT_THAT(pageOf({}, 3).sources,
                AllOf(HasSubstr("1 lines and files were skipped"), HasSubstr("instruments4.ndjson:1: ")));
    EXPECT_EQ(ask({"report"}).code, 2);
    const Result unwritable = ask({"report", "--html", (later_.path() / "no/day.html").string()});
    EXPECT_EQ(unwritable.code, 2);
    EXPECT_THAT(unwritable.err, HasSubstr("day.html: cannot be written: No such file"));
}

}  // namespace
