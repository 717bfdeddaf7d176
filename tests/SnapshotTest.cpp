#include "tools/inscenter/Snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
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
using mxservice::FieldKind;
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
        const Field& field = type.fields()[i];
        switch (field.kind()) {
            case FieldKind::Text:
                field.in<std::string>(*record) = text + std::to_string(i);
                break;
            case FieldKind::Int8:
                field.in<std::int8_t>(*record) = extreme<std::int8_t>(1);
                break;
            case FieldKind::Int32:
                field.in<std::int32_t>(*record) = extreme<std::int32_t>(i);
                break;
            case FieldKind::UInt32:
                field.in<std::uint32_t>(*record) = extreme<std::uint32_t>(0);
                break;
            case FieldKind::Int64:
                field.in<std::int64_t>(*record) = extreme<std::int64_t>(i);
                break;
            case FieldKind::Double:
                field.in<double>(*record) = awkward(i);
                break;
            case FieldKind::Components:
                for (const char* const code : {"600000", "a \"b\""}) {
                    auto component = boost::static_pointer_cast<CETFComponentStockInfo>(
                        awkwardRecord(CETFComponentStockInfo::table(), text));
                    component->code = code;
                    field.in<mxservice::ComponentMap>(*record)[code] = component;
                }
                break;
        }
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
        EXPECT_THAT(notes.texts(), IsEmpty());
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
    record.code = "a\xff\xed\xa0\x80z";  // a stray byte and a surrogate
    record.priceTick = 0.05;
    record.strikePrice = std::nan("");
    record.totalShares = 100;
    line.clear();
    inscenter::appendJson(line, record);
    EXPECT_EQ(line,
              "{\"code\":\"a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz\",\"priceTick\":0.05,"
              "\"strikePrice\":null,\"totalShares\":100}");
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
        {"SH,2,3,x,", "field reportunit: a number expected"},
        {"SH,2,3,nan,", "field reportunit: a number expected"},
        {"SH,2,3,99999999999,", "field reportunit: number out of range"},
        {"SH,2,3,1", "4 cells under 5 columns"},
        {"SH,\"2,3,1,", "not valid CSV: a quotation mark is not closed or stands where none may"},
        {"SH,2,3,1,\"{}\"", "field stocks: a JSON array expected"},
        {"SH,2,3,1,[7]", "field stocks: component 1 is no object"},
        {"SH,2,3,1,\"[{\"\"name\"\":\"\"n\"\"}]\"", "field stocks[1].code: missing"},
        {"SH,2,3,1,\"[{\"\"code\"\":\"\"n\"\",\"\"quantity\"\":\"\"\"\"}]\"",
         "field stocks[1].quantity: a number expected, a text found"},
        {"SH,,3,1,", "field etfcode: missing"},
        {"SH,2\xff,3,1,", "not UTF-8"}};
    for (const BadLine& bad : lines) {
        const std::string path = write("etfs.csv", "exchid,etfcode,prcode,reportunit,stocks\nSH,1,2, 1.0 ,[]\n" +
                                                       bad.line + "\nSZ,159915,\"159,916\",1,");
        snapshot_ = {};
        EXPECT_EQ(read().skipped, 1U) << bad.line;
        ASSERT_EQ(snapshot_.etfs.size(), 2U) << bad.line;
        EXPECT_EQ(snapshot_.etfs[0]->reportUnit, 1);
        EXPECT_EQ(snapshot_.etfs[1]->prCode, "159,916");
        EXPECT_THAT(messages_.str(), HasSubstr(path + ":3: " + bad.message + "\n"));
    }
}

TEST_F(SnapshotTest, LineFormsThatAreNoFaultAreRead) {
    write("instruments.ndjson",
          "\xEF\xBB\xBF{\"market\":\"SH\",\"code\":\"1\"}\r\n\r\n  \n"
          "{\"lotSize\":1e2,\"code\":\"2\",\"market\":\"SH\",\"name\":null,\"c\\u006fde\":\"3\"}\n"
          "{\"market\":\"SH\",\"code\":\"n\\u0000l\"}");
    write("instruments2.csv", "code,market,name\r\n4,SH,\"a \"\"b\"\"\"\r\n\r\n5,SH,\r\n");
    const auto report = read();
    EXPECT_EQ(report.skipped, 0U);
    EXPECT_EQ(report.records[static_cast<std::size_t>(Catalogue::Instruments)], 5U);
    EXPECT_THAT(codes(), ElementsAre("1", "3", std::string("n\0l", 3), "4", "5"));
    EXPECT_EQ(snapshot_.instruments[1]->lotSize, 100);
    EXPECT_EQ(snapshot_.instruments[3]->name, "a \"b\"");
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

TEST_F(SnapshotTest, TellsOnceAFileWhatItIgnoredOrCut) {
    const std::string path = write("instruments.ndjson", R"({"market":"WP","code":"1","volumeMultiple":0.5,"extra":{}}
{"market":"WP","code":"2","volumeMultiple":-27.5,"extra":[1,"x"],"\u001b[2J":1})");
    EXPECT_EQ(read().skipped, 0U);
    EXPECT_EQ(snapshot_.instruments[0]->volumeMultiple, 0);
    EXPECT_EQ(snapshot_.instruments[1]->volumeMultiple, -27);
    EXPECT_EQ(messages_.str(), "inscenter: " + path + ": unknown keys ignored: extra, \\x1B[2J\ninscenter: " + path +
                                   ": field volumeMultiple: 2 fractions cut to whole numbers\n");
}

TEST_F(SnapshotTest, ManyBadLinesAreCounted) {
    std::string lines = R"({"market":"SH","code":"1"})";
    for (int i = 0; i < 1234; ++i) {
        lines += "\n{";
    }
    const std::string path = write("instruments.ndjson", lines);
    EXPECT_EQ(read().skipped, 1234U);
    EXPECT_THAT(messages_.str(), HasSubstr(path + ":21: not valid JSON"));
    EXPECT_THAT(messages_.str(), Not(HasSubstr(path + ":22:")));
    EXPECT_THAT(messages_.str(), HasSubstr(path + ": ... and 1214 more lines skipped\n"));
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

TEST_F(SnapshotTest, ThrowsWhenThereIsNothingToRead) {
    EXPECT_THROW(read(), inscenter::UnreadableInput);
    inscenter::Console console(messages_, false);
    EXPECT_THROW(inscenter::readSnapshot(directory_.path() / "missing", snapshot_, console),
                 inscenter::UnreadableInput);
    EXPECT_THROW(inscenter::readSnapshot(write("instruments.ndjson", ""), snapshot_, console),
                 inscenter::UnreadableInput);
}

}  // namespace
