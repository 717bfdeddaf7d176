#include <gtest/gtest.h>

#include <stdexcept>

#include "tests/CenterFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/model/Judge.h"
#include "tests/model/Questions.h"
#include "tests/model/RecordMaker.h"

// Random loads, changes, clears and restarts against a literal model of the catalogue; after each step random
// questions, now and then all of them. PM_SEED repeats a run, PM_STEPS makes it longer.

namespace mxservice {
namespace {

using namespace model;

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
        Questions<Side> ask(*center_, *model_, realOf_);
        for (int i = 0; i < 12 && !testing::Test::HasFailure(); ++i) {
            ask.aboutKey(make_.keyText());
            ask.aboutMarket(make_.oneOf(kMarkets), make_.oneOf(kMarkets));
        }
        ask.aboutType(make_.oneOf(kTraderTypes));
    }

    void askAll() {
        Questions<Side> ask(*center_, *model_, realOf_);
        for (const std::string& market : kMarkets) {
            ask.aboutMarket(market, make_.oneOf(kMarkets));
            for (const std::string& code : kCodes) {
                ask.aboutKey(market + code);
                ask.aboutListing(market, code);
            }
        }
        for (const std::string& code : kCodes) {
            ask.aboutKey(code);
            ask.aboutCode(code);
        }
        for (const int type : kTraderTypes) {
            ask.aboutType(type);
        }
        ask.aboutEverything();
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
    TwinsByModel realOf_;
    std::string last_ = "start";
};

template <class Side>
class AgainstTheModel : public testing::Test {
    PinnedDay day_;
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
