#include "tools/inscenter/generate/FutureProducts.h"

#include <algorithm>

namespace inscenter::generate {
namespace {

// Product ids, units and price steps are the exchanges' own, from their contract specifications; prices are round
// numbers of the right size. Products with options come first, so that a small snapshot has their underlyings.
using enum Cycle;

constexpr FutureProduct kCffex[] = {
    {"IF", "沪深300股指", "HS300GZ", {2, 1}, 300, 12, 19000, Index, 0},
    {"IH", "上证50股指", "SZ50GZ", {2, 1}, 300, 12, 13500, Index, 0},
    {"T", "10年期国债", "10NQGZ", {5, 3}, 10000, 2, 21600, Quarterly, 0},
    {"IC", "中证500股指", "ZZ500GZ", {2, 1}, 200, 14, 29000, Index, 0},
    {"IM", "中证1000股指", "ZZ1000GZ", {2, 1}, 200, 15, 31000, Index, 0},
    {"TS", "2年期国债", "2NQGZ", {2, 3}, 20000, 1, 51200, Quarterly, 0},
    {"TF", "5年期国债", "5NQGZ", {5, 3}, 10000, 1, 21200, Quarterly, 0},
    {"TL", "30年期国债", "30NQGZ", {1, 2}, 10000, 4, 11500, Quarterly, 0},
};
constexpr FutureProduct kCffexOptions[] = {
    {"IO", "沪深300股指", "HS300GZ", {2, 1}, 100, 12, 19000, Index, 50},
    {"MO", "中证1000股指", "ZZ1000GZ", {2, 1}, 100, 15, 31000, Index, 100},
    {"HO", "上证50股指", "SZ50GZ", {2, 1}, 100, 12, 13500, Index, 50},
};
constexpr FutureProduct kShfe[] = {
    {"cu", "沪铜", "HT", {10, 0}, 5, 10, 7800, Monthly, 1000},
    {"au", "沪金", "HJ", {2, 2}, 1000, 12, 39000, Monthly, 8},
    {"rb", "螺纹钢", "LWG", {1, 0}, 10, 9, 3300, Monthly, 50},
    {"ru", "橡胶", "XJ", {5, 0}, 10, 10, 3000, Monthly, 250},
    {"al", "沪铝", "HL", {5, 0}, 5, 9, 4100, Monthly, 100},
    {"zn", "沪锌", "HX", {5, 0}, 5, 10, 4600, Monthly, 200},
    {"ag", "沪银", "HY", {1, 0}, 15, 13, 8200, Monthly, 100},
    {"pb", "沪铅", "HQ", {5, 0}, 5, 9, 3400, Monthly, 200},
    {"ni", "沪镍", "HN", {10, 0}, 1, 14, 12500, Monthly, 2000},
    {"sn", "沪锡", "HX", {10, 0}, 1, 14, 26000, Monthly, 5000},
    {"br", "丁二烯橡胶", "DEXXJ", {5, 0}, 5, 12, 2500, Monthly, 200},
    {"ao", "氧化铝", "YHL", {1, 0}, 20, 11, 2900, Monthly, 50},
    {"hc", "热轧卷板", "RZJB", {1, 0}, 10, 9, 3450, Monthly, 0},
    {"ss", "不锈钢", "BXG", {5, 0}, 5, 10, 2650, Monthly, 0},
    {"bu", "沥青", "LQ", {1, 0}, 10, 12, 3500, Monthly, 0},
    {"fu", "燃料油", "RLY", {1, 0}, 10, 14, 2950, Monthly, 0},
    {"sp", "纸浆", "ZJ", {2, 0}, 10, 9, 2800, Monthly, 0},
    {"wr", "线材", "XC", {1, 0}, 10, 12, 3600, Monthly, 0},
    {"ad", "铸造铝合金", "ZZLHJ", {5, 0}, 10, 9, 3950, Monthly, 0},
    {"op", "胶版印刷纸", "JBYSZ", {2, 0}, 40, 8, 2100, Monthly, 0},
};
constexpr FutureProduct kDce[] = {
    {"m", "豆粕", "DP", {1, 0}, 10, 8, 2900, OddMonths, 50},
    {"a", "豆一", "DY", {1, 0}, 10, 8, 4100, OddMonths, 50},
    {"y", "豆油", "DY", {2, 0}, 10, 8, 4000, OddMonths, 100},
    {"p", "棕榈油", "ZLY", {2, 0}, 10, 10, 4400, Monthly, 100},
    {"c", "玉米", "YM", {1, 0}, 10, 8, 2250, OddMonths, 20},
    {"i", "铁矿石", "TKS", {5, 1}, 100, 13, 1580, Monthly, 10},
    {"l", "聚乙烯", "JYX", {1, 0}, 5, 8, 7300, Monthly, 100},
    {"v", "聚氯乙烯", "JLYX", {1, 0}, 5, 8, 4900, Monthly, 100},
    {"pp", "聚丙烯", "JBX", {1, 0}, 5, 8, 7000, Monthly, 100},
    {"b", "豆二", "DE", {1, 0}, 10, 9, 3600, Monthly, 50},
    {"eg", "乙二醇", "YEC", {1, 0}, 10, 8, 4400, Monthly, 100},
    {"eb", "苯乙烯", "BYX", {1, 0}, 5, 8, 7400, Monthly, 100},
    {"pg", "液化石油气", "YHSYQ", {1, 0}, 20, 10, 4300, Monthly, 50},
    {"lh", "生猪", "SZ", {5, 0}, 16, 12, 2600, OddMonths, 200},
    {"jd", "鸡蛋", "JD", {1, 0}, 10, 9, 3300, Monthly, 50},
    {"cs", "玉米淀粉", "YMDF", {1, 0}, 10, 8, 2600, OddMonths, 50},
    {"jm", "焦煤", "JM", {5, 1}, 60, 15, 2300, Monthly, 0},
    {"j", "焦炭", "JT", {5, 1}, 100, 15, 3300, Monthly, 0},
    {"rr", "粳米", "JM", {1, 0}, 10, 7, 3400, Monthly, 0},
    {"lg", "原木", "YM", {5, 1}, 90, 9, 1600, OddMonths, 0},
    {"fb", "纤维板", "XWB", {5, 1}, 10, 10, 2500, Monthly, 0},
    {"bb", "胶合板", "JHB", {5, 2}, 500, 40, 3400, Monthly, 0},
};
constexpr FutureProduct kCzce[] = {
    {"MA", "甲醇", "JC", {1, 0}, 10, 9, 2500, Monthly, 25},
    {"SR", "白糖", "BT", {1, 0}, 10, 8, 5900, OddMonths, 100},
    {"CF", "棉花", "MH", {5, 0}, 5, 8, 2750, OddMonths, 200},
    {"TA", "PTA", "PTA", {2, 0}, 5, 8, 2400, Monthly, 50},
    {"RM", "菜粕", "CP", {1, 0}, 10, 10, 2500, OddMonths, 25},
    {"OI", "菜油", "CY", {1, 0}, 10, 10, 9300, OddMonths, 100},
    {"FG", "玻璃", "BL", {1, 0}, 20, 12, 1250, Monthly, 20},
    {"SA", "纯碱", "CJ", {1, 0}, 20, 12, 1450, Monthly, 20},
    {"UR", "尿素", "NS", {1, 0}, 20, 9, 1750, Monthly, 20},
    {"PK", "花生", "HS", {2, 0}, 5, 9, 4050, Monthly, 100},
    {"AP", "苹果", "PG", {1, 0}, 10, 12, 7600, Monthly, 100},
    {"CJ", "红枣", "HZ", {5, 0}, 5, 12, 1950, OddMonths, 100},
    {"PX", "对二甲苯", "DEJB", {2, 0}, 5, 10, 3400, Monthly, 100},
    {"SH", "烧碱", "SJ", {1, 0}, 30, 11, 2600, Monthly, 40},
    {"PF", "短纤", "DX", {2, 0}, 5, 9, 3250, Monthly, 100},
    {"SF", "硅铁", "GT", {2, 0}, 5, 12, 2900, Monthly, 100},
    {"SM", "锰硅", "MG", {2, 0}, 5, 12, 3000, Monthly, 100},
    {"PR", "瓶片", "PP", {2, 0}, 15, 9, 3000, Monthly, 100},
    {"CY", "棉纱", "MS", {5, 0}, 5, 9, 4000, Monthly, 0},
    {"ZC", "动力煤", "DLM", {2, 1}, 100, 50, 4000, Monthly, 0},
    {"RS", "菜籽", "CZ", {1, 0}, 10, 20, 5900, OddMonths, 0},
    {"WH", "强麦", "QM", {1, 0}, 20, 15, 2700, OddMonths, 0},
    {"JR", "粳稻", "JD", {1, 0}, 20, 15, 2900, OddMonths, 0},
    {"LR", "晚籼稻", "WXD", {1, 0}, 20, 15, 2800, OddMonths, 0},
};
constexpr FutureProduct kIne[] = {
    {"sc", "原油", "YY", {1, 1}, 1000, 15, 5000, Monthly, 10},
    {"nr", "20号胶", "20HJ", {5, 0}, 10, 10, 2500, Monthly, 100},
    {"lu", "低硫燃料油", "DLRLY", {1, 0}, 10, 14, 3600, Monthly, 0},
    {"bc", "国际铜", "GJT", {10, 0}, 5, 10, 6900, Monthly, 0},
    {"ec", "集运指数", "JYZS", {1, 1}, 50, 18, 18000, OddMonths, 0},
};
constexpr FutureProduct kGfex[] = {
    {"si", "工业硅", "GYG", {5, 0}, 5, 11, 1750, Monthly, 100},
    {"lc", "碳酸锂", "TSL", {20, 0}, 1, 13, 3700, Monthly, 1000},
    {"ps", "多晶硅", "DJG", {5, 0}, 3, 13, 7900, Monthly, 500},
    {"pt", "铂", "B", {5, 2}, 1000, 14, 9000, OddMonths, 0},
    {"pd", "钯", "B", {5, 2}, 1000, 14, 7400, OddMonths, 0},
};

constexpr FutureExchange kExchanges[] = {
    {"CFFEX", Segment::CffexFutures, Segment::CffexOptions, kCffex, kCffexOptions},
    {"SHFE", Segment::ShfeFutures, Segment::ShfeOptions, kShfe, {}},
    {"DCE", Segment::DceFutures, Segment::DceOptions, kDce, {}},
    {"CZCE", Segment::CzceFutures, Segment::CzceOptions, kCzce, {}},
    {"INE", Segment::IneFutures, Segment::IneOptions, kIne, {}},
    {"GFEX", Segment::GfexFutures, Segment::GfexOptions, kGfex, {}},
};

}  // namespace

std::span<const FutureExchange> futureExchanges() {
    return kExchanges;
}

std::span<const FutureProduct> FutureExchange::withOptions() const {
    if (!optionProducts.empty()) {
        return optionProducts;
    }
    const auto hasNone = [](const FutureProduct& product) { return product.strikeStep == 0; };
    const auto end = std::find_if(products.begin(), products.end(), hasNone);
    return products.first(static_cast<std::size_t>(end - products.begin()));
}

FutureListing::FutureListing(const MarketDay& day, const FutureExchange& exchange)
    : count_(day.count(exchange.futures)),
      products_(std::clamp<std::size_t>(count_ / 4, 1, exchange.products.size())) {}

std::size_t FutureListing::aliases(std::size_t product) const {
    const std::size_t all = records(product);
    return all >= 7 ? 3 : all >= 4 ? 1 : 0;
}

YearMonth deliveryMonth(const MarketDay& day, const FutureProduct& product, std::size_t contract) {
    const YearMonth first = day.month();
    const auto number = static_cast<int>(contract);
    const auto nextMultiple = [](const YearMonth& from, int of) { return from.plus((of - from.month % of) % of); };
    switch (product.cycle) {
        case Cycle::Monthly:
            return first.plus(1 + number);
        case Cycle::OddMonths:
            return first.plus(1 + first.month % 2 + 2 * number);
        case Cycle::Quarterly:
            return nextMultiple(first, 3).plus(3 * number);
        case Cycle::Index:
            // This month, the next one, and the quarters after them.
            return number < 2 ? first.plus(number) : nextMultiple(first.plus(2), 3).plus(3 * (number - 2));
    }
    return first;
}

std::string contractCode(std::string_view market, const FutureProduct& product, const YearMonth& delivery) {
    return product.id + delivery.yymm().substr(market == "CZCE" ? 1 : 0);
}

std::int64_t settlementTicks(const MarketDay& day, const FutureProduct& product, std::size_t contract) {
    Dice dice = day.seed("settlement").child(product.id).dice(contract);
    return product.price * dice.between(950, 1'050) / 1'000;
}

}  // namespace inscenter::generate
