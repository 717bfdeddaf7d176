#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

struct GoldContract {
    const char* code;
    const char* name;
    Tick tick;
    std::int32_t multiple;       ///< grams a lot
    std::int64_t price;          ///< about where it trades, in steps
    std::int32_t marginPercent;  ///< 0: spot
};
constexpr GoldContract kGold[] = {
    {"Au99.99", "黄金9999", {1, 2}, 10, 78000, 0},         {"Ag(T+D)", "白银延期", {1, 0}, 1000, 8200, 14},
    {"Au(T+D)", "黄金延期", {1, 2}, 1000, 78000, 12},      {"mAu(T+D)", "迷你黄金延期", {1, 2}, 100, 78000, 12},
    {"Au100g", "黄金100克", {1, 2}, 100, 78100, 0},        {"Au99.95", "黄金9995", {1, 2}, 1000, 77900, 0},
    {"Pt99.95", "铂金9995", {1, 2}, 1000, 36000, 0},       {"Ag99.99", "白银9999", {1, 0}, 15000, 8150, 0},
    {"Au(T+N1)", "黄金单月延期", {5, 2}, 100, 15600, 12},  {"Au(T+N2)", "黄金双月延期", {5, 2}, 100, 15600, 12},
    {"iAu99.99", "国际板黄金9999", {1, 2}, 10, 78000, 0},  {"iAu100g", "国际板黄金100克", {1, 2}, 100, 78100, 0},
    {"iAu99.5", "国际板黄金995", {1, 2}, 12500, 77500, 0}, {"Au99.5", "黄金995", {1, 2}, 12500, 77500, 0},
    {"NYAuTN06", "纽约金06", {5, 2}, 100, 15600, 12},      {"NYAuTN12", "纽约金12", {5, 2}, 100, 15650, 12},
    {"PGC30g", "熊猫金币30克", {1, 2}, 30, 78600, 0},      {"Au50g", "黄金50克", {1, 2}, 50, 78200, 0},
};

void setPlanTerms(const MarketDay& day, mxservice::COTCFundPlanInfo& plan, Dice& dice) {
    plan.riskLevel = dice.small(1, 5);
    plan.openDate = day.after(-dice.between(1, 60));
    plan.closeDate = day.after(dice.between(5, 400));
    plan.minSubscribeAmount = static_cast<double>(dice.between(1, 100) * 10'000);
    plan.subscribeStep = 1'000;
    plan.expectedYield = decimal(dice.between(180, 650), 4);
    plan.managementFee = decimal(dice.between(2, 20), 3);
}

}  // namespace

void writeGold(const MarketDay& day, RecordFile& file) {
    for (std::size_t i = 0; i < day.count(Segment::Shge); ++i) {
        const GoldContract& gold = kGold[i];
        Dice dice = day.seed("gold").dice(i);
        CInstrumentDetail record = startRecord(day, "SHGE", gold.code);
        record.name = gold.name;
        record.productId = gold.code;
        record.productName = gold.name;
        record.productGroup = 1;
        record.listingDate = day.after(-dice.between(1'000, 7'000));
        record.volumeMultiple = gold.multiple;
        setPrices(record, gold.tick, gold.price * dice.between(980, 1'020) / 1'000, 100);
        record.preSettlementPrice = record.preClosePrice;
        record.longMarginRatio = decimal(gold.marginPercent > 0 ? gold.marginPercent : 100, 2);
        record.shortMarginRatio = record.longMarginRatio;
        setOrderSizes(record, 1, 500);
        record.preOpenInterest = gold.marginPercent > 0 ? dice.between(1'000, 400'000) : 0;
        record.preVolume = dice.between(10, 60'000);
        file.write(record);
    }
}

void writeOtcInstruments(const MarketDay& day, RecordFile& file) {
    static const CodeSeries kSeries{"SA####", "SB####", "SC####"};
    for (std::size_t i = 0; i < day.count(Segment::Sotc); ++i) {
        Dice dice = day.seed("SOTC").dice(i);
        const Name brand = inventCompany(dice).brand;
        const std::string number = std::to_string(dice.between(1, 300));
        CInstrumentDetail record = startRecord(day, "SOTC", kSeries.at(i, day.salt()));
        setName(record,
                {brand.text + "收益凭证" + number + "号", brand.spell + "SYPZ" + number, brand.english + " Note"});
        record.listingDate = day.after(-dice.between(1, 700));
        record.expireDate = day.after(dice.between(20, 900));
        setPrices(record, {1, 4}, dice.between(9'900, 10'600), 0);
        setOrderSizes(record, 1'000, 10'000'000);
        record.faceValue = 1;
        record.issuePrice = 1;
        record.couponRate = decimal(dice.between(150, 420), 4);
        file.write(record);
    }
}

void writeFundPlans(const MarketDay& day, std::size_t count, RecordFile& file) {
    static const CodeSeries kSeries{"PA####", "PB####", "PC####"};
    static constexpr const char* kForms[] = {"稳健", "日盈", "月享", "固收增强", "量化", "现金管理"};
    for (std::size_t i = 0; i < count; ++i) {
        Dice dice = day.seed("fund plan").dice(i);
        const Name brand = inventCompany(dice).brand;
        const std::string number = std::to_string(dice.between(1, 99));
        mxservice::COTCFundPlanInfo plan;
        static_cast<CInstrumentDetail&>(plan) =
            startRecord(day, i % 3 == 2 ? "SOTC" : "OTC", kSeries.at(i, day.salt()));
        plan.planType = static_cast<std::int32_t>(i % 5) + 1;
        setName(plan, {brand.text + dice.pick(kForms) + number + "号", brand.spell + number, brand.english + " Plan"});
        plan.manager = brand.text + "资产管理";
        plan.listingDate = day.after(-dice.between(30, 2'000));
        setPrices(plan, {1, 4}, dice.between(9'500, 16'000), 0);
        setOrderSizes(plan, 1, 100'000'000);
        plan.faceValue = 1;
        setPlanTerms(day, plan, dice);
        file.write(plan);
    }
}

}  // namespace inscenter::generate
