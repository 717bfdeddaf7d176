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
constexpr const char* kMarketMap = "market as map, per record";
constexpr const char* kMarketList = "market as list, per record";
constexpr const char* kLoad = "load, per record";

/// Adds lookups, misses and predicates with 1 and 2 threads. `workload` must outlive the suite's run.
void addLookups(Suite& suite, Workload& workload);

/// Adds the lists of one market with 1 and 2 threads. `workload` must outlive the suite's run.
void addMarketLists(Suite& suite, Workload& workload);

/// Adds loads of ready records into an empty center. `workload` must outlive the suite's run.
void addLoads(Suite& suite, Workload& workload);

/// The size that the targets of loads speak of.
constexpr std::size_t kTargetSize = 300000;

/// Adds what each derived catalogue takes of a load. `workload` must outlive the suite's run.
void addDerivations(Suite& suite, Workload& workload);

}  // namespace bench
