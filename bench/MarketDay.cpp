#include "MarketDay.h"

#include <boost/pointer_cast.hpp>

#include <cstring>
#include <unordered_set>

#include "tools/marketday/MarketDay.h"

namespace bench {
namespace {

constexpr std::uint64_t kSeed = 20260105;
constexpr const char* kDate = "20260105";

}  // namespace

const std::vector<std::string> kLoadedMarkets{"SH",   "SZ",   "BJ",    "HK",   "HGT",    "SGT",  "NEEQ",
                                              "SHO",  "SZO",  "CFFEX", "SHFE", "DCE",    "CZCE", "INE",
                                              "GFEX", "SHGE", "WP",    "NYSE", "NASDAQ", "SOTC"};

Records makeMarketDay(std::size_t count) {
    Records records;
    records.reserve(count);
    std::unordered_set<std::string> filed;
    const marketday::MarketDay day(count, kSeed, kDate);
    day.visit("instruments", [&](const boost::shared_ptr<mxservice::IData>& data) {
        const auto record = boost::static_pointer_cast<mxservice::CInstrumentDetail>(data);
        if (record->market == "SHFI") {
            record->market = "SH";  // where the centers file it
        }
        // The other listings of a stock or bond become one of their own, with one more letter each.
        const bool mayHaveTwin = record->market == "SH" || filedMarket(*record) == kListedMarket;
        while (mayHaveTwin && !filed.insert(filedKeyText(*record)).second) {
            record->code += 'T';
        }
        records.push_back(record);
    });
    return records;
}

std::vector<boost::shared_ptr<mxservice::CETFDetail>> makeEtfs() {
    constexpr std::size_t kDay = 60000;
    std::vector<boost::shared_ptr<mxservice::CETFDetail>> etfs;
    marketday::MarketDay(kDay, kSeed, kDate).visit("etfs", [&](const boost::shared_ptr<mxservice::IData>& data) {
        etfs.push_back(boost::static_pointer_cast<mxservice::CETFDetail>(data));
    });
    return etfs;
}

const std::string& filedMarket(const mxservice::CInstrumentDetail& record) {
    static const std::string listed = kListedMarket;
    return record.market == "HGT" || record.market == "SGT" ? listed : record.market;
}

std::string filedKeyText(const mxservice::CInstrumentDetail& record) {
    return filedMarket(record) + record.code;
}

std::string connectKeyText(const std::string& filed, bool shanghai) {
    return (shanghai ? "HGT" : "SGT") + filed.substr(std::strlen(kListedMarket));
}

}  // namespace bench
