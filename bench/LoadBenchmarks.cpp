#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Timing.h"
#include "Workload.h"

// Questions about whole markets, and loads.

namespace bench {
namespace {

/// Above this many records a load takes seconds and is repeated a few times only.
constexpr std::size_t kManyRecords = 1000000;
constexpr int kFewRepetitions = 3;
constexpr double kLoadAtMost = 2;

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

/// The center with the steps of its load within reach.
struct SteppedCenter : mxservice::CServerInstrumentCenter {
    SteppedCenter() : CServerInstrumentCenter("bench") {}

    using Step = std::function<void(SteppedCenter&, const GroupedRecords&)>;

    static const std::vector<std::pair<const char*, Step>>& derivations() {
        using Center = SteppedCenter;
        using Grouped = GroupedRecords;
        static const std::vector<std::pair<const char*, Step>> steps{
            {"main contracts", [](Center& center, const Grouped& grouped) { center.createFutureMainDatas(grouped); }},
            {"products", [](Center& center, const Grouped& grouped) { center.createFutureProdcutDatas(grouped); }},
            {"Dalian spreads", [](Center& center, const Grouped& grouped) { center.createFutureDceDatas(grouped); }},
            {"stock code sets",
             [](Center& center, const Grouped& grouped) { center.createStockCodes(kLoadedMarkets, grouped); }},
            {"NEEQ inquiry set", [](Center& center, const Grouped& grouped) { center.createNeeqCodes(grouped); }},
            {"option underlyings",
             [](Center& center, const Grouped& grouped) { center.createStkOptionCodes(grouped); }}};
        return steps;
    }
};

/// Adds what one derivation takes of a load, or all of them together.
void addDerivation(Suite& suite, Workload& workload, const std::shared_ptr<const GroupedRecords>& grouped,
                   const std::string& name, const SteppedCenter::Step& step, double shareAtMost) {
    Series series = loadSeries(kCenter, workload);
    series.what = "derive " + name;
    series.repetitions = kFewRepetitions;
    series.iterations = 1;
    suite.add(series, timeLoads([] { return std::make_unique<SteppedCenter>(); },
                                [grouped, step](SteppedCenter& center) { step(center, *grouped); }));
    series.who = "the whole load";
    series.centerAtMost = shareAtMost;
    const Records* const records = &workload.records;
    suite.add(series,
              timeLoads([] { return std::make_unique<SteppedCenter>(); },
                        [records](SteppedCenter& center) { center.initInstruments(kLoadedMarkets, *records); }));
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

void addLoads(Suite& suite, Workload& workload, Extent extent) {
    const Records* const records = &workload.records;
    suite.add(loadSeries(kCenter, workload),
              timeLoads([] { return std::make_unique<mxservice::CServerInstrumentCenter>("bench"); },
                        [records](mxservice::CServerInstrumentCenter& center) {
                            center.initInstruments(kLoadedMarkets, *records);
                        }));
    Series floor = loadSeries(kFloor, workload);
    floor.centerAtMost = extent == Extent::Whole ? kLoadAtMost : 0;
    suite.add(floor, timeLoads([] { return std::make_unique<BareIndexes>(); },
                               [records](BareIndexes& bare) { fill(bare, *records); }));
}

void addDerivations(Suite& suite, Workload& workload, bool each) {
    constexpr double kAllAtMost = 0.2;
    const auto grouped = std::make_shared<const GroupedRecords>(group(workload.records));
    if (each) {
        for (const auto& [name, step] : SteppedCenter::derivations()) {
            addDerivation(suite, workload, grouped, name, step, 0);
        }
    }
    addDerivation(
        suite, workload, grouped, "everything",
        [](SteppedCenter& center, const GroupedRecords& records) {
            for (const auto& [name, step] : SteppedCenter::derivations()) {
                step(center, records);
            }
        },
        kAllAtMost);
}

}  // namespace bench
