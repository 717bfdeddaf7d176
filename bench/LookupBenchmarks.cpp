#include <algorithm>
#include <memory>
#include <utility>

#include "KeySequence.h"
#include "Workload.h"

// Questions about one key.

namespace bench {
namespace {

using Texts = std::vector<std::string>;
using Hashes = std::vector<std::uint64_t>;

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

/// Adds the same questions to the center and to the floor.
class Pairs {
public:
    Pairs(Suite& suite, std::size_t size, KeyChoice choice, int threads)
        : suite_(suite), size_(size), keys_(nameOf(choice)), threads_(threads) {}

    void add(const char* what, const char* who, Body body) {
        Series series;
        series.what = what;
        series.who = who;
        series.size = size_;
        series.keys = keys_;
        series.threads = threads_;
        suite_.add(series, std::move(body));
    }

private:
    Suite& suite_;
    std::size_t size_;
    std::string keys_;
    int threads_;
};

/// What is asked for, drawn once for all thread counts.
struct Questions {
    std::shared_ptr<const Texts> texts;
    std::shared_ptr<const Hashes> hashes;
    std::shared_ptr<const Texts> unlisted;
    std::shared_ptr<const Texts> connectTexts;  // the same keys as connectFiled
    std::shared_ptr<const Texts> connectFiled;
};

Questions drawQuestions(const Records& records, KeyChoice choice) {
    Texts all;
    Texts unlisted;
    Texts filed;
    Texts connect;
    for (const InstrumentPtr& record : records) {
        all.push_back(filedKeyText(*record));
        unlisted.push_back(all.back() + "X");
        if (record->market == "HGT" || record->market == "SGT") {
            filed.push_back(all.back());
            connect.push_back(connectKeyText(all.back(), filed.size() % 2 == 0));
        }
    }
    Questions questions;
    questions.texts = drawn(all, choice);
    questions.hashes = std::make_shared<Hashes>(hashed(*questions.texts));
    questions.unlisted = drawn(unlisted, choice);
    questions.connectTexts = drawn(connect, choice);
    questions.connectFiled = drawn(filed, choice);
    return questions;
}

void addRecordLookups(Pairs& pairs, const Questions& questions, Workload& workload) {
    mxservice::IInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;
    const auto ask = [center](const std::string& text) { return center->getInstrument(text); };
    const auto askBare = [bare](const std::string& text) { return bare->find(utils::hashBytes(text)); };

    pairs.add(kTextLookup, kCenter, askEach(questions.texts, ask));
    pairs.add(kTextLookup, kFloor, askEach(questions.texts, askBare));
    pairs.add(kTextLookup, NodeRival::kName,
              askEach(questions.texts, [&workload](const std::string& text) { return workload.node.find(text); }));
    pairs.add(kTextLookup, TextRival::kName,
              askEach(questions.texts, [&workload](const std::string& text) { return workload.text.find(text); }));

    pairs.add(kHashLookup, kCenter,
              askEach(questions.hashes, [center](std::uint64_t key) { return center->getInstrument(key); }));
    pairs.add(kHashLookup, kFloor, askEach(questions.hashes, [bare](std::uint64_t key) { return bare->find(key); }));

    pairs.add(kMiss, kCenter, askEach(questions.unlisted, ask));
    pairs.add(kMiss, kFloor, askEach(questions.unlisted, [bare](const std::string& text) {
                  return bare->has(utils::hashBytes(text));
              }));
}

void addPredicates(Pairs& pairs, const Questions& questions, Workload& workload) {
    mxservice::IInstrumentCenter* const center = &workload.center;
    const BareIndexes* const bare = &workload.bare;
    const auto askBare = [bare](const std::string& text) { return bare->marketOf(utils::hashBytes(text)); };

    pairs.add(kHasStock, kCenter,
              askEach(questions.texts, [center](const std::string& text) { return center->hasStock(text); }));
    pairs.add(kHasStock, kFloor, askEach(questions.texts, askBare));

    // The floor is spared the folding: it is asked for the text as filed.
    pairs.add(kHasConnectCode, kCenter,
              askEach(questions.connectTexts, [center](const std::string& text) { return center->hasCode(text); }));
    pairs.add(kHasConnectCode, kFloor, askEach(questions.connectFiled, askBare));
}

}  // namespace

void addLookups(Suite& suite, Workload& workload) {
    for (const KeyChoice choice : {KeyChoice::Uniform, KeyChoice::Zipf}) {
        const Questions questions = drawQuestions(workload.records, choice);
        for (const int threads : {1, 2}) {
            Pairs pairs(suite, workload.records.size(), choice, threads);
            addRecordLookups(pairs, questions, workload);
            addPredicates(pairs, questions, workload);
        }
    }
}

}  // namespace bench
