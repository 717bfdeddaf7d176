#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "tests/CenterFixture.h"
#include "tests/model/ClientModel.h"
#include "tests/model/Judge.h"
#include "tests/model/RecordMaker.h"
#include "tests/model/ServerModel.h"

namespace mxservice::model {

/// A center and its model.
struct ServerSide {
    using Center = OpenServerCenter;
    using Model = ServerModel;
};
struct ClientSide {
    using Center = OpenClientCenter;
    using Model = ClientModel;
};

/// Records of the host by the model's. Twins are kept: a record's address is not given to another one.
using TwinsByModel = std::unordered_map<const CInstrumentDetail*, Twin<CInstrumentDetail>>;

/// Asks both the same and compares.
template <class Side>
class Questions {
public:
    Questions(typename Side::Center& center, typename Side::Model& model, const TwinsByModel& realOf)
        : center_(center), model_(model), realOf_(realOf) {}

    void aboutKey(const std::string& key) {
        IInstrumentCenter& center = asked();
        const auto is = [&](const char* question, bool answer, bool expected) {
            EXPECT_EQ(answer, expected) << question << ' ' << key;
        };
        const bool future = filedUnder(key, {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"});
        is("hasCode", center.hasCode(key), model_.marketOf(folded(key, {"HGT", "SGT"})) != 0);
        is("hasStock", center.hasStock(key), filedUnder(key, {"SH", "SZ", "BJ"}));
        is("hasFuture", center.hasFuture(key), future);
        is("hasFutureOption", center.hasFutureOption(key), future);
        is("hasHkstock", center.hasHkstock(key), model_.hasHkstock(key));
        is("hasSkstock", center.hasSkstock(key), filedUnder(folded(key, {"SGT"}), {"HK"}));
        is("hasOption", center.hasOption(key), filedUnder(key, {"SHO", "SZO"}));
        is("hasNeeq", center.hasNeeq(key), filedUnder(key, {"NEEQ"}));
        is("hasGold", center.hasGold(key), filedUnder(key, {"SHGE"}));
        is("hasBond", center.hasBond(key), filedUnder(key, {"BANK"}));
        is("hasOuterFuture", center.hasOuterFuture(key), filedUnder(key, {"WP"}));
        is("hasOuterStock", center.hasOuterStock(key), filedUnder(key, {"NYSE", "NASDAQ"}));
        is("hasNyseStock", center_.hasNyseStock(key), filedUnder(key, {"NYSE"}));
        is("hasNasdaqStock", center_.hasNasdaqStock(key), filedUnder(key, {"NASDAQ"}));
        is("hasEtf", center.hasEtf(key), model_.hasEtf(key));
        is("hasOtc", center.hasOtc(key), model_.hasOtc(key));
        is("hasIssuance", center.hasIssuance(key), model_.hasIssuance(key));
        is("hasTenderBond", center.hasTenderBond(key), model_.hasTenderBond(key));

        const InstrumentPtr record = center.getInstrument(key);
        judge_.one("getInstrument " + key, record.get(), model_.getInstrument(key));
        const InstrumentPtr byHash = center.getInstrument(utils::hash(key));
        judge_.one("getInstrument by hash of " + key, byHash.get(), model_.getInstrument(utils::hash(key)));
        if constexpr (std::is_same_v<Side, ServerSide>) {
            const auto twin = realOf_.find(model_.find(utils::hash(key)).get());
            if (twin != realOf_.end()) {
                EXPECT_EQ(byHash, twin->second.real) << "the host's own record of " << key;
            }
        }
        judge_.one("getEtf " + key, center.getEtf(key).get(), model_.getEtf(key));
        judge_.one("getBond " + key, center.getBond(key).get(), model_.getBond(utils::hash(key)));
        judge_.one("getOtcInstrument " + key, center.getOtcInstrument(key).get(), model_.getOtcInstrument(key));
        judge_.same("getInterbankCode " + key, center.getInterbankCode(key), model_.getInterbankCode(key));
    }

    void aboutListing(const std::string& market, const std::string& code) {
        const std::string what = market + '|' + code;
        judge_.one("getInstrument " + what, asked().getInstrument(market, code).get(),
                   model_.getInstrument(market, code));
        judge_.one("getEtf " + what, asked().getEtf(market, code).get(), model_.getEtf(market + code));
        EXPECT_EQ(model_.getProductId(market, code).count(asked().getProductId(market, code)), 1U)
            << "getProductId " << what;
        judge_.same("isStkOptionUndlCode " + what, asked().isStkOptionUndlCode(market, code),
                    model_.isStkOptionUndlCode(market, code));
    }

    void aboutCode(const std::string& code) {
        IInstrumentCenter& center = asked();
        judge_.one("getIssuanceInfo " + code, center.getIssuanceInfo(code).get(), model_.getIssuanceInfo(code));
        judge_.one("getIssuancePriceInfo " + code, center.getIssuancePriceInfo(code).get(),
                   model_.getIssuancePriceInfo(code));
        judge_.one("getTenderBondInfo " + code, center.getTenderBondInfo(code).get(), model_.getTenderBondInfo(code));
        judge_.one("getCounterparty " + code, center.getCounterparty(code).get(), model_.getCounterparty(code));
        judge_.same("getLumoCode " + code, center.getLumoCode(code), model_.getLumoCode(code));
    }

    void aboutMarket(const std::string& market, const std::string& second) {
        IInstrumentCenter& center = asked();
        const InstrumentMap map = center.getInstruments(market);
        judge_.map("getInstruments " + market, map, model_.getInstruments(std::list<std::string>{market}));
        std::list<InstrumentPtr> list;
        center.getInstruments(market, list);
        std::vector<std::string> keys;
        for (const InstrumentPtr& record : list) {
            keys.push_back(record->market + record->code);
        }
        judge_.same("getInstruments into a list " + market, keys, keysOf(map));
        const std::list<std::string> markets{market, second, market};
        const std::string what = "getInstruments of " + market + ", " + second;
        judge_.map(what, center.getInstruments(markets), model_.getInstruments(markets));
        InstrumentMap out{{"mine", nullptr}};
        center.getInstruments(markets, out);
        EXPECT_EQ(out.erase("mine"), 1U) << what;
        judge_.map(what, out, model_.getInstruments(markets));
        judge_.map("getFutureMainInstruments " + market, center.getFutureMainInstruments(market),
                   model_.getFutureMainInstruments(market));
        for (const char* const end : {"p0", "p1", "p2", ""}) {
            const std::string product = market + end;
            judge_.same("getProductInstruments " + product, imagesIn(center.getProductInstruments(product)),
                        model_.getProductInstruments(product));
            judge_.same("getProductName " + product, center.getProductName(product), std::string());
            judge_.same("isCommodityProduct " + product, center.isCommodityProduct(product),
                        model_.isCommodityProduct(product));
            judge_.same("isInterestProduct " + product, center.isInterestProduct(product),
                        model_.isInterestProduct(product));
        }
    }

    void aboutType(int type) {
        const auto asType = static_cast<EOvTraderType>(type);
        const std::string what = "getInstruments of type " + std::to_string(type);
        judge_.map(what, asked().getInstruments(asType), model_.getInstruments(type));
        InstrumentMap out;
        asked().getInstruments(asType, out);
        judge_.map(what, out, model_.getInstruments(type));
    }

    void aboutEverything() {
        IInstrumentCenter& center = asked();
        judge_.map("getInstruments", center.getInstruments(), model_.getInstruments());
        InstrumentMap out;
        center.getInstruments(out);
        judge_.map("getInstruments into a map", out, model_.getInstruments());
        judge_.products(center.getProductMainInstruments(), model_.getProductMainInstruments());
        judge_.same("getDceCrossProduct", center.getDceCrossProduct(), model_.getDceCrossProduct());
        judge_.same("getDceCrossPeriod", center.getDceCrossPeriod(), model_.getDceCrossPeriod());
        judge_.same("getStockIpoCodes", center.getStockIpoCodes(), model_.getStockIpoCodes());
        judge_.same("getStockCdrCodes", center.getStockCdrCodes(), model_.getStockCdrCodes());
        judge_.same("getNeeqInquiryCodes", center.getNeeqInquiryCodes(), model_.getNeeqInquiryCodes());
        judge_.map("getEtfs", center.getEtfs(), model_.getEtfs());
        judge_.map("getBonds", center.getBonds(), model_.getBonds());
        judge_.map("getOtcInstruments", center.getOtcInstruments(), model_.getOtcInstruments());
        for (int group = -2; group < 4; ++group) {
            std::vector<Plan> plans{nullptr};
            center.getOtcInstruments(group, plans);
            EXPECT_FALSE(plans.front());
            plans.erase(plans.begin());
            judge_.same("getOtcInstruments of group " + std::to_string(group), imagesIn(plans),
                        model_.getOtcInstruments(group));
        }
        judge_.same("getIssuanceInfos", imagesOf(center.getIssuanceInfos()), model_.getIssuanceInfos());
        judge_.same("getIssuancePriceInfos", imagesOf(center.getIssuancePriceInfos()), model_.getIssuancePriceInfos());
        judge_.same("getCounterpartys", imagesOf(center.getCounterpartys()), model_.getCounterpartys());
        bool unambiguous = true;
        const auto tenderBonds = model_.getTrenderBondInfos(unambiguous);
        if (unambiguous) {
            judge_.same("getTrenderBondInfos", imagesOf(center.getTrenderBondInfos()), tenderBonds);
        }
        judge_.same("getOutterProduct", center.getOutterProduct(), model_.getOutterProduct());
        judge_.same("getOutterMarket", center.getOutterMarket(), model_.getOutterMarket());
        judge_.same("getMarketProductList", center.getMarketProductList(), model_.getMarketProductList());
        for (const auto& [product, name] : model_.getOutterProduct()) {
            judge_.same("getOutterProductName " + product, center.getOutterProductName(product), name);
        }
        for (const auto& [market, name] : model_.getOutterMarket()) {
            judge_.same("getOutterMarketName " + market, center.getOutterMarketName(market), name);
        }
        judge_.same("getOutterProductName of none", center.getOutterProductName("none"), std::string());
        judge_.same("getOutterMarketName of none", center.getOutterMarketName("none"), std::string());
    }

private:
    bool filedUnder(const std::string& key, std::initializer_list<const char*> markets) {
        const Key market = model_.marketOf(key);
        return market != 0 && std::any_of(markets.begin(), markets.end(),
                                          [&](const char* name) { return utils::hash(name) == market; });
    }

    static std::string folded(const std::string& key, std::initializer_list<const char*> prefixes) {
        for (const char* const prefix : prefixes) {
            if (key.compare(0, 3, prefix) == 0) {
                return "HK" + key.substr(3);
            }
        }
        return key;
    }

    IInstrumentCenter& asked() { return center_; }

    typename Side::Center& center_;
    typename Side::Model& model_;
    const TwinsByModel& realOf_;
    Judge judge_;
};

}  // namespace mxservice::model
