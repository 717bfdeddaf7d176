#include "snapshot/Snapshot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <iterator>
#include <limits>
#include <map>
#include <type_traits>
#include <utility>

#include "CenterFixture.h"
#include "SnapshotFixture.h"

namespace {

using boost::shared_ptr;
using mxservice::CETFComponentStockInfo;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using mxservice::IData;
using mxservice::RecordType;
using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotFormat;
using mxservice::SnapshotPacking;
using snapshottest::imageOf;
using snapshottest::SnapshotTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(RecordText, LeavesDefaultsOutAndStaysValidWhateverTheBytes) {
    mxservice::CInstrumentDetail record;
    std::string line;
    mxservice::appendJson(line, record);
    EXPECT_EQ(line, "{}");
    record.code = "a\xff\xed\xa0\x80z\x7f";  // a stray byte, a surrogate and a control character
    record.priceTick = 0.05;
    record.strikePrice = std::nan("");
    record.totalShares = 100;
    line.clear();
    mxservice::appendJson(line, record);
    EXPECT_EQ(line,
              "{\"code\":\"a\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz\\u007f\",\"priceTick\":0.05,"
              "\"strikePrice\":null,\"totalShares\":100}");
    line.clear();
    mxservice::appendCsvCell(line, "a\rb");
    EXPECT_EQ(line, "\"a\rb\"") << "a lone carriage return ends a line for some readers";
}

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
        const mxservice::Field& field = type.fields()[i];
        mxservice::visitField(field, *record, [&](auto& member) {
            using Member = std::decay_t<decltype(member)>;
            if constexpr (std::is_same_v<Member, std::string>) {
                member = field.isDate() ? "20260302" : text + std::to_string(i) + text;
            } else if constexpr (std::is_floating_point_v<Member>) {
                member = awkward(i);
            } else if constexpr (std::is_integral_v<Member>) {
                member = extreme<Member>(i);
            } else {
                for (const std::string& code : {std::string("600000"), "a \"b\"" + text}) {
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

const std::vector<std::string> kAwkwardTexts{
    "plain",         " \xE6\x96\x87\"quoted\", \xC3\xA9 ", "\n",    "\r",
    "\"\r\n,\"\n\"", std::string("\t\x1b\0\x7f", 4),       "\",\"", "\xEF\xBB\xBF"};

std::map<std::string, std::string> filesIn(const std::filesystem::path& directory) {
    std::map<std::string, std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        std::ifstream stream(entry.path(), std::ios::binary);
        files[entry.path().filename().string()] = {std::istreambuf_iterator<char>(stream), {}};
    }
    return files;
}

/// A day with such records in every catalogue.
Snapshot awkwardDay() {
    Snapshot day;
    for (const SnapshotCatalogue catalogue : mxservice::kEveryCatalogue) {
        for (const std::string& text : kAwkwardTexts) {
            day.add(catalogue, awkwardRecord(catalogueType(catalogue), text));
        }
    }
    day.recordsRead.fill(kAwkwardTexts.size());
    return day;
}

TEST_F(SnapshotTest, WhatWasWrittenIsReadBackEqualAndWrittenAlike) {
    const Snapshot day = awkwardDay();
    const std::string expected = imageOf(day);
    for (const auto format : {SnapshotFormat::Ndjson, SnapshotFormat::Csv}) {
        for (const auto packing : {SnapshotPacking::None, SnapshotPacking::Gzip, SnapshotPacking::Zstd}) {
            const TemporaryDirectory first;
            const TemporaryDirectory second;
            day.write(first.path().string(), format, packing);
            const Snapshot back = Snapshot::read(first.path().string());
            ASSERT_EQ(imageOf(back), expected);
            EXPECT_EQ(*back.etfs[4], *day.etfs[4]) << "baskets included";
            back.write((second.path() / "new").string(), format, packing);
            EXPECT_EQ(filesIn(second.path() / "new"), filesIn(first.path()));
            EXPECT_EQ(filesIn(first.path()).size(), mxservice::kSnapshotCatalogues);
        }
    }
    Snapshot().write(directory_.path().string(), SnapshotFormat::Csv);
    const auto files = filesIn(directory_.path());
    EXPECT_EQ(files.at("counterparties.csv").find("id,"), 0U) << "a header says what is not there";
    day_ = Snapshot::read(directory_.path().string());
    EXPECT_EQ(imageOf(day_), imageOf(Snapshot()));
}

TEST_F(SnapshotTest, NothingIsWrittenWhereItWouldBeReadTogetherWithOtherFilesOrCannotBe) {
    const auto refusal = [&](const Snapshot& day, SnapshotFormat format) -> std::string {
        const auto before = filesIn(directory_.path());
        try {
            day.write(directory_.path().string(), format);
        } catch (const std::runtime_error& failure) {
            EXPECT_EQ(filesIn(directory_.path()), before) << "no file of any name";
            return failure.what();
        }
        return "";
    };
    const Snapshot day = awkwardDay();
    write("README.md", "");
    write("etfs.csv", "");
    EXPECT_THAT(refusal(day, SnapshotFormat::Ndjson), HasSubstr("etfs.csv: would be read together with"));
    EXPECT_EQ(refusal(day, SnapshotFormat::Csv), "");
    // What reading would refuse again is refused here, after other files were begun.
    Snapshot large = day.copy();
    large.issuances[0]->name = std::string(1'100'000, '\n');
    EXPECT_THAT(refusal(large, SnapshotFormat::Csv), HasSubstr("issuances.csv: cannot be written: the record"));
    EXPECT_EQ(imageOf(Snapshot::read(directory_.path().string())), imageOf(day)) << "the former day";
    EXPECT_THROW(day.write((directory_.path() / "README.md" / "below").string(), SnapshotFormat::Csv),
                 std::runtime_error);
}

template <class Kind>
class SnapshotLoadTest : public mxservice::CenterTest<Kind> {};
TYPED_TEST_SUITE(SnapshotLoadTest, mxservice::BothCenterKinds);

TYPED_TEST(SnapshotLoadTest, OneListingOfHongKongIsAWholeLoadAndWhatADayLacksStays) {
    auto& center = this->asked();
    for (const auto& [market, added] : {std::pair{"HGT", "HK"}, std::pair{"SGT", "HK"}, std::pair{"HK", "HGT"}}) {
        Snapshot day;
        day.add(SnapshotCatalogue::Instruments, mxservice::instrument(market, "00005"));
        day.add(SnapshotCatalogue::Instruments, mxservice::instrument(market, "00001"));
        EXPECT_THAT(day.markets(), ElementsAre(market, added));
        day.loadInto(center);
        EXPECT_NE(center.getInstrument("HK00001"), nullptr) << market;
    }
    Snapshot day = awkwardDay();
    day.add(SnapshotCatalogue::Etfs, CETFDetail::table().make());
    day.etfs.back()->market = "SH";
    day.etfs.back()->etfCode = "510050";
    day.etfs.back()->components["600000"] = boost::make_shared<CETFComponentStockInfo>();
    day.etfs.back()->components["600000"]->market = "SH";
    day.etfs.back()->components["600000"]->code = "600000";
    day.add(SnapshotCatalogue::Instruments, mxservice::instrument("SH", "600000"));
    const std::string before = imageOf(day);
    day.copy().loadInto(center);
    EXPECT_EQ(imageOf(day), before) << "what a load fills in stands in the copies";
    const auto expectAll = [&] {
        EXPECT_EQ(center.getBonds().size(), day.bonds.size());
        EXPECT_EQ(center.getEtf("SH510050")->components.size(), 1U);
        EXPECT_EQ(center.getTrenderBondInfos().size(), day.tenderBonds.size());
        EXPECT_EQ(center.getCounterpartys().size(), day.counterparties.size());
        EXPECT_EQ(center.getOtcInstruments().size(), day.otcPlans.size());
        EXPECT_EQ(center.getIssuanceInfos().size(), day.issuances.size());
    };
    expectAll();
    Snapshot later;
    later.add(SnapshotCatalogue::Instruments, mxservice::instrument("SZ", "000002"));
    later.loadInto(center);
    expectAll();
    this->center().replaceInstruments(later.markets(), {});
    EXPECT_EQ(center.getInstrument("SZ000002"), nullptr);
}

}  // namespace
