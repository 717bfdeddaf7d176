#pragma once

#include <boost/shared_ptr.hpp>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "BareStore.h"
#include "Comparison.h"
#include "MarketDay.h"
#include "Suite.h"
#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "tests/TemporaryStore.h"

namespace bench {

/// The records that each of the persisted center's caches holds.
constexpr int kCachedRecords = 1000;

/// What questions about the persisted center; each is also the name of a row.
constexpr const char* kCachedRead = "client: cached read";
constexpr const char* kStoreRead = "client: store read";
constexpr const char* kStoreScan = "client: market, per record";
constexpr const char* kDecode = "document: decode";
constexpr const char* kEncode = "document: encode";
constexpr const char* kStoreLoad = "client: load, per record";
constexpr const char* kEtfLoad = "client: load, per ETF";

/// One market day in a persisted center, an in-memory one and bare stores, one for each market.
class StoreWorkload {
public:
    explicit StoreWorkload(std::size_t size);

    /// One key in every form in which somebody asks for it.
    struct Question {
        std::string text;
        std::string documentKey;
        const BareStore* bare;
    };

    mxservice::IInstrumentCenter& client() { return client_; }
    mxservice::IInstrumentCenter& server() { return server_; }
    /// Every record's, in random order.
    const std::vector<Question>& questions() const { return questions_; }
    const Records& records() const { return records_; }
    const BareStore& bare(const std::string& market) const { return *bareByMarket_.at(market); }
    /// Visits every document in the bare stores.
    void visitDocuments(const BareStore::Visitor& visit) const;

private:
    void fillBareStores();

    const Records records_;
    const TemporaryDirectory bareRoot_;
    const TemporaryStore store_;
    std::map<std::string, std::unique_ptr<BareStore>> bareByMarket_;
    std::vector<Question> questions_;
    mxservice::CServerInstrumentCenter server_{"bench"};
    mxservice::CClientInstrumentCenter client_{"bench", kCachedRecords, kCachedRecords, kCachedRecords};
};

/// Adds single reads from stores of other makes. `workload` must outlive the suite's run.
void addRivalReads(Suite& suite, const StoreWorkload& workload);

/// Adds single reads and the list of a market with 1 and 2 threads, and the coding of documents. `workload` must
/// outlive the suite's run.
void addStoreReads(Suite& suite, StoreWorkload& workload);

/// What a load has left in a store, database by database, in the order of the document keys.
struct StoredDatabase {
    std::string name;
    std::vector<std::string> keys;
    std::vector<boost::shared_ptr<mxservice::IData>> records;
};
using StoredDay = std::vector<StoredDatabase>;

/// Loads of ready records into a persisted center with an empty store, and the writing of the same documents into bare
/// stores. Nothing else may use the store while the suite runs.
class StoreLoads {
public:
    explicit StoreLoads(std::size_t size);

    void add(Suite& suite) const;
    /// Bytes of the files that are left behind; nothing before the unordered ones were written.
    std::optional<Footprint> fileBytes() const;

private:
    const Records records_;
    StoredDay day_;
    double centerBytes_ = 0;
    const std::shared_ptr<double> unorderedBytes_ = std::make_shared<double>(0);
};

/// The same for a day of funds.
class EtfLoads {
public:
    EtfLoads();

    void add(Suite& suite) const;

private:
    std::vector<boost::shared_ptr<mxservice::CETFDetail>> etfs_;
    StoredDay day_;
};

/// Adds what a commit costs: of the store as it is used, and of LMDB for each of its durability settings. The stores
/// are made where temporary files go at the time; the settings differ on a disk only.
void addCommits(Suite& suite);

/// Memory of a persisted center against that of an in-memory one for the same day.
Footprint clientMemory(std::size_t size);

}  // namespace bench
