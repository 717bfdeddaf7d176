// What is listed for cash: indexes, shares, funds, bonds, issues of the day, stocks of Hong Kong and the United States.

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/marketday/Day.h"
#include "tools/marketday/Names.h"

namespace marketday {
namespace {

using mxservice::CInstrumentDetail;

bool isGiven(const Row& row) {
    return std::string_view(row.codes).find_first_of("#@") == std::string_view::npos;
}

void setName(CInstrumentDetail& record, Name name) {
    record.name = std::move(name.text);
    record.spellName = std::move(name.spell);
    record.englishName = std::move(name.english);
}

/// A name from the row's table, and its letters and digits for typing ahead.
Name givenName(const Row& row, std::size_t index) {
    const std::string text(wordOf(row.text, index));
    std::string letters;
    std::copy_if(text.begin(), text.end(), std::back_inserter(letters),
                 [](unsigned char byte) { return byte < 0x80 && byte != '-'; });
    return {text, letters, letters};
}

/// A record of the row with prices and order sizes by its terms.
Record tradedRecord(const Day& day, const Row& row, std::string code, Dice& dice) {
    const Terms& terms = row.terms;
    Record record = startRecord(day, row.market, std::move(code));
    // Few shares are dear; all else lies about where its kind does.
    const std::int64_t close = row.kind == Kind::Share || row.kind == Kind::UnitedStates
                                   ? dice.mostlyLow(terms.low, terms.high)
                                   : dice.between(terms.low, terms.high);
    // Rounded to the nearest step, as exchanges round their limits.
    setPrices(*record, terms.tick, close, (close * terms.limitPerMille + 500) / 1'000);
    if (terms.lot > 0) {
        setOrderSizes(*record, terms.lot, terms.mostOrdered);
    }
    return record;
}

/// Shares in issue, and the part of them that trades.
void setShares(CInstrumentDetail& record, Dice& dice) {
    record.totalShares = dice.between(5'000, 900'000) * 10'000;
    record.floatShares = record.totalShares / 100 * dice.between(25, 100);
    record.preVolume = record.floatShares / 10'000 * dice.between(1, 900) / 100 * 100;
}

void setIndex(const Day& day, const Row& /*row*/, CInstrumentDetail& record, std::size_t /*index*/, Dice& dice) {
    setName(record, inventFund(dice, "指数"));
    record.productId = "IDX";
    record.listingDate = day.after(-dice.between(100, 8'000));
    record.preVolume = dice.between(1, 90'000) * 100'000;
}

/// The company's name as an exchange shows it: some with a mark in front or behind, and in the full width of letters.
Name displayName(const Company& company, Dice& dice) {
    constexpr const char* kMarks[] = {"ST", "*ST"};
    const std::string& brand = company.brand.text;
    Name name = company.full;
    const auto form = dice.between<std::size_t>(0, 39);
    if (form < 2) {
        name.text = kMarks[form] + brand;
    } else if (form == 2) {  // names of three characters are spread to the width of four
        name.text = brand.substr(0, 3) + " " + brand.substr(3) + " 堂";
    } else if (form == 3) {
        name.text = brand + "Ａ";
    }
    return name;
}

/// The company whose share has that code. It has dice of its own, so that a convertible bond finds the issuer's name
/// without the marks that the share's name may bear.
Company companyOf(const Day& day, const std::string& code) {
    Dice dice = day.dice(code, 0);
    return inventCompany(dice);
}

void setShare(const Day& day, const Row& row, CInstrumentDetail& record, std::size_t index, Dice& dice) {
    const Company company = companyOf(day, record.code);
    setName(record, displayName(company, dice));
    record.industry = company.industry;
    record.isin = isin("CN", row.text, record.code);
    record.listingDate = day.after(-dice.between(40, 11'000));
    record.suspendedFlag = dice.oneIn(150) ? 1 : 0;
    record.securityClass = 1;
    record.faceValue = 1;
    setShares(record, dice);
    if (record.market == "NEEQ") {
        // 1 and 2 are the layers of the board, 5 is an inquiry for a public issue.
        record.securityClass = index % 10 == 4 ? 5 : dice.between<int>(1, 2);
        record.issuePrice = record.securityClass == 5 ? record.preClosePrice : 0;
        return;
    }
    // Under special treatment a share moves 5 per cent and is not lent.
    if (record.name.find("ST") != std::string::npos) {
        const auto close = std::llround(record.preClosePrice * 100);
        setPrices(record, row.terms.tick, close, (close * 50 + 500) / 1'000);
    } else {
        record.marginTradingFlag = dice.oneIn(4) ? 0 : 1;
    }
    record.shortSellingFlag = record.market == "BJ" ? 0 : record.marginTradingFlag;
    record.orderVolumeStep = row.terms.lot == 200 || record.market == "BJ" ? 1 : 100;
    // In Shenzhen the position of index 7 is '0' or '1' for depositary receipts only.
    record.statusString = record.market == "SH"   ? "E111NN0NN"
                          : record.market == "BJ" ? ""
                          : dice.oneIn(3)         ? "E110YN0N00"
                                                  : "E110NN0N00";
}

void setFund(const Day& day, const Row& row, CInstrumentDetail& record, std::size_t index, Dice& dice) {
    setName(record, isGiven(row) ? givenName(row, index) : inventFund(dice, row.text));
    record.isin = isin("CN", record.market == "SH" ? "E10" : "E00", record.code);
    record.productId = 'F';
    record.listingDate = day.after(-dice.between(60, 5'000));
    setShares(record, dice);
    record.marginTradingFlag = dice.oneIn(3) ? 1 : 0;
    record.shortSellingFlag = record.marginTradingFlag;
    record.faceValue = 1;
    record.securityClass = 2;
}

void setBond(const Day& day, const Row& row, CInstrumentDetail& record, std::size_t index, Dice& dice) {
    const std::int64_t age = dice.between(30, 3'000);
    const std::int64_t coupon = dice.between(150, 560);
    record.listingDate = day.after(-age);
    record.expireDate = day.after(dice.between(60, 7'000));
    const int year = static_cast<int>(std::chrono::year_month_day(day.date - std::chrono::days(age)).year());
    setName(record, inventBond(dice, year));
    record.productId = 'B';
    record.isin = isin("CN", record.market == "SZ" ? "D00" : "D10", record.code);
    record.faceValue = 100;
    record.issuePrice = 100;
    record.couponRate = decimal(coupon, 4);
    record.accruedInterest = decimal(coupon * (age % 365) * 1'000 / 365, 5);
    record.totalShares = dice.between(50, 6'000) * 10'000;
    record.floatShares = record.totalShares;
    record.securityClass = 3;
    const std::size_t stocks = day.count(row.market, Kind::Share);
    if (row.kind == Kind::Treasury) {
        const auto number = dice.between<int>(1, 30);
        setName(record,
                {fmt::format("{}国债{:02}", year % 100, number), fmt::format("{}GZ{:02}", year % 100, number), ""});
    } else if (row.kind == Kind::Convertible && stocks > 0) {
        const Record stock = listed(day, row.market, Kind::Share, index % stocks);
        const Name brand = companyOf(day, stock->code).brand;
        setName(record, {brand.text + "转债", brand.spell + "ZZ", brand.english + " Convertible"});
        record.industry = stock->industry;
        record.underlyingMarket = stock->market;
        record.underlyingCode = stock->code;
    }
}

void setNote(const Day& day, const Row& /*row*/, CInstrumentDetail& record, std::size_t /*index*/, Dice& dice) {
    const Name brand = inventCompany(dice).brand;
    const auto number = dice.between<int>(1, 300);
    setName(record, {fmt::format("{}收益凭证{}号", brand.text, number), fmt::format("{}SYPZ{}", brand.spell, number),
                     brand.english + " Note"});
    record.listingDate = day.after(-dice.between(1, 700));
    record.expireDate = day.after(dice.between(20, 900));
    record.faceValue = 1;
    record.issuePrice = 1;
    record.couponRate = decimal(dice.between(150, 420), 4);
}

void setRepo(const Day& day, const Row& row, CInstrumentDetail& record, std::size_t index, Dice& /*dice*/) {
    setName(record, givenName(row, index));
    record.productId = 'R';
    record.faceValue = 100;
    // The last three digits of the name are the days that it runs for.
    record.expireDate = day.after(std::stoi(record.name.substr(record.name.size() - 3)));
    record.securityClass = 4;
}

// Hong Kong

/// The spread table of the Hong Kong exchange up to 500 dollars, in thousandths: the step below a price.
struct Spread {
    std::int64_t below;
    std::int32_t step;
};
constexpr Spread kSpreads[] = {{250, 1},      {500, 5},       {10'000, 10},  {20'000, 20},
                               {100'000, 50}, {200'000, 100}, {500'000, 200}};
constexpr std::int32_t kBoardLots[] = {100, 200, 400, 500, 1'000, 2'000, 2'500, 4'000, 5'000, 10'000};

/// The number of a market's stock among all of Hong Kong. Of ten stocks, two are listed in both connect markets, two in
/// either one, and the sixth of them arrives through the connect alone.
std::size_t hongKongNumber(std::string_view market, std::size_t index) {
    constexpr std::size_t kShanghai[] = {0, 1, 5, 6};
    constexpr std::size_t kShenzhen[] = {1, 2, 6, 7};
    constexpr std::size_t kPlain[] = {0, 1, 2, 3, 4, 6, 7, 8, 9};
    return market == "HGT"   ? index / 4 * 10 + kShanghai[index % 4]
           : market == "SGT" ? index / 4 * 10 + kShenzhen[index % 4]
                             : index / 9 * 10 + kPlain[index % 9];
}

/// The same stock in each of the markets but for the market and its connect flag.
Record hongKongStock(const Day& day, const Row& row, std::size_t index) {
    const std::size_t number = hongKongNumber(row.market, index);
    Dice dice = day.dice(row.codes, number);
    Record record = startRecord(day, row.market, day.code(row.codes, number));
    const Company company = inventCompany(dice);
    setName(*record, company.full);
    record->industry = company.industry;
    record->currency = "HKD";
    record->isin = isin("HK", "0000", record->code);
    record->listingDate = day.after(-dice.between(60, 12'000));
    const std::int64_t close = dice.between(20, dice.pick(kSpreads).below - 1);
    const auto* const spread =
        std::find_if(std::begin(kSpreads), std::end(kSpreads), [&](const Spread& s) { return close < s.below; });
    setPrices(*record, {spread->step, 3}, close / spread->step, 0);
    const std::int32_t lot = dice.pick(kBoardLots);
    setOrderSizes(*record, lot, lot * 3'000);
    setShares(*record, dice);
    record->shortSellingFlag = dice.oneIn(3) ? 1 : 0;
    record->suspendedFlag = dice.oneIn(60) ? 1 : 0;
    // 1: may be bought, 2: may be sold only, 3: both bits, as the exchange sends them.
    Dice connect = day.dice(row.market, number);
    record->connectFlagValue = record->market == "HK" ? 0 : connect.oneIn(8) ? 2 : connect.oneIn(3) ? 1 : 3;
    return record;
}

/// Every ninth record is a further class or series of the stock before it: "ABC.B", "ABC^A", written otherwise on the
/// platform.
Record unitedStatesStock(const Day& day, const Row& row, std::size_t index) {
    const bool isSeries = index % 9 == 8;
    const bool isPreferred = isSeries && index % 2 == 0;
    const std::string ticker = day.code(row.codes, isSeries ? index - 1 : index);
    // Dice of its own, thrown alike for all its classes: they bear one company's name.
    Dice company = day.dice(row.market, isSeries ? index - 1 : index);
    Dice dice = day.dice(row.codes, index);
    Record record = tradedRecord(day, row, ticker + (isPreferred ? "^A" : isSeries ? ".B" : ""), dice);
    record->platformCode = ticker + (isPreferred ? "pA" : isSeries ? "/B" : "");
    record->name = inventUsCompany(company) + (isPreferred ? " Preferred Stock Series A"
                                               : isSeries  ? " Class B Common Stock"
                                                           : " Common Stock");
    record->englishName = record->name;
    record->currency = "USD";
    record->isin = isin("US", row.text, fmt::format("{:08}", index));
    record->listingDate = day.after(-dice.between(30, 14'000));
    setShares(*record, dice);
    record->shortSellingFlag = dice.oneIn(4) ? 0 : 1;
    return record;
}

// New issues of the trading day, under the codes that docs/market-rules.md lists, and depositary receipts.

enum class Issue : std::uint8_t { Share, FirstDay, Convertible, Bond, Additional, Receipt, ReceiptNumber };

/// Issues of one kind. The platform shows them under the company's name with an ending.
struct IssueKind {
    const char* market;
    Issue issue;
    const char* ending;
    const char* spell;
    const char* codes;  ///< patterns of what is issued, and the digits that stand in front instead: "600###>730"
};
constexpr IssueKind kIssues[] = {
    {"SH", Issue::Share, "申购", "SG", "600###>730 601###>780 603###>732 605###>707 688###>787 689###>795"},
    {"SH", Issue::Convertible, "发债", "FZ", "600###>733 601###>783 603###>754 605###>713 688###>718"},
    {"SH", Issue::Additional, "增发", "ZF", "600###>730 603###>732"},
    {"SH", Issue::Receipt, "ＣＤＲ", "CDR", "689###>689"},
    {"SH", Issue::ReceiptNumber, "配号", "PH", "689###>796 689###>7869"},
    {"SH", Issue::Bond, "分销", "FX", "7510##>751 7519##>751"},
    {"SZ", Issue::Share, "申购", "SG", "0013##>001 002###>002 003###>003 300###>300 301###>301"},
    {"SZ", Issue::FirstDay, "", "N", "302###>302"},
    {"SZ", Issue::Convertible, "发债", "FZ", "000###>07 002###>07 300###>37 301###>37"},
    {"SZ", Issue::Additional, "增发", "ZF", "002###>07 300###>37"},
    {"SZ", Issue::Receipt, "ＣＤＲ", "CDR", "0010##>001 0011##>001"},
    {"BJ", Issue::Share, "申购", "SG", "920###>920"},
};

Record issueRecord(const Day& day, const Row& row, std::size_t index) {
    // The patterns of all kinds take turns.
    std::vector<std::pair<const IssueKind*, std::string_view>> all;
    for (const IssueKind& known : kIssues) {
        for (std::size_t i = 0; known.market == std::string_view(row.market) && i < wordCount(known.codes); ++i) {
            all.emplace_back(&known, wordOf(known.codes, i));
        }
    }
    const std::size_t round = index / all.size();
    const std::string_view pattern = all[index % all.size()].second;
    const IssueKind& kind = *all[index % all.size()].first;
    const Issue issue = kind.issue;
    // A new share must not be listed yet; one with a convertible bond or an additional issue must be, and does not have
    // both at the same time.
    const bool isUnlisted = issue == Issue::Share || issue == Issue::FirstDay;
    const std::size_t end = pattern.find('>');
    std::string code = day.code(pattern.substr(0, end), round * 2 + (issue == Issue::Additional ? 1 : 0), isUnlisted);
    code.replace(0, pattern.size() - end - 1, pattern.substr(end + 1));

    Dice dice = day.dice(row.codes, index);
    Record record = tradedRecord(day, row, std::move(code), dice);
    const bool isDebt = issue == Issue::Convertible || issue == Issue::Bond;
    const bool isReceipt = issue == Issue::Receipt;
    const Company company = inventCompany(dice);
    setName(*record, {(issue == Issue::FirstDay ? "N" : "") + company.brand.text + kind.ending,
                      company.brand.spell + kind.spell, company.full.english});
    record->industry = company.industry;
    record->listingDate = isReceipt ? day.after(-dice.between(200, 1'500)) : day.today;
    record->preClosePrice = isDebt ? 100 : record->preClosePrice;
    record->issuePrice = record->preClosePrice;
    record->faceValue = isDebt ? 100 : 1;
    record->additionalIssueFlag = issue == Issue::Additional ? 1 : 0;
    record->securityClass = record->market == "BJ" ? 5 : 0;
    setShares(*record, dice);
    if (record->market == "SH" && isDebt) {
        setOrderSizes(*record, 10, row.terms.mostOrdered);
    }
    if (record->market == "SZ") {
        record->issueState = issue == Issue::FirstDay || isReceipt ? 0 : -1;
        record->statusString = !isReceipt ? "E110NN0N" : record->code[3] == '0' ? "E110NN01" : "E110NN00";
    }
    return record;
}

}  // namespace

Record listed(const Day& day, const Row& row, std::size_t index) {
    if (row.kind >= Kind::HongKong) {
        static constexpr Record (*kMake[])(const Day&, const Row&, std::size_t) = {hongKongStock, unitedStatesStock,
                                                                                   issueRecord};
        return kMake[static_cast<std::size_t>(row.kind) - static_cast<std::size_t>(Kind::HongKong)](day, row, index);
    }
    // Every fourth bond of the fixed income platform stands under "SH" as well: both centers file the two as one.
    if (row.market == std::string_view("SHFI") && index % 4 == 1 && index / 4 < day.count("SH", Kind::Bond)) {
        Record twin = listed(day, "SH", Kind::Bond, index / 4);
        twin->market = row.market;
        return twin;
    }
    static constexpr void (*kSet[])(const Day&, const Row&, CInstrumentDetail&, std::size_t, Dice&) = {
        setIndex, setShare, setFund, setBond, setBond, setBond, setRepo, setNote};
    Dice dice = day.dice(row.codes, index);
    Record record = tradedRecord(day, row, day.code(row.codes, index), dice);
    kSet[static_cast<std::size_t>(row.kind)](day, row, *record, index, dice);
    return record;
}

Record listed(const Day& day, std::string_view market, Kind kind, std::size_t index) {
    const Row* last = nullptr;
    for (const Row& row : kRows) {
        if (row.market == market && row.kind == kind) {
            if (index < day.count(row)) {
                return listed(day, row, index);
            }
            index -= day.count(row);
            last = &row;
        }
    }
    return listed(day, *last, 0);  // in a day too small to have any
}

}  // namespace marketday
