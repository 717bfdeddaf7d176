#include <gtest/gtest.h>

#include <stdexcept>
#include <unordered_map>

#include "tests/CenterFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/model/ClientModel.h"
#include "tests/model/Judge.h"
#include "tests/model/RecordMaker.h"
#include "tests/model/ServerModel.h"

// Random loads, changes, clears and restarts against a literal model of the catalogue; after each step random
// questions, now and then all of them. PM_SEED repeats a run, PM_STEPS makes it longer.

namespace mxservice {
namespace {

using namespace model;

struct ServerSide {
    using Center = OpenServerCenter;
    using Model = ServerModel;
};
struct ClientSide {
    using Center = OpenClientCenter;
    using Model = ClientModel;
};

template <class Side>
class Walk {
public:
    static constexpr bool kClient = std::is_same_v<Side, ClientSide>;

    explicit Walk(unsigned seed) : make_(seed) { restart(); }

    void step() {
        if constexpr (!kClient) {
            if (make_.chance(8)) {
                return together();
            }
        }
        operation(make_.below(kOperations));
    }

    void askSome() {
        for (int i = 0; i < 12 && !testing::Test::HasFailure(); ++i) {
            aboutKey(make_.keyText());
            aboutMarket(make_.oneOf(kMarkets), make_.oneOf(kMarkets));
        }
        aboutType(make_.oneOf(kTraderTypes));
    }

    void askAll() {
        for (const std::string& market : kMarkets) {
            aboutMarket(market, make_.oneOf(kMarkets));
            for (const std::string& code : kCodes) {
                aboutKey(market + code);
                aboutListing(market, code);
            }
        }
        for (const std::string& code : kCodes) {
            aboutKey(code);
            aboutCode(code);
        }
        for (const int type : kTraderTypes) {
            aboutType(type);
        }
        aboutEverything();
    }

    const std::string& last() const { return last_; }

private:
    static constexpr std::size_t kOperations = 22;
    static constexpr std::size_t kDisturb = 8;

    void operation(std::size_t which) {
        switch (which) {
            case 0:
                return etfs();
            case 1:
                return bonds();
            case 2:
                return plans();
            case 3:
                return issuances();
            case 4:
                return priceSettings();
            case 5:
                return tenderBonds();
            case 6:
                return counterparties();
            case 7:
                trace("clearDatas");
                {
                    const Markets markets{make_.oneOf(kMarkets), make_.oneOf(kMarkets)};
                    center_->clearDatas(markets);
                    model_->clearDatas(markets);
                }
                return;
            case kDisturb:
                return disturb();
            default:
                return instruments();
        }
    }

    /// Several operations as one version, or none of them.
    void together() {
        if constexpr (!kClient) {
            const bool fails = make_.chance(3);
            trace(fails ? "together, in vain" : "together");
            const auto before = *model_;
            const auto version = center_->version();
            const auto operations = [&] {
                for (std::size_t left = make_.below(4); left > 0; --left) {
                    const std::size_t which = make_.below(kOperations);
                    operation(which == kDisturb ? which + 1 : which);
                    EXPECT_EQ(center_->version(), version);
                }
                if (fails) {
                    throw std::runtime_error("in vain");
                }
            };
            try {
                center_->loadTogether(operations);
                EXPECT_LE(center_->version(), version + 1);
            } catch (const std::runtime_error&) {
                *model_ = before;
                EXPECT_EQ(center_->version(), version);
            }
        }
    }

    void restart() {
        center_.reset();
        if constexpr (kClient) {
            if (make_.chance(3)) {
                // As a host that begins afresh.
                TemporaryStore::service().setRootPath(temporary_.path().string());
                if (std::filesystem::exists(temporary_.path())) {
                    OpenClientCenter(1).clearPersist(temporary_.path().string());
                }
                stored_.clearCatalogues();
            }
            const std::size_t kind = make_.below(3);
            const int capacity = kind == 0 ? 0 : kind == 1 ? 3 : 100000;
            cache_ = kind == 0   ? ClientModel::Cache::None
                     : kind == 1 ? ClientModel::Cache::Some
                                 : ClientModel::Cache::All;
            model_ = std::make_unique<ClientModel>(stored_, cache_);
            center_ = std::make_unique<OpenClientCenter>(capacity);
        } else {
            model_ = std::make_unique<ServerModel>();
            center_ = std::make_unique<OpenServerCenter>();
        }
    }

    /// Restarts of the host, and writes that fail.
    void disturb() {
        if (make_.chance(3)) {
            trace("restart");
            return restart();
        }
        if constexpr (kClient) {
            const std::string db =
                make_.chance(2) ? ""
                                : make_.oneOf(std::vector<std::string>{"OvIns_SH", "OvIns_HK", "OvIns_DCE", "OvRawHGT",
                                                                       "OvIns_ALLETF", "OvIns_ETFINSTS", "OvIns_WP"});
            trace("failing: " + db);
            engine_->failWritesOf(db);
            stored_.broken = {db};
        }
    }

    void instruments() {
        Markets markets;
        for (std::size_t i = make_.below(4); i < 4 && !(markets.size() == 1 && make_.chance(3)); ++i) {
            markets.push_back(make_.oneOf(kMarkets));
        }
        std::vector<Twin<CInstrumentDetail>> batch;
        for (std::size_t left = make_.below(25); left > 0; --left) {
            if (make_.chance(20)) {
                batch.push_back({});
            } else if (make_.chance(10) && make_.hasEarlier()) {
                batch.push_back(make_.earlier());
            } else {
                batch.push_back(make_.instrument(markets.empty() || make_.chance(6) ? make_.oneOf(kMarkets)
                                                                                    : make_.oneOf(markets)));
            }
        }
        // To drop what other catalogues keep.
        if (kClient && make_.chance(10)) {
            markets.push_back(make_.oneOf(std::vector<std::string>{"ALLETF", "BANKBOND", "FUMAIN", "FUPROD"}));
        }
        std::string names;
        for (const std::string& market : markets) {
            names += " \"" + market + '"';
        }
        trace("initInstruments of" + names + ", records " + std::to_string(batch.size()));
        center_->initInstruments(markets, reals(batch));
        model_->initInstruments(markets, mines(batch));
        for (const Twin<CInstrumentDetail>& twin : batch) {
            realOf_[twin.mine.get()] = twin;
            judge_.one("the host's record after the load", twin.real.get(), only(twin.mine));
        }
    }

    template <class Record, class Make>
    std::vector<Twin<Record>> several(Make make) {
        std::vector<Twin<Record>> batch;
        for (std::size_t left = make_.below(10); left > 0; --left) {
            batch.push_back(make_.chance(12) ? Twin<Record>{} : make());
        }
        return batch;
    }

    /// The same as a map; keys are mostly the records' own.
    template <class Record>
    std::map<std::string, Twin<Record>> keyed(const std::vector<Twin<Record>>& batch) {
        std::map<std::string, Twin<Record>> map;
        for (const Twin<Record>& twin : batch) {
            if (twin.real) {
                map[make_.chance(4) ? make_.oneOf(kCodes) : twin.real->getKey()] = twin;
            }
        }
        return map;
    }

    template <class Record, class Center, class Model>
    void loadKeyed(const std::vector<Twin<Record>>& batch, Center toCenter, Model toModel) {
        std::map<std::string, boost::shared_ptr<Record>> real;
        std::map<std::string, boost::shared_ptr<Record>> mine;
        for (const auto& [key, twin] : keyed(batch)) {
            real[key] = twin.real;
            mine[key] = twin.mine;
        }
        toCenter(real);
        toModel(mine);
    }

    void etfs() {
        trace("initEtfs");
        // What a small cache still holds would decide about the names.
        const bool namesOpen = cache_ != ClientModel::Cache::Some;
        const auto batch = several<CETFDetail>([&] { return make_.etf(namesOpen); });
        asked().initEtfs(reals(batch));
        model_->initEtfs(mines(batch));
        for (const Twin<CETFDetail>& twin : batch) {
            judge_.one("the host's fund after the load", twin.real.get(), only(twin.mine));
        }
    }

    void bonds() {
        trace("initBonds");
        loadKeyed(
            several<CBondInfoDetail>([&] { return make_.bond(); }), [&](const auto& map) { asked().initBonds(map); },
            [&](const auto& map) { model_->initBonds(map); });
    }

    void plans() {
        const auto batch = several<COTCFundPlanInfo>([&] { return make_.plan(); });
        if (make_.chance(2)) {
            trace("initOtcInstruments");
            asked().initOtcInstruments(reals(batch));
            model_->initOtcInstruments(mines(batch));
        } else {
            trace("updateOtcInstruments");
            asked().updateOtcInstruments(reals(batch));
            model_->updateOtcInstruments(mines(batch));
        }
    }

    void issuances() {
        using Record = COTCSecuritiesIssuanceInfo;
        const auto batch = several<Record>([&] { return make_.coded(&Record::code); });
        if (make_.chance(3)) {
            trace("initIssuanceInfos");
            asked().initIssuanceInfos(reals(batch));
            model_->initIssuanceInfos(mines(batch));
        } else {
            const int operation = static_cast<int>(make_.below(6)) - 1;
            trace("updateIssuanceInfos " + std::to_string(operation));
            asked().updateIssuanceInfos(operation, reals(batch));
            model_->updateIssuanceInfos(operation, mines(batch));
        }
    }

    void priceSettings() {
        using Record = COTCStockEnquiryPriceSetting;
        if (make_.chance(3)) {
            trace("initIssuancePriceInfos");
            loadKeyed(
                several<Record>([&] { return make_.coded(&Record::code); }),
                [&](const auto& map) { asked().initIssuancePriceInfos(map); },
                [&](const auto& map) { model_->initIssuancePriceInfos(map); });
        } else {
            const int operation = static_cast<int>(make_.below(6)) - 1;
            trace("updateIssuancePriceInfo " + std::to_string(operation));
            const Twin<Record> twin = make_.chance(10) ? Twin<Record>{} : make_.coded(&Record::code);
            asked().updateIssuancePriceInfo(operation, twin.real);
            model_->updateIssuancePriceInfo(operation, twin.mine);
        }
    }

    void tenderBonds() {
        using Record = CTenderBondInfoDetail;
        const auto batch = several<Record>([&] { return make_.coded(&Record::code); });
        if (make_.chance(2)) {
            trace("initTenderBondInfos");
            loadKeyed(
                batch, [&](const auto& map) { asked().initTenderBondInfos(map); },
                [&](const auto& map) { model_->initTenderBondInfos(map); });
        } else {
            trace("updateTenderBondInfos");
            asked().updateTenderBondInfos(reals(batch));
            model_->updateTenderBondInfos(mines(batch));
        }
    }

    void counterparties() {
        using Record = CCounterpartyDetail;
        if (make_.chance(3)) {
            trace("initCounterpartys");
            loadKeyed(
                several<Record>([&] { return make_.coded(&Record::id); }),
                [&](const auto& map) { asked().initCounterpartys(map); },
                [&](const auto& map) { model_->initCounterpartys(map); });
        } else {
            trace("updateCounterpartyInfo");
            Twin<Record> twin = make_.chance(10) ? Twin<Record>{} : make_.coded(&Record::id);
            if (twin.real) {
                twin.real->removed = twin.mine->removed = make_.chance(2) ? 1 : 0;
            }
            asked().updateCounterpartyInfo(twin.real);
            model_->updateCounterpartyInfo(twin.mine);
        }
    }

    bool filedUnder(const std::string& key, std::initializer_list<const char*> markets) {
        const Key market = model_->marketOf(key);
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

    void aboutKey(const std::string& key) {
        IInstrumentCenter& center = asked();
        const auto is = [&](const char* question, bool answer, bool expected) {
            EXPECT_EQ(answer, expected) << question << ' ' << key;
        };
        const bool future = filedUnder(key, {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"});
        is("hasCode", center.hasCode(key), model_->marketOf(folded(key, {"HGT", "SGT"})) != 0);
        is("hasStock", center.hasStock(key), filedUnder(key, {"SH", "SZ", "BJ"}));
        is("hasFuture", center.hasFuture(key), future);
        is("hasFutureOption", center.hasFutureOption(key), future);
        is("hasHkstock", center.hasHkstock(key), model_->hasHkstock(key));
        is("hasSkstock", center.hasSkstock(key), filedUnder(folded(key, {"SGT"}), {"HK"}));
        is("hasOption", center.hasOption(key), filedUnder(key, {"SHO", "SZO"}));
        is("hasNeeq", center.hasNeeq(key), filedUnder(key, {"NEEQ"}));
        is("hasGold", center.hasGold(key), filedUnder(key, {"SHGE"}));
        is("hasBond", center.hasBond(key), filedUnder(key, {"BANK"}));
        is("hasOuterFuture", center.hasOuterFuture(key), filedUnder(key, {"WP"}));
        is("hasOuterStock", center.hasOuterStock(key), filedUnder(key, {"NYSE", "NASDAQ"}));
        is("hasNyseStock", center_->hasNyseStock(key), filedUnder(key, {"NYSE"}));
        is("hasNasdaqStock", center_->hasNasdaqStock(key), filedUnder(key, {"NASDAQ"}));
        is("hasEtf", center.hasEtf(key), model_->hasEtf(key));
        is("hasOtc", center.hasOtc(key), model_->hasOtc(key));
        is("hasIssuance", center.hasIssuance(key), model_->hasIssuance(key));
        is("hasTenderBond", center.hasTenderBond(key), model_->hasTenderBond(key));

        const InstrumentPtr record = center.getInstrument(key);
        judge_.one("getInstrument " + key, record.get(), model_->getInstrument(key));
        const InstrumentPtr byHash = center.getInstrument(utils::hash(key));
        judge_.one("getInstrument by hash of " + key, byHash.get(), model_->getInstrument(utils::hash(key)));
        if constexpr (!kClient) {
            const auto twin = realOf_.find(model_->find(utils::hash(key)).get());
            if (twin != realOf_.end()) {
                EXPECT_EQ(byHash, twin->second.real) << "the host's own record of " << key;
            }
        }
        judge_.one("getEtf " + key, center.getEtf(key).get(), model_->getEtf(key));
        judge_.one("getBond " + key, center.getBond(key).get(), model_->getBond(utils::hash(key)));
        judge_.one("getOtcInstrument " + key, center.getOtcInstrument(key).get(), model_->getOtcInstrument(key));
        judge_.same("getInterbankCode " + key, center.getInterbankCode(key), model_->getInterbankCode(key));
    }

    void aboutListing(const std::string& market, const std::string& code) {
        const std::string what = market + '|' + code;
        judge_.one("getInstrument " + what, asked().getInstrument(market, code).get(),
                   model_->getInstrument(market, code));
        judge_.one("getEtf " + what, asked().getEtf(market, code).get(), model_->getEtf(market + code));
        EXPECT_EQ(model_->getProductId(market, code).count(asked().getProductId(market, code)), 1U)
            << "getProductId " << what;
        judge_.same("isStkOptionUndlCode " + what, asked().isStkOptionUndlCode(market, code),
                    model_->isStkOptionUndlCode(market, code));
    }

    void aboutCode(const std::string& code) {
        IInstrumentCenter& center = asked();
        judge_.one("getIssuanceInfo " + code, center.getIssuanceInfo(code).get(), model_->getIssuanceInfo(code));
        judge_.one("getIssuancePriceInfo " + code, center.getIssuancePriceInfo(code).get(),
                   model_->getIssuancePriceInfo(code));
        judge_.one("getTenderBondInfo " + code, center.getTenderBondInfo(code).get(), model_->getTenderBondInfo(code));
        judge_.one("getCounterparty " + code, center.getCounterparty(code).get(), model_->getCounterparty(code));
        judge_.same("getLumoCode " + code, center.getLumoCode(code), model_->getLumoCode(code));
    }

    void aboutMarket(const std::string& market, const std::string& second) {
        IInstrumentCenter& center = asked();
        const InstrumentMap map = center.getInstruments(market);
        judge_.map("getInstruments " + market, map, model_->getInstruments(std::list<std::string>{market}));
        std::list<InstrumentPtr> list;
        center.getInstruments(market, list);
        std::vector<std::string> keys;
        for (const InstrumentPtr& record : list) {
            keys.push_back(record->market + record->code);
        }
        judge_.same("getInstruments into a list " + market, keys, keysOf(map));
        const std::list<std::string> markets{market, second, market};
        const std::string what = "getInstruments of " + market + ", " + second;
        judge_.map(what, center.getInstruments(markets), model_->getInstruments(markets));
        InstrumentMap out{{"mine", nullptr}};
        center.getInstruments(markets, out);
        EXPECT_EQ(out.erase("mine"), 1U) << what;
        judge_.map(what, out, model_->getInstruments(markets));
        judge_.map("getFutureMainInstruments " + market, center.getFutureMainInstruments(market),
                   model_->getFutureMainInstruments(market));
        for (const char* const end : {"p0", "p1", "p2", ""}) {
            const std::string product = market + end;
            judge_.same("getProductInstruments " + product, imagesIn(center.getProductInstruments(product)),
                        model_->getProductInstruments(product));
            judge_.same("getProductName " + product, center.getProductName(product), std::string());
            judge_.same("isCommodityProduct " + product, center.isCommodityProduct(product),
                        model_->isCommodityProduct(product));
            judge_.same("isInterestProduct " + product, center.isInterestProduct(product),
                        model_->isInterestProduct(product));
        }
    }

    void aboutType(int type) {
        const auto asType = static_cast<EOvTraderType>(type);
        const std::string what = "getInstruments of type " + std::to_string(type);
        judge_.map(what, asked().getInstruments(asType), model_->getInstruments(type));
        InstrumentMap out;
        asked().getInstruments(asType, out);
        judge_.map(what, out, model_->getInstruments(type));
    }

    void aboutEverything() {
        IInstrumentCenter& center = asked();
        judge_.map("getInstruments", center.getInstruments(), model_->getInstruments());
        InstrumentMap out;
        center.getInstruments(out);
        judge_.map("getInstruments into a map", out, model_->getInstruments());
        judge_.products(center.getProductMainInstruments(), model_->getProductMainInstruments());
        judge_.same("getDceCrossProduct", center.getDceCrossProduct(), model_->getDceCrossProduct());
        judge_.same("getDceCrossPeriod", center.getDceCrossPeriod(), model_->getDceCrossPeriod());
        judge_.same("getStockIpoCodes", center.getStockIpoCodes(), model_->getStockIpoCodes());
        judge_.same("getStockCdrCodes", center.getStockCdrCodes(), model_->getStockCdrCodes());
        judge_.same("getNeeqInquiryCodes", center.getNeeqInquiryCodes(), model_->getNeeqInquiryCodes());
        judge_.map("getEtfs", center.getEtfs(), model_->getEtfs());
        judge_.map("getBonds", center.getBonds(), model_->getBonds());
        judge_.map("getOtcInstruments", center.getOtcInstruments(), model_->getOtcInstruments());
        for (int group = -2; group < 4; ++group) {
            std::vector<Plan> plans{nullptr};
            center.getOtcInstruments(group, plans);
            EXPECT_FALSE(plans.front());
            plans.erase(plans.begin());
            judge_.same("getOtcInstruments of group " + std::to_string(group), imagesIn(plans),
                        model_->getOtcInstruments(group));
        }
        judge_.same("getIssuanceInfos", imagesOf(center.getIssuanceInfos()), model_->getIssuanceInfos());
        judge_.same("getIssuancePriceInfos", imagesOf(center.getIssuancePriceInfos()), model_->getIssuancePriceInfos());
        judge_.same("getCounterpartys", imagesOf(center.getCounterpartys()), model_->getCounterpartys());
        bool unambiguous = true;
        const auto tenderBonds = model_->getTrenderBondInfos(unambiguous);
        if (unambiguous) {
            judge_.same("getTrenderBondInfos", imagesOf(center.getTrenderBondInfos()), tenderBonds);
        }
        judge_.same("getOutterProduct", center.getOutterProduct(), model_->getOutterProduct());
        judge_.same("getOutterMarket", center.getOutterMarket(), model_->getOutterMarket());
        judge_.same("getMarketProductList", center.getMarketProductList(), model_->getMarketProductList());
        for (const auto& [product, name] : model_->getOutterProduct()) {
            judge_.same("getOutterProductName " + product, center.getOutterProductName(product), name);
        }
        for (const auto& [market, name] : model_->getOutterMarket()) {
            judge_.same("getOutterMarketName " + market, center.getOutterMarketName(market), name);
        }
        judge_.same("getOutterProductName of none", center.getOutterProductName("none"), std::string());
        judge_.same("getOutterMarketName of none", center.getOutterMarketName("none"), std::string());
    }

    IInstrumentCenter& asked() { return *center_; }
    void trace(std::string what) { last_ = std::move(what); }

    Maker make_;
    Judge judge_;
    TemporaryStore temporary_;
    std::shared_ptr<FailingEngine> engine_ = [] {
        auto engine = std::make_shared<FailingEngine>();
        TemporaryStore::service().setEngine(engine);
        return engine;
    }();
    StoreModel stored_;
    ClientModel::Cache cache_ = ClientModel::Cache::None;
    std::unique_ptr<typename Side::Model> model_;
    std::unique_ptr<typename Side::Center> center_;
    // Twins are kept: a record's address is not given to another one.
    std::unordered_map<const CInstrumentDetail*, Twin<CInstrumentDetail>> realOf_;
    std::string last_ = "start";
};

template <class Side>
class AgainstTheModel : public testing::Test {
protected:
    AgainstTheModel() { utils::setToday("20260302"); }
    ~AgainstTheModel() override { utils::setToday(""); }
};

using Sides = testing::Types<ServerSide, ClientSide>;
TYPED_TEST_SUITE(AgainstTheModel, Sides);

TYPED_TEST(AgainstTheModel, EveryAnswerIsTheModels) {
    const unsigned seed = seedOfRun();
    const bool server = std::is_same_v<TypeParam, ServerSide>;
    const int steps = fromEnvironment("PM_STEPS", kSanitized ? (server ? 400 : 100) : (server ? 1500 : 250));
    std::string history;
    Walk<TypeParam> walk(seed);
    for (int step = 1; step <= steps && !this->HasFailure(); ++step) {
        walk.step();
        history = walk.last() + "\n" + history.substr(0, 600);
        walk.askSome();
        if (step % 10 == 0 && !this->HasFailure()) {
            walk.askAll();
        }
        if (this->HasFailure()) {
            ADD_FAILURE() << "PM_SEED=" << seed << ", step " << step << "; last steps, latest first:\n" << history;
        }
    }
}

}  // namespace
}  // namespace mxservice
