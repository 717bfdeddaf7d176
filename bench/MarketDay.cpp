#include "MarketDay.h"

#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <array>
#include <cstring>

namespace bench {
namespace {

using mxservice::CInstrumentDetail;

constexpr std::size_t kMonths = 12;
/// The first contracts of a futures market, one for each of a few products.
constexpr std::size_t kMainContracts = 5;

std::string digits(std::size_t first, std::size_t i, std::size_t width) {
    std::size_t range = 1;
    for (std::size_t digit = 0; digit < width; ++digit) {
        range *= 10;
    }
    return fmt::format("{:0{}}", (first + i) % range, width);
}

std::string letters(std::size_t i) {
    std::string text;
    for (std::size_t rest = i + 26; rest > 0; rest /= 26) {
        text.insert(text.begin(), static_cast<char>('A' + rest % 26));
    }
    return text;
}

/// The i-th contract of an exchange: first the futures of every product and month, then calls and puts strike by
/// strike.
struct Contract {
    Contract(const char* const* products, std::size_t productCount, std::size_t i)
        : product(products[i % productCount]) {
        const std::size_t series = i / productCount;
        month = series % kMonths + 1;
        const std::size_t place = series / kMonths;
        option = place > 0;
        call = place % 2 == 1;
        strike = option ? 2000 + (place - 1) / 2 * 50 : 0;
    }

    const char* product;
    std::size_t month;
    bool option;
    bool call;
    std::size_t strike;
};

template <std::size_t N>
std::string contractCode(const std::array<const char*, N>& products, std::size_t i, const char* year,
                         const char* separator) {
    const Contract contract(products.data(), N, i);
    const std::string future = fmt::format("{}{}{:02}", contract.product, year, contract.month);
    return contract.option
               ? fmt::format("{}{}{}{}{}", future, separator, contract.call ? 'C' : 'P', separator, contract.strike)
               : future;
}

std::string cffexCode(std::size_t i) {
    return contractCode(std::array{"IO", "MO", "HO", "IF", "T"}, i, "26", "-");
}
std::string shfeCode(std::size_t i) {
    return contractCode(std::array{"cu", "al", "zn", "au", "ag", "rb", "ru", "br"}, i, "26", "");
}
std::string dceCode(std::size_t i) {
    return contractCode(std::array{"m", "c", "i", "y", "p", "jd", "pg", "eb"}, i, "26", "-");
}
std::string czceCode(std::size_t i) {
    return contractCode(std::array{"SR", "CF", "TA", "MA", "RM", "OI", "SA", "PF"}, i, "6", "");
}
std::string ineCode(std::size_t i) {
    return contractCode(std::array{"sc", "bc", "nr"}, i, "26", "");
}
std::string gfexCode(std::size_t i) {
    return contractCode(std::array{"si", "lc"}, i, "26", "-");
}

struct Market {
    const char* name;
    std::size_t perMille;  // share of the day
    std::string (*code)(std::size_t i);
};

/// Half of the day are listed options, as on a real one.
constexpr std::array<Market, 18> kMarkets{{
    {"SH", 170, [](std::size_t i) { return digits(600000, i, 6); }},
    {"SZ", 170, [](std::size_t i) { return digits(1, i, 6); }},
    {"BJ", 10, [](std::size_t i) { return digits(920000, i, 6); }},
    {"NEEQ", 30, [](std::size_t i) { return digits(430000, i, 6); }},
    {"HK", 15, [](std::size_t i) { return digits(1, i, 5); }},
    {"HGT", 8, [](std::size_t i) { return digits(50000, i, 5); }},
    {"SGT", 7, [](std::size_t i) { return digits(75000, i, 5); }},
    {"SHO", 140, [](std::size_t i) { return digits(10000001, i, 8); }},
    {"SZO", 120, [](std::size_t i) { return digits(90000001, i, 8); }},
    {"CFFEX", 50, cffexCode},
    {"SHFE", 70, shfeCode},
    {"DCE", 80, dceCode},
    {"CZCE", 80, czceCode},
    {"INE", 10, ineCode},
    {"GFEX", 10, gfexCode},
    {"BANK", 10, [](std::size_t i) { return digits(1, i, 6); }},
    {"NYSE", 10, letters},
    {"NASDAQ", 10, letters},
}};

void fillTexts(CInstrumentDetail& record, std::size_t i) {
    record.name = "证券简称" + record.code;
    record.platformCode = record.code;
    record.englishName = "INSTRUMENT " + record.code + " CO., LTD.";
    record.spellName = "ZQJC";
    record.isin = fmt::format("CNE{:09}", i);
    record.currency = "CNY";
    record.industry = "C39 计算机、通信和其他电子设备制造业";
    record.statusString = "T1110";
    record.listingDate = "20150105";
    record.expireDate = "20261231";
    record.tradingDay = "20260105";
    const bool stockOption = record.market == "SHO" || record.market == "SZO";
    record.productId = stockOption ? "50ETF(510050)" : record.code.substr(0, 2);
    record.productName = "品种" + record.productId;
    record.underlyingMarket = stockOption ? "SH" : record.market;
    record.underlyingCode = stockOption ? "510050" : record.code;
}

void fillNumbers(CInstrumentDetail& record, std::size_t i) {
    record.mainContractFlag = i < kMainContracts ? 1 : 0;
    record.lotSize = 100;
    record.volumeMultiple = 1;
    record.maxLimitOrderVolume = 1000000;
    record.priceTick = 0.01;
    record.preClosePrice = 10 + static_cast<double>(i % 1000) / 100;
    record.upperLimitPrice = record.preClosePrice * 1.1;
    record.lowerLimitPrice = record.preClosePrice * 0.9;
    record.totalShares = static_cast<std::int64_t>(1000000 + i);
}

InstrumentPtr makeRecord(const Market& market, std::size_t i) {
    const auto record = boost::make_shared<CInstrumentDetail>();
    record->market = market.name;
    record->code = market.code(i);
    fillTexts(*record, i);
    fillNumbers(*record, i);
    return record;
}

std::vector<std::string> marketNames() {
    std::vector<std::string> names;
    for (const Market& market : kMarkets) {
        names.emplace_back(market.name);
    }
    return names;
}

}  // namespace

const std::vector<std::string> kLoadedMarkets = marketNames();

Records makeMarketDay(std::size_t count) {
    Records records;
    records.reserve(count);
    for (const Market& market : kMarkets) {
        const bool last = &market == &kMarkets.back();
        const std::size_t share = last ? count - records.size() : count * market.perMille / 1000;
        for (std::size_t i = 0; i < share; ++i) {
            records.push_back(makeRecord(market, i));
        }
    }
    return records;
}

std::string filedKeyText(const CInstrumentDetail& record) {
    const bool connect = record.market == "HGT" || record.market == "SGT";
    return (connect ? kListedMarket : record.market) + record.code;
}

std::string connectKeyText(const std::string& filed, bool shanghai) {
    return (shanghai ? "HGT" : "SGT") + filed.substr(std::strlen(kListedMarket));
}

}  // namespace bench
