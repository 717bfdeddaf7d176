#include "tools/marketday/Rows.h"

#include <algorithm>
#include <functional>

namespace marketday {
namespace {

using enum Kind;

constexpr int kMillion = 1'000'000;

// Price steps, limits and order sizes are the exchanges' own, prices of the right size.
constexpr Terms kIndex{{1, 2}, 50'000, 900'000};
constexpr Terms kMainBoard{{1, 2}, 180, 60'000, 100, 100, kMillion};
constexpr Terms kGrowthBoard{{1, 2}, 800, 90'000, 200, 100, kMillion};
constexpr Terms kTechnologyBoard{{1, 2}, 800, 90'000, 200, 200, 100'000};
constexpr Terms kBeijing{{1, 2}, 300, 9'000, 300, 100, kMillion};
constexpr Terms kNeeq{{1, 2}, 50, 4'000, 0, 100, kMillion};
constexpr Terms kFund{{1, 3}, 500, 5'200, 100, 100, kMillion};
constexpr Terms kBond{{1, 3}, 93'000, 109'000, 0, 10, kMillion};
constexpr Terms kConvertible{{1, 3}, 98'000, 190'000, 200, 10, kMillion};
constexpr Terms kRepo{{5, 3}, 200, 900, 0, 10, kMillion};
constexpr Terms kIssue{{1, 2}, 300, 9'000, 0, 500, kMillion};
constexpr Terms kUnitedStates{{1, 2}, 90, 90'000, 0, 1, kMillion};
constexpr Terms kNote{{1, 4}, 9'900, 10'600, 0, 1'000, 10 * kMillion};

// Code ranges are the exchanges' own, too. What exceeds an ordinary day goes to options, bonds and US stocks, of which
// there is room for any number: of 300,000 instruments, half are options and a third bonds, shares and funds of the
// mainland. A fund's further codes, for creation and the like, follow on its own, which in Shanghai therefore ends in
// 0.
constexpr Row kTable[] = {
    {"SH", Index, "000###", "指数", 3, 250, 0, 250, kIndex},
    {"SH", Share, "600### 601### 603### 605###", "E10", 24, 1'700, 0, 1'700, kMainBoard},
    {"SH", Share, "688###", "E10", 8, 580, 0, 580, kTechnologyBoard},
    {"SH", Fund, "510050 588000 510300 510500 588080", "50ETF 科创50 300ETF 500ETF 科创板50", 5, 5, 0, 5, kFund},
    {"SH", Fund, "512##0 513##0 515##0 516##0 517##0 560##0 561##0 562##0", "ETF", 3, 695, 0, 695, kFund},
    {"SH", Fund, "501###", "LOF", 1, 120, 0, 120, kFund},
    {"SH", Fund, "508###", "REIT", 1, 60, 0, 60, kFund},
    {"SH", Treasury, "010### 019### 020###", "国债", 3, 350, 0, 350, kBond},
    {"SH", Convertible, "110### 113### 118###", "转债", 3, 344, 0, 344, kConvertible},
    {"SH", Repo, "204001 204007 204014 204028 204091 204182", "GC001 GC007 GC014 GC028 GC091 GC182", 3, 6, 0, 6, kRepo},
    {"SH", Bond, "10#### 12#### 13#### 14#### 15#### 16#### 17#### 18####", "", 12, 14'000, 20, 79'000, kBond},
    {"SH", Issue, "730 etc.", "", 18, 36, 0, 36, kIssue},
    {"SHFI", Bond, "24#### 25####", "", 8, 1'600, 0, 1'600, kBond},
    {"SZ", Index, "399###", "指数", 2, 400, 0, 400, kIndex},
    {"SZ", Share, "000### 002### 003###", "E00", 20, 1'480, 0, 1'480, kMainBoard},
    {"SZ", Share, "0012## 0013##", "E00", 2, 100, 0, 100, kMainBoard},
    {"SZ", Share, "300### 301###", "E00", 10, 1'300, 0, 1'300, kGrowthBoard},
    {"SZ", Fund, "159919 159915 159901 159922", "300ETF 创业板ETF 深100ETF 500ETF", 4, 4, 0, 4, kFund},
    {"SZ", Fund, "1591## 1592## 1593## 1595## 1596## 1597## 1598##", "ETF", 2, 560, 0, 560, kFund},
    {"SZ", Fund, "161### 162###", "LOF", 1, 150, 0, 150, kFund},
    {"SZ", Fund, "180###", "REIT", 1, 46, 0, 46, kFund},
    {"SZ", Convertible, "123### 127### 128###", "转债", 4, 316, 0, 316, kConvertible},
    {"SZ", Repo, "131810 131811 131800 131801", "Ｒ-001 Ｒ-002 Ｒ-003 Ｒ-007", 2, 4, 0, 4, kRepo},
    {"SZ", Bond, "10#### 11#### 14#### 19####", "", 8, 7'200, 13, 39'000, kBond},
    {"SZ", Issue, "37 etc.", "", 14, 28, 0, 28, kIssue},
    {"BJ", Share, "920### 838### 430### 871###", "E20", 8, 280, 0, 280, kBeijing},
    {"BJ", Issue, "920", "", 2, 4, 0, 4, kIssue},
    {"HK", HongKong, "0####", "", 27, 2'700, 0, 2'700, {}},
    {"HGT", HongKong, "0####", "", 10, 560, 0, 560, {}},
    {"SGT", HongKong, "0####", "", 10, 640, 0, 640, {}},
    {"NEEQ", Share, "400### 830### 831### 832### 833### 835### 870### 872###", "E20", 10, 6'000, 0, 6'000, kNeeq},
    {"SHO", StockOption, "10008001", "SH", 16, 700, 14, 30 * kMillion, {}},
    {"SZO", StockOption, "90004001", "SZ", 12, 560, 12, 9 * kMillion, {}},
    {"CFFEX", Future, "", "", 8, 56, 0, 56, {}},
    {"SHFE", Future, "", "", 14, 260, 0, 260, {}},
    {"DCE", Future, "", "", 16, 286, 0, 286, {}},
    {"CZCE", Future, "", "", 16, 312, 0, 312, {}},
    {"INE", Future, "", "", 8, 60, 0, 60, {}},
    {"GFEX", Future, "", "", 8, 60, 0, 60, {}},
    {"DCE", Spread, "", "", 6, 160, 0, 160, {}},
    {"CFFEX", FutureOption, "", "", 6, 1'300, 4, kMillion, {}},
    {"SHFE", FutureOption, "", "", 8, 5'200, 8, 10 * kMillion, {}},
    {"DCE", FutureOption, "", "", 10, 7'000, 9, 10 * kMillion, {}},
    {"CZCE", FutureOption, "", "", 10, 6'400, 9, 10 * kMillion, {}},
    {"INE", FutureOption, "", "", 4, 500, 2, kMillion, {}},
    {"GFEX", FutureOption, "", "", 4, 1'500, 2, kMillion, {}},
    {"SHGE", Future, "", "", 5, 14, 0, 14, {}},
    {"WP", Future, "", "", 24, 800, 0, 800, {}},
    {"NYSE", UnitedStates, "@@@", "1", 14, 2'900, 0, 2'900, kUnitedStates},
    {"NYSE", UnitedStates, "@@@@", "1", 0, 0, 3, 400'000, kUnitedStates},
    {"NASDAQ", UnitedStates, "@@@@", "2", 16, 4'300, 1, 400'000, kUnitedStates},
    {"NASDAQ", UnitedStates, "@@@@@", "2", 0, 0, 3, 10 * kMillion, kUnitedStates},
    {"SOTC", Note, "SA#### SB#### SC####", "收益凭证", 6, 300, 0, 300, kNote},
};

std::size_t total(std::size_t Row::*member) {
    std::size_t sum = 0;
    for (const Row& row : kTable) {
        sum += row.*member;
    }
    return sum;
}

/// Deals `amount` to the rows in proportion to the weights. The running sum is what is rounded, so nothing is lost.
/// Answers what found no room, because a row had its most.
std::size_t deal(std::size_t amount, std::vector<std::size_t>& counts,
                 const std::function<std::size_t(const Row&, std::size_t count)>& weightOf) {
    std::vector<std::size_t> weights;
    for (const Row& row : kTable) {
        weights.push_back(weightOf(row, counts[weights.size()]) + (weights.empty() ? 0 : weights.back()));
    }
    std::size_t left = amount;
    std::size_t dealt = 0;
    for (std::size_t i = 0; i < weights.size() && amount > 0; ++i) {
        const std::size_t part = amount * weights[i] / weights.back() - dealt;
        dealt += part;
        const std::size_t taken = std::min(part, kTable[i].most - counts[i]);
        counts[i] += taken;
        left -= taken;
    }
    return left;
}

}  // namespace

const std::span<const Row> kRows = kTable;

std::size_t largestDay() {
    return total(&Row::most);
}

std::vector<std::size_t> planDay(std::size_t size) {
    const std::size_t least = std::min(size, total(&Row::least));
    const std::size_t usual = std::min(size, total(&Row::usual)) - least;
    std::vector<std::size_t> counts(std::size(kTable));
    deal(least, counts, [](const Row& row, std::size_t) { return row.least; });
    deal(usual, counts, [](const Row& row, std::size_t) { return row.usual - row.least; });
    // In rounds, since a row that runs full hands its rest on.
    for (std::size_t left = size - least - usual; left > 0;) {
        left = deal(left, counts, [](const Row& row, std::size_t count) { return count < row.most ? row.share : 0; });
    }
    return counts;
}

}  // namespace marketday
