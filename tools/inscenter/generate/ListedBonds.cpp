#include <algorithm>

#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

constexpr Tick kMill{1, 3};

void setTerms(const MarketDay& day, CInstrumentDetail& record, Dice& dice) {
    const std::int64_t age = dice.between(30, 3'000);
    record.productId = 'B';
    record.isin = isin("CN", record.market == "SZ" ? "D00" : "D10", record.code);
    record.listingDate = day.after(-age);
    record.expireDate = day.after(dice.between(60, 7'000));
    record.faceValue = 100;
    record.issuePrice = 100;
    const std::int64_t coupon = dice.between(150, 560);
    record.couponRate = decimal(coupon, 4);
    record.accruedInterest = decimal(coupon * (age % 365) * 1'000 / 365, 5);
    record.totalShares = dice.between(50, 6'000) * 10'000;
    record.floatShares = record.totalShares;
    record.securityClass = 3;
}

void writeBond(const MarketDay& day, std::string_view market, const std::string& code, const Name& name, Dice& dice,
               RecordFile& file) {
    CInstrumentDetail record = startRecord(day, market, code);
    setName(record, name);
    setPrices(record, kMill, dice.between(93'000, 109'000), 0);
    setOrderSizes(record, 10, 1'000'000);
    setTerms(day, record, dice);
    file.write(record);
}

/// A convertible bond bears its company's name, and moves 20 per cent.
void writeConvertible(const MarketDay& day, std::string_view market, const std::string& code, std::size_t stock,
                      Dice& dice, RecordFile& file) {
    CInstrumentDetail record = startRecord(day, market, code);
    const Company company = stockCompany(day, market, stock);
    setName(record, {company.brand.text + "转债", company.brand.spell + "ZZ", company.brand.english + " Convertible"});
    record.industry = company.industry;
    setPrices(record, kMill, dice.between(98'000, 190'000), 200);
    setOrderSizes(record, 10, 1'000'000);
    setTerms(day, record, dice);
    record.underlyingMarket = market;
    record.underlyingCode = (market == "SH" ? shanghaiStock(day, stock) : shenzhenStock(day, stock)).code;
    file.write(record);
}

struct Repo {
    const char* code;
    int days;
};

void writeRepo(const MarketDay& day, std::string_view market, const Repo& repo, Dice& dice, RecordFile& file) {
    CInstrumentDetail record = startRecord(day, market, repo.code);
    const auto days = static_cast<std::uint64_t>(repo.days);
    record.name = padded(days, 3, market == "SH" ? "GC" : "Ｒ-");
    record.spellName = padded(days, 3, market == "SH" ? "GC" : "R-");
    record.productId = 'R';
    setPrices(record, {5, 3}, dice.between(200, 900), 0);
    setOrderSizes(record, 10, 1'000'000);
    record.faceValue = 100;
    record.expireDate = day.after(repo.days);
    record.securityClass = 4;
    file.write(record);
}

Name treasuryName(const MarketDay& day, Dice& dice) {
    const std::string year = day.after(-dice.between(30, 3'000)).substr(2, 2);
    const auto number = static_cast<std::uint64_t>(dice.between(1, 30));
    return {padded(number, 2, year + "国债"), padded(number, 2, year + "GZ"), "Treasury Bond"};
}

/// Every third record is a repo until all of them are written.
template <std::size_t N>
void writeTreasuriesAndConvertibles(const MarketDay& day, Segment segment, Segment stocks, std::string_view market,
                                    const CodeSeries& codes, const Repo (&repos)[N], RecordFile& file) {
    const Seed seed = day.seed("treasury").child(market);
    for (std::size_t i = 0; i < day.count(segment); ++i) {
        Dice dice = seed.dice(i);
        const std::string code = codes.at(i, day.salt());
        if (i % 3 == 2 && i / 3 < N) {
            writeRepo(day, market, repos[i / 3], dice, file);
        } else if (code[0] == '0') {
            writeBond(day, market, code, treasuryName(day, dice), dice, file);
        } else {
            writeConvertible(day, market, code, i % std::max<std::size_t>(day.count(stocks), 1), dice, file);
        }
    }
}

}  // namespace

void writeListedBonds(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kShanghai{"019###", "113###", "110###", "020###", "118###", "010###"};
    static constexpr Repo kShanghaiRepos[] = {{"204001", 1},  {"204007", 7},  {"204014", 14},
                                              {"204028", 28}, {"204091", 91}, {"204182", 182}};
    writeTreasuriesAndConvertibles(day, Segment::ShTreasuries, Segment::ShStocks, "SH", kShanghai, kShanghaiRepos,
                                   file);
    for (std::size_t i = 0; i < day.count(Segment::ShBonds); ++i) {
        Dice dice = day.seed("SH bond").dice(i);
        writeBond(day, "SH", shanghaiBondCode(day, i), bondName(day, "SH", i), dice, file);
    }

    // Every fourth stands under "SH" as well.
    static const CodeSeries kFixedIncome{"24####", "25####"};
    for (std::size_t i = 0; i < day.count(Segment::Shfi); ++i) {
        Dice dice = day.seed("SHFI bond").dice(i);
        const std::size_t twin = i / 4;
        const bool hasTwin = i % 4 == 1 && twin < day.count(Segment::ShBonds);
        writeBond(day, "SHFI", hasTwin ? shanghaiBondCode(day, twin) : kFixedIncome.at(i, day.salt()),
                  hasTwin ? bondName(day, "SH", twin) : bondName(day, "SHFI", i), dice, file);
    }

    static const CodeSeries kShenzhen{"123###", "127###", "128###"};
    static constexpr Repo kShenzhenRepos[] = {{"131810", 1}, {"131811", 2}, {"131800", 3}, {"131801", 7}};
    writeTreasuriesAndConvertibles(day, Segment::SzConvertibles, Segment::SzStocks, "SZ", kShenzhen, kShenzhenRepos,
                                   file);
    for (std::size_t i = 0; i < day.count(Segment::SzBonds); ++i) {
        Dice dice = day.seed("SZ bond").dice(i);
        writeBond(day, "SZ", shenzhenBondCode(day, i), bondName(day, "SZ", i), dice, file);
    }
}

}  // namespace inscenter::generate
