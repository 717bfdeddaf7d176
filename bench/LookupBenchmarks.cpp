#include <algorithm>
#include <memory>
#include <utility>

#include "KeySequence.h"
#include "Workload.h"
#include "base/instrumentcenter/InstrumentView.h"

// Questions about one key.

namespace bench {
namespace {

using Texts = std::vector<std::string>;
using Hashes = std::vector<std::uint64_t>;

/// Times that the center may take where a floor does the same work, and where a rival does.
constexpr double kTextFloorAtMost = 1.15;
constexpr double kFloorAtMost = 1.4;
constexpr double kViewAtMost = 0.9;
constexpr double kBulkAtMost = 0.6;
constexpr double kLeastScaling = 1.9;
constexpr double kNodeAtMost[] = {0, 0};  // by one and by two threads; no target, the floor alone would miss one
constexpr double kTextAtMost[] = {1.0 / 2, 1.0 / 3};

/// The hash of every text.
Hashes hashed(const Texts& texts) {
    Hashes hashes(texts.size());
    std::transform(texts.begin(), texts.end(), hashes.begin(),
                   [](const std::string& text) { return utils::hashBytes(text); });
    return hashes;
}

/// The texts at the drawn places, side by side in the order in which they are asked for.
std::shared_ptr<const Texts> drawn(const Texts& texts, KeyChoice choice) {
    auto sequence = std::make_shared<Texts>();
    for (const std::size_t place : drawPlaces(texts.size(), choice)) {
        sequence->push_back(texts[place]);
    }
    return sequence;
}

/// Fetches the bytes of a key that are not in the key object itself.
void fetchRest(std::uint64_t /*key*/) {}
void fetchRest(const std::string& text) {
    __builtin_prefetch(text.data(), 0, 0);
}

/// Asks for one key of the sequence after the other; every thread starts at another place. Keys are fetched ahead,
/// past the caches: a host has just read or built the text that it asks for, so waiting for the sequence's own memory
/// is no part of an answer, nor should it push the records out of the shared cache.
template <class Key, class Ask>
Body askEach(std::shared_ptr<const std::vector<Key>> keys, Ask ask) {
    return [keys = std::move(keys), ask](benchmark::State& state) {
        constexpr std::size_t kAhead = 8;
        const Key* const sequence = keys->data();
        const std::size_t mask = keys->size() - 1;
        const auto thread = static_cast<std::size_t>(state.thread_index());
        std::size_t place = keys->size() / static_cast<std::size_t>(state.threads()) * thread;
        for (auto _ : state) {
            __builtin_prefetch(&sequence[(place + 2 * kAhead) & mask], 0, 0);
            fetchRest(sequence[(place + kAhead) & mask]);
            const auto answer = ask(sequence[place++ & mask]);
            benchmark::DoNotOptimize(&answer);
        }
    };
}

/// Puts the same questions to the center, to the floor and to rivals.
class Askers {
public:
    /// With one thread and `floorAtMost`, floors have that target.
    Askers(Suite& suite, std::size_t size, KeyChoice choice, int threads, bool targets)
        : suite_(suite), size_(size), keys_(nameOf(choice)), threads_(threads), targets_(targets && threads == 1) {}

    void addCenter(const char* what, Body body, double leastScaling = 0, std::size_t items = 1) {
        Series series = seriesOf(what, kCenter);
        series.items = items;
        series.leastScaling = threads_ == 1 ? leastScaling : 0;
        suite_.add(series, std::move(body));
    }
    void addFloor(const char* what, Body body, double centerAtMost = kFloorAtMost, std::size_t items = 1) {
        Series series = seriesOf(what, kFloor);
        series.centerAtMost = targets_ ? centerAtMost : 0;
        series.items = items;
        suite_.add(series, std::move(body));
    }
    void addRival(const char* what, const char* who, const double (&atMost)[2], Body body) {
        Series series = seriesOf(what, who);
        series.centerAtMost = atMost[threads_ - 1];
        suite_.add(series, std::move(body));
    }

private:
    Series seriesOf(const char* what, const char* who) const {
        Series series;
        series.what = what;
        series.who = who;
        series.size = size_;
        series.keys = keys_;
        series.threads = threads_;
        return series;
    }

    Suite& suite_;
    std::size_t size_;
    std::string keys_;
    int threads_;
    bool targets_;
};

/// What is asked for, drawn once for all thread counts.
struct Questions {
    std::shared_ptr<const Texts> texts;
    std::shared_ptr<const Hashes> hashes;
    std::shared_ptr<const Texts> unlisted;
    std::shared_ptr<const Texts> connectTexts;
};

Questions drawQuestions(const Records& records, KeyChoice choice) {
    Texts all;
    Texts unlisted;
    Texts connect;
    for (const InstrumentPtr& record : records) {
        all.push_back(filedKeyText(*record));
        unlisted.push_back(all.back() + "X");
        if (record->market == "HGT" || record->market == "SGT") {
            connect.push_back(connectKeyText(all.back(), connect.size() % 2 == 0));
        }
    }
    Questions questions;
    questions.texts = drawn(all, choice);
    questions.hashes = std::make_shared<Hashes>(hashed(*questions.texts));
    questions.unlisted = drawn(unlisted, choice);
    questions.connectTexts = drawn(connect, choice);
    return questions;
}

void addTextLookups(Askers& askers, const Questions& questions, Workload& workload) {
    mxservice::IInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;
    askers.addCenter(
        kTextLookup,
        askEach(questions.texts, [center](const std::string& text) { return center->getInstrument(text); }),
        kLeastScaling);
    const Body floor =
        askEach(questions.texts, [bare](const std::string& text) { return bare->find(utils::hashBytes(text)); });
    askers.addFloor(kTextLookup, floor, kTextFloorAtMost);
    const mxservice::InstrumentView view = workload.center.view();
    askers.addCenter(kViewLookup, askEach(questions.texts, [view](const std::string& text) { return view.find(text); }),
                     kLeastScaling);
    askers.addFloor(kViewLookup, floor, kViewAtMost);
    const std::string hot = questions.texts->front();
    askers.addCenter(kHotView,
                     askEach(questions.texts, [view, hot](const std::string& /*text*/) { return view.find(hot); }),
                     kLeastScaling);
}

/// Asks for the next `count` keys of the sequence at once.
template <class Ask>
Body askTogether(std::shared_ptr<const Hashes> keys, std::size_t count, Ask ask) {
    return [keys = std::move(keys), count, ask](benchmark::State& state) {
        std::vector<InstrumentPtr> out(count);
        std::size_t place = 0;
        for (auto _ : state) {
            ask(keys->data() + place, count, out.data());
            benchmark::DoNotOptimize(out.data());
            place = (place + count) % keys->size();
        }
    };
}

void addBulk(Askers& askers, const Questions& questions, Workload& workload) {
    constexpr std::size_t kTogether = 256;
    const mxservice::CServerInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;
    askers.addCenter(kBulk,
                     askTogether(questions.hashes, kTogether,
                                 [center](const std::uint64_t* keys, std::size_t count, InstrumentPtr* out) {
                                     center->resolve(keys, count, out);
                                 }),
                     0, kTogether);
    askers.addFloor(kBulk,
                    askTogether(questions.hashes, kTogether,
                                [bare](const std::uint64_t* keys, std::size_t count, InstrumentPtr* out) {
                                    for (std::size_t i = 0; i < count; ++i) {
                                        out[i] = bare->find(keys[i]);
                                    }
                                }),
                    kBulkAtMost, kTogether);
}

void addTextRivals(Askers& askers, const Questions& questions, Workload& workload) {
    askers.addRival(
        kTextLookup, NodeRival::kName, kNodeAtMost,
        askEach(questions.texts, [&workload](const std::string& text) { return workload.node.find(text); }));
    askers.addRival(
        kTextLookup, TextRival::kName, kTextAtMost,
        askEach(questions.texts, [&workload](const std::string& text) { return workload.text.find(text); }));
}

void addHashLookupsAndMisses(Askers& askers, const Questions& questions, Workload& workload) {
    mxservice::IInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;
    askers.addCenter(kHashLookup,
                     askEach(questions.hashes, [center](std::uint64_t key) { return center->getInstrument(key); }),
                     kLeastScaling);
    askers.addFloor(kHashLookup, askEach(questions.hashes, [bare](std::uint64_t key) { return bare->find(key); }));

    askers.addCenter(
        kMiss, askEach(questions.unlisted, [center](const std::string& text) { return center->getInstrument(text); }));
    askers.addFloor(kMiss, askEach(questions.unlisted,
                                   [bare](const std::string& text) { return bare->has(utils::hashBytes(text)); }));
}

void addPredicates(Askers& askers, const Questions& questions, Workload& workload) {
    mxservice::IInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;

    askers.addCenter(kHasStock,
                     askEach(questions.texts, [center](const std::string& text) { return center->hasStock(text); }));
    askers.addFloor(kHasStock, askEach(questions.texts, [bare](const std::string& text) {
                        return bare->marketOf(utils::hashBytes(text));
                    }));

    askers.addCenter(kHasConnectCode, askEach(questions.connectTexts,
                                              [center](const std::string& text) { return center->hasCode(text); }));
    askers.addFloor(kHasConnectCode, askEach(questions.connectTexts, [bare](const std::string& text) {
                        return bare->marketOf(foldedHash(text));
                    }));
}

}  // namespace

void addLookups(Suite& suite, Workload& workload, Extent extent) {
    for (const KeyChoice choice : {KeyChoice::Uniform, KeyChoice::Zipf}) {
        const Questions questions = drawQuestions(workload.records, choice);
        for (const int threads : {1, 2}) {
            Askers askers(suite, workload.records.size(), choice, threads, extent == Extent::Whole);
            addTextLookups(askers, questions, workload);
            if (extent == Extent::Curve) {
                break;  // after one thread
            }
            addTextRivals(askers, questions, workload);
            addHashLookupsAndMisses(askers, questions, workload);
            addPredicates(askers, questions, workload);
            if (threads == 1) {
                addBulk(askers, questions, workload);
            }
        }
    }
}

}  // namespace bench
