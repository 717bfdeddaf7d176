#include "snapshot/Snapshot.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>
#include <zstd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <new>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "SnapshotFixture.h"

namespace {

using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotFormat;
using mxservice::SnapshotReadOptions;
using mxservice::SnapshotUnreadable;
using snapshottest::SnapshotTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

/// While it has begun, threads of the library get no memory for a record, and the test's own waits with one of its own
/// until another has met that.
enum class Shortage : std::uint8_t { None, Begun, Met };
std::atomic<Shortage> shortage{Shortage::None};
const std::thread::id kOwnThread = std::this_thread::get_id();

void sufferShortage(std::size_t size) {
    if (size < sizeof(mxservice::CInstrumentDetail) || size > 2 * sizeof(mxservice::CInstrumentDetail)) {
        return;
    }
    if (std::this_thread::get_id() != kOwnThread) {
        shortage = Shortage::Met;
        throw std::bad_alloc();
    }
    while (shortage == Shortage::Begun) {
        std::this_thread::yield();
    }
}

struct BadLine {
    std::string line;
    std::string message;
};

// Every bad line stands between two good ones: both are read, and one message names file, line, field and reason.

TEST_F(SnapshotTest, BadJsonLineIsReportedAndTheRestIsRead) {
    const std::vector<BadLine> lines{
        {R"({"market":"SH","code":"X","lotSize":"10"})", "field lotSize: a number expected, a text found"},
        {R"({"market":"SH","code":6})", "field code: a text expected, a number found"},
        {R"({"market":"SH","code":"X","name":["a"]})", "field name: a text expected, an array found"},
        {R"({"market":"SH","code":"X","lotSize":2147483648})", "field lotSize: number out of range"},
        {R"({"market":"SH","code":"X","combinedConnectFlags":-1})", "field combinedConnectFlags: number out of range"},
        {R"({"market":"SH","code":"X","totalShares":9223372036854775808})", "field totalShares: number out of range"},
        {R"({"market":"SH","code":"X","priceTick":1e999})", "field priceTick: number out of range"},
        {R"({"market":"SH","code":"X","priceTick":1.2.3})", "field priceTick: not a valid number"},
        {R"({"market":"SH","code":"X","name":"\ud800"})", "field name: not a valid text"},
        {R"({"market":"SH","code":"X","listingDate":"20220426.0"})",
         "field listingDate: a day of the form YYYYMMDD expected, \"20220426.0\" found"},
        {R"({"market":"SH","code":"X","delistingDate":20220426.0})",
         "field delistingDate: a text expected, a number found"},
        {R"({"market":"SH","code":"X","tradingDay":20261301})",
         "field tradingDay: a day of the form YYYYMMDD expected, \"20261301\" found"},
        {R"({"market":"SH","code":"X","expireDate":"20260229"})",
         "field expireDate: a day of the form YYYYMMDD expected, \"20260229\" found"},
        {R"({"listingDate":"NYMEX","code":"X","market":"NYSE"})",
         "field listingDate: a day of the form YYYYMMDD expected, \"NYMEX\" found"},
        {R"({"market":"WP","code":"X","listingDate":"NYMEX","expireDate":"NYMEX"})",
         "field expireDate: a day of the form YYYYMMDD expected, \"NYMEX\" found"},
        {R"({"market":"SH","name":"no code"})", "field code: missing"},
        {R"({"market":"","code":"X"})", "field market: missing"},
        {R"(["SH","X"])", "a JSON object expected"},
        {R"({"market":"SH","code":"X")", "not valid JSON: an object or array is not closed"},
        {R"({"market":"SH" "code":"X"})", "not valid JSON"},
        {R"({"market":"SH","code":"X","other":{"a":[1,tru]}})", "not valid JSON"},
        {R"({"market":"SH","code":"X"}{"market":"SH","code":"Y"})", "more than one JSON value"},
        {R"({"market":"SH","code":"X","other":)" + std::string(5000, '[') + std::string(5000, ']') + "}",
         "not valid JSON"},
        {"{\"market\":\"SH\",\"code\":\"X\xff\"}", "not UTF-8"},
        {std::string("{\"market\":\"SH\",\"code\":\"X\0\"}", 27), "NUL byte"},
        {"{\"market\":\"SH\",\"code\":\"X\t\"}", "not valid JSON: control character within a text"}};
    for (const BadLine& bad : lines) {
        const std::string name = write("instruments.ndjson", R"({"market":"SH","code":"1"})"
                                                             "\n" +
                                                                 bad.line + "\n" + R"({"market":"SH","code":"2"})");

        read();
        EXPECT_EQ(skipped(), 1U) << bad.line;
        EXPECT_THAT(codes(), ElementsAre("1", "2")) << bad.line;
        EXPECT_THAT(told(), HasSubstr(name + ":2: " + bad.message + "\n"));
    }
}

TEST_F(SnapshotTest, BadCsvLineIsReportedAndTheRestIsRead) {
    const std::vector<BadLine> lines{
        {"SH,2,,x,", "field creationlimit: a number expected"},
        {"SH,2,,nan,", "field creationlimit: a number expected"},
        {"SH,2,,9223372036854775808,", "field creationlimit: number out of range"},
        {"SH,2,,-9223372036854777856,", "field creationlimit: number out of range"},
        {"SH,2,2026-03-02,1,", "field tradingday: a day of the form YYYYMMDD expected, \"2026-03-02\" found"},
        {"SH,2,00000101,1,", "field tradingday: a day of the form YYYYMMDD expected, \"00000101\" found"},
        {"SH,2,,1", "4 cells under 5 columns"},
        {"SH,\"2,,1,", "not valid CSV: a quotation mark is not closed or stands where none may"},
        {"SH,2,,1,\"{}\"", "field stocks: a JSON array expected"},
        {"SH,2,,1,[7]", "field stocks: component 1 is no object"},
        {"SH,2,,1,\"[{\"\"name\"\":\"\"n\"\"}]\"", "field stocks[1].code: missing"},
        {"SH,2,,1,\"[{\"\"code\"\":\"\"n\"\",\"\"quantity\"\":\"\"\"\"}]\"",
         "field stocks[1].quantity: a number expected, a text found"},
        {"SH,,,1,", "field etfcode: missing"},
        {"SH,2\xff,,1,", "not UTF-8"},
        {"S\rH,2,,1,", "not valid CSV: a carriage return within a line"},
        {std::string("S\0H,2,,1,", 9), "NUL byte"}};
    for (const BadLine& bad : lines) {
        const std::string name =
            write("etfs.csv", "exchid,etfcode,tradingday,creationlimit,stocks\nSH,1,20240229, 1.0 ,[]\n" + bad.line +
                                  "\nSZ,\"159,915\",,1,");

        read();
        EXPECT_EQ(skipped(), 1U) << bad.line;
        ASSERT_EQ(day_.etfs.size(), 2U) << bad.line;
        EXPECT_EQ(day_.etfs[0]->creationLimit, 1);
        EXPECT_EQ(day_.etfs[0]->tradingDay, "20240229");
        EXPECT_EQ(day_.etfs[1]->etfCode, "159,915");
        EXPECT_THAT(told(), HasSubstr(name + ":3: " + bad.message + "\n"));
    }
}

TEST_F(SnapshotTest, LineFormsThatAreNoFaultAreRead) {
    write("instruments.ndjson",
          "\xEF\xBB\xBF{\"market\":\"SH\",\"code\":\"1\"}\r\n\r\n  \n"
          "{\"lotSize\":1e2,\"code\":\"2\",\"market\":\"SH\",\"name\":null,\"c\\u006fde\":\"3\"}\n"
          "{\"market\":\"SH\",\"code\":\"n\\u0000l\",\"listingDate\":20220426,\"tradingDay\":null}\n"
          "{\"listingDate\":\"NYMEX\",\"code\":\"CL\",\"market\":\"WP\"}");
    write("instruments2.csv",
          "code,market,name,totalShares\r\n4,SH,\"a "
          "\"\"b\"\"\",9223372036854775807\r\n\r\n5,SH,,-9223372036854775808.0\r\n");
    read();
    EXPECT_THAT(codes(), ElementsAre("1", "3", std::string("n\0l", 3), "CL", "4", "5"));
    EXPECT_EQ(skipped(), 0U);
    EXPECT_EQ(day_.instruments[1]->lotSize, 100);
    EXPECT_EQ(day_.instruments[2]->listingDate, "20220426");
    EXPECT_EQ(day_.instruments[3]->listingDate, "NYMEX") << "of outer futures a market key";
    EXPECT_EQ(day_.instruments[4]->name, "a \"b\"");
    EXPECT_EQ(day_.instruments[4]->totalShares, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(day_.instruments[5]->totalShares, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(told(), "");
}

TEST_F(SnapshotTest, LinesLongerThanTheBufferAreRead) {
    const std::string name(3'000'000, 'n');
    write("instruments.ndjson", "{\"market\":\"SH\",\"code\":\"1\"}\n{\"market\":\"SH\",\"code\":\"2\",\"name\":\"" +
                                    name + "\"}\n{\"market\":\"SH\",\"code\":\"3\"}\n");
    read();
    EXPECT_EQ(skipped(), 0U);
    EXPECT_THAT(codes(), ElementsAre("1", "2", "3"));
    EXPECT_EQ(day_.instruments[1]->name, name);
}

TEST_F(SnapshotTest, TellsWhatItIgnoredOrCut) {
    const std::string name = write("instruments.ndjson", R"({"market":"WP","code":"1","volumeMultiple":-0.5,"extra":{}}
{"market":"WP","code":"2","volumeMultiple":27.5,"extra":[1,"x"],"\u001b[2J":1})");
    read();
    EXPECT_EQ(skipped(), 0U);
    EXPECT_EQ(day_.instruments[0]->volumeMultiple, 0);
    EXPECT_EQ(day_.instruments[1]->volumeMultiple, 27);
    EXPECT_EQ(told(), name + ":1: field volumeMultiple: -0.5 cut to 0\n" + name +
                          ":2: field volumeMultiple: 27.5 cut to 27\n" + name + ":1: field extra: unknown, ignored\n" +
                          name + ":2: field \\x1B[2J: unknown, ignored\n");
}

TEST_F(SnapshotTest, ManyBadLinesAndCutNumbersAreCounted) {
    std::string lines = R"({"market":"SH","code":"1"})";
    for (int i = 0; i < 1234; ++i) {
        lines += "\n{";
    }
    for (int i = 0; i < 21; ++i) {
        lines +=
            "\n"
            R"({"market":"SH","code":"1","lotSize":1.5})";
    }
    const std::string name = write("instruments.ndjson", lines);
    read();
    EXPECT_EQ(skipped(), 1234U);
    EXPECT_THAT(told(), HasSubstr(name + ":21: not valid JSON"));
    EXPECT_THAT(told(), Not(HasSubstr(name + ":22:")));
    EXPECT_THAT(told(), HasSubstr(name + ": ... and 1214 more lines skipped\n"));
    EXPECT_THAT(told(), HasSubstr(name + ":1255: field lotSize: 1.5 cut to 1\n"));
    EXPECT_THAT(told(), Not(HasSubstr(name + ":1256:")));
    EXPECT_THAT(told(), HasSubstr(name + ": ... and 1 more numbers cut to whole ones\n"));
}

TEST_F(SnapshotTest, FilesGoToTheirCatalogueByTheBeginningOfTheirName) {
    write("instruments-2.ndjson", R"({"market":"SZ","code":"2"})");
    write("instruments-1.ndjson", R"({"market":"SH","code":"1"})");
    write("bonds.ndjson", R"({"bondCode":"1"})");
    write("tenderbonds.ndjson", R"({"code":"1"})");
    write("issuances.csv", "code\nI\n");
    write("issuanceprices.csv", "code\nP\n");
    write("otcfundplans.ndjson", R"({"code":"1","planType":3})");
    write("counterparties.ndjson", R"({"id":"1","removed":1})");
    write("README.md", "");
    write(".hidden", "");
    read();
    EXPECT_EQ(skipped(), 0U);
    EXPECT_THAT(codes(), ElementsAre("1", "2"));
    EXPECT_EQ(day_.bonds.size(), 1U);
    EXPECT_EQ(day_.tenderBonds.size(), 1U);
    ASSERT_EQ(day_.issuances.size(), 1U);
    EXPECT_EQ(day_.issuances[0]->code, "I");
    ASSERT_EQ(day_.issuancePrices.size(), 1U);
    EXPECT_EQ(day_.issuancePrices.begin()->second->code, "P");
    EXPECT_EQ(day_.otcPlans.at(0)->planType, 3);
    EXPECT_EQ(day_.counterparties.at("1")->removed, 1);

    const std::string stray = write("stocks.ndjson", "");
    const std::string headless = write("etfs.csv", "foo,bar");
    std::filesystem::create_directory(directory_.path() / "instruments-3.ndjson");
    read();
    EXPECT_EQ(skipped(), 3U);
    EXPECT_THAT(told(), HasSubstr(stray + ": no catalogue file, skipped\n"));
    EXPECT_THAT(told(), HasSubstr(headless + ": cannot be read: the first line names no field\n"));
    EXPECT_THAT(told(), HasSubstr("instruments-3.ndjson: cannot be read: Is a directory\n"));
}

/// The bytes as gzip packs them.
std::string packed(const std::string& bytes) {
    const TemporaryDirectory directory;
    const std::string path = (directory.path() / "packed").string();
    const gzFile file = gzopen(path.c_str(), "wb");
    EXPECT_EQ(gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())), static_cast<int>(bytes.size()));
    EXPECT_EQ(gzclose(file), Z_OK);
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// The bytes as zstd packs them, without a check sum.
std::string zstdPacked(const std::string& bytes) {
    std::string out(ZSTD_compressBound(bytes.size()), '\0');
    out.resize(ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), 1));
    return out;
}

TEST_F(SnapshotTest, PackedFilesAreReadAsTheirContents) {
    for (const auto& [ending, pack] : {std::pair{".gz", &packed}, std::pair{".zst", &zstdPacked}}) {
        const std::string parts =
            pack("{\"market\":\"SH\",\"code\":\"1\"}\n{\n") + pack(R"({"market":"SH","code":"3"})");
        const std::string name = write("instruments.ndjson", parts);  // a name says nothing
        write(std::string("etfs.csv") + ending, pack("exchid,etfcode\r\nSH,510050\r\n"));
        read();
        EXPECT_EQ(skipped(), 1U);
        EXPECT_THAT(codes(), ElementsAre("1", "3"));
        EXPECT_EQ(day_.etfs.at(0)->etfCode, "510050");
        EXPECT_THAT(told(), HasSubstr(name + ":2: not valid JSON"));
    }
}

TEST_F(SnapshotTest, PackedFilesThatAreNotWholeAreReported) {
    std::string lines;
    std::size_t all = 0;
    for (; lines.size() < 3'000'000; ++all) {
        lines += R"({"market":"SH","code":")" + std::to_string(all) + "\"}\n";
    }
    const std::string gzip = packed(lines);
    const std::string zstd = zstdPacked(lines);
    std::string sum = gzip;
    sum[sum.size() - 5] ^= 1;  // of the check sum, which stands before the length
    struct Case {
        std::string ending;
        std::string bytes;
        std::string reason;
        std::size_t least;  // records that were read before the fault
    };
    const std::vector<Case> cases{{".gz", gzip.substr(0, gzip.size() / 2), "the packed data end too early", all / 3},
                                  {".gz", gzip.substr(0, gzip.size() - 1), "the packed data end too early", all},
                                  {".gz", sum, "the packed data are damaged", all},
                                  {".gz", gzip + "more", "the packed data are damaged", all},
                                  {".gz", lines, "not packed with gzip", 0},
                                  {".gz", zstd, "not packed with gzip", 0},
                                  {".gz", "", "not packed with gzip", 0},
                                  {".zst", zstd.substr(0, zstd.size() / 2), "the packed data end too early", all / 8},
                                  {".zst", zstd + "more", "the packed data are damaged", all},
                                  {".zst", gzip, "not packed with zstd", 0}};
    for (const auto& [ending, bytes, reason, least] : cases) {
        const std::string name = write("instruments.ndjson" + ending, bytes);
        write("instruments2.ndjson", R"({"market":"SZ","code":"whole"})");
        read();
        EXPECT_EQ(skipped(), 1U);
        EXPECT_EQ(told(), name + ": cannot be read: " + reason + "\n");
        EXPECT_EQ(codes().back(), "whole");
        EXPECT_GT(codes().size(), least) << ending << ": " << reason;
        EXPECT_TRUE(least > 0 || codes().size() == 1);
        std::filesystem::remove(directory_.path() / name);
    }
}

TEST_F(SnapshotTest, ThrowsWhenThereIsNothingToRead) {
    EXPECT_THROW(read(), SnapshotUnreadable);
    write("instruments.ndjson.gz", "");
    try {
        read();
        FAIL();
    } catch (const SnapshotUnreadable& failure) {
        EXPECT_EQ(snapshottest::told(failure.issues), "instruments.ndjson.gz: cannot be read: not packed with gzip\n");
    }
    for (const char* const name : {"missing", "instruments.ndjson.gz", "instruments.ndjson", "stocks.ndjson"}) {
        EXPECT_THROW(Snapshot::read((directory_.path() / name).string()), SnapshotUnreadable) << name;
    }
    const std::string good = packed(R"({"market":"SH","code":"1"})");
    EXPECT_THROW(Snapshot::read(good.data(), good.size() - 9, {}), SnapshotUnreadable);
    std::ifstream missing(directory_.path() / "missing");
    EXPECT_THROW(Snapshot::read(missing, {}), SnapshotUnreadable);
    EXPECT_THAT(Snapshot::read("", 0, {}).issues, IsEmpty()) << "what holds nothing can be read";
}

TEST_F(SnapshotTest, QuotedCellsHoldLineBreaksAndAnOpenQuotationCostsItsLine) {
    const std::string name = write("instruments.csv",
                                   "market,code,name\r\n"
                                   "SH,1,\"a\r\n\nb\"\"\n\"\r\n"  // over four lines
                                   "SH,2,\"open\r\n"
                                   "SH,3,plain\r\n"
                                   "SH,4,\"shut\"\r\n"
                                   "SH,5,\"open again\n"
                                   "SH,\"6\",x\n"
                                   "SH,7,x,\"swallows the next\n"
                                   "SH,8,\"\"\n"
                                   "SH,10,\"" +
                                       std::string(1'100'000, '\n') + "\"\nSH,11,\"never closed\nSH,12,x");
    read();
    EXPECT_THAT(codes(), ElementsAre("1", "3", "4", "6", "8", "12"));
    EXPECT_EQ(day_.instruments[0]->name, "a\r\n\nb\"\n");
    const std::string reason = ": not valid CSV: a quotation mark is not closed or stands where none may\n";
    std::string expected;
    for (const int line : {6, 9, 11, 13, 1100013, 1100014}) {
        expected += name + ":" + std::to_string(line) + reason;
    }
    EXPECT_EQ(told(), expected);
}

TEST_F(SnapshotTest, ALineOfAHundredMegabytesIsPassedOver) {
    const std::string line = "{\"market\":\"SH\",\"code\":\"1\"}\n";
    const std::string bytes = packed(line + std::string(100'000'000, 'x') + "\n" + line);
    const std::string name = write("instruments.ndjson", bytes);
    write("instruments2.csv", packed("market,code\n" + std::string(70'000'000, '"') + "\nSH,3"));
    read();
    EXPECT_THAT(codes(), ElementsAre("1", "1", "3"));
    EXPECT_EQ(told(), name + ":2: longer than 67108864 bytes\ninstruments2.csv:2: longer than 67108864 bytes\n");
}

TEST_F(SnapshotTest, ALaterRecordOfTheSameKeyCountsAndIsNamed) {
    write("bonds.ndjson", "{\"bondCode\":\"1\",\"bondName\":\"a\"}\n{\"bondCode\":\"2\"}\n");
    const std::string name = write("bonds2.ndjson", "\n{\"bondCode\":\"1\",\"bondName\":\"b\"}\n");
    read();
    EXPECT_EQ(skipped(), 0U);
    ASSERT_EQ(day_.bonds.size(), 2U);
    EXPECT_EQ(day_.bonds.at("1")->bondName, "b");
    EXPECT_EQ(told(), name + ":2: takes the place of an earlier record of the same key, \"1\"\n");
    EXPECT_EQ(day_.recordsRead[static_cast<std::size_t>(SnapshotCatalogue::Bonds)], 3U);
}

TEST_F(SnapshotTest, AFileThatGrowsWhileItIsReadIsNamedAndReadToItsEnd) {
    const std::string line = "{\"market\":\"SH\",\"code\":\"1\"}\n";
    const std::string name = write("instruments.ndjson", line + line);
    bool grown = false;
    SnapshotReadOptions options;
    options.blockBytes = 16;
    options.progress = [&](std::uint64_t, std::uint64_t) {
        if (!std::exchange(grown, true)) {
            std::ofstream(directory_.path() / name, std::ios::app | std::ios::binary)
                << std::string(300'000, '\n') << line;
        }
    };
    write("etfs.ndjson", "");  // whose end is the first progress
    day_ = Snapshot::read(directory_.path().string(), options);
    EXPECT_EQ(day_.instruments.size(), 3U);
    EXPECT_EQ(told(), "");
    grown = false;
    std::filesystem::remove(directory_.path() / "etfs.ndjson");
    day_ = Snapshot::read(directory_.path().string(), options);
    EXPECT_EQ(day_.instruments.size(), 4U);
    EXPECT_EQ(told(), name + ": changed while it was read\n");
}

TEST_F(SnapshotTest, NeitherThreadsNorBlocksNorTheWayInChangeWhatIsRead) {
    std::string json;
    std::string csv = "\xEF\xBB\xBF\n\nbondCode,extra,bondName\n";
    for (int i = 0; i < 500; ++i) {
        json +=
            fmt::format("{{\"market\":\"SH\",\"code\":\"{0}\",\"lotSize\":{0}.{1},\"key{2}\":0}}\n", i, i % 7, i % 90);
        json += i % 11 == 0 ? "{\n" : i % 13 == 0 ? "\r\n" : "";
        csv += fmt::format("{},,{}\n", i % 300, i % 5 == 0 ? "\"a\n\"\"b\"\"\nc\"" : i % 7 == 0 ? "\"open" : "plain");
        csv += i % 70 == 0 ? "x\ry,\n\n" : i % 70 == 7 ? "\",x\ry\n" : "";
    }
    SnapshotReadOptions options;
    options.issuesPerFile = 30;
    for (const auto format : {SnapshotFormat::Ndjson, SnapshotFormat::Csv}) {
        const bool isCsv = format == SnapshotFormat::Csv;
        const std::string& text = isCsv ? csv : json;
        options.name = isCsv ? "bonds.csv" : "instruments.ndjson";
        options.catalogue = isCsv ? SnapshotCatalogue::Bonds : SnapshotCatalogue::Instruments;
        options.format = format;
        options.threads = 1;
        options.blockBytes = 0;
        const std::string expected = snapshottest::imageOf(Snapshot::read(text.data(), text.size(), options));
        EXPECT_THAT(expected, HasSubstr(isCsv ? "not closed" : "cut to 1"));
        for (const unsigned threads : {1U, 2U, 4U}) {
            for (const std::size_t block : {1U, 7U, 100U, 5000U}) {
                options.threads = threads;
                options.blockBytes = block;
                EXPECT_EQ(snapshottest::imageOf(Snapshot::read(text.data(), text.size(), options)), expected)
                    << threads << ' ' << block;
            }
        }
        std::istringstream stream(packed(text));
        EXPECT_EQ(snapshottest::imageOf(Snapshot::read(stream, options)), expected);
        const std::string path = (directory_.path() / write(options.name, zstdPacked(text))).string();
        EXPECT_EQ(snapshottest::imageOf(Snapshot::read(path, options)), expected);
        EXPECT_EQ(snapshottest::imageOf(Snapshot::read(directory_.path().string(), options)), expected);
        std::filesystem::remove(path);
    }
}

TEST_F(SnapshotTest, WhatStopsReadingReachesTheCaller) {
    std::string lines;
    for (int i = 0; i < 20; ++i) {
        lines += "{\"market\":\"SH\",\"code\":\"1\"}\n";
    }
    write("instruments.ndjson", lines);
    SnapshotReadOptions options;
    options.threads = 2;
    options.blockBytes = 1;
    // What is made once a process is made now: a thread that waits within would keep the other from coming that far.
    EXPECT_EQ(Snapshot::read(directory_.path().string(), options).instruments.size(), 20U);
#ifndef _WIN32  // where a library does not take its memory from the program's operator new
    shortage = Shortage::Begun;
    EXPECT_THROW(Snapshot::read(directory_.path().string(), options), std::bad_alloc);
    EXPECT_EQ(shortage.exchange(Shortage::None), Shortage::Met) << "in a thread of the library";
#endif
    options.progress = [](std::uint64_t, std::uint64_t) { throw std::runtime_error("enough"); };
    try {
        Snapshot::read(directory_.path().string(), options);
        FAIL();
    } catch (const std::runtime_error& stopped) {
        EXPECT_STREQ(stopped.what(), "enough");
    }
}

}  // namespace

// Not inlined: GCC would take the one for a mismatch of the other. All forms: a sanitizer compares how a block was made
// with how it goes.
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*none*/) noexcept {
    return std::malloc(size);
}
[[gnu::noinline]] void* operator new(std::size_t size) {
    if (shortage != Shortage::None) {
        sufferShortage(size);
    }
    void* const bytes = std::malloc(size);
    return bytes != nullptr ? bytes : throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* bytes) noexcept {
    std::free(bytes);
}
[[gnu::noinline]] void operator delete(void* bytes, std::size_t /*size*/) noexcept {
    std::free(bytes);
}
