// Hong Kong with its connect listings, and the United States.

#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

/// The spread table of the Hong Kong exchange up to 500 dollars, in thousandths: the step below a price.
struct Spread {
    std::int64_t below;
    std::int32_t step;
};
constexpr Spread kSpreads[] = {{250, 1},      {500, 5},       {10'000, 10},  {20'000, 20},
                               {100'000, 50}, {200'000, 100}, {500'000, 200}};
constexpr std::int32_t kBoardLots[] = {100, 200, 400, 500, 1'000, 2'000, 2'500, 4'000, 5'000, 10'000};

/// The record of a stock under "HK" or one of the connect markets; the same stock in each but for the market.
CInstrumentDetail hongKongStock(const MarketDay& day, std::string_view market, std::size_t index) {
    static const CodeSeries kSeries{"0####"};
    Dice dice = day.seed("HK share").dice(index);
    const Company company = stockCompany(day, "HK", index);
    CInstrumentDetail record = startRecord(day, market, kSeries.at(index, day.salt()));
    setName(record, company.full);
    record.industry = company.industry;
    record.currency = "HKD";
    record.isin = isin("HK", "0000", record.code);
    record.listingDate = day.after(-dice.between(60, 12'000));

    const std::int64_t top = dice.pick(kSpreads).below;
    const std::int64_t close = dice.between(20, top - 1);
    const Spread* spread = kSpreads;
    while (spread->below <= close) {
        ++spread;
    }
    setPrices(record, {spread->step, 3}, close / spread->step, 0);
    const std::int32_t lot = dice.pick(kBoardLots);
    setOrderSizes(record, lot, lot * 3'000);
    setShares(record, dice);
    record.shortSellingFlag = dice.oneIn(3) ? 1 : 0;
    record.suspendedFlag = dice.oneIn(60) ? 1 : 0;
    return record;
}

struct ConnectMarket {
    Segment segment;
    const char* market;
    std::size_t stocks[4];  ///< of each ten stocks, those that are listed here
};
// Two of ten stocks are listed in both connect markets, two in either one. The sixth stock of ten arrives through the
// connect alone.
constexpr ConnectMarket kConnectMarkets[] = {{Segment::Hgt, "HGT", {0, 1, 5, 6}}, {Segment::Sgt, "SGT", {1, 2, 6, 7}}};
constexpr std::size_t kConnectOnly = 5;

void writeConnect(const MarketDay& day, const ConnectMarket& connect, RecordFile& file) {
    for (std::size_t i = 0; i < day.count(connect.segment); ++i) {
        const std::size_t index = i / 4 * 10 + connect.stocks[i % 4];
        Dice dice = day.seed("connect").child(connect.market).dice(i);
        CInstrumentDetail record = hongKongStock(day, connect.market, index);
        // 1: may be bought, 2: may be sold only, 3: both bits, as the exchange sends them
        record.connectFlagValue = dice.oneIn(8) ? 2 : dice.oneIn(3) ? 1 : 3;
        file.write(record);
    }
}

void setUsTerms(const MarketDay& day, CInstrumentDetail& record, std::size_t index, Dice& dice) {
    record.currency = "USD";
    record.isin = isin("US", record.market == "NYSE" ? "1" : "2", padded(index, 8));
    record.listingDate = day.after(-dice.between(30, 14'000));
    setPrices(record, {1, 2}, dice.oneIn(10) ? dice.between(20'000, 90'000) : dice.between(90, 20'000), 0);
    setOrderSizes(record, 1, 1'000'000);
    setShares(record, dice);
    record.shortSellingFlag = dice.oneIn(4) ? 0 : 1;
}

/// Every ninth record is a further class or series of the stock before it: "ABC.B", "ABC^A", written otherwise on the
/// platform.
void writeUsMarket(const MarketDay& day, Segment segment, std::string_view market, std::size_t shortCodes,
                   std::size_t shortLength, RecordFile& file) {
    const Seed seed = day.seed(market);
    for (std::size_t i = 0; i < day.count(segment); ++i) {
        const bool isSeries = i % 9 == 8;
        const std::size_t stock = isSeries ? i - 1 : i;
        const bool isShort = stock < shortCodes;
        const std::string ticker =
            tickerLetters(isShort ? stock : stock - shortCodes, isShort ? shortLength : shortLength + 1, seed.value());
        const bool isPreferred = i % 2 == 0;
        Dice name = seed.child("name").dice(stock);
        Dice dice = seed.dice(i);
        CInstrumentDetail record = startRecord(day, market, !isSeries ? ticker : ticker + (isPreferred ? "^A" : ".B"));
        record.platformCode = !isSeries ? ticker : ticker + (isPreferred ? "pA" : "/B");
        record.name = inventUsCompany(name);
        record.name += !isSeries     ? " Common Stock"
                       : isPreferred ? " Preferred Stock Series A"
                                     : " Class B Common Stock";
        record.englishName = record.name;
        setUsTerms(day, record, i, dice);
        file.write(record);
    }
}

}  // namespace

void writeHongKong(const MarketDay& day, RecordFile& file) {
    for (std::size_t i = 0; i < day.count(Segment::Hk); ++i) {
        const std::size_t place = i % 9;
        file.write(hongKongStock(day, "HK", i / 9 * 10 + (place < kConnectOnly ? place : place + 1)));
    }
    for (const ConnectMarket& connect : kConnectMarkets) {
        writeConnect(day, connect, file);
    }
}

void writeUsStocks(const MarketDay& day, RecordFile& file) {
    writeUsMarket(day, Segment::Nyse, "NYSE", 12'000, 3, file);
    writeUsMarket(day, Segment::Nasdaq, "NASDAQ", 300'000, 4, file);
}

}  // namespace inscenter::generate
