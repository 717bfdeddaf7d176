#include <boost/make_shared.hpp>

#include <filesystem>
#include <stdexcept>

#include "platform/persist/CPersistService.h"
#include "platform/record/Records.h"
#include "src/Catalogue.h"
#include "src/Changes.h"
#include "src/Day.h"
#include "src/Questions.h"

namespace binding {
namespace {

using mxservice::CETFComponentStockInfo;
using mxservice::CETFDetail;
using mxservice::IInstrumentCenter;

// A load writes fields of the records that it is given, and Python's never change: every load has its own.
template <class Record>
boost::shared_ptr<Record> ownCopy(const boost::shared_ptr<Record>& record) {
    return record ? boost::static_pointer_cast<Record>(record->copy()) : nullptr;
}

boost::shared_ptr<CETFDetail> ownCopy(const boost::shared_ptr<CETFDetail>& fund) {
    if (!fund) {
        return nullptr;
    }
    // With its components, which the record's own copy shares: the persisted center fills in their names.
    auto copy = boost::make_shared<CETFDetail>(*fund);
    for (auto& [code, component] : copy->components) {
        component = component ? boost::make_shared<CETFComponentStockInfo>(*component) : component;
    }
    return copy;
}

template <class Record>
std::vector<boost::shared_ptr<Record>> ownCopy(std::vector<boost::shared_ptr<Record>> records) {
    for (auto& record : records) {
        record = ownCopy(record);
    }
    return records;
}

template <class Record>
std::map<std::string, boost::shared_ptr<Record>> ownCopy(std::map<std::string, boost::shared_ptr<Record>> records) {
    for (auto& [key, record] : records) {
        record = ownCopy(record);
    }
    return records;
}

// What has nothing to copy, for the one form of all loads below.

int ownCopy(int operation) {
    return operation;
}

const std::vector<std::string>& ownCopy(const std::vector<std::string>& texts) {
    return texts;
}

/// A load or update as a function of the center. The copies are made without the interpreter's lock, too: of a large
/// day they take as long as the load.
template <class... Arguments>
auto handIn(void (IInstrumentCenter::*load)(Arguments...)) {
    return [load](Center& center, Arguments... arguments) { (center.operations().*load)(ownCopy(arguments)...); };
}

/// The store of the process, which all persisted centers share as long as one of these lives. Under the interpreter's
/// lock.
class StoreUse {
public:
    explicit StoreUse(const std::string& directory) {
        auto& service = *persist::CPersistService::instance();
        if (count_ > 0 && place(directory) != place(directory_)) {
            throw std::runtime_error("a ClientCenter of this process uses the store " + directory_ +
                                     "; a process has one store at a time");
        }
        if (count_ == 0) {
            const persist::RootStatus status = service.setRootPath(directory);
            if (!status.usable()) {
                // Not left at what cannot be used: the next center may name another directory.
                service.setRootPath("");
                throwOsError(directory + ": " + status.reason());
            }
            directory_ = directory;
        }
        ++count_;
    }
    ~StoreUse() {
        // The files are let go of, so that the directory can be removed.
        if (--count_ == 0) {
            persist::CPersistService::instance()->setRootPath("");
        }
    }
    StoreUse(const StoreUse&) = delete;
    StoreUse& operator=(const StoreUse&) = delete;

private:
    /// The one name among the many of a directory, which is made by the first load and may not be there yet.
    static std::filesystem::path place(const std::string& directory) {
        const auto path = std::filesystem::weakly_canonical(std::filesystem::absolute(directory));
        return path.has_filename() ? path : path.parent_path();
    }

    inline static std::string directory_;
    inline static int count_ = 0;
};

void addServer(py::module_& module) {
    CatalogueClass<ServerCenter, Center>(module, "ServerCenter", "The center in memory.")
        .def(py::init([](const Day* day, const std::string& name) {
                 auto center = makeShared<ServerCenter>(name);
                 if (day != nullptr) {
                     loadCopy(*center, *day);
                 }
                 return center;
             }),
             "An empty center, or one that has loaded a day.", py::arg("day") = nullptr,
             py::arg("name") = "instruments")
        .def(
            "_take", [](ServerCenter& center, const Day& day) { center.load(day.snapshot); }, Release(),
            "Loads a day whose records nobody else has seen.", py::arg("day"))
        .def(
            "view", [](ServerCenter& center) { return makeShared<View>(center.view()); },
            "The catalogue of this moment.");
}

void addClient(py::module_& module) {
    CatalogueClass<ClientCenter, Center>(module, "ClientCenter",
                                         "The center over a store on disk. It knows what it has loaded itself; see "
                                         "Store for what an earlier process has left.")
        .def(py::init([](py::handle store, int instruments, int bonds, int plans, const std::string& name) {
                 auto use = std::make_shared<StoreUse>(pathText(store));  // before the center, which opens databases
                 auto* const center = new ClientCenter(name, instruments, bonds, plans);
                 // The store is let go of after the center.
                 return std::shared_ptr<ClientCenter>(
                     center, [use](ClientCenter* object) { ReleasedDelete<ClientCenter>()(object); });
             }),
             "Over the directory `store`, made when it is missing; the caches are numbers of records.",
             py::arg("store"), py::arg("instrument_cache") = 10000, py::arg("bond_cache") = 1000,
             py::arg("otc_cache") = 1000, py::arg("name") = "instruments");
}

void addCenterLoads(py::class_<Center, Catalogue, std::shared_ptr<Center>>& center) {
    using I = IInstrumentCenter;
    const auto add = [&](const char* name, auto load, const char* doc, const auto&... arguments) {
        center.def(name, handIn(load), Release(), doc, arguments...);
    };
    const py::arg records("records");
    const py::arg byKey("records_by_key");
    const py::arg operation("operation");
    add("init_instruments", &I::initInstruments, "Loads the instruments of markets.", py::arg("markets"), records);
    add("init_etfs", &I::initEtfs, "Loads the funds.", records);
    add("init_bonds", &I::initBonds, "Loads the interbank bonds, by bond code.", byKey);
    add("init_counterpartys", &I::initCounterpartys, "Loads the counterparties, by id.", byKey);
    add("init_otc_instruments", &I::initOtcInstruments, "Loads the OTC fund plans.", records);
    add("init_issuance_infos", &I::initIssuanceInfos, "Loads the OTC issuances.", records);
    add("init_issuance_price_infos", &I::initIssuancePriceInfos, "Loads the price settings, by code.", byKey);
    add("init_tender_bond_infos", &I::initTenderBondInfos, "Loads the bonds on tender, by code.", byKey);
    add("update_otc_instruments", &I::updateOtcInstruments, "Inserts or replaces plans.", records);
    add("update_issuance_infos", &I::updateIssuanceInfos, "0 and 2 put issuances, 3 removes them.", operation, records);
    add("update_issuance_price_info", &I::updateIssuancePriceInfo, "0 and 2 put a price setting, 3 removes.", operation,
        py::arg("record"));
    add("update_tender_bond_infos", &I::updateTenderBondInfos, "Inserts or replaces bonds on tender.", records);
    add("update_counterparty_info", &I::updateCounterpartyInfo, "Puts a counterparty, or removes one that says so.",
        py::arg("record"));
    center
        .def("load", loadCopy,
             "Loads every catalogue of the day that has records; in the center in memory all as one version.",
             py::arg("day"))
        .def(
            "replace_instruments",
            [](Center& self, const std::vector<std::string>& markets, const Instruments& instruments) {
                self.replaceInstruments(markets, ownCopy(instruments));
            },
            Release(), "As init_instruments, but what the markets had beside the records is gone.", py::arg("markets"),
            records)
        .def("remove_markets", &Center::removeMarkets, Release(), "Removes whole markets.", py::arg("markets"))
        .def(
            "apply_changes",
            [](Center& self, const Instruments& upserts, const std::vector<std::string>& removedKeys) {
                self.applyChanges(ownCopy(upserts), removedKeys);
            },
            Release(), "Puts single records and removes single keys, as one version.",
            py::arg("upserts") = Instruments(), py::arg("removed_keys") = std::vector<std::string>());
}

}  // namespace

void addCenters(py::module_& module) {
    py::class_<Center, Catalogue, std::shared_ptr<Center>> center(module, "Center", "What both centers have.");
    addQuestions<Center, IInstrumentCenter>(center);
    addCenterLoads(center);
    addSubscribe(module, center);
    using I = IInstrumentCenter;
    center.def("has_nyse_stock", &Center::hasNyseStock, "Whether \"NYSE\" has the key.", py::arg("code"))
        .def("has_nasdaq_stock", &Center::hasNasdaqStock, "Whether \"NASDAQ\" has the key.", py::arg("code"))
        .def(
            "get_instrument", [](Center& self, const std::string& code) { return self.get(code); }, Release(),
            "The record of a key, or None.", py::arg("code"))
        .def(
            "get_instrument", [](Center& self, std::uint64_t key) { return self.get(key); }, Release(),
            "The record of a 64-bit key, or None.", py::arg("key"))
        .def(
            "get_instrument",
            [](Center& self, const std::string& market, const std::string& code) { return self.get(market, code); },
            Release(), "The record of a market and code, or None.", py::arg("market"), py::arg("code"))
        .def(
            "get_otc_instruments",
            [](Center& self, int group) {
                std::vector<boost::shared_ptr<mxservice::COTCFundPlanInfo>> plans;
                self.operations().getOtcInstruments(group, plans);
                return plans;
            },
            Release(), "The OTC fund plans of a group, -1 for all; none in the persisted center.", py::arg("group"))
        .def("get_product_instruments", ask<Center>(&I::getProductInstruments), Release(),
             "The contracts of a product id; none in the in-memory center, see get_contracts.", py::arg("product_id"))
        .def("get_product_name", ask<Center>(&I::getProductName), "Empty in both centers.", py::arg("product_id"))
        .def("get_interbank_code", ask<Center>(&I::getInterbankCode),
             "The interbank code of a listed bond; the persisted center's alone.", py::arg("code"))
        .def("get_issuance_price_info", ask<Center>(&I::getIssuancePriceInfo), "A price setting, or None.",
             py::arg("code"))
        .def("get_issuance_price_infos", ask<Center>(&I::getIssuancePriceInfos), Release(),
             "Every price setting, by code; the persisted center's alone.")
        .def("get_outter_product_name", ask<Center>(&I::getOutterProductName), "The name of an outer product.",
             py::arg("product_id"))
        .def("get_outter_product", ask<Center>(&I::getOutterProduct), "Names of outer products, by id.")
        .def("get_outter_market_name", ask<Center>(&I::getOutterMarketName), "The name of an outer market.",
             py::arg("market"))
        .def("get_outter_market", ask<Center>(&I::getOutterMarket), "Names of outer markets, by key.")
        .def("get_market_product_list", ask<Center>(&I::getMarketProductList), "Product ids by outer market.")
        .def("is_commodity_product", ask<Center>(&I::isCommodityProduct), "Whether an outer product is a commodity.",
             py::arg("product_id"))
        .def("is_interest_product", ask<Center>(&I::isInterestProduct),
             "Whether an outer product is of interest rates.", py::arg("product_id"))
        .def("clear_persist", ask<Center>(&I::clearPersist), Release(),
             "Removes the catalogue databases beneath a directory, which no center uses.", py::arg("path"))
        .def("statistics", &Center::statistics, Release(), "What the loads did and how large the tables are.");
    addServer(module);
    addClient(module);
}

}  // namespace binding
