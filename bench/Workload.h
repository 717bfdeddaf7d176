#pragma once

#include "BareIndexes.h"
#include "MarketDay.h"
#include "Suite.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"

namespace bench {

/// One market day, loaded into a center and into everything that the center is measured against. All of them share
/// the records.
struct Workload {
    Records records;
    mxservice::CServerInstrumentCenter center{"bench"};
    BareIndexes bare;
    NodeRival node;
    TextRival text;
};

/// What questions; each is also the name of a row.
constexpr const char* kTextLookup = "lookup by text";
constexpr const char* kHashLookup = "lookup by hash";
constexpr const char* kMiss = "lookup, miss";
constexpr const char* kHasStock = "hasStock";
constexpr const char* kHasConnectCode = "hasCode, connect text";
constexpr const char* kViewLookup = "lookup by text, view";
constexpr const char* kHotView = "one key, view";
constexpr const char* kBulk = "256 keys at once, per key";
constexpr const char* kMarketVisit = "market visited, per record";
constexpr const char* kOneRecord = "load of one record";
constexpr const char* kToldElsewhere = "reload, told elsewhere, per record";
constexpr const char* kToldHere = "reload, told by the load, per record";
constexpr const char* kOneChange = "change of one record";
constexpr const char* kMarketMap = "market as map, per record";
constexpr const char* kMarketList = "market as list, per record";
constexpr const char* kLoad = "load, per record";
constexpr const char* kChain = "option chain";
constexpr const char* kContracts = "contracts of a product";
constexpr const char* kExpiring = "what expires on a day";

/// How much is asked of a day: everything, or only what is drawn as a curve over the sizes of days.
enum class Extent { Whole, Curve };

/// Adds lookups, misses and predicates with 1 and 2 threads; for the curve, lookups by text with one thread. `workload`
/// must outlive the suite's run.
void addLookups(Suite& suite, Workload& workload, Extent extent);

/// Adds the lists of one market with 1 and 2 threads. `workload` must outlive the suite's run.
void addMarketLists(Suite& suite, Workload& workload);

/// Adds loads of ready records into an empty center, and of one record into a full one. `workload` must outlive the
/// suite's run.
void addLoads(Suite& suite, Workload& workload, Extent extent);

/// Adds what the derived catalogues take of a load: all of them together and, with `each`, one by one. `workload` must
/// outlive the suite's run.
void addDerivations(Suite& suite, Workload& workload, bool each);

/// Adds contracts, chains and days, and the first such question after a load. `workload` must outlive the suite's run.
void addChains(Suite& suite, Workload& workload);

}  // namespace bench
