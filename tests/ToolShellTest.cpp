#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "ToolFixture.h"
#include "tools/inscenter/Shell.h"
#include "tools/inscenter/ShellWords.h"

namespace {

using ::testing::AllOf;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using tooltest::Result;

class ToolShellTest : public tooltest::ToolTest {
protected:
    Result talk(const std::string& lines, std::vector<std::string> options = {}) {
        std::istringstream input(lines);
        std::streambuf* const before = std::cin.rdbuf(input.rdbuf());
        std::cin.clear();
        options.insert(options.begin(), "shell");
        const Result result = ask(options);
        std::cin.rdbuf(before);
        return result;
    }

    std::vector<std::string> completed(const std::string& line, const std::string& word) {
        std::ostringstream messages;
        inscenter::Console console(messages, false);
        inscenter::Snapshot snapshot;
        inscenter::Day day;
        day.read = inscenter::readSnapshot(day_.path().string(), snapshot, console);
        day.markets = inscenter::marketsOf(snapshot);
        day.sql = std::make_shared<inscenter::Sql>(snapshot, nullptr);
        const auto center = inscenter::makeCenter(inscenter::CenterKind::Server);
        inscenter::load(*center, snapshot, console);
        return inscenter::shellCompletions(line, word, *center, day);
    }
};

TEST_F(ToolShellTest, AnswersLineByLineAndOutlivesBadOnes) {
    const Result all = talk(
        "get SH600000 --jsonl\n"
        "frob\n"
        "  # a remark\n"
        "\n"
        "list --market SH --where oops\n"
        "get 'SH600000\n"
        "get SH999999\r\n"
        "list --market \"DCE\" --where 'code~spc a' --fields code --format csv\n"
        "list --market SH --limit 1 --fields code\n"
        "quit\n"
        "counterparties\n");
    EXPECT_EQ(all.code, 2);  // of the first line that was not answered
    EXPECT_THAT(all.out, AllOf(HasSubstr("{\"market\":\"SH\",\"code\":\"600000\""),
                               HasSubstr("code\r\nSPC a2705&m2705\r\n"),  // options hold for one line
                               HasSubstr("code\n510050\n"), Not(HasSubstr("对手方"))));
    EXPECT_THAT(all.err, AllOf(HasSubstr("unknown command frob"), HasSubstr("\"oops\" is no condition"),
                               HasSubstr("a quotation is not closed"), HasSubstr("SH999999: not found")));
    EXPECT_EQ(talk("has SH999999\nfrob\n").code, 1);
    EXPECT_EQ(talk("summary\nhelp\nhelp get\n").code, 0);
    EXPECT_EQ(talk("help frob\n").code, 2);
    EXPECT_THAT(talk("help").out, AllOf(HasSubstr("\n  mains "), Not(HasSubstr("generate"))));
    EXPECT_THAT(talk("etfs", {"--format", "json"}).out, HasSubstr("{\"exchid\""));
    write("instruments2.ndjson", "{\n");
    EXPECT_EQ(talk("has SH600000\n").code, 3) << "a line of the snapshot was skipped";
    EXPECT_EQ(talk("has SH999999\n").code, 1);
}

TEST_F(ToolShellTest, WritesAnAnswerToAFileOnceTheLineMakesSense) {
    const std::string file = (store_.path() / "answer").string();
    const auto written = [&] {
        std::ifstream stream(file);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    const std::string codes = "list --market SH --fields code --where listingDate>20000101 ";
    EXPECT_EQ(talk(codes + ">" + file + "\n" + codes + " >> '" + file + "'\n").out, "");
    EXPECT_EQ(written(), "code\n730001\ncode\n730001\n");
    for (const std::string& wrong :
         std::vector<std::string>{"frob > " + file, "summary > " + file + " b", "summary >", "find x > y > " + file}) {
        const Result bad = talk(wrong);
        EXPECT_EQ(bad.code, 2) << wrong;
        EXPECT_EQ(bad.out, "");
    }
    EXPECT_EQ(talk("find '>'").code, 1);
    EXPECT_EQ(written(), "code\n730001\ncode\n730001\n");
    EXPECT_THAT(talk("summary > " + file + "/no").err, HasSubstr("/no: cannot be written: No"));
    EXPECT_EQ(talk("list --market SH > /dev/full").code, 2);
    EXPECT_THAT(completed("summary > ", ""), IsEmpty());
}

TEST_F(ToolShellTest, TakesStatementsOverLinesAndReadsTheDayAgain) {
    const std::string file = (day_.path() / "instruments.ndjson").string();
    const Result all = talk(
        "sql select code, ';' s\n  from instruments -- ; \n where key = 'SH600000';\n"
        "sql \"select combinedConnectFlags flags from instruments where market = 'HGT'\" --format csv\n"
        "format jsonl\n"
        "sql select 2 two; select\n3 three; --format csv\n"
        "sql\nselec;\n"
        "format frob\n"
        "sql select market, code, name || 'X' name from instruments where code = '600000'; > " +
        file +
        "\nreload\n"
        "get SH600000\n"
        "has SZ000002\n"
        "sql select count(*) n from instruments");
    EXPECT_EQ(all.out,
              "code    s\n600000  ;\n"
              "flags\r\n0\r\n"  // as it was read: loads fill it in
              "two\r\n2\r\nthree\r\n3\r\n"
              "{\"market\":\"SH\",\"code\":\"600000\",\"name\":\"浦发银行X\"}\n"
              "{\"key\":\"SZ000002\",\"predicates\":[]}\n"
              "{\"n\":1}\n");
    EXPECT_EQ(all.code, 2);
    EXPECT_THAT(all.err, HasSubstr("near \"selec\""));
    EXPECT_THAT(talk("sql select 'never closed\n").err, HasSubstr("has no end"));
    EXPECT_THAT(talk(std::string("sql select 1\0;\nhas SH999999\n", 28)).err, HasSubstr("a NUL character"));
}

TEST_F(ToolShellTest, LeavesWhatIsNoQuestionToTheCommandLine) {
    for (const char* const line : {"diff a b", "store ls db", "generate --size 1 d", "shell", "summary --data d"}) {
        EXPECT_EQ(talk(line).code, 2) << line;
    }
    EXPECT_EQ(tooltest::run({"--data", "-", "shell"}).code, 2);
}

TEST_F(ToolShellTest, CompletesByThePlaceOfTheWord) {
    EXPECT_THAT(completed("", "sp"), ElementsAre("spreads"));
    EXPECT_THAT(completed("sql select ", "max(x.strik"), ElementsAre("max(x.strikePrice"));
    EXPECT_THAT(completed("sql select 1\nfrom ", "counterp"), ElementsAre("counterparties", "counterpartyType"));
    EXPECT_THAT(completed("help ", "ou"), ElementsAre("outer"));
    EXPECT_THAT(completed("list ", "--tr"), ElementsAre("--trader-type"));
    EXPECT_THAT(completed("list --market DCE ", "N"), ElementsAre("NEEQ"));
    EXPECT_THAT(completed("list --where ", "strik"), ElementsAre("strikePrice"));
    EXPECT_THAT(completed("etfs --sort ", "-reportu"), ElementsAre("-reportunit"));
    EXPECT_THAT(completed("list --fields ", "code,isi"), ElementsAre("code,isin"));
    EXPECT_THAT(completed("list --format ", "j"), ElementsAre("json", "jsonl"));
    EXPECT_THAT(completed("get ", "SH60"), ElementsAre("SH600000"));
    EXPECT_THAT(completed("get ", "ETFINSTS5"), ElementsAre("ETFINSTS510051"));
    EXPECT_THAT(completed("get ", "HGT007"), ElementsAre("HGT00700"));
    EXPECT_THAT(completed("list --market ", "ETF"), ElementsAre("ETFINSTS"));
    EXPECT_THAT(completed("get ", "D"), ElementsAre("DCE"));
    EXPECT_THAT(completed("frob ", ""), IsEmpty());
}

TEST(ShellWords, KeepQuotedBlanksAndEscapedSigns) {
    EXPECT_THAT(inscenter::shellLine(R"(a "b c"'d "e' f\ g '' \'h "\"i" )")->words,
                ElementsAre("a", "b cd \"e", "f g", "", "'h", "\"i"));
    EXPECT_THAT(inscenter::shellLine(R"(> "C:\day\中" C:\day\a\ b \>)")->words,
                ElementsAre("C:\\day\\中", "C:\\day\\a b", ">"));
    EXPECT_THAT(inscenter::shellLine(" \t")->words, IsEmpty());
    EXPECT_FALSE(inscenter::shellLine("get 'SH"));
    EXPECT_FALSE(inscenter::shellLine("get \"SH'"));
}

}  // namespace
