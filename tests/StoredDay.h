#pragma once

#include <boost/pointer_cast.hpp>

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "platform/persist/CPersistService.h"
#include "system/Path.h"
#include "tests/SecondaryRecords.h"

// Days whose every record carries the number of its load in its name, so that a store tells which loads it holds.

namespace mxservice {

/// The loads of one center are numbered upwards from a multiple of this.
constexpr int kLoadsOfACenter = 100000;

/// How many codes each market has in a load. A center's first load writes over what an earlier process left without
/// emptying it, so it brings every code there is; later ones bring fewer.
constexpr int kStoredCodes = 100;
inline int codesOf(int load) {
    return load % kLoadsOfACenter == 0 ? kStoredCodes : kStoredCodes / 2 + load * 7 % (kStoredCodes / 2);
}

/// Every second load of a center brings the whole day, the others "SZ" and the plans alone.
inline bool isWhole(int load) {
    return load % 2 == 0;
}

/// The newest load up to `load`, of the same center, that wrote the database.
inline int lastLoadOf(const std::string& db, int load) {
    return isWhole(load) || db == "OvIns_SZ" || db == "OvIns_OTCINS" ? load : load - 1;
}

inline void load(CClientInstrumentCenter& center, int number) {
    const std::string name = std::to_string(number);
    const int codes = codesOf(number);
    std::vector<std::string> markets{"SZ"};
    if (isWhole(number)) {
        markets = {"SH", "SHFI", "SZ", "HK", "HGT", "DCE", "CFFEX"};
    }
    std::vector<boost::shared_ptr<CInstrumentDetail>> instruments;
    for (const std::string& market : markets) {
        for (int i = 0; i < codes; ++i) {
            auto record = boost::make_shared<CInstrumentDetail>();
            record->market = market;
            record->code = std::to_string(i);
            record->platformCode = record->code;
            record->name = name;
            record->productId = "p" + std::to_string(i % 10);
            record->mainContractFlag = i % 10 == 0 ? 1 : 0;
            instruments.push_back(record);
        }
    }
    center.initInstruments(markets, instruments);
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
    for (int i = 0; i < codes; ++i) {
        plans.push_back(plan("P" + std::to_string(i), 1, name));
    }
    center.initOtcInstruments(plans);
    if (isWhole(number)) {
        const auto fund = etf("SH", "510050", "510051");
        addComponent(*fund, "SH", "600000", name);
        fund->name = name;
        center.initEtfs({fund});
        const auto listed = bond("240001", "019733");
        listed->bondName = name;
        center.initBonds({{"b", listed}});
        center.updateCounterpartyInfo(counterparty(name));
        center.updateIssuanceInfos(0, {issuance("I", name)});
    }
}

/// What stands in a database of such a day.
struct StoredLoads {
    std::map<int, std::size_t> documents;  // how many, by load
    std::string problem;

    bool isRaw = false;
    bool isOneOfTwo = false;  // only the records of one futures market are counted

    /// The load that wrote the database last. A raw database also keeps what older loads left.
    int newest() const { return documents.empty() ? -1 : documents.rbegin()->first; }
};

inline std::size_t documentsOf(const std::string& db, int load) {
    const auto codes = static_cast<std::size_t>(codesOf(load));
    static const std::map<std::string, std::size_t> fixed{
        {"OvIns_ALLETF", 2}, {"OvIns_ETFINSTS", 1}, {"OvIns_BANKBOND", 1}, {"OvIns_BANK", 1}};
    const auto found = fixed.find(db);
    if (found != fixed.end()) {
        return found->second;
    }
    if (db == "OvIns_FUMAIN") {
        return 2 * ((codes + 9) / 10);
    }
    return db == "OvIns_FUPROD" ? 2 * codes : codes;
}

/// The databases of a center that has loaded a whole day.
inline const std::set<std::string>& storedDatabases() {
    static const std::set<std::string> names{"OvIns_SH",       "OvIns_SZ",     "OvIns_HK",       "OvIns_DCE",
                                             "OvIns_CFFEX",    "OvIns_FUMAIN", "OvIns_FUPROD",   "OvIns_ALLETF",
                                             "OvIns_ETFINSTS", "OvIns_BANK",   "OvIns_BANKBOND", "OvIns_OTCINS",
                                             "OvRawSH",        "OvRawHK",      "OvRawHGT"};
    return names;
}

/// The markets of a day whose records the databases of derived futures hold.
inline const std::set<std::string>& futureMarkets() {
    static const std::set<std::string> names{"CFFEX", "DCE"};
    return names;
}

/// Reads every document of a database, or those of one futures market's records, past the service; nothing when there
/// is no such database.
inline std::optional<StoredLoads> storedLoads(const std::filesystem::path& root, const std::string& db,
                                              const std::string& market = {}) {
    persist::StoreStatus status;
    const auto database =
        persist::makeLmdbEngine()->open(sys::textOf(root / db), persist::StoreEngine::Mode::ReadExisting, status);
    if (!database && !status.failed()) {
        return std::nullopt;
    }
    StoredLoads loads;
    loads.isRaw = db.rfind("OvRaw", 0) == 0;
    loads.isOneOfTwo = !market.empty();
    if (database) {
        status = database->scan({}, [&](std::string_view, std::string_view bytes) {
            const auto record = TypeManager::instance()->parse(bytes, &loads.problem);
            std::string name = "-1";
            if (const auto instrument = boost::dynamic_pointer_cast<CInstrumentDetail>(record)) {
                name = instrument->name;
                if (!market.empty() && instrument->market != market) {
                    return true;
                }
            } else if (const auto fund = boost::dynamic_pointer_cast<CETFDetail>(record)) {
                name = fund->name;
            } else if (const auto listed = boost::dynamic_pointer_cast<CBondInfoDetail>(record)) {
                name = listed->bondName;
            }
            ++loads.documents[std::stoi(name)];
            return true;
        });
    }
    if (!status.ok()) {
        loads.problem = status.reason;
    }
    return loads;
}

/// Why the database does not hold exactly one of the loads `allowed`; empty when it does.
inline std::string notOneOf(const std::set<int>& allowed, const std::string& db, const StoredLoads& loads) {
    std::string seen = db + " holds";
    for (const auto& [number, documents] : loads.documents) {
        seen += " " + std::to_string(documents) + " of load " + std::to_string(number);
    }
    const int newest = loads.newest();
    if (!loads.problem.empty()) {
        return db + ": " + loads.problem;
    }
    if (allowed.count(newest) == 0) {
        return seen + ": neither the old load nor the new one";
    }
    if (!loads.isRaw && loads.documents.size() != 1) {
        return seen + ": a mixture";
    }
    const std::size_t expected = documentsOf(db, newest) / (loads.isOneOfTwo ? futureMarkets().size() : 1);
    return loads.documents.at(newest) == expected ? std::string() : seen + ", not " + std::to_string(expected);
}

}  // namespace mxservice
