#include <gmock/gmock.h>
#include <sqlite3.h>

#include <csignal>
#include <filesystem>
#include <memory>

#include "ToolFixture.h"
#include "snapshot/Snapshot.h"
#include "tools/inscenter/Interruption.h"
#include "tools/inscenter/Sql.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using tooltest::linesOf;
using tooltest::Result;
using tooltest::run;
using tooltest::ToolTest;

class ToolSql : public ToolTest {
protected:
    Result sql(const std::string& statement) { return ask({"sql", statement, "--format", "csv"}); }
};

/// What the library answers over a database file, as the tool's JSON.
std::string fromFile(const std::string& file, const std::string& statement) {
    sqlite3* opened = nullptr;
    EXPECT_EQ(sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
    const std::unique_ptr<sqlite3, int (*)(sqlite3*)> connection(opened, sqlite3_close);
    std::ostringstream lines;
    const auto addRow = [](void* out, int columns, char** texts, char**) {
        for (int i = 0; i < columns; ++i) {
            *static_cast<std::ostringstream*>(out) << (texts[i] == nullptr ? "" : texts[i]) << '\x1F';
        }
        *static_cast<std::ostringstream*>(out) << '\n';
        return 0;
    };
    EXPECT_EQ(sqlite3_exec(opened, statement.c_str(), addRow, &lines, nullptr), SQLITE_OK) << sqlite3_errmsg(opened);
    return lines.str();
}

/// The same through the virtual tables. Rows are put together by the library in both, so that numbers look alike.
std::string fromRecords(const mxservice::Snapshot& day, const std::string& statement) {
    std::string lines;
    for (const auto& row : inscenter::Sql(day, nullptr).ask(statement).rows) {
        for (const inscenter::Cell& cell : row) {
            const auto* const number = std::get_if<double>(&cell);
            const std::unique_ptr<char, void (*)(void*)> text(
                number == nullptr ? nullptr : sqlite3_mprintf("%!.15g", *number), sqlite3_free);
            lines += (text ? text.get() : inscenter::cellText(cell, " ")) + '\x1F';
        }
        lines += '\n';
    }
    return lines;
}

TEST(ToolSqlSamples, AnswersAsAnExportedDatabaseDoes) {
    const TemporaryDirectory directory;
    const std::string file = (directory.path() / "day.sqlite").string();
    ASSERT_EQ(run({"--data", PM_SAMPLES, "export", "--sqlite", file}).code, 0);
    const mxservice::Snapshot day = mxservice::Snapshot::read(PM_SAMPLES);
    for (const char* const statement :
         {"select market, count(*), sum(lotSize), avg(priceTick) from instruments group by 1 order by 1",
          "select * from instruments order by key", "select * from etfs order by key",
          "select * from components order by fund, key", "select * from bonds order by maturityDate desc, key",
          "select * from tenderbonds order by 1", "select * from counterparties order by 1",
          "select * from otcfundplans order by 1", "select * from issuances order by 1",
          "select * from issuanceprices order by 1",
          "select c.fund, i.key, i.name, c.quantity from components c join instruments i using (key) order by 1, 2",
          "select o.key, u.key from instruments o join instruments u on u.code = o.underlyingCode order by 1, 2",
          "select key from instruments where market = 'SH' and code like '60%' and name >= 'M' order by 1",
          "select key from instruments where market in ('HK', 'HGT', 'SGT') and filed = 'HK' order by 1",
          "select key from instruments where code = 600000 or code = '600000' collate nocase",
          "select key from instruments where market = 'sh' collate nocase order by 1",
          // A text that is compared as a number: several are equal to one.
          "select key from instruments where code = cast(676 as integer) order by 1",
          "select key from instruments where code in (select cast(603 as real)) order by 1",
          "select count(*) from instruments where key = null or market is null",
          "select productId, min(expireDate), max(strikePrice) from instruments where optionType <> 0 group by 1",
          "select count(*) from instruments a join instruments b using (market, code) where a.name <> ''"}) {
        const std::string answer = fromRecords(day, statement);
        EXPECT_FALSE(answer.empty() && std::string(statement).find("600000") == std::string::npos) << statement;
        EXPECT_EQ(answer, fromFile(file, statement)) << statement;
    }
}

TEST_F(ToolSql, LookupsAndJoinsGoThroughAnIndex) {
    const std::string lookup = sql("explain query plan select name from instruments where key = 'SH600000'").out;
    EXPECT_THAT(lookup, HasSubstr("INDEX 1:key"));
    EXPECT_THAT(sql("explain query plan select 1 from instruments where market = 'SH' and code = '1'").out,
                HasSubstr(":code"));
    EXPECT_THAT(sql("explain query plan select 1 from components c join instruments i using (key)").out,
                HasSubstr(":key"));
    EXPECT_THAT(sql("explain query plan select 1 from instruments where code > '1'").out, HasSubstr("INDEX 0"));
    EXPECT_EQ(sql("select name from instruments where key = 'SH600000'").out, "name\r\n浦发银行\r\n");
    EXPECT_EQ(sql("select count(*) n from instruments where holds(name, '万科a') and today() > '2'").out, "n\r\n1\r\n");
}

TEST_F(ToolSql, NothingIsChanged) {
    const std::string outside = (day_.path() / "x.sqlite").string();
    for (const std::string& statement :
         {std::string("delete from instruments"), std::string("update instruments set name = ''"),
          std::string("create table t(a)"), std::string("create temp table t as select 1"),
          "attach '" + outside + "' as x", "vacuum into '" + outside + "'", std::string("pragma journal_mode = off"),
          std::string("pragma writable_schema = 1"), std::string("select load_extension('x')"), std::string("begin"),
          std::string("drop table bonds"), std::string("reindex"), std::string("detach main"),
          std::string("select 1; delete from bonds"), std::string("update sqlite_master set sql = ''"),
          std::string("select * from pragma_journal_mode")}) {
        const Result answer = ask({"sql", statement});
        EXPECT_EQ(answer.code, 2) << statement;
        EXPECT_THAT(answer.err, testing::AnyOf(HasSubstr("a day is read and never changed"),
                                               HasSubstr("may not be modified"), HasSubstr("function: load_extension")))
            << statement;
    }
    EXPECT_FALSE(std::filesystem::exists(outside));
    EXPECT_EQ(sql("pragma table_info(bonds)").code, 0);
    EXPECT_EQ(sql("select t.name, j.value from pragma_table_info('bonds') t, json_each('[7]') j limit 1").out,
              "name,value\r\nkey,7\r\n");
}

TEST_F(ToolSql, MistakesAreShownWhereTheyStand) {
    const Result column = ask({"sql", "select '万科',\n  '万科Ａ', nam from instruments"});
    EXPECT_EQ(column.code, 2);
    // Wide letters take two columns, and so has the mark to.
    EXPECT_EQ(column.err,
              "inscenter: no such column: nam; did you mean name, nav or bondName?\n"
              "    '万科Ａ', nam from instruments\n"
              "              ^\n");
    EXPECT_THAT(ask({"sql", "select 1; select * from instrument"}).err,
                HasSubstr("did you mean instruments?\n  select 1; select * from instrument\n"
                          "                          ^\n"));
    EXPECT_THAT(ask({"sql", "select 'abc"}).err, HasSubstr("\n  select 'abc\n         ^\n"));
    EXPECT_EQ(ask({"sql", "select"}).code, 2);
    EXPECT_EQ(sql("-- nothing\n;").out, "");
}

TEST_F(ToolSql, TwoDaysAreAskedTogether) {
    const TemporaryDirectory old;
    std::ofstream(old.path() / "instruments.ndjson") << R"({"market":"SH","code":"600000","name":"旧名"})";
    const std::string changed =
        "select i.key, o.key, o.name was, i.name \"is\" from old.instruments o join instruments i using (key)";
    EXPECT_EQ(ask({"sql", "--old", old.path().string(), changed, "--jsonl"}).out,
              "{\"key\":\"SH600000\",\"key_2\":\"SH600000\",\"was\":\"旧名\",\"is\":\"浦发银行\"}\n");
    EXPECT_EQ(ask({"sql", changed}).code, 2);
}

TEST(ToolSqlInterruption, RunawayQuestionAndExportStop) {
    const inscenter::Interruption prompt;
    std::raise(SIGINT);
    const mxservice::Snapshot day = mxservice::Snapshot::read(PM_SAMPLES);
    const TemporaryDirectory directory;
    inscenter::Sql sql(day, nullptr);
    EXPECT_THROW(sql.ask("with recursive n(i) as (select 1 union all select i + 1 from n) select count(*) from n"),
                 inscenter::Interrupted);
    EXPECT_THROW(sql.save((directory.path() / "day.sqlite").string()), inscenter::Interrupted);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
    inscenter::Interruption::forget();
    EXPECT_EQ(sql.ask("select 1 from instruments limit 1").rows.size(), 1U);
}

TEST_F(ToolSql, ExportedDayIsReadBackAsTheSameDay) {
    write("instruments-odd.csv",
          "market,code,name,lotSize\r\nSH,q1,\"<b>\"\"x\"\"&'</b>\",0\r\nSH,q2,\"a\x01\x1b[31m\",1\r\n"
          "SH,q3,\xE2\x80\xAE\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D,1\r\nSH,q4,\"=1+1,\n2\",1\r\n");
    const std::string out = (store_.path() / "out").string();
    for (const std::vector<std::string>& form : {std::vector<std::string>{"--csv"},
                                                 {"--csv", "--zeros", "--bom"},
                                                 {"--ndjson"},
                                                 {"--ndjson", "--zeros", "--bom"}}) {
        std::filesystem::remove_all(out);
        std::vector<std::string> words{"export", form[0], out};
        words.insert(words.end(), form.begin() + 1, form.end());
        ASSERT_EQ(ask(words).code, 0) << form[0];
        const Result same = run({"diff", "--exit-code", day_.path().string(), out, "--jsonl"});
        EXPECT_EQ(same.code, 0) << form[0] << same.out << same.err;
        EXPECT_EQ(same.err, "");
        EXPECT_EQ(std::filesystem::exists(out + "/components.csv"), form[0] == "--csv");
    }
    EXPECT_EQ(ask({"export", "--csv", out}).code, 2);  // beside NDJSON of the same day
    EXPECT_EQ(ask({"export"}).code, 2);
    // To a terminal no name says more than its letters.
    const std::string shown = ask({"sql", "select name from instruments where code like 'q%'"}).out;
    EXPECT_THAT(shown, AllOf(Not(HasSubstr("\x1b")), Not(HasSubstr("\x01")), Not(HasSubstr("\xE2\x80\xAE"))));
    EXPECT_THAT(sql("select count(*) n from instruments where name = 'a' || char(1) || char(27) || '[31m'").out,
                HasSubstr("\n1\r"));
}

TEST_F(ToolSql, ExportReplacesTheFileThatIsMeantAndNothingElse) {
    namespace fs = std::filesystem;
    const std::string day = (store_.path() / "day").string();
    for (const auto& [option, target, name] :
         {std::tuple("--sqlite", day + "/day.sqlite", "day.sqlite"), {"--csv", day, "bonds.csv"}}) {
        const fs::path link = fs::path(day) / name;
        const fs::path file = store_.path() / name;
        fs::create_directories(day);
        std::ofstream(file) << "former";
        fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
        std::error_code failure;
        fs::create_symlink(file, link, failure);
        if (!failure) {  // not every system has links
            const fs::perms former = fs::status(file).permissions();
            EXPECT_EQ(ask({"export", option, target}).code, 0) << option;
            EXPECT_TRUE(fs::is_symlink(link)) << option;
            EXPECT_EQ(fs::status(file).permissions(), former) << option;
            EXPECT_GT(fs::file_size(file), 10U) << option;
            fs::remove(file);  // a link to nothing
            EXPECT_THAT(ask({"export", option, target}).err, HasSubstr("cannot be written: No such file")) << option;
            fs::remove(link);
        }
        fs::create_directory(link);
        EXPECT_THAT(ask({"export", option, target}).err, HasSubstr("is no regular file")) << option;
        fs::remove_all(day);
    }
    // Whoever opened the new file would take the rest of the former one from its journal.
    const fs::path base = store_.path() / "wal.sqlite";
    std::ofstream(base) << "former";
    std::ofstream(base.string() + "-wal") << "rest";
    EXPECT_THAT(ask({"export", "--sqlite", base.string()}).err, HasSubstr("wal.sqlite-wal belongs to the former"));
    EXPECT_EQ(fs::file_size(base), 6U);
    for (const auto& entry : fs::directory_iterator(store_.path())) {
        EXPECT_NE(entry.path().filename().string().front(), '.') << "left half done: " << entry.path();
    }
}

TEST_F(ToolSql, CheckFindsWhatIsNotRight) {
    write("instruments.ndjson", R"({"market":"SH","code":"600000","name":"一","priceTick":0.01}
{"market":"SH","code":"600000","name":"二","priceTick":0.01}
{"market":"DCE","code":"a1","productId":"a","mainContractFlag":1,"priceTick":1,"expireDate":"20260301"}
{"market":"DCE","code":"a2","productId":"a","mainContractFlag":1,"priceTick":1,"expireDate":"20260302"}
{"market":"DCE","code":"a3","priceTick":-1}
{"market":"DCE","code":"a1-C-1","optionType":1,"underlyingCode":"a1","priceTick":1}
{"market":"DCE","code":"a9-C-1","optionType":1,"underlyingCode":"a9","priceTick":1}
{"market":"SHO","code":"1","optionType":2,"priceTick":1}
{"market":"CFFEX","code":"IO1-C-1","optionType":1,"underlyingCode":"IO1","priceTick":1}
{"market":"HGT","code":"00005","priceTick":1}
)");
    write("etfs.ndjson",
          R"({"exchid":"SH","etfcode":"510050","prcode":"510051","stocks":[)"
          R"({"market":"SH","code":"600000"},{"market":"HK","code":"00005"},{"market":"SZ","code":"600000"}]})");
    const auto check = [&](std::vector<std::string> words) {
        words.insert(words.begin(), {"check", "--today", "20260302", "--format", "csv"});
        return ask(std::move(words));
    };
    const Result all = check({});
    EXPECT_EQ(all.code, 1);
    EXPECT_THAT(linesOf(all.out),
                ElementsAre("rule,key,name,finding\r", "duplicate-key,SH600000,一,2 records\r",
                            "expired,DCEa1,,expired on 20260301\r", "no-underlying,DCEa9-C-1,,a9 is not there\r",
                            "no-underlying,SHO1,,none named\r", "unknown-component,SH510050,,SZ600000 is not there\r",
                            "main-twice,DCE a,,a1 a2\r", "zero-tick,DCEa3,,priceTick is -1.0\r"));
    EXPECT_EQ(linesOf(check({"--rule", "expired", "zero-tick"}).out).size(), 3U);
    EXPECT_EQ(linesOf(check({"--no-rule", "no-underlying"}).out).size(), 6U);
    EXPECT_EQ(check({"--rule", "expired", "--today", "20260301"}).code, 2);  // of two days neither is the one meant
    EXPECT_EQ(check({"--rule", "nosuch"}).code, 2);
    // What is printed is what is asked.
    const Result rule = check({"--show-sql", "--rule", "main-twice"});
    EXPECT_EQ(rule.code, 0);
    EXPECT_EQ(sql(rule.out).out, "key,name,finding\r\nDCE a,,a1 a2\r\n");
    write("instruments.ndjson", R"({"market":"SH","code":"600000","priceTick":0.01})");
    write("etfs.ndjson", "");
    EXPECT_EQ(check({}).code, 0);
}

TEST_F(ToolSql, StoreAnswersByItself) {
    const Result outer = askClient({"outer"});
    ASSERT_EQ(outer.code, 0);
    const std::string db = (store_.path() / "db").string();
    const auto filesOf = [&] {
        std::map<std::string, std::filesystem::file_time_type> files;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(db)) {
            if (entry.path().filename() != "lock.mdb") {
                files[entry.path().string()] = std::filesystem::last_write_time(entry);
            }
        }
        return files;
    };
    const auto before = filesOf();
    for (const std::vector<std::string>& question :
         {std::vector<std::string>{"get", "SH600000", "DCESPC a2705&m2705", "ETFINSTS510051"},
          {"get", "SZ600000"},
          {"has", "SH600000", "SHO10000001"},
          {"list", "--market", "SH", "DCE"},
          {"find", "万科"},
          {"mains"},
          {"etf", "SH510051"},
          {"bond", "220001", "BANK220001"},
          {"bonds"},
          {"otc"},
          {"spreads"}}) {
        const Result day = ask(question);
        std::vector<std::string> words = question;
        words.insert(words.end(), {"--store", db});
        const Result stored = run(words);
        EXPECT_EQ(stored.out, day.out) << question.front();
        EXPECT_EQ(stored.code, day.code) << question.front();
        EXPECT_EQ(stored.err, day.err) << question.front();
    }
    // Each center has flags of its own for connect listings, and these are stored.
    EXPECT_EQ(run({"--store", db, "get", "HGT00005", "HK00005"}).code, 0);
    EXPECT_EQ(run({"--store", db, "--center", "client", "outer"}).out, outer.out);
    EXPECT_THAT(run({"--store", db, "sql", "select key from instruments where filed = 'HK'", "--format", "csv"}).out,
                HasSubstr("HGT00005"));
    // Funds are stored under each of their codes.
    EXPECT_EQ(run({"--store", db, "sql", "select count(*) n from etfs", "--jsonl"}).out, "{\"n\":1}\n");
    EXPECT_EQ(filesOf(), before);
    EXPECT_EQ(run({"--store", (store_.path() / "none").string(), "list", "--market", "SH"}).code, 2);
    EXPECT_THAT(run({"--store", day_.path().string(), "summary"}).err, HasSubstr("is no store"));
}

}  // namespace
