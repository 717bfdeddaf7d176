#include <list>
#include <map>
#include <memory>
#include <utility>

#include "Timing.h"
#include "Workload.h"

// Questions about whole markets, and loads.

namespace bench {
namespace {

/// Above this many records a load takes seconds and is repeated a few times only.
constexpr std::size_t kManyRecords = 1000000;
constexpr int kFewRepetitions = 3;

using InstrumentMap = std::map<std::string, InstrumentPtr>;
using InstrumentList = std::list<InstrumentPtr>;
using ReadyList = std::shared_ptr<const std::vector<std::pair<std::string, InstrumentPtr>>>;

/// Keys and pointers of one market as its list holds them, ready to be put into a container.
ReadyList readyList(Workload& workload) {
    const InstrumentMap records = workload.center.getInstruments(kListedMarket);
    return std::make_shared<std::vector<std::pair<std::string, InstrumentPtr>>>(records.begin(), records.end());
}

Series listSeries(const char* what, const char* who, const Workload& workload, std::size_t items, int threads) {
    Series series;
    series.what = what;
    series.who = who;
    series.size = workload.records.size();
    series.threads = threads;
    series.items = items;
    return series;
}

Series loadSeries(const char* who, const Workload& workload) {
    Series series = listSeries(kLoad, who, workload, workload.records.size(), 1);
    series.manualTime = true;
    if (workload.records.size() > kManyRecords) {
        series.repetitions = kFewRepetitions;
        series.iterations = 1;
    }
    return series;
}

}  // namespace

void addMarketLists(Suite& suite, Workload& workload) {
    const ReadyList ready = readyList(workload);
    mxservice::IInstrumentCenter* const center = &workload.center;
    for (const int threads : {1, 2}) {
        suite.add(listSeries(kMarketMap, kCenter, workload, ready->size(), threads), [center](benchmark::State& state) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(center->getInstruments(kListedMarket).size());
            }
        });
        suite.add(listSeries(kMarketMap, kFloor, workload, ready->size(), threads), [ready](benchmark::State& state) {
            for (auto _ : state) {
                benchmark::DoNotOptimize(InstrumentMap(ready->begin(), ready->end()).size());
            }
        });
        suite.add(listSeries(kMarketList, kCenter, workload, ready->size(), threads),
                  [center](benchmark::State& state) {
                      for (auto _ : state) {
                          InstrumentList out;
                          center->getInstruments(kListedMarket, out);
                          benchmark::DoNotOptimize(out.size());
                      }
                  });
        suite.add(listSeries(kMarketList, kFloor, workload, ready->size(), threads), [ready](benchmark::State& state) {
            for (auto _ : state) {
                InstrumentList out;
                for (const auto& [text, record] : *ready) {
                    out.push_back(record);
                }
                benchmark::DoNotOptimize(out.size());
            }
        });
    }
}

void addLoads(Suite& suite, Workload& workload) {
    const Records* const records = &workload.records;
    suite.add(loadSeries(kCenter, workload),
              timeLoads([] { return std::make_unique<mxservice::CServerInstrumentCenter>("bench"); },
                        [records](mxservice::CServerInstrumentCenter& center) {
                            center.initInstruments(kLoadedMarkets, *records);
                        }));
    suite.add(loadSeries(kFloor, workload), timeLoads([] { return std::make_unique<BareIndexes>(); },
                                                      [records](BareIndexes& bare) { fill(bare, *records); }));
}

}  // namespace bench
