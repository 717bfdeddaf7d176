#include "src/Store.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/persist/StoreEngine.h"
#include "platform/record/Records.h"
#include "platform/utils/Hash.h"
#include "src/Casters.h"
#include "src/Day.h"
#include "src/Interpreter.h"

namespace binding {
namespace {

namespace fs = std::filesystem;
using mxservice::IData;
using mxservice::SnapshotCatalogue;
using persist::StoreDatabase;
using persist::StoreStatus;

constexpr std::string_view kPrefix = "OvIns_";  // stored; never changes
constexpr std::string_view kSetAside = ".damaged-";
constexpr const char* kDataFile = "data.mdb";

/// A catalogue database of the store.
struct Database {
    std::string name;
    std::string market;
    fs::path path;
};

/// The catalogue whose records the database holds; nothing for those that repeat what others hold.
std::optional<SnapshotCatalogue> catalogueOf(const std::string& market) {
    for (const char* const repeated : {"FUMAIN", "FUPROD", "ETFINSTS", "BANK"}) {
        if (market == repeated) {
            return std::nullopt;
        }
    }
    return market == "ALLETF"     ? SnapshotCatalogue::Etfs
           : market == "BANKBOND" ? SnapshotCatalogue::Bonds
           : market == "OTCINS"   ? SnapshotCatalogue::OtcPlans
                                  : SnapshotCatalogue::Instruments;
}

/// What went wrong with a database, as Python's StoreError; thrown without the interpreter's lock and translated with
/// it.
class StoreFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A store's root. Opens a database for each question and for reading only, so that it shows what is on disk by then,
/// also beside a process that writes.
class Store {
public:
    static Store open(py::handle path) {
        Store store;
        const std::string text = pathText(path);
        // Python's own errors for a path that cannot be listed. An empty directory is a store that nobody has loaded
        // yet.
        std::error_code error;
        fs::directory_iterator(text, error);
        if (error) {
            throwOsError(error.value(), path);
        }
        store.root_ = text;
        if (store.databases().empty() && !fs::is_empty(store.root_)) {
            throw StoreFailure(text + ": is no store: there is no catalogue database in it");
        }
        return store;
    }

    const fs::path& root() const { return root_; }

    /// By name. A load that was killed early leaves a directory without a data file, or with an empty one.
    std::vector<Database> databases() const {
        std::vector<Database> found;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(root_, error)) {
            const std::string name = entry.path().filename();
            const bool there = fs::file_size(entry.path() / kDataFile, error) > 0 && !error;
            if (there && name.starts_with(kPrefix) && name.find(kSetAside) == std::string::npos) {
                found.push_back({name, name.substr(kPrefix.size()), entry.path()});
            }
        }
        std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
        return found;
    }

    Day day() const {
        Day day;
        for (const Database& database : databases()) {
            if (const auto catalogue = catalogueOf(database.market)) {
                read(database, *catalogue, day.snapshot);
            }
        }
        return day;
    }

    /// The instrument of a key text. The markets whose names it begins with may have it; the longer name first.
    /// Two markets may split one text in different places; the store alone does not say which a center would answer.
    boost::shared_ptr<mxservice::CInstrumentDetail> get(std::string key) const {
        if (key.starts_with("HGT") || key.starts_with("SGT")) {
            key.replace(0, 3, "HK");  // as a center files them
        }
        std::vector<Database> candidates = databases();
        std::erase_if(candidates, [&](const Database& one) {
            return !key.starts_with(one.market) || catalogueOf(one.market) != SnapshotCatalogue::Instruments;
        });
        std::sort(candidates.begin(), candidates.end(),
                  [](const auto& a, const auto& b) { return a.market.size() > b.market.size(); });
        boost::shared_ptr<mxservice::CInstrumentDetail> record;
        for (const Database& candidate : candidates) {
            const auto database = opened(candidate);
            check(candidate, database->get(std::to_string(utils::hash(key)), [&](auto, std::string_view bytes) {
                record = boost::dynamic_pointer_cast<mxservice::CInstrumentDetail>(
                    mxservice::TypeManager::instance()->parse(bytes, nullptr));
                return true;
            }));
            if (record) {
                break;
            }
        }
        return record;
    }

private:
    static void check(const Database& database, const StoreStatus& status) {
        if (status.failed()) {
            const bool damaged = status.kind == StoreStatus::Kind::Damaged;
            throw StoreFailure(database.name + (damaged ? ": damaged, or of another version: " : ": cannot be read: ") +
                               status.reason);
        }
    }

    std::shared_ptr<StoreDatabase> opened(const Database& database) const {
        StoreStatus status;
        auto open = engine_->open(database.path.string(), persist::StoreEngine::Mode::ReadExisting, status);
        check(database, status);
        if (!open) {  // since it was listed
            throw StoreFailure(database.name + ": has gone");
        }
        return open;
    }

    void read(const Database& database, SnapshotCatalogue catalogue, mxservice::Snapshot& snapshot) const {
        const auto open = opened(database);
        check(database, open->scan({}, [&](std::string_view key, std::string_view bytes) {
            auto record = mxservice::TypeManager::instance()->parse(bytes, nullptr);
            // By the exact class: a document that parses as another one has been damaged, or put there by hand.
            if (record && &record->recordType() == &mxservice::catalogueType(catalogue)) {
                // Funds stand there twice, under each of their codes.
                const bool second =
                    catalogue == SnapshotCatalogue::Etfs && key != std::to_string(utils::hash(record->getKey()));
                if (!second) {
                    snapshot.add(catalogue, std::move(record));
                }
                return true;
            }
            snapshot.issues.push_back({database.name, 0, std::string(key), "a document that is none of its kind",
                                       mxservice::SnapshotIssueKind::LineSkipped});
            ++snapshot.skippedLines;
            return true;
        }));
    }

    std::shared_ptr<persist::StoreEngine> engine_ = persist::makeLmdbEngine();
    fs::path root_;
};

// Reading goes to the disk, so that others run meanwhile.

Day dayOf(const Store& store) {
    const Released released;
    return store.day();
}

boost::shared_ptr<mxservice::CInstrumentDetail> recordOf(const Store& store, const std::string& key) {
    const Released released;
    return store.get(key);
}

}  // namespace

void addStore(py::module_& module) {
    py::register_exception<StoreFailure>(module, "StoreError", PyExc_OSError).doc() =
        "A store that cannot be read: damaged, of a newer version, or none at all.";
    py::class_<Store>(module, "Store",
                      "What a ClientCenter has left on disk, also beside a process that uses it. Nothing is written.")
        .def_static("open", &Store::open, "The store in a directory.", py::arg("path"))
        .def_property_readonly(
            "path", [](const Store& store) { return store.root().string(); }, "The directory.")
        .def_property_readonly(
            "databases",
            [](const Store& store) {
                std::vector<std::string> names;
                for (const Database& database : store.databases()) {
                    names.push_back(database.name);
                }
                return names;
            },
            "The names of its catalogue databases.")
        .def(
            "day", dayOf,
            "Everything that it holds as a day: instruments, funds, bonds and OTC plans; documents that cannot be used "
            "are its issues.")
        .def("get", recordOf, "The instrument of a key text, read now, or None.", py::arg("key"))
        .def(
            "__getitem__",
            [](const Store& store, const std::string& key) {
                auto record = recordOf(store, key);
                if (!record) {
                    throw py::key_error(key);
                }
                return record;
            },
            "As get; KeyError for a miss.", py::arg("key"))
        .def(
            "__contains__", [](const Store& store, const std::string& key) { return recordOf(store, key) != nullptr; },
            "Whether get finds it.", py::arg("key"))
        .def(
            "table",
            [](const Store& store, const std::string& catalogue, const py::object& fields) {
                return dayOf(store).table(catalogue, fields);
            },
            "One catalogue as columns.", py::arg("catalogue") = "instruments", py::arg("fields") = py::none());
}

}  // namespace binding
