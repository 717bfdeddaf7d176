#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <functional>
#include <numeric>
#include <random>
#include <utility>

#include "BsonForm.h"
#include "Footprint.h"
#include "StoreWorkload.h"
#include "Timing.h"
#include "system/Memory.h"

// Loads of the persisted center, and what they leave on disk and in memory.

namespace bench {
namespace {

using mxservice::CClientInstrumentCenter;
using mxservice::CETFDetail;
using mxservice::IData;

constexpr unsigned kSeed = 20260105;
constexpr const char* kUnordered = "libbson + LMDB, records as they come";
constexpr double kLoadAtMost = 1.5;
constexpr double kUnorderedLoadAtMost = 0.6;
constexpr double kEtfLoadAtMost = 2;
constexpr double kFileBytesAtMost = 0.7;
constexpr double kMemoryAtMost = 0.1;
/// Above this many records a load takes a second and is repeated fewer times.
constexpr std::size_t kManyRecords = 50000;
constexpr int kFewRepetitions = 3;
constexpr int kRepetitions = 7;

/// The persisted center gives free memory back when a load ends, and the next one has to fetch it again. So that the
/// others do not find theirs ready, or only sometimes, none is kept before any load.
struct NothingKept {
    NothingKept() { sys::releaseFreeMemory(); }
};

/// A persisted center on an empty store of its own.
struct FreshCenter : NothingKept {
    TemporaryStore store;
    CClientInstrumentCenter center{"bench", kCachedRecords, kCachedRecords, kCachedRecords};
};

/// Bare stores, open once they are written.
struct FreshStores : NothingKept {
    TemporaryDirectory root;
    std::vector<std::unique_ptr<BareStore>> stores;
};

/// Notes how large the files have become when the stores go.
struct NoteBytes {
    double* bytes;
    void operator()(FreshStores* fresh) const {
        *bytes = dataBytes(fresh->root.path());
        delete fresh;
    }
};

/// Everything in the store beneath `root`, which nobody has open.
StoredDay storedDay(const std::filesystem::path& root) {
    StoredDay day;
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        StoredDatabase& database = day.emplace_back();
        database.name = entry.path().filename();
        BareStore(entry.path()).visitAll([&](std::string_view key, std::string_view bytes) {
            database.keys.emplace_back(key);
            database.records.push_back(mxservice::TypeManager::instance()->parse(bytes, nullptr));
        });
    }
    return day;
}

/// Loads a center by `load` and hands out what that leaves in the store; `bytes` gets the size of the files.
StoredDay loadedDay(const std::function<void(CClientInstrumentCenter&)>& load, double& bytes) {
    FreshCenter fresh;
    load(fresh.center);
    bytes = dataBytes(fresh.store.path());
    const std::filesystem::path path = fresh.store.path();
    TemporaryStore::service().setRootPath("");  // closes the databases
    return storedDay(path);
}

/// The day in the order in which a snapshot would bring it, which is none as far as document keys go. Like a
/// snapshot's, its records lie in memory one behind the other.
StoredDay asItComes(const StoredDay& day) {
    StoredDay shuffled;
    std::mt19937 random(kSeed);
    for (const StoredDatabase& database : day) {
        std::vector<std::size_t> places(database.keys.size());
        std::iota(places.begin(), places.end(), std::size_t{0});
        std::shuffle(places.begin(), places.end(), random);
        StoredDatabase& target = shuffled.emplace_back();
        target.name = database.name;
        for (const std::size_t place : places) {
            target.keys.push_back(database.keys[place]);
            target.records.push_back(database.records[place]->copy());
        }
    }
    return shuffled;
}

/// Encodes and writes every document of the day, one transaction for each database.
template <class Encode>
void writeDay(const StoredDay& day, bool ascending, const Encode& encode, FreshStores& fresh) {
    for (const StoredDatabase& database : day) {
        std::size_t next = 0;
        fresh.stores.push_back(std::make_unique<BareStore>(fresh.root.path() / database.name));
        fresh.stores.back()->write(ascending, [&](std::string_view& key, std::string_view& value) {
            if (next == database.keys.size()) {
                return false;
            }
            key = database.keys[next];
            value = encode(*database.records[next]);
            ++next;
            return true;
        });
    }
}

void writeInOrder(const StoredDay& day, FreshStores& fresh) {
    std::string bytes;
    const auto encode = [&bytes](const IData& record) -> std::string_view {
        bytes.clear();
        record.appendDocument(bytes);
        return bytes;
    };
    writeDay(day, true, encode, fresh);
}

/// `day` is in no order.
void writeUnordered(const StoredDay& day, FreshStores& fresh) {
    BsonEncoder encoder;
    writeDay(
        day, false, [&encoder](const IData& record) { return encoder.encode(record); }, fresh);
}

Series loadSeries(const char* what, const char* who, std::size_t items, double centerAtMost) {
    Series series = timedSeries(what, who, items, items > kManyRecords ? kFewRepetitions : kRepetitions);
    series.centerAtMost = centerAtMost;
    return series;
}

}  // namespace

StoreLoads::StoreLoads(std::size_t size) : records_(makeMarketDay(size)) {
    day_ = loadedDay([this](CClientInstrumentCenter& center) { center.initInstruments(kLoadedMarkets, records_); },
                     centerBytes_);
}

void StoreLoads::add(Suite& suite) const {
    suite.add(loadSeries(kStoreLoad, kCenter, records_.size(), 0),
              timeLoads([] { return std::make_unique<FreshCenter>(); },
                        [this](FreshCenter& fresh) { fresh.center.initInstruments(kLoadedMarkets, records_); }));
    suite.add(loadSeries(kStoreLoad, kFloor, records_.size(), kLoadAtMost),
              timeLoads([] { return std::make_unique<FreshStores>(); },
                        [this](FreshStores& fresh) { writeInOrder(day_, fresh); }));
    suite.add(loadSeries(kStoreLoad, kUnordered, records_.size(), kUnorderedLoadAtMost),
              timeLoads(
                  [bytes = unorderedBytes_] {
                      return std::unique_ptr<FreshStores, NoteBytes>(new FreshStores, NoteBytes{bytes.get()});
                  },
                  [day = asItComes(day_)](FreshStores& fresh) { writeUnordered(day, fresh); }));
}

std::optional<Footprint> StoreLoads::fileBytes() const {
    if (*unorderedBytes_ == 0) {
        return std::nullopt;
    }
    const auto count = static_cast<double>(records_.size());
    return Footprint{"files of the store",     kUnordered,      records_.size(), centerBytes_ / count,
                     *unorderedBytes_ / count, kFileBytesAtMost};
}

EtfLoads::EtfLoads() : etfs_(makeEtfs()) {
    double bytes = 0;
    day_ = loadedDay([this](CClientInstrumentCenter& center) { center.initEtfs(etfs_); }, bytes);
}

void EtfLoads::add(Suite& suite) const {
    suite.add(loadSeries(kEtfLoad, kCenter, etfs_.size(), 0),
              timeLoads([] { return std::make_unique<FreshCenter>(); },
                        [this](FreshCenter& fresh) { fresh.center.initEtfs(etfs_); }));
    suite.add(loadSeries(kEtfLoad, kFloor, etfs_.size(), kEtfLoadAtMost),
              timeLoads([] { return std::make_unique<FreshStores>(); },
                        [this](FreshStores& fresh) { writeInOrder(day_, fresh); }));
}

Footprint clientMemory(std::size_t size) {
    const double client = anonymousBytes([size] {
        auto fresh = std::make_shared<FreshCenter>();
        std::vector<std::string> texts;
        {
            const Records records = makeMarketDay(size);
            fresh->center.initInstruments(kLoadedMarkets, records);
            for (const InstrumentPtr& record : records) {
                texts.push_back(filedKeyText(*record));
            }
        }
        constexpr std::size_t kReads = 5 * kCachedRecords;
        for (std::size_t i = 0; i < kReads; ++i) {
            fresh->center.getInstrument(texts[i * texts.size() / kReads]);
        }
        return fresh;
    });
    const double server = anonymousBytes([size] {
        auto center = std::make_shared<mxservice::CServerInstrumentCenter>("bench");
        center->initInstruments(kLoadedMarkets, makeMarketDay(size));
        return center;
    });
    const auto count = static_cast<double>(size);
    return {"memory, caches of 1,000 full",         "in-memory center", size, client / count, server / count,
            size > kManyRecords ? kMemoryAtMost : 0};
}

}  // namespace bench
