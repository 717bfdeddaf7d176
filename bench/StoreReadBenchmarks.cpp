#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <random>
#include <unordered_map>
#include <utility>

#include "BsonForm.h"
#include "RivalStores.h"
#include "StoreWorkload.h"
#include "platform/utils/HashInline.h"

// Questions that the persisted center answers from its cache or its store.

namespace bench {
namespace {

using mxservice::CInstrumentDetail;
using Question = StoreWorkload::Question;

constexpr unsigned kSeed = 20260105;
/// Few enough for the cache to hold them all.
constexpr std::size_t kWorkingSet = 500;
constexpr int kWarmingRounds = 3;
constexpr std::size_t kSampleDocuments = 1024;
constexpr double kCachedReadAtMost = 3;
constexpr double kStoreReadAtMost = 0.85;
constexpr double kRivalReadAtMost = 0.5;
constexpr double kDecodeAtMost = 0.4;
constexpr double kEncodeAtMost = 0.25;
constexpr double kLeastStoreScaling = 1.8;

InstrumentPtr decoded(std::string_view bytes) {
    auto record = boost::make_shared<CInstrumentDetail>();
    return decodeBson(bytes, *record) ? record : nullptr;
}

/// Asks for the first `count` questions in turn, again and again, after a few rounds that are not timed.
template <class Ask>
Body askWarm(const std::vector<Question>& questions, std::size_t count, Ask ask) {
    return [&questions, count, ask](benchmark::State& state) {
        for (int round = 0; round < kWarmingRounds; ++round) {
            for (std::size_t i = 0; i < count; ++i) {
                ask(questions[i]);
            }
        }
        std::size_t place =
            count / static_cast<std::size_t>(state.threads()) * static_cast<std::size_t>(state.thread_index());
        for (auto _ : state) {
            const auto answer = ask(questions[place]);
            benchmark::DoNotOptimize(&answer);
            place = place + 1 == count ? 0 : place + 1;
        }
    };
}

/// Asks for every question in turn, so that none comes again before all others did. Each run goes on elsewhere.
template <class MakeAsk>
Body askCold(const std::vector<Question>& questions, MakeAsk makeAsk) {
    auto starts = std::make_shared<std::atomic<std::size_t>>(0);
    return [&questions, starts, makeAsk](benchmark::State& state) {
        const auto ask = makeAsk();
        std::size_t place = starts->fetch_add(questions.size() * 3 / 8) % questions.size();
        for (auto _ : state) {
            const auto answer = ask(questions[place]);
            if (!answer) {
                state.SkipWithError("a record is missing");
                break;
            }
            place = place + 1 == questions.size() ? 0 : place + 1;
        }
    };
}

/// Reads through transactions of its own, one for each environment.
class BareReaders {
public:
    InstrumentPtr find(const Question& question) {
        std::unique_ptr<BareStore::Reader>& reader = readers_[question.bare];
        if (!reader) {
            reader = std::make_unique<BareStore::Reader>(*question.bare);
        }
        return reader->read(question.documentKey, decoded);
    }

private:
    std::unordered_map<const BareStore*, std::unique_ptr<BareStore::Reader>> readers_;
};

Series readSeries(const char* what, const char* who, const StoreWorkload& workload, int threads) {
    Series series;
    series.what = what;
    series.who = who;
    series.size = workload.records().size();
    series.threads = threads;
    return series;
}

void addSingleReads(Suite& suite, StoreWorkload& workload, int threads) {
    const std::vector<Question>& questions = workload.questions();
    mxservice::IInstrumentCenter* const client = &workload.client();
    mxservice::IInstrumentCenter* const server = &workload.server();
    const auto askClient = [client](const Question& question) { return client->getInstrument(question.text); };

    suite.add(readSeries(kCachedRead, kCenter, workload, threads), askWarm(questions, kWorkingSet, askClient));
    Series floor = readSeries(kCachedRead, kFloor, workload, threads);
    floor.centerAtMost = threads == 1 ? kCachedReadAtMost : 0;
    suite.add(floor, askWarm(questions, kWorkingSet,
                             [server](const Question& question) { return server->getInstrument(question.text); }));

    Series center = readSeries(kStoreRead, kCenter, workload, threads);
    center.leastScaling = kLeastStoreScaling;
    suite.add(center, askCold(questions, [askClient] { return askClient; }));
    floor = readSeries(kStoreRead, kFloor, workload, threads);
    floor.centerAtMost = threads == 1 ? kStoreReadAtMost : 0;
    suite.add(floor, askCold(questions, [] {
                  return [readers = std::make_shared<BareReaders>()](const Question& question) {
                      return readers->find(question);
                  };
              }));
}

void addScan(Suite& suite, StoreWorkload& workload) {
    mxservice::IInstrumentCenter* const client = &workload.client();
    const BareStore* const bare = &workload.bare(kListedMarket);
    Series series = readSeries(kStoreScan, kCenter, workload, 1);
    series.items = client->getInstruments(kListedMarket).size();
    suite.add(series, [client](benchmark::State& state) {
        for (auto _ : state) {
            benchmark::DoNotOptimize(client->getInstruments(kListedMarket).size());
        }
    });
    series.who = kFloor;
    suite.add(series, [bare](benchmark::State& state) {
        for (auto _ : state) {
            std::vector<InstrumentPtr> records;
            bare->visitAll([&](std::string_view, std::string_view bytes) { records.push_back(decoded(bytes)); });
            benchmark::DoNotOptimize(records.size());
        }
    });
}

/// Calls `use` with one of the samples after the other.
template <class Samples, class Use>
Body eachInTurn(std::shared_ptr<const Samples> samples, Use use) {
    return [samples = std::move(samples), use](benchmark::State& state) mutable {
        std::size_t place = 0;
        for (auto _ : state) {
            const auto answer = use((*samples)[place++ % samples->size()]);
            benchmark::DoNotOptimize(&answer);
        }
    };
}

void addCoding(Suite& suite, StoreWorkload& workload) {
    auto records = std::make_shared<Records>();
    auto documents = std::make_shared<std::vector<std::string>>();
    for (std::size_t i = 0; i < kSampleDocuments; ++i) {
        records->push_back(workload.records()[i * workload.records().size() / kSampleDocuments]);
        records->back()->appendDocument(documents->emplace_back());
    }
    const std::shared_ptr<const Records> sampleRecords = records;
    const std::shared_ptr<const std::vector<std::string>> sampleDocuments = documents;

    suite.add(readSeries(kDecode, kCenter, workload, 1), eachInTurn(sampleDocuments, [](const std::string& bytes) {
                  auto record = boost::make_shared<CInstrumentDetail>();
                  return record->readDocument(bytes, false, nullptr) ? record : nullptr;
              }));
    Series floor = readSeries(kDecode, kFloor, workload, 1);
    floor.centerAtMost = kDecodeAtMost;
    suite.add(floor, eachInTurn(sampleDocuments, decoded));

    suite.add(readSeries(kEncode, kCenter, workload, 1),
              eachInTurn(sampleRecords, [bytes = std::string()](const InstrumentPtr& record) mutable {
                  bytes.clear();
                  return record->appendDocument(bytes) ? bytes.data() : nullptr;
              }));
    floor = readSeries(kEncode, kFloor, workload, 1);
    floor.centerAtMost = kEncodeAtMost;
    suite.add(floor, eachInTurn(sampleRecords, [encoder = std::make_shared<BsonEncoder>()](
                                                   const InstrumentPtr& record) { return encoder->encode(*record); }));
}

}  // namespace

StoreWorkload::StoreWorkload(std::size_t size) : records_(makeMarketDay(size)) {
    server_.initInstruments(kLoadedMarkets, records_);
    client_.initInstruments(kLoadedMarkets, records_);
    fillBareStores();
    std::shuffle(questions_.begin(), questions_.end(), std::mt19937(kSeed));
}

void StoreWorkload::fillBareStores() {
    std::map<std::string, std::map<std::string, InstrumentPtr>> recordsByMarket;
    for (const InstrumentPtr& record : records_) {
        const std::string text = filedKeyText(*record);
        const std::string market = text.substr(0, text.size() - record->code.size());
        const std::string key = std::to_string(utils::hashBytes(text));
        std::unique_ptr<BareStore>& bare = bareByMarket_[market];
        if (!bare) {
            bare = std::make_unique<BareStore>(bareRoot_.path() / market);
        }
        recordsByMarket[market][key] = record;
        questions_.push_back({text, key, bare.get()});
    }
    for (const auto& [market, records] : recordsByMarket) {
        auto next = records.begin();
        std::string bytes;
        bareByMarket_[market]->write(true, [&, end = records.end()](std::string_view& key, std::string_view& value) {
            if (next == end) {
                return false;
            }
            bytes.clear();
            next->second->appendDocument(bytes);
            key = next->first;
            value = bytes;
            ++next;
            return true;
        });
    }
}

void StoreWorkload::visitDocuments(const BareStore::Visitor& visit) const {
    for (const auto& [market, bare] : bareByMarket_) {
        bare->visitAll(visit);
    }
}

void addRivalReads(Suite& suite, const StoreWorkload& workload) {
    struct Rival {
        TemporaryDirectory directory;
        std::unique_ptr<RivalStore> store;
    };
    for (const RivalKind& kind : rivalStores()) {
        const auto rival = std::make_shared<Rival>();
        rival->store = kind.open(rival->directory.path());
        workload.visitDocuments(
            [&](std::string_view key, std::string_view bytes) { rival->store->put(std::string(key), bytes); });
        rival->store->finish();
        Series series = readSeries(kStoreRead, kind.name, workload, 1);
        series.centerAtMost = kRivalReadAtMost;
        const auto ask = [rival](const Question& question) {
            InstrumentPtr record;
            rival->store->read(question.documentKey, [&](std::string_view bytes) { record = decoded(bytes); });
            return record;
        };
        suite.add(series, askCold(workload.questions(), [ask] { return ask; }));
    }
}

void addStoreReads(Suite& suite, StoreWorkload& workload) {
    for (const int threads : {1, 2}) {
        addSingleReads(suite, workload, threads);
    }
    addScan(suite, workload);
    addCoding(suite, workload);
}

}  // namespace bench
