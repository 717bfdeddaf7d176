#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <iostream>
#include <string>
#include <vector>

#include "ToolFixture.h"
#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/Output.h"

// What is picked from lists, what is found, and how tables fit a screen.

namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using tooltest::linesOf;
using tooltest::Result;
using tooltest::run;
using tooltest::squeezed;

class ToolListingTest : public tooltest::ToolTest {
protected:
    ToolListingTest() {
        write(
            "instruments.ndjson",
            R"-({"market":"SH","code":"600001","name":"甲 银行","listingDate":"20200105","priceTick":0.01,"lotSize":100}
{"market":"SH","code":"600002","name":"乙","listingDate":"20190105","priceTick":0.001,"lotSize":9}
{"market":"SH","code":"600003","name":"丙银行Ａ","listingDate":"","priceTick":0.01}
{"market":"SH","code":"600004","name":"丁's","listingDate":"20210105","priceTick":-1}
{"market":"SZ","code":"600001","name":"fund \"<b>\""}
{"market":"HGT","code":"00001","name":"CKH"}
{"market":"DCE","code":"SP a2605&a2609"}
)-");
    }

    std::vector<std::string> codes(std::vector<std::string> options) {
        options.insert(options.begin(), {"list", "--market", "SH", "--fields", "code", "--format", "csv"});
        const Result result = ask(options);
        EXPECT_EQ(result.code, 0) << result.err;
        std::vector<std::string> lines = linesOf(result.out);
        EXPECT_EQ(lines.at(0), "code\r");
        lines.erase(lines.begin());
        for (std::string& line : lines) {
            line.pop_back();
        }
        return lines;
    }
};

TEST_F(ToolListingTest, ConditionsCompareByTheKindOfTheField) {
    EXPECT_THAT(codes({"--where", "priceTick=0.010"}), ElementsAre("600001", "600003"));
    EXPECT_THAT(codes({"--where", "lotSize>9"}), ElementsAre("600001"));  // as texts, "100" is less than "9"
    EXPECT_THAT(codes({"--where", "lotSize>=9", "--where", "lotSize<=99"}), ElementsAre("600002"));
    EXPECT_THAT(codes({"--where", "priceTick<-0.5"}), ElementsAre("600004"));
    EXPECT_THAT(codes({"--where", "listingDate<20200105"}), ElementsAre("600002"));  // an unknown date is not earlier
    EXPECT_THAT(codes({"--where", "listingDate="}), ElementsAre("600003"));
    EXPECT_THAT(codes({"--where", "listingDate!=20200105"}), ElementsAre("600002", "600003", "600004"));
    EXPECT_THAT(codes({"--where", "name=丁's"}), ElementsAre("600004"));
    EXPECT_THAT(codes({"--where", "name~银行a"}), ElementsAre("600003"));
    EXPECT_THAT(codes({"--where", "name~甲银行"}), ElementsAre("600001"));
    EXPECT_THAT(ask({"etfs", "--where", "stocks=1", "--jsonl"}).out, HasSubstr("510050"));
    EXPECT_EQ(ask({"etfs", "--where", "stocks>1"}).out, "no record meets the conditions\n");
}

TEST_F(ToolListingTest, ListsHideNoRecordBehindAnotherAndAddUp) {
    // The instrument of this fund's creation has the fund's own market and code.
    write("etfs2.ndjson", R"({"exchid":"SZ","etfcode":"600001","prcode":"600001"})");
    for (const bool client : {false, true}) {
        const auto out = [&](const std::vector<std::string>& words) {
            return (client ? askClient(words) : ask(words)).out;
        };
        EXPECT_EQ(out({"list", "--market", "ETFINSTS", "SZ", "HGT", "HK", "--fields", "filed,market,code", "--format",
                       "csv", "--where", "filed!=SH"}),
                  "filed,market,code\r\nETFINSTS,SH,510051\r\nETFINSTS,SZ,600001\r\nSZ,SZ,600001\r\nHK,HGT,00001\r\n");
        EXPECT_THAT(out({"list", "--market", "HK"}), HasSubstr("filed  market  code"));
        EXPECT_THAT(out({"list", "--market", "SH"}), Not(HasSubstr("filed")));
        EXPECT_THAT(out({"find", "fund"}), AllOf(HasSubstr("fund \"<b>\""), Not(HasSubstr("filed"))));
        EXPECT_THAT(out({"find", "HK00001"}), HasSubstr("HGT     00001  CKH"));
        EXPECT_THAT(out({"find", "etfinsts6", "--format", "csv"}),
                    HasSubstr("SZ,600001,600001,ETF creation,,,,ETFINSTS\r\n"));
        const std::vector<std::string> everything = linesOf(out({"list", "--trader-type", "4", "--jsonl"}));
        EXPECT_THAT(everything, SizeIs(10));
        EXPECT_THAT(out({"summary", "--jsonl"}),
                    HasSubstr(R"({"section":"market","item":"total","property":"records","value":10})"));
        // The answer is a snapshot again.
        const TemporaryDirectory again;
        std::ofstream(again.path() / "instruments.ndjson") << everything.front();
        EXPECT_EQ(run({"summary", "--data", again.path().string()}).err, "");
    }
}

TEST_F(ToolListingTest, SortsAndLimitsAfterSelecting) {
    EXPECT_THAT(codes({"--sort", "listingDate"}), ElementsAre("600003", "600002", "600001", "600004"));
    EXPECT_THAT(codes({"--sort", "-priceTick"}), ElementsAre("600001", "600003", "600002", "600004"));
    EXPECT_THAT(codes({"--sort", "lotSize", "--where", "lotSize>0", "--limit", "1"}), ElementsAre("600002"));
    EXPECT_THAT(codes({"--limit", "0"}), SizeIs(0));
    EXPECT_EQ(ask({"list", "--market", "SH", "--limit", "1", "--fields", "code"}).out,
              "code\n600001\n... and 3 more\n");
}

TEST_F(ToolListingTest, NamedFieldsStandAloneAndInTheirOrder) {
    const std::vector<std::string> query{"list",     "--market",         "SH", "--where", "code=600002",
                                         "--fields", "lotSize,isin,code"};
    auto with = [&](const std::string& format) {
        std::vector<std::string> all = query;
        all.insert(all.end(), {"--format", format});
        return ask(all).out;
    };
    EXPECT_EQ(with("jsonl"), "{\"lotSize\":9,\"isin\":\"\",\"code\":\"600002\"}\n");
    EXPECT_EQ(with("csv"), "lotSize,isin,code\r\n9,,600002\r\n");
    EXPECT_EQ(with("table"), "lotSize  isin  code\n      9        600002\n");
    const std::string longCode(42, '6');
    write("instruments2.ndjson", R"({"market":"SHO","code":")" + longCode + R"(","name":")" + longCode + R"("})");
    EXPECT_EQ(linesOf(ask({"list", "--market", "SHO"}).out).at(1),
              "SHO     " + longCode + "  " + longCode.substr(3) + "…");  // a name is cut, a code is not
}

TEST_F(ToolListingTest, WrongFieldsAndValuesAreUsageErrors) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--where", "listngDate=1"}, "no field \"listngDate\"; did you mean listingDate or delistingDate?"},
        {{"--fields", "code,LOTSIZE"}, "no field \"LOTSIZE\"; did you mean lotSize?"},
        {{"--sort", "-tick"}, "no field \"tick\"; did you mean priceTick?"},
        {{"--where", "lotSize>many"}, "field lotSize holds numbers: \"many\" is none"},
        {{"--where", "code"}, "\"code\" is no condition"},
        {{"--limit", "-1"}, "inscenter: --limit: -1 is no number from 0 up\n"},
        {{"--today", "20260302", "--today", "20260302"}, "inscenter: --today may stand only once\n"},
        {{"--jsonl", "--format", "csv"}, "--jsonl"}};
    for (const auto& [options, message] : cases) {
        std::vector<std::string> arguments{"list", "--market", "SH"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result bad = ask(arguments);
        EXPECT_EQ(bad.code, 2) << message;
        EXPECT_EQ(bad.out, "");
        EXPECT_THAT(bad.err, HasSubstr(message));
    }
    EXPECT_EQ(ask({"mains", "--by-product", "--limit", "1"}).code, 2);
}

TEST_F(ToolListingTest, MissesSayWhatMayHaveBeenMeant) {
    for (const char* const format : {"table", "json", "csv"}) {
        const Result some = ask({"list", "--market", "sh,DEC", "SZ", "--fields", "code", "--format", format});
        EXPECT_EQ(some.code, 1);
        EXPECT_THAT(some.out, AllOf(HasSubstr("600001"), Not(HasSubstr("600002"))));
        EXPECT_THAT(some.err, AllOf(HasSubstr("sh: no such market; did you mean SH, "),
                                    HasSubstr("DEC: no such market; did you mean DCE?\n")));
        const Result none = ask({"mains", "--market", "X\x1b[2J", "--fields", "code", "--format", format});
        EXPECT_EQ(none.code, 1);
        EXPECT_EQ(none.out, format == std::string("csv") ? "code\r\n" : "");
        EXPECT_THAT(none.err, HasSubstr("X\\x1B[2J: no such market; the day has SH, SZ, HK, DCE, "));
    }
    const Result type = ask({"list", "--trader-type", "3", "--jsonl"});
    EXPECT_EQ(type.code, 1);
    EXPECT_THAT(type.err, HasSubstr("3: no such trader type; there are 1, 2, 4, "));
    EXPECT_THAT(ask({"get", "600001", "Sh600002", "nothing"}).err,
                AllOf(HasSubstr("600001: not found; did you mean SH600001 or SZ600001?\n"),
                      HasSubstr("Sh600002: not found; did you mean SH600002?\n"), HasSubstr("nothing: not found\n")));
    EXPECT_THAT(ask({"get", "600001.sz", "SH 600002"}).err,
                AllOf(HasSubstr("did you mean SZ600001?\n"), HasSubstr("did you mean SH600002?\n")));
    EXPECT_THAT(ask({"has", "00001"}).err, HasSubstr("no predicate answers true; did you mean HK00001?"));
    EXPECT_THAT(ask({"etf", "510051"}).err, HasSubstr("not found; did you mean SH510051?\n"));
    EXPECT_THAT(askClient({"interbank", "019547"}).err, HasSubstr("no interbank code\n"));
}

TEST_F(ToolListingTest, FindsCodesByTheirBeginningAndNamesByAnyPart) {
    const auto found = [this](const std::string& text) {
        std::vector<std::string> keys;
        for (const std::string& line : linesOf(ask({"find", text, "--format", "csv"}).out)) {
            keys.push_back(line.substr(0, line.find(',', line.find(',') + 1)));
        }
        keys.erase(keys.begin());
        return keys;
    };
    EXPECT_THAT(found("600001"), ElementsAre("SH,600001", "SZ,600001"));
    EXPECT_THAT(found("sh60000"), ElementsAre("SH,600001", "SH,600002", "SH,600003", "SH,600004"));
    EXPECT_THAT(found("0001"), SizeIs(0));
    EXPECT_THAT(found("银行"), ElementsAre("SH,600001", "SH,600003", "SH,510051"));  // the last stands for a fund
    EXPECT_THAT(found("行a"), ElementsAre("SH,600003"));
    EXPECT_THAT(found("sp A2605"), ElementsAre("DCE,SP a2605&a2609"));
    EXPECT_THAT(found("对手"), ElementsAre("counterparties,C1"));
    EXPECT_THAT(found("P1"), ElementsAre("SOTC,P1"));
    EXPECT_THAT(found("DCE"), SizeIs(0));  // a market is no beginning of its keys
    const Result nothing = ask({"find", "无"});
    EXPECT_EQ(nothing.code, 1);
    EXPECT_EQ(nothing.out, "");
    EXPECT_THAT(ask({"find", "6", "--limit", "2"}).out, HasSubstr("... and 3 more\n"));
}

TEST_F(ToolListingTest, ExplainsEveryMarketOfACode) {
    const std::string both = squeezed(ask({"explain", "600001"}).out);
    EXPECT_THAT(both, AllOf(HasSubstr("keyText SH600001\nname 甲 银行\n"), HasSubstr("\n\nkeyText SZ600001\n")));
    EXPECT_THAT(ask({"explain", "SH600000"}).code, 1);
    // Known numbers, which stores and other programs rely on.
    const std::string hongKong = squeezed(ask({"explain", "00001"}).out);
    EXPECT_THAT(hongKong, AllOf(HasSubstr("keyText HK00001"), HasSubstr("recordMarket HGT"),
                                HasSubstr("alsoKeyTexts HGT00001, SGT00001"), HasSubstr("(0x3f34329ce3e707f8)")));
    const std::string connect = squeezed(ask({"explain", "SGT00001"}).out);
    EXPECT_THAT(connect, AllOf(HasSubstr("keyText SGT00001"), HasSubstr("foldedText HK00001")));
    const std::string folded = connect.substr(connect.find("foldedKey ") + 10, 19);
    EXPECT_THAT(hongKong, HasSubstr("key " + folded));

    EXPECT_THAT(ask({"explain", "510051"}).out,
                AllOf(HasSubstr("SH510051"), HasSubstr("hasEtf"), HasSubstr("ETFINSTS510051")));
    EXPECT_THAT(ask({"explain", "220001"}).out, HasSubstr("hasCode, hasBond"));
    EXPECT_THAT(ask({"explain", "I1"}).out, HasSubstr("hasIssuance"));
    EXPECT_THAT(askClient({"explain", "SH019547"}).code, 1);
}

TEST_F(ToolListingTest, ReadsInstrumentsFromStandardInput) {
    const std::string file = (day_.path() / "instruments.ndjson").string();
    ASSERT_NE(std::freopen(file.c_str(), "rb", stdin), nullptr);
    const Result piped = run({"--data", "-", "list", "--market", "SZ"});
    EXPECT_THAT(piped.out, HasSubstr("fund"));
    EXPECT_EQ(piped.code, 0) << piped.err;

    ASSERT_NE(std::freopen("/dev/null", "rb", stdin), nullptr);
    const Result empty = run({"--data", "-", "summary"});
    EXPECT_EQ(empty.code, 2);
    EXPECT_THAT(empty.err, HasSubstr("standard input holds no record"));
}

TEST(FoldedText, TakesWritingsOfOneTextForTheSame) {
    EXPECT_EQ(inscenter::foldedText("万 科Ａ"), inscenter::foldedText("万科a"));
    EXPECT_EQ(inscenter::foldedText("５０ETF　x"), "50etfx");
    EXPECT_EQ(inscenter::foldedText("a\xFF\xE4z"), "az");
}

/// A table as a terminal of so many columns shows it.
std::string shown(const inscenter::Table& table, std::size_t columns, bool colours = false) {
    std::ostringstream out;
    inscenter::Output(out, inscenter::Format::Table, {columns, colours}).table(table, "");
    return out.str();
}

TEST(Screen, NarrowOnesWrapTheLastTextCutOthersAndLeaveColumnsOut) {
    const inscenter::Table list{{"key", "is"},
                                {{std::string("SH600000"), std::vector<std::string>{"hasCode", "hasStock", "hasEtf"}}}};
    EXPECT_EQ(shown(list, 0), "key       is\nSH600000  hasCode, hasStock, hasEtf\n");
    EXPECT_EQ(shown(list, 34), "key       is\nSH600000  hasCode, hasStock,\n          hasEtf\n");

    const inscenter::Table numbers{
        {"code", "name", "tick", "lot"},
        {{std::string("600000"), std::string("浦发银行股份有限公司"), 0.25, std::int64_t{100}}}};
    const std::string key = "DCE" + std::string(40, 'x');
    const inscenter::Table keys{{"key", "name"}, {{key, key}}};
    EXPECT_THAT(shown(keys, 60), HasSubstr("\n" + key + "  " + key.substr(0, 14) + "…\n"));
    EXPECT_EQ(shown(keys, 20), "key\n" + key + "\n(no room for: name)\n");
    EXPECT_EQ(shown(numbers, 30), "code    name         tick  lot\n600000  浦发银行股…  0.25  100\n");
    EXPECT_EQ(shown(numbers, 20), "code    name\n600000  浦发银…\n(no room for: tick,\nlot)\n");
    for (std::size_t columns = 1; columns < 50; ++columns) {
        EXPECT_THAT(shown(numbers, columns), HasSubstr("6")) << columns;
    }
}

TEST(Screen, ColoursStandOnlyWhereAskedFor) {
    const inscenter::Table table{{"change"}, {{std::string("listed")}}, {inscenter::Tone::Good}};
    EXPECT_THAT(shown(table, 0), Not(HasSubstr("\x1B")));
    EXPECT_EQ(shown(table, 0, true), "\x1B[1mchange\x1B[0m\n\x1B[32mlisted\x1B[0m\n");
}

}  // namespace
