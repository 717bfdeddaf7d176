#include <gtest/gtest.h>

#include "base/instrumentcenter/vocabulary/Exchanges.h"
#include "base/instrumentcenter/vocabulary/Keys.h"
#include "platform/utils/Utils.h"

namespace mxservice {
namespace {

TEST(Keys, FoldingTouchesOnlyALeadingConnectPrefix) {
    const StockKey hongKong = utils::hash("HK00700");
    EXPECT_EQ(foldedTextKey("HGT00700"), hongKong);
    EXPECT_EQ(foldedTextKey("SGT00700"), hongKong);
    EXPECT_EQ(foldedTextKey("HK00700"), hongKong);
    for (const char* const text : {"XHGT00700", "hgt00700", "HG", "", "SG", "H"}) {
        EXPECT_EQ(foldedTextKey(text), utils::hash(text)) << text;
    }
    EXPECT_EQ(foldedTextKey("HGT"), utils::hash("HK"));
    EXPECT_EQ(foldedTextKey("SGT00700", "HGT"), utils::hash("SGT00700"));
    EXPECT_EQ(foldedTextKey("HGT00700", "HGT"), hongKong);
    EXPECT_EQ(foldedMarket("SGT"), "HK");
    EXPECT_EQ(foldedMarket("HGTX"), "HGTX");
}

TEST(Keys, CombinedKeyIsTheHashOfTheCombinedTextAtAnyLength) {
    for (const std::size_t length : {0U, 6U, 255U, 256U, 257U, 10000U}) {
        const std::string code(length, 'c');
        EXPECT_EQ(stockKey("HK", code), utils::hash(utils::ovStockKey("HK", code))) << length;
        EXPECT_EQ(foldedTextKey("SGT" + code), utils::hash("HK" + code)) << length;
    }
    EXPECT_EQ(stockKey("", ""), utils::hash(""));
    const std::string withNul("6\0x", 3);
    EXPECT_EQ(stockKey("SH", withNul), utils::hash("SH" + withNul));
}

TEST(Exchanges, OfEveryTraderType) {
    using List = std::list<std::string>;
    const List futures{"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"};
    const std::map<int, List> expected{
        {1, {"BJ", "SH", "SZ"}}, {2, futures},    {8, {"BJ", "SH", "SZ"}}, {16, {"SHGE"}},
        {32, {"SHO", "SZO"}},    {128, {"HK"}},   {256, {"NEEQ"}},         {1024, futures},
        {4096, {"SH", "SZ"}},    {16384, {"HK"}}, {1048576, {"SH", "SZ"}}, {2097152, {"SOTC"}}};
    for (const auto& [type, exchanges] : expected) {
        EXPECT_EQ(exchangesOf(static_cast<EOvTraderType>(type)), exchanges) << type;
    }
    for (const int type : {0, 4, 64, 512, 2048, 65536, -1, 3}) {
        EXPECT_TRUE(exchangesOf(static_cast<EOvTraderType>(type)).empty()) << type;
    }
}

}  // namespace
}  // namespace mxservice
