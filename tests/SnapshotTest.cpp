#include "tools/inscenter/Snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <fstream>
#include <iterator>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "TemporaryStore.h"
#include "tools/inscenter/CsvRecordReader.h"
#include "tools/inscenter/JsonRecordReader.h"
#include "tools/inscenter/LineReader.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/RecordText.h"

namespace {

using boost::shared_ptr;
using inscenter::Catalogue;
using inscenter::FileNotes;
using inscenter::LineError;
using mxservice::CETFComponentStockInfo;
using mxservice::Field;
using mxservice::IData;
using mxservice::RecordType;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

template <class Number>
Number extreme(std::size_t number) {
    return number % 2 == 0 ? std::numeric_limits<Number>::max() : std::numeric_limits<Number>::min();
}

double awkward(std::size_t number) {
    const std::vector<double> values{0.1,  -2.5,    1e22,
                                     1e-7, 1.0 / 3, std::numeric_limits<double>::denorm_min(),
                                     1e15, 0.0001,  -std::numeric_limits<double>::max()};
    return values[number % values.size()];
}

/// Puts something into every field that is easily lost on the way: extremes, quotation marks, separators, wide letters.
shared_ptr<IData> awkwardRecord(const RecordType& type, const std::string& text) {
    shared_ptr<IData> record = type.make();
    for (std::size_t i = 0; i < type.fields().size(); ++i) {
        mxservice::visitField(type.fields()[i], *record, [&](auto& member) {
            using Member = std::decay_t<decltype(member)>;
            if constexpr (std::is_same_v<Member, std::string>) {
                member = text + std::to_string(i);
            } else if constexpr (std::is_floating_point_v<Member>) {
                member = awkward(i);
            } else if constexpr (std::is_integral_v<Member>) {
                member = extreme<Member>(i);
            } else {
                for (const char* const code : {"600000", "a \"b\""}) {
                    auto component = boost::static_pointer_cast<CETFComponentStockInfo>(
                        awkwardRecord(CETFComponentStockInfo::table(), text));
                    component->code = code;
                    member[code] = component;
                }
            }
        });
    }
    return record;
}

/// The line with the bytes behind it that a reader may look at.
class PaddedLine {
public:
    explicit PaddedLine(const std::string& line) : bytes_(line), size_(line.size()) {
        bytes_.append(inscenter::LineReader::kPadding, '\0');
    }
    std::string_view view() const { return {bytes_.data(), size_}; }

private:
    std::string bytes_;
    std::size_t size_;
};

TEST(RecordText, EveryRecordClassComesBackFromItsJsonLine) {
    for (const RecordType* const type : mxservice::TypeManager::instance()->types()) {
        const auto record = awkwardRecord(*type, std::string("文\"\\\n\t\x1b\0é,", 12));
        std::string line;
        inscenter::appendJson(line, *record);
        const auto back = type->make();
        FileNotes notes;
        LineError error;
        ASSERT_TRUE(inscenter::JsonRecordReader(*type).readLine(PaddedLine(line).view(), *back, notes, error))
            << type->name() << ": " << error.text();
        EXPECT_EQ(*back, *record) << line;
        EXPECT_THAT(line, Not(HasSubstr("\n")));
        EXPECT_THAT(notes.notes(), IsEmpty());
    }
}

TEST(RecordText, EveryRecordClassComesBackFromItsCsvLine) {
    for (const RecordType* const type : mxservice::TypeManager::instance()->types()) {
        const auto record = awkwardRecord(*type, " 文\"quoted\", é ");
        std::ostringstream out;
        inscenter::Output(out, inscenter::Format::Csv).records(record->recordType(), {record}, "");
        std::istringstream lines(out.str());
        std::string header;
        std::string line;
        std::getline(lines, header, '\r');
        lines.ignore();
        std::getline(lines, line, '\r');
        inscenter::CsvRecordReader reader(*type);
        const auto back = type->make();
        FileNotes notes;
        LineError error;
        ASSERT_TRUE(reader.readHeader(header, notes, error)) << type->name() << ": " << error.text();
        ASSERT_TRUE(reader.readLine(line, *back, notes, error)) << type->name() << ": " << error.text();
        EXPECT_EQ(*back, *record) << line;
    }
}

TEST(RecordText, LeavesDefaultsOutAndStaysValidWhateverTheBytes) {
    mxservice::CInstrumentDetail record;
    std::string line;
    inscenter::appendJson(line, record);
    EXPECT_EQ(line, "{}");
    record.code = "a\xff\xed\xa0\x80z\x7f";  // a stray byte, a surrogate and a control character
    record.priceTick = 0.05;
    record.strikePrice = std::nan("");
    record.totalShares = 100;
    line.clear();
    inscenter::appendJson(line, record);
    EXPECT_EQ(line,
              "{\"code\":\"a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz\\u007f\",\"priceTick\":0.05,"
              "\"strikePrice\":null,\"totalShares\":100}");
    line.clear();
    inscenter::appendCsvCell(line, "a\rb");
    EXPECT_EQ(line, "\"a\rb\"") << "a lone carriage return ends a line for some readers";
}

/// A snapshot in a directory of its own, and what reading it brings.
class SnapshotTest : public ::testing::Test {
protected:
    std::string write(const std::string& name, const std::string& bytes) {
        const std::string path = directory_.path() / name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    inscenter::ReadReport read() {
        messages_.str("");
        inscenter::Console console(messages_, false);
        return inscenter::readSnapshot(directory_.path(), snapshot_, console);
    }

    std::vector<std::string> codes() const {
        std::vector<std::string> all;
        for (const auto& instrument : snapshot_.instruments) {
            all.push_back(instrument->code);
        }
        return all;
    }

    TemporaryDirectory directory_;
    inscenter::Snapshot snapshot_;
    std::ostringstream messages_;
};

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
        const std::string path = write("instruments.ndjson", R"({"market":"SH","code":"1"})"
                                                             "\n" +
                                                                 bad.line + "\n" + R"({"market":"SH","code":"2"})");
        snapshot_ = {};
        EXPECT_EQ(read().skipped, 1U) << bad.line;
        EXPECT_THAT(codes(), ElementsAre("1", "2")) << bad.line;
        EXPECT_THAT(messages_.str(), HasSubstr(path + ":2: " + bad.message + "\n"));
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
        {"SH,2\xff,,1,", "not UTF-8"}};
    for (const BadLine& bad : lines) {
        const std::string path =
            write("etfs.csv", "exchid,etfcode,tradingday,creationlimit,stocks\nSH,1,20240229, 1.0 ,[]\n" + bad.line +
                                  "\nSZ,\"159,915\",,1,");
        snapshot_ = {};
        EXPECT_EQ(read().skipped, 1U) << bad.line;
        ASSERT_EQ(snapshot_.etfs.size(), 2U) << bad.line;
        EXPECT_EQ(snapshot_.etfs[0]->creationLimit, 1);
        EXPECT_EQ(snapshot_.etfs[0]->tradingDay, "20240229");
        EXPECT_EQ(snapshot_.etfs[1]->etfCode, "159,915");
        EXPECT_THAT(messages_.str(), HasSubstr(path + ":3: " + bad.message + "\n"));
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
    const auto report = read();
    EXPECT_EQ(report.skipped, 0U);
    EXPECT_EQ(report.records[static_cast<std::size_t>(Catalogue::Instruments)], 6U);
    EXPECT_THAT(codes(), ElementsAre("1", "3", std::string("n\0l", 3), "CL", "4", "5"));
    EXPECT_EQ(snapshot_.instruments[1]->lotSize, 100);
    EXPECT_EQ(snapshot_.instruments[2]->listingDate, "20220426");
    EXPECT_EQ(snapshot_.instruments[3]->listingDate, "NYMEX") << "of outer futures a market key";
    EXPECT_EQ(snapshot_.instruments[4]->name, "a \"b\"");
    EXPECT_EQ(snapshot_.instruments[4]->totalShares, std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(snapshot_.instruments[5]->totalShares, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(messages_.str(), "");
}

TEST_F(SnapshotTest, LinesLongerThanTheBufferAreRead) {
    const std::string name(3'000'000, 'n');
    write("instruments.ndjson", "{\"market\":\"SH\",\"code\":\"1\"}\n{\"market\":\"SH\",\"code\":\"2\",\"name\":\"" +
                                    name + "\"}\n{\"market\":\"SH\",\"code\":\"3\"}\n");
    EXPECT_EQ(read().skipped, 0U);
    EXPECT_THAT(codes(), ElementsAre("1", "2", "3"));
    EXPECT_EQ(snapshot_.instruments[1]->name, name);
}

TEST_F(SnapshotTest, TellsWhatItIgnoredOrCut) {
    const std::string path = write("instruments.ndjson", R"({"market":"WP","code":"1","volumeMultiple":-0.5,"extra":{}}
{"market":"WP","code":"2","volumeMultiple":27.5,"extra":[1,"x"],"\u001b[2J":1})");
    EXPECT_EQ(read().skipped, 0U);
    EXPECT_EQ(snapshot_.instruments[0]->volumeMultiple, 0);
    EXPECT_EQ(snapshot_.instruments[1]->volumeMultiple, 27);
    EXPECT_EQ(messages_.str(), "inscenter: " + path + ":1: field volumeMultiple: -0.5 cut to 0\ninscenter: " + path +
                                   ":2: field volumeMultiple: 27.5 cut to 27\ninscenter: " + path +
                                   ": unknown keys ignored: extra, \\x1B[2J\n");
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
    const std::string path = write("instruments.ndjson", lines);
    EXPECT_EQ(read().skipped, 1234U);
    EXPECT_THAT(messages_.str(), HasSubstr(path + ":21: not valid JSON"));
    EXPECT_THAT(messages_.str(), Not(HasSubstr(path + ":22:")));
    EXPECT_THAT(messages_.str(), HasSubstr(path + ": ... and 1214 more lines skipped\n"));
    EXPECT_THAT(messages_.str(), HasSubstr(path + ":1255: field lotSize: 1.5 cut to 1\n"));
    EXPECT_THAT(messages_.str(), Not(HasSubstr(path + ":1256:")));
    EXPECT_THAT(messages_.str(), HasSubstr(path + ": ... and 1 more numbers cut to whole ones\n"));
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
    EXPECT_EQ(read().skipped, 0U);
    EXPECT_THAT(codes(), ElementsAre("1", "2"));
    EXPECT_EQ(snapshot_.bonds.size(), 1U);
    EXPECT_EQ(snapshot_.tenderBonds.size(), 1U);
    ASSERT_EQ(snapshot_.issuances.size(), 1U);
    EXPECT_EQ(snapshot_.issuances[0]->code, "I");
    ASSERT_EQ(snapshot_.issuancePrices.size(), 1U);
    EXPECT_EQ(snapshot_.issuancePrices[0]->code, "P");
    EXPECT_EQ(snapshot_.otcFundPlans.at(0)->planType, 3);
    EXPECT_EQ(snapshot_.counterparties.at(0)->removed, 1);

    const std::string stray = write("stocks.ndjson", "");
    const std::string headless = write("etfs.csv", "foo,bar\n1,2\n");
    std::filesystem::create_directory(directory_.path() / "instruments-3.ndjson");
    EXPECT_EQ(read().skipped, 3U);
    EXPECT_THAT(messages_.str(), HasSubstr(stray + ": no catalogue file, skipped\n"));
    EXPECT_THAT(messages_.str(), HasSubstr(headless + ": cannot be read: the first line names no field\n"));
    EXPECT_THAT(messages_.str(), HasSubstr("instruments-3.ndjson: cannot be read: Is a directory\n"));
}

/// The bytes as gzip packs them.
std::string packed(const std::string& bytes) {
    const TemporaryDirectory directory;
    const std::string path = directory.path() / "packed";
    const gzFile file = gzopen(path.c_str(), "wb");
    EXPECT_EQ(gzwrite(file, bytes.data(), static_cast<unsigned>(bytes.size())), static_cast<int>(bytes.size()));
    EXPECT_EQ(gzclose(file), Z_OK);
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(SnapshotTest, PackedFilesAreReadAsTheirContents) {
    const std::string first = packed(R"({"market":"SH","code":"1"})"
                                     "\n{\n");
    const std::string path = write("instruments.ndjson.gz", first + packed(R"({"market":"SH","code":"3"})"));
    write("etfs.csv.gz", packed("exchid,etfcode\r\nSH,510050\r\n"));
    EXPECT_EQ(read().skipped, 1U);
    EXPECT_THAT(codes(), ElementsAre("1", "3"));
    EXPECT_EQ(snapshot_.etfs.at(0)->etfCode, "510050");
    EXPECT_THAT(messages_.str(), HasSubstr(path + ":2: not valid JSON"));
}

TEST_F(SnapshotTest, PackedFilesThatAreNotWholeAreReported) {
    std::string lines;
    for (int i = 0; lines.size() < 3'000'000; ++i) {
        lines += R"({"market":"SH","code":")" + std::to_string(i) + "\"}\n";
    }
    const std::string good = packed(lines);
    std::string sum = good;
    sum[sum.size() - 5] ^= 1;  // of the check sum, which stands before the length
    struct Case {
        std::string bytes;
        std::string reason;
        bool begun;  // records were read before the fault
    };
    const std::vector<Case> cases{{good.substr(0, good.size() / 2), "the packed data end too early", true},
                                  {good.substr(0, good.size() - 1), "the packed data end too early", true},
                                  {sum, "the packed data are damaged", true},
                                  {lines, "not packed with gzip", false},
                                  {"", "not packed with gzip", false}};
    for (const auto& [bytes, reason, begun] : cases) {
        const std::string path = write("instruments.ndjson.gz", bytes);
        write("instruments2.ndjson", R"({"market":"SZ","code":"whole"})");
        snapshot_ = {};
        EXPECT_EQ(read().skipped, 1U);
        EXPECT_EQ(messages_.str(), "inscenter: " + path + ": cannot be read: " + reason + "\n");
        EXPECT_EQ(codes().back(), "whole");
        EXPECT_EQ(codes().size() > 1, begun) << reason;
    }
    std::filesystem::remove(directory_.path() / "instruments2.ndjson");
    EXPECT_THROW(read(), inscenter::UnreadableInput);
}

TEST_F(SnapshotTest, ThrowsWhenThereIsNothingToRead) {
    EXPECT_THROW(read(), inscenter::UnreadableInput);
    inscenter::Console console(messages_, false);
    EXPECT_THROW(inscenter::readSnapshot(directory_.path() / "missing", snapshot_, console),
                 inscenter::UnreadableInput);
    EXPECT_THROW(inscenter::readSnapshot(write("instruments.ndjson", ""), snapshot_, console),
                 inscenter::UnreadableInput);
}

}  // namespace
