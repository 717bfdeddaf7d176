#include <fmt/format.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "StoreWorkload.h"
#include "platform/persist/CPersistService.h"

// What it costs to have a transaction on disk.

namespace bench {
namespace {

constexpr int kRepetitions = 7;
constexpr int kIterations = 15;
constexpr std::size_t kBatch = 1000;
constexpr double kCommitAtMost = 1.3;  // of one document; of many, their bytes are most of it

struct Setting {
    const char* name;
    unsigned flags;
};
constexpr Setting kSettings[] = {
    {kFloor, 0}, {"LMDB, MDB_NOMETASYNC", MDB_NOMETASYNC}, {"LMDB, MDB_NOSYNC", MDB_NOSYNC}};

/// Documents of ascending keys.
std::shared_ptr<const ReadyBatch> makeBatch(std::size_t count) {
    constexpr std::size_t kLeastDay = 1000;
    const Records records = makeMarketDay(kLeastDay);
    auto batch = std::make_shared<ReadyBatch>(ReadyBatch{});
    for (std::size_t i = 0; i < count; ++i) {
        std::string document;
        records[i]->appendDocument(document);
        batch->add(fmt::format("{:020}", i), std::move(document));
    }
    return batch;
}

Series commitSeries(const char* what, const char* who) {
    Series series;
    series.what = what;
    series.who = who;
    series.repetitions = kRepetitions;
    series.iterations = kIterations;
    return series;
}

struct BareTarget {
    explicit BareTarget(unsigned flags) : store(directory.path() / "bare", flags) {}
    TemporaryDirectory directory;
    BareStore store;
};

void write(BareStore& store, const ReadyBatch& batch) {
    std::size_t next = 0;
    store.write(false, [&](std::string_view& key, std::string_view& value) {
        if (next == batch.size()) {
            return false;
        }
        key = batch.key(next);
        value = batch.value(next);
        ++next;
        return true;
    });
}

void addBatch(Suite& suite, const char* what, const std::shared_ptr<TemporaryStore>& store, std::size_t count) {
    const std::shared_ptr<const ReadyBatch> batch = makeBatch(count);
    // One for each batch, as the bare stores are: a commit also writes what it knows of free pages.
    const std::string database = fmt::format("commits of {}", count);
    suite.add(commitSeries(what, kCenter), [store, batch, database](benchmark::State& state) {
        TemporaryStore::service().initDb(database, false);
        for (auto _ : state) {
            if (!TemporaryStore::service().writeDocuments(database, *batch, false)) {
                state.SkipWithError("a write failed");
            }
        }
    });
    for (const Setting& setting : kSettings) {
        const auto target = std::make_shared<BareTarget>(setting.flags);
        Series series = commitSeries(what, setting.name);
        series.centerAtMost = count == 1 && setting.name == std::string_view(kFloor) ? kCommitAtMost : 0;
        suite.add(series, [target, batch](benchmark::State& state) {
            for (auto _ : state) {
                write(target->store, *batch);
            }
        });
    }
}

}  // namespace

void addCommits(Suite& suite) {
    const auto store = std::make_shared<TemporaryStore>();
    addBatch(suite, "commit of one document", store, 1);
    addBatch(suite, "commit of 1,000 documents", store, kBatch);
}

}  // namespace bench
