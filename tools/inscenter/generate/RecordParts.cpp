#include "tools/inscenter/generate/RecordParts.h"

#include <algorithm>

#include "tools/inscenter/generate/CodeSeries.h"

namespace inscenter::generate {
namespace {

/// So many thousandths of the value, rounded to the nearest.
std::int64_t perMille(std::int64_t value, int share) {
    return (value * share + 500) / 1000;
}

}  // namespace

double decimal(std::int64_t units, int decimals) {
    static constexpr double kPowers[] = {1, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8};
    return static_cast<double>(units) / kPowers[decimals];
}

mxservice::CInstrumentDetail startRecord(const MarketDay& day, std::string_view market, std::string code) {
    mxservice::CInstrumentDetail record;
    record.market = market;
    record.platformCode = code;
    record.code = std::move(code);
    record.currency = "CNY";
    record.tradingDay = day.today();
    record.tradingStatus = 1;
    return record;
}

void setName(mxservice::CInstrumentDetail& record, const Name& name) {
    record.name = name.text;
    record.spellName = name.spell;
    record.englishName = name.english;
}

void setPriceBand(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t ticks, std::int64_t bandTicks) {
    record.priceTick = tick.price(1);
    record.pricePrecision = tick.decimals;
    record.preClosePrice = tick.price(ticks);
    if (bandTicks > 0) {
        record.upperLimitPrice = tick.price(ticks + bandTicks);
        record.lowerLimitPrice = tick.price(std::max<std::int64_t>(ticks - bandTicks, 1));
    }
}

void setPrices(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t preCloseTicks, int limitPerMille) {
    setPriceBand(record, tick, preCloseTicks, perMille(preCloseTicks, limitPerMille));
}

void setOrderSizes(mxservice::CInstrumentDetail& record, std::int32_t lot, std::int32_t most) {
    record.lotSize = lot;
    record.minLimitOrderVolume = lot;
    record.maxLimitOrderVolume = most;
    record.minMarketOrderVolume = lot;
    record.maxMarketOrderVolume = most / 2 / lot * lot;
    record.orderVolumeStep = lot;
}

void setShares(mxservice::CInstrumentDetail& record, Dice& dice) {
    record.totalShares = dice.between(5'000, 900'000) * 10'000;
    record.floatShares = record.totalShares / 100 * dice.between(25, 100);
    record.preVolume = record.floatShares / 10'000 * dice.between(1, 900) / 100 * 100;
}

Company stockCompany(const MarketDay& day, std::string_view market, std::size_t index) {
    Dice dice = day.seed("company").child(market).dice(index);
    Company company = inventCompany(dice);
    const std::string& brand = company.brand.text;
    const std::size_t half = brand.size() / 2;
    switch (dice.small(0, 39)) {
        case 0:
            company.full.text = "ST" + brand;
            break;
        case 1:
            company.full.text = "*ST" + brand;
            break;
        case 2:  // names of three characters are spread to the width of four
            company.full.text = brand.substr(0, half) + " " + brand.substr(half) + " 堂";
            company.full.spell = company.brand.spell + "T";
            break;
        case 3:
            company.full.text = brand + "Ａ";
            company.full.spell = company.brand.spell + "A";
            break;
        default:
            break;
    }
    return company;
}

Listing shanghaiStock(const MarketDay& day, std::size_t index) {
    static const CodeSeries kSeries{"600###", "603###", "688###", "601###", "605###", "600###", "603###",
                                    "688###", "600###", "603###", "600###", "603###", "688###", "600###",
                                    "601###", "603###", "600###", "688###", "603###", "600###"};
    return {kSeries.at(index, day.salt()), stockCompany(day, "SH", index).full};
}

Listing shenzhenStock(const MarketDay& day, std::size_t index) {
    static const CodeSeries kSeries{"000###", "300###", "002###", "301###", "0013##", "003###", "0012##", "002###",
                                    "300###", "000###", "002###", "300###", "301###", "002###", "300###", "000###",
                                    "002###", "300###", "301###", "002###", "300###", "000###", "002###", "300###",
                                    "301###", "002###", "300###", "000###", "002###", "300###", "301###", "002###",
                                    "300###", "000###", "002###", "300###", "301###", "002###", "300###", "002###"};
    return {kSeries.at(index, day.salt()), stockCompany(day, "SZ", index).full};
}

Listing shanghaiFund(const MarketDay& day, std::size_t index) {
    static const Listing kKnown[] = {{"510050", {"50ETF", "50ETF", "SSE 50 ETF"}},
                                     {"588000", {"科创50", "KC50", "STAR 50 ETF"}},
                                     {"510300", {"300ETF", "300ETF", "CSI 300 ETF"}},
                                     {"510500", {"500ETF", "500ETF", "CSI 500 ETF"}},
                                     {"588080", {"科创板50", "KCB50", "STAR Board 50 ETF"}}};
    // A fund's further codes, for creation and the like, follow on its own, which therefore ends in 0.
    static const CodeSeries kSeries{"512##0", "508###", "515##0", "501###", "513##0", "511##0", "516##0", "517##0",
                                    "518##0", "520##0", "530##0", "560##0", "561##0", "562##0", "563##0"};
    if (index < std::size(kKnown)) {
        return kKnown[index];
    }
    const std::string code = kSeries.at(index - std::size(kKnown), day.salt());
    Dice dice = day.seed("SH fund").dice(index);
    return {code, inventFund(dice, code[1] == '0' ? (code[2] == '1' ? "LOF" : "REIT") : "ETF")};
}

Listing shenzhenFund(const MarketDay& day, std::size_t index) {
    static const Listing kKnown[] = {{"159919", {"300ETF", "300ETF", "CSI 300 ETF"}},
                                     {"159915", {"创业板ETF", "CYBETF", "ChiNext ETF"}},
                                     {"159901", {"深100ETF", "S100ETF", "SZSE 100 ETF"}},
                                     {"159922", {"500ETF", "500ETF", "CSI 500 ETF"}}};
    static const CodeSeries kSeries{"1591##", "161###", "1592##", "1593##", "180###",
                                    "1595##", "1596##", "162###", "1597##", "1598##"};
    if (index < std::size(kKnown)) {
        return kKnown[index];
    }
    const std::string code = kSeries.at(index - std::size(kKnown), day.salt());
    Dice dice = day.seed("SZ fund").dice(index);
    return {code, inventFund(dice, code[1] == '5' ? "ETF" : (code[1] == '6' ? "LOF" : "REIT"))};
}

std::int64_t fundCloseTicks(const MarketDay& day, std::string_view market, std::size_t index) {
    // The first funds have options; theirs are never among the cheap ones.
    return day.seed("fund close").child(market).dice(index).between(index < 5 ? 1'800 : 500, 5'200);
}

std::string shanghaiBondCode(const MarketDay& day, std::size_t index) {
    static const CodeSeries kSeries{"10####", "12####", "13####", "14####", "15####", "16####", "17####", "18####"};
    return kSeries.at(index, day.salt());
}

std::string shenzhenBondCode(const MarketDay& day, std::size_t index) {
    static const CodeSeries kSeries{"10####", "11####", "14####", "19####"};
    return kSeries.at(index, day.salt());
}

Name bondName(const MarketDay& day, std::string_view market, std::size_t index) {
    Dice dice = day.seed("bond").child(market).dice(index);
    const std::string year = padded(static_cast<std::uint64_t>((day.month().year - dice.small(0, 9)) % 100), 2);
    const Name issuer = dice.oneIn(2) ? pickProvince(dice) : inventCompany(dice).brand;
    const std::string number = padded(static_cast<std::uint64_t>(dice.between(1, 48)), 2);
    return {year + issuer.text + number, year + issuer.spell + number, ""};
}

}  // namespace inscenter::generate
