#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "Timing.h"
#include "Workload.h"

// Contracts, option chains and records by day, beside a copy of the same answers made ready; and what the first of
// these questions costs after a load, beside the load.

namespace bench {
namespace {

constexpr double kChainAtMost = 3;

using Center = mxservice::CServerInstrumentCenter;
using Answer = std::vector<InstrumentPtr>;

/// Asks every question in turn, and beside that copies every answer in turn.
template <class Question, class Ask>
void addQuestions(Suite& suite, const Workload& workload, const char* what, const std::set<Question>& questions,
                  Ask ask) {
    const auto asked = std::make_shared<const std::vector<Question>>(questions.begin(), questions.end());
    const auto answers = std::make_shared<std::vector<Answer>>();
    for (const Question& question : *asked) {
        answers->push_back(ask(workload.center, question));
    }
    Series series;
    series.what = what;
    series.who = kCenter;
    series.size = workload.records.size();
    const Center* const center = &workload.center;
    suite.add(series, [asked, center, ask](benchmark::State& state) {
        std::size_t place = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(ask(*center, (*asked)[place]).data());
            place = place + 1 == asked->size() ? 0 : place + 1;
        }
    });
    series.who = kFloor;
    series.centerAtMost = kChainAtMost;
    suite.add(series, [answers](benchmark::State& state) {
        std::size_t place = 0;
        for (auto _ : state) {
            benchmark::DoNotOptimize(Answer((*answers)[place]).data());
            place = place + 1 == answers->size() ? 0 : place + 1;
        }
    });
}

/// The first question of a kind after a load; without a target: nobody who does not ask it pays for it.
template <class Ask>
void addFirstQuestion(Suite& suite, const Workload& workload, const char* what, Ask ask) {
    const Records* const records = &workload.records;
    const auto fresh = [] { return std::make_unique<Center>("bench"); };
    const auto load = [records](Center& center) { center.initInstruments(kLoadedMarkets, *records); };
    Series series = timedSeries(what, kCenter, records->size(), 5);
    suite.add(series, timeLoadsBy(fresh, [load, ask](Center& center) {
                  load(center);
                  const double begin = seconds(CLOCK_MONOTONIC);
                  ask(center);
                  return seconds(CLOCK_MONOTONIC) - begin;
              }));
    series.who = "the whole load";
    suite.add(series, timeLoads(fresh, load));
}

}  // namespace

void addChains(Suite& suite, Workload& workload) {
    std::set<std::pair<std::string, std::string>> underlyings;
    std::set<std::string> products;
    std::set<std::string> expiries;
    for (const InstrumentPtr& record : workload.records) {
        if (record->optionType != 0) {
            underlyings.emplace(record->underlyingMarket, record->underlyingCode);
        } else if (!workload.center.getContracts(record->productId).empty()) {
            products.insert(record->productId);
        }
        if (!record->expireDate.empty()) {
            expiries.insert(record->expireDate);
        }
    }
    addQuestions(suite, workload, kChain, underlyings, [](const Center& center, const auto& underlying) {
        return center.getOptionChain(underlying.first, underlying.second);
    });
    addQuestions(suite, workload, kContracts, products,
                 [](const Center& center, const std::string& product) { return center.getContracts(product); });
    addQuestions(suite, workload, kExpiring, expiries,
                 [](const Center& center, const std::string& day) { return center.getExpiring(day); });
    addFirstQuestion(suite, workload, "first chain, per record", [](Center& center) { center.getOptionChain("", ""); });
    addFirstQuestion(suite, workload, "first expiry, per record", [](Center& center) { center.getExpiring(""); });
    addFirstQuestion(suite, workload, "first listing, per record", [](Center& center) { center.getListed(""); });
}

}  // namespace bench
