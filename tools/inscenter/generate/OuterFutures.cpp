#include <algorithm>

#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

struct OuterMarket {
    const char* key;
    const char* name;
};
constexpr OuterMarket kCme{"CME", "芝加哥商业交易所"};
constexpr OuterMarket kCbot{"CBOT", "芝加哥期货交易所"};
constexpr OuterMarket kNymex{"NYMEX", "纽约商业交易所"};
constexpr OuterMarket kComex{"COMEX", "纽约商品交易所"};
constexpr OuterMarket kIce{"ICE", "洲际交易所"};
constexpr OuterMarket kLme{"LME", "伦敦金属交易所"};
constexpr OuterMarket kEurex{"EUREX", "欧洲期货交易所"};
constexpr OuterMarket kHkfe{"HKFE", "香港期货交易所"};
constexpr OuterMarket kSgx{"SGX", "新加坡交易所"};
constexpr OuterMarket kOse{"OSE", "大阪交易所"};

enum class Group : std::int32_t { None, Commodity, InterestRate, Index, Currency };

struct OuterProduct {
    const OuterMarket& market;
    const char* code;
    const char* name;
    const char* spell;
    const char* currency;
    Group group;
    Tick tick;
    std::int32_t multiple;
    std::int64_t price;  ///< about where it trades, in steps
};

// Commodities and interest rates come early, so that a small snapshot has both.
constexpr OuterProduct kProducts[] = {
    {kNymex, "CL", "美原油", "MYY", "USD", Group::Commodity, {1, 2}, 1000, 6600},
    {kCbot, "ZN", "10年美债", "10NMZ", "USD", Group::InterestRate, {15625, 6}, 1000, 7150},
    {kComex, "GC", "美黄金", "MHJ", "USD", Group::Commodity, {1, 1}, 100, 34000},
    {kCme, "ES", "小型大盘指数", "XXDPZS", "USD", Group::Index, {25, 2}, 50, 26000},
    {kCme, "6E", "欧元", "OY", "USD", Group::Currency, {5, 5}, 125000, 23200},
    {kIce, "B", "布伦特原油", "BLTYY", "USD", Group::Commodity, {1, 2}, 1000, 7000},
    {kLme, "CA", "伦铜", "LT", "USD", Group::Commodity, {5, 1}, 25, 21000},
    {kHkfe, "HSI", "恒指", "HZ", "HKD", Group::Index, {1, 0}, 50, 25000},
    {kEurex, "FGBL", "德债", "DZ", "EUR", Group::InterestRate, {1, 2}, 1000, 12900},
    {kSgx, "CN", "A50指数", "A50ZS", "USD", Group::Index, {1, 0}, 1, 14500},
    {kOse, "JGB", "日债", "RZ", "JPY", Group::InterestRate, {1, 2}, 1000000, 13600},
    {kCbot, "ZS", "美黄豆", "MHD", "USD", Group::Commodity, {25, 2}, 50, 4200},
    {kCbot, "ZC", "美玉米", "MYM", "USD", Group::Commodity, {25, 2}, 50, 1750},
    {kCbot, "ZW", "美小麦", "MXM", "USD", Group::Commodity, {25, 2}, 50, 2200},
    {kCbot, "ZM", "美豆粕", "MDP", "USD", Group::Commodity, {1, 1}, 100, 3000},
    {kCbot, "ZL", "美豆油", "MDY", "USD", Group::Commodity, {1, 2}, 600, 4900},
    {kCbot, "ZT", "2年美债", "2NMZ", "USD", Group::InterestRate, {390625, 8}, 2000, 26500},
    {kCbot, "ZF", "5年美债", "5NMZ", "USD", Group::InterestRate, {78125, 7}, 1000, 13900},
    {kCbot, "ZB", "30年美债", "30NMZ", "USD", Group::InterestRate, {3125, 5}, 1000, 3750},
    {kComex, "SI", "美白银", "MBY", "USD", Group::Commodity, {5, 3}, 5000, 8200},
    {kComex, "HG", "美精铜", "MJT", "USD", Group::Commodity, {5, 4}, 25000, 9400},
    {kNymex, "NG", "美天然气", "MTRQ", "USD", Group::Commodity, {1, 3}, 10000, 3400},
    {kNymex, "HO", "美燃油", "MRY", "USD", Group::Commodity, {1, 4}, 42000, 22500},
    {kNymex, "PL", "美铂金", "MBJ", "USD", Group::Commodity, {1, 1}, 50, 14500},
    {kCme, "NQ", "小型科技指数", "XXKJZS", "USD", Group::Index, {25, 2}, 20, 94000},
    {kCme, "SR3", "三月期利率", "SYQLL", "USD", Group::InterestRate, {5, 3}, 2500, 19200},
    {kCme, "6J", "日元", "RY", "USD", Group::Currency, {5, 7}, 12500000, 13500},
    {kCme, "6B", "英镑", "YB", "USD", Group::Currency, {1, 4}, 62500, 13400},
    {kCme, "LE", "活牛", "HN", "USD", Group::Commodity, {25, 3}, 400, 8800},
    {kIce, "SB", "原糖", "YT", "USD", Group::Commodity, {1, 2}, 1120, 1650},
    {kIce, "CT", "美棉花", "MMH", "USD", Group::Commodity, {1, 2}, 500, 6700},
    {kIce, "KC", "咖啡", "KF", "USD", Group::Commodity, {5, 2}, 375, 6100},
    {kIce, "DX", "美元指数", "MYZS", "USD", Group::Currency, {5, 3}, 1000, 19800},
    {kLme, "AH", "伦铝", "LL", "USD", Group::Commodity, {5, 1}, 25, 5300},
    {kLme, "ZSD", "伦锌", "LX", "USD", Group::Commodity, {5, 1}, 25, 5700},
    {kLme, "NI", "伦镍", "LN", "USD", Group::Commodity, {5, 0}, 6, 3100},
    {kEurex, "FDAX", "德指", "DZ", "EUR", Group::Index, {5, 1}, 25, 47000},
    {kEurex, "FESX", "欧洲蓝筹指数", "OZLCZS", "EUR", Group::Index, {1, 0}, 10, 5400},
    {kHkfe, "MHI", "小恒指", "XHZ", "HKD", Group::Index, {1, 0}, 10, 25000},
    {kHkfe, "CUS", "美元兑人民币", "MYDRMB", "CNY", Group::Currency, {1, 4}, 100000, 71000},
    {kSgx, "FEF", "掉期铁矿石", "DQTKS", "USD", Group::Commodity, {5, 2}, 100, 2050},
    {kSgx, "VIX6", "波动率指数", "BDLZS", "USD", Group::None, {5, 2}, 1000, 360},
};

CInstrumentDetail outerRecord(const MarketDay& day, const OuterProduct& product, std::string code, Dice& dice) {
    CInstrumentDetail record = startRecord(day, "WP", std::move(code));
    record.name = product.name;
    record.spellName = product.spell;
    record.productId = product.code;
    record.productName = product.name;
    record.productGroup = static_cast<std::int32_t>(product.group);
    record.currency = product.currency;
    // Outer futures carry their market's key in place of a date.
    record.listingDate = product.market.key;
    record.outerMarketName = product.market.name;
    record.volumeMultiple = product.multiple;
    setPrices(record, product.tick, product.price * dice.between(960, 1'040) / 1'000, 0);
    record.preSettlementPrice = record.preClosePrice;
    record.longMarginRatio = decimal(dice.between(3, 12), 2);
    record.shortMarginRatio = record.longMarginRatio;
    setOrderSizes(record, 1, 1'000);
    return record;
}

void writeContract(const MarketDay& day, const OuterProduct& product, std::size_t number, RecordFile& file) {
    constexpr char kMonthLetters[] = "FGHJKMNQUVXZ";
    const bool isQuarterly = product.group != Group::Commodity;
    const YearMonth first = day.month().plus(1);
    const auto steps = static_cast<int>(number);
    const YearMonth delivery = isQuarterly ? first.plus((3 - first.month % 3) % 3 + 3 * steps) : first.plus(steps);
    Dice dice = day.seed("outer future").child(product.code).dice(1 + number);
    CInstrumentDetail record = outerRecord(day, product, product.code + delivery.yymm(), dice);
    record.platformCode = std::string(product.code) + kMonthLetters[delivery.month - 1];
    record.platformCode += static_cast<char>('0' + delivery.year % 10);
    record.name += delivery.yymm();
    record.deliveryYear = delivery.year;
    record.deliveryMonth = delivery.month;
    record.expireDate = dateText(weekdayFrom(delivery.plus(-1).day(20)));
    record.delistingDate = record.expireDate;
    record.preOpenInterest = dice.between(0, 400'000);
    file.write(record);
}

}  // namespace

void writeOuterFutures(const MarketDay& day, RecordFile& file) {
    const std::size_t count = day.count(Segment::Wp);
    const std::size_t products = std::clamp<std::size_t>(count / 2, 1, std::size(kProducts));
    for (std::size_t p = 0; p < products; ++p) {
        const std::size_t records = evenShare(count, products, p);
        for (std::size_t i = 0; i < records; ++i) {
            if (i > 0) {
                writeContract(day, kProducts[p], i - 1, file);
                continue;
            }
            // The record of the product itself is its main contract.
            Dice dice = day.seed("outer future").child(kProducts[p].code).dice(0);
            CInstrumentDetail record = outerRecord(day, kProducts[p], kProducts[p].code, dice);
            record.mainContractFlag = 1;
            file.write(record);
        }
    }
}

}  // namespace inscenter::generate
