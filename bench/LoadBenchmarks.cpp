#include <boost/make_shared.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Timing.h"
#include "Workload.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "base/instrumentcenter/catalogue/LoadLedger.h"

// Questions about whole markets, and loads.

namespace bench {
namespace {

/// Above this many records a load takes seconds and is repeated a few times only.
constexpr std::size_t kManyRecords = 1000000;
constexpr int kFewRepetitions = 3;
constexpr double kLoadAtMost = 1.6;
constexpr double kListAtMost = 6;
constexpr double kVisitAtMost = 2;

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

constexpr std::array kDerivations{mxservice::kMainsStep,      mxservice::kProductsStep, mxservice::kSpreadsStep,
                                  mxservice::kStockCodesStep, mxservice::kNeeqStep,     mxservice::kOptionsStep};

using Center = mxservice::CServerInstrumentCenter;

std::unique_ptr<Center> freshCenter() {
    return std::make_unique<Center>("bench");
}

/// What the steps that `wanted` accepts took of the load that `center` ended last, in seconds.
template <class Wanted>
double secondsOf(const Center& center, const Wanted& wanted) {
    std::chrono::duration<double> time{};
    for (const mxservice::LoadStep& step : center.statistics().lastLoad.steps) {
        time += wanted(step.name) ? step.time : std::chrono::nanoseconds();
    }
    return time.count();
}

/// Adds what one derivation takes within a load, or all of them together.
template <class Wanted>
void addDerivation(Suite& suite, Workload& workload, const std::string& name, const Wanted& wanted,
                   double shareAtMost) {
    const Records* const records = &workload.records;
    Series series = loadSeries(kCenter, workload);
    series.what = "derive " + name;
    series.repetitions = kFewRepetitions;
    series.iterations = 1;
    suite.add(series, timeLoadsBy(freshCenter, [records, wanted](Center& center) {
                  center.initInstruments(kLoadedMarkets, *records);
                  return secondsOf(center, wanted);
              }));
    series.who = "the whole load";
    series.centerAtMost = shareAtMost;
    suite.add(series,
              timeLoads(freshCenter, [records](Center& center) { center.initInstruments(kLoadedMarkets, *records); }));
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
        const Body listing = [ready](benchmark::State& state) {
            for (auto _ : state) {
                InstrumentList out;
                for (const auto& [text, record] : *ready) {
                    out.push_back(record);
                }
                benchmark::DoNotOptimize(out.size());
            }
        };
        Series floor = listSeries(kMarketList, kFloor, workload, ready->size(), threads);
        floor.centerAtMost = threads == 1 ? kListAtMost : 0;
        suite.add(floor, listing);
        const mxservice::InstrumentView view = workload.center.view();
        suite.add(listSeries(kMarketVisit, kCenter, workload, ready->size(), threads), [view](benchmark::State& state) {
            for (auto _ : state) {
                std::size_t bytes = 0;
                view.visit(kListedMarket, [&bytes](const InstrumentPtr& record) { bytes += record->code.size(); });
                benchmark::DoNotOptimize(bytes);
            }
        });
        floor.what = kMarketVisit;
        floor.centerAtMost = threads == 1 ? kVisitAtMost : 0;
        suite.add(floor, listing);
    }
}

namespace {

/// A load of one record into a full center: of a market whose list it becomes, so in a center of its own. Beside it the
/// same into the floor, which is changed in place.
void addOneRecord(Suite& suite, Workload& workload) {
    const auto center = std::make_shared<Center>("bench");
    center->initInstruments(kLoadedMarkets, workload.records);
    const InstrumentPtr record = workload.records.front();
    suite.add(listSeries(kOneRecord, kCenter, workload, 1, 1), [center, record](benchmark::State& state) {
        for (auto _ : state) {
            center->initInstruments({record->market}, {record});
        }
    });
    const auto bare = std::make_shared<BareIndexes>();
    fill(*bare, workload.records);
    suite.add(listSeries(kOneRecord, kFloor, workload, 1, 1), [bare, record](benchmark::State& state) {
        for (auto _ : state) {
            fill(*bare, {record});
        }
    });
}

/// A day and the same day with every hundredth record changed, each of records of its own: what a host hands in that
/// reads its files again.
struct TwoDays {
    explicit TwoDays(const Records& records) : center(freshCenter()) {
        for (const InstrumentPtr& record : records) {
            for (Records& day : days) {
                day.push_back(boost::make_shared<mxservice::CInstrumentDetail>(*record));
            }
        }
        constexpr std::size_t kEach = 100;
        for (std::size_t i = 0; i < records.size(); i += kEach) {
            days.back()[i]->lotSize += 1;
        }
        center->initInstruments(kLoadedMarkets, days.back());
    }
    void reload() { center->replaceInstruments(kLoadedMarkets, days[next++ % days.size()]); }

    std::unique_ptr<Center> center;
    std::array<Records, 2> days;
    std::size_t next = 0;
};

/// Reloads of a center with a subscriber beside those of one without. `isHere`: the load tells; else it hands a task
/// over, which is run when the load has ended.
void addToldReloads(Suite& suite, Workload& workload, const char* what, bool isHere, double atMost) {
    const auto days = std::make_shared<TwoDays>(workload.records);
    Series series = loadSeries(kCenter, workload);
    series.what = what;
    suite.add(series, timeLoadsBy([days] { return days; },
                                  [isHere](TwoDays& told) {
                                      std::size_t changed = 0;
                                      std::function<void()> waiting;
                                      mxservice::Executor executor;
                                      if (!isHere) {
                                          executor = [&waiting](std::function<void()> task) {
                                              waiting = std::move(task);
                                          };
                                      }
                                      const mxservice::Subscription subscription = told.center->subscribe(
                                          [&changed](const mxservice::CatalogueChange& change) {
                                              changed += change.instruments.size();
                                          },
                                          executor);
                                      const double begin = seconds(CLOCK_MONOTONIC);
                                      told.reload();
                                      const double time = seconds(CLOCK_MONOTONIC) - begin;
                                      if (waiting) {
                                          waiting();
                                      }
                                      benchmark::DoNotOptimize(changed);
                                      return time;
                                  }));
    series.who = "the reload alone";
    series.centerAtMost = atMost;
    suite.add(series, timeLoads([days] { return days; }, [](TwoDays& alone) { alone.reload(); }));
}

/// One record of a full center changed and changed back.
void addOneChange(Suite& suite, Workload& workload) {
    const auto center = std::make_shared<Center>("bench");
    center->initInstruments(kLoadedMarkets, workload.records);
    const InstrumentPtr record = workload.records.front();
    suite.add(listSeries(kOneChange, kCenter, workload, 1, 1), [center, record](benchmark::State& state) {
        for (auto _ : state) {
            center->applyChanges({record}, {});
        }
    });
}

}  // namespace

void addLoads(Suite& suite, Workload& workload, Extent extent) {
    const Records* const records = &workload.records;
    suite.add(loadSeries(kCenter, workload),
              timeLoads(freshCenter, [records](Center& center) { center.initInstruments(kLoadedMarkets, *records); }));
    Series floor = loadSeries(kFloor, workload);
    floor.centerAtMost = extent == Extent::Whole ? kLoadAtMost : 0;
    suite.add(floor, timeLoads([] { return std::make_unique<BareIndexes>(); },
                               [records](BareIndexes& bare) { fill(bare, *records); }));
    if (extent == Extent::Whole) {
        constexpr double kToldAtMost = 1.3;
        addOneRecord(suite, workload);
        addOneChange(suite, workload);
        addToldReloads(suite, workload, kToldElsewhere, false, kToldAtMost);
        addToldReloads(suite, workload, kToldHere, true, 0);
    }
}

void addDerivations(Suite& suite, Workload& workload, bool each) {
    constexpr double kAllAtMost = 0.2;
    if (each) {
        for (const char* const derivation : kDerivations) {
            addDerivation(
                suite, workload, derivation, [derivation](const std::string& step) { return step == derivation; }, 0);
        }
    }
    addDerivation(
        suite, workload, "everything",
        [](const std::string& step) {
            return std::find(kDerivations.begin(), kDerivations.end(), step) != kDerivations.end();
        },
        kAllAtMost);
}

}  // namespace bench
