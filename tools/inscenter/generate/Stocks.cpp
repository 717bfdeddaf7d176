#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

constexpr Tick kCent{1, 2};
constexpr Tick kMill{1, 3};

bool startsWith(const std::string& text, std::string_view start) {
    return text.compare(0, start.size(), start) == 0;
}

/// Cents; most shares cost little, few a lot.
std::int64_t shareClose(Dice& dice) {
    if (dice.oneIn(30)) {
        return dice.between(20'000, 160'000);
    }
    return dice.oneIn(8) ? dice.between(6'000, 20'000) : dice.between(180, 6'000);
}

CInstrumentDetail share(const MarketDay& day, std::string_view market, const Listing& listing, const Company& company,
                        Dice& dice) {
    CInstrumentDetail record = startRecord(day, market, listing.code);
    setName(record, listing.name);
    record.industry = company.industry;
    record.isin = isin("CN", market == "SH" ? "E10" : market == "SZ" ? "E00" : "E20", listing.code);
    record.listingDate = day.after(-dice.between(40, 11'000));
    record.suspendedFlag = dice.oneIn(150) ? 1 : 0;
    record.securityClass = 1;
    setShares(record, dice);
    record.faceValue = 1;
    return record;
}

/// Limits and order sizes follow from the board: growth boards move 20 per cent, shares under special treatment 5.
void setBoard(CInstrumentDetail& record, Dice& dice) {
    const bool star = startsWith(record.code, "68");
    const bool growth = star || (record.market == "SZ" && startsWith(record.code, "30"));
    const bool special = startsWith(record.name, "ST") || startsWith(record.name, "*ST");
    setPrices(record, kCent, shareClose(dice), growth ? 200 : special ? 50 : 100);
    setOrderSizes(record, star ? 200 : 100, star ? 100'000 : 1'000'000);
    record.orderVolumeStep = star ? 1 : 100;
    record.marginTradingFlag = special || dice.oneIn(4) ? 0 : 1;
    record.shortSellingFlag = record.marginTradingFlag;
}

void writeIndexes(const MarketDay& day, Segment segment, std::string_view market, const CodeSeries& codes,
                  RecordFile& file) {
    const Seed seed = day.seed("index").child(market);
    for (std::size_t i = 0; i < day.count(segment); ++i) {
        Dice dice = seed.dice(i);
        CInstrumentDetail record = startRecord(day, market, codes.at(i, day.salt()));
        setName(record, inventFund(dice, "指数"));
        record.spellName += "ZS";
        record.productId = "IDX";
        record.listingDate = day.after(-dice.between(100, 8'000));
        setPrices(record, kCent, dice.between(50'000, 900'000), 0);
        record.preVolume = dice.between(1, 90'000) * 100'000;
        file.write(record);
    }
}

void writeFund(const MarketDay& day, std::string_view market, std::size_t index, const Listing& listing,
               RecordFile& file) {
    Dice dice = day.seed("fund").child(market).dice(index);
    CInstrumentDetail record = startRecord(day, market, listing.code);
    setName(record, listing.name);
    record.isin = isin("CN", market == "SH" ? "E10" : "E00", listing.code);
    record.productId = 'F';
    record.listingDate = day.after(-dice.between(60, 5'000));
    setPrices(record, kMill, fundCloseTicks(day, market, index), startsWith(listing.code, "588") ? 200 : 100);
    setOrderSizes(record, 100, 1'000'000);
    setShares(record, dice);
    record.marginTradingFlag = dice.oneIn(3) ? 1 : 0;
    record.shortSellingFlag = record.marginTradingFlag;
    record.faceValue = 1;
    record.securityClass = 2;
    file.write(record);
}

/// As the Shenzhen exchange sends it: the position of index 7 is '0' or '1' for depositary receipts only.
std::string plainStatus(Dice& dice) {
    return dice.oneIn(3) ? "E110YN0N00" : "E110NN0N00";
}

}  // namespace

void writeShanghaiStocks(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kIndexes{"000###"};
    writeIndexes(day, Segment::ShIndexes, "SH", kIndexes, file);
    for (std::size_t i = 0; i < day.count(Segment::ShStocks); ++i) {
        Dice dice = day.seed("SH share").dice(i);
        CInstrumentDetail record = share(day, "SH", shanghaiStock(day, i), stockCompany(day, "SH", i), dice);
        setBoard(record, dice);
        record.statusString = "E111NN0NN";
        file.write(record);
    }
    for (std::size_t i = 0; i < day.count(Segment::ShFunds); ++i) {
        writeFund(day, "SH", i, shanghaiFund(day, i), file);
    }
}

void writeShenzhenStocks(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kIndexes{"399###"};
    writeIndexes(day, Segment::SzIndexes, "SZ", kIndexes, file);
    for (std::size_t i = 0; i < day.count(Segment::SzStocks); ++i) {
        Dice dice = day.seed("SZ share").dice(i);
        CInstrumentDetail record = share(day, "SZ", shenzhenStock(day, i), stockCompany(day, "SZ", i), dice);
        setBoard(record, dice);
        record.statusString = plainStatus(dice);
        file.write(record);
    }
    for (std::size_t i = 0; i < day.count(Segment::SzFunds); ++i) {
        writeFund(day, "SZ", i, shenzhenFund(day, i), file);
    }
}

void writeBeijingStocks(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kSeries{"920###", "838###", "430###", "871###", "920###", "920###", "920###", "920###"};
    for (std::size_t i = 0; i < day.count(Segment::BjStocks); ++i) {
        Dice dice = day.seed("BJ share").dice(i);
        const Company company = stockCompany(day, "BJ", i);
        CInstrumentDetail record = share(day, "BJ", {kSeries.at(i, day.salt()), company.full}, company, dice);
        setPrices(record, kCent, dice.between(300, 9'000), 300);
        setOrderSizes(record, 100, 1'000'000);
        record.orderVolumeStep = 1;
        record.marginTradingFlag = dice.oneIn(2) ? 1 : 0;
        file.write(record);
    }
}

void writeNeeq(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kSeries{"830###", "831###", "872###", "832###", "400###", "833###", "834###",
                                    "835###", "873###", "836###", "837###", "839###", "870###", "874###"};
    for (std::size_t i = 0; i < day.count(Segment::Neeq); ++i) {
        Dice dice = day.seed("NEEQ share").dice(i);
        const Company company = stockCompany(day, "NEEQ", i);
        CInstrumentDetail record = share(day, "NEEQ", {kSeries.at(i, day.salt()), company.full}, company, dice);
        setPrices(record, kCent, dice.between(50, 4'000), 0);
        setOrderSizes(record, 100, 1'000'000);
        // 1 and 2 are the layers of the board, 5 is an inquiry for a public issue.
        record.securityClass = i % 10 == 4 ? 5 : dice.small(1, 2);
        record.issuePrice = record.securityClass == 5 ? record.preClosePrice : 0;
        file.write(record);
    }
}

}  // namespace inscenter::generate
