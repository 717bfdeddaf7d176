#include <boost/make_shared.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <thread>
#include <utility>

#include "KeySequence.h"
#include "Latency.h"
#include "StoreWorkload.h"
#include "Workload.h"

// How long single lookups take while another thread loads.

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;
/// Whether a record was found.
using Ask = std::function<bool(const std::string& text)>;
using Load = std::function<void(const std::vector<std::string>& markets, const Records& records)>;

/// Few enough for the persisted center's cache to hold them all.
constexpr std::size_t kWorkingSet = 500;
/// Together a tenth of the day.
const std::vector<std::string> kTenth{"SHFE", "NEEQ"};

/// What a load brings.
struct Batch {
    std::vector<std::string> markets;
    Records records;
};

Batch batchOf(const std::vector<std::string>& markets, const Records& day) {
    const std::set<std::string> wanted(markets.begin(), markets.end());
    Batch batch{markets, {}};
    std::copy_if(day.begin(), day.end(), std::back_inserter(batch.records),
                 [&](const InstrumentPtr& record) { return wanted.count(record->market) != 0; });
    return batch;
}

/// Loads a batch again and again in a thread of its own, for as long as it lives. Each time the records are new, as
/// those of a new snapshot are, and with it those of the time before lose their last owner.
class Loader {
public:
    Loader(const Batch& batch, Load load) : batch_(batch), load_(std::move(load)), thread_([this] { run(); }) {}
    ~Loader() {
        stopping_ = true;
        thread_.join();
    }
    Loader(const Loader&) = delete;
    Loader& operator=(const Loader&) = delete;

    /// Whether a load runs at this moment; what comes before and after it is the host's work.
    bool loading() const { return loading_.load(std::memory_order_relaxed); }
    int loads() const { return loads_; }

private:
    void run() {
        while (!stopping_) {
            Records records;
            for (const InstrumentPtr& record : batch_.records) {
                records.push_back(boost::make_shared<mxservice::CInstrumentDetail>(*record));
            }
            loading_ = true;
            load_(batch_.markets, records);
            loading_ = false;
            ++loads_;
        }
    }

    const Batch& batch_;
    const Load load_;
    std::atomic<bool> stopping_{false};
    std::atomic<bool> loading_{false};
    std::atomic<int> loads_{0};
    std::thread thread_;
};

/// Asks until the time is up and at least one load has ended, if there is a loader. A lookup lasts from the end of the
/// one before to its own, so that no stall escapes, wherever it falls.
Percentiles askAway(const std::vector<std::string>& texts, const Ask& ask, double seconds, const Loader* loader) {
    LatencyCounts counts;
    const auto end = Clock::now() + std::chrono::duration<double>(seconds);
    std::size_t place = 0;
    bool before = loader == nullptr;
    Clock::time_point last = Clock::now();
    while (last < end || (loader != nullptr && loader->loads() == 0)) {
        const bool answered = ask(texts[place]);
        place = place + 1 == texts.size() ? 0 : place + 1;
        const Clock::time_point now = Clock::now();
        const bool after = loader == nullptr || loader->loading();
        if (before || after) {
            counts.add(static_cast<std::uint64_t>((now - last).count()), answered);
        }
        before = after;
        last = now;
    }
    return counts.percentiles();
}

/// Two threads at work on a center for as long as it lives: one lists everything, the other loads one record again
/// every seven milliseconds.
class Crowd {
public:
    Crowd(mxservice::IInstrumentCenter& center, const InstrumentPtr& record)
        : lister_([this, &center] {
              while (!stopping_) {
                  lists_ += center.getInstruments().empty() ? 0 : 1;
              }
          }),
          loader_([this, &center, record] {
              while (!stopping_) {
                  center.initInstruments({record->market}, {record});
                  std::this_thread::sleep_for(std::chrono::milliseconds(7));
              }
          }) {}
    ~Crowd() {
        stopping_ = true;
        lister_.join();
        loader_.join();
    }
    Crowd(const Crowd&) = delete;
    Crowd& operator=(const Crowd&) = delete;

private:
    std::atomic<bool> stopping_{false};
    int lists_ = 0;
    std::thread lister_;
    std::thread loader_;
};

struct Situation {
    Latency latency;
    const std::vector<std::string>* texts;
    Ask ask;
    const Batch* batch;  // null: no load
    Load load;
    mxservice::IInstrumentCenter* crowded = nullptr;  // where a crowd is at work
};

/// Who is asked and loaded in what situations, and what all of them share.
class Reloads {
public:
    Reloads(std::size_t size, const Watch& watch) : day_(makeMarketDay(size)), watch_(watch) {
        tenth_ = batchOf(kTenth, day_);
        all_ = batchOf(kLoadedMarkets, day_);
        for (const std::size_t place : drawPlaces(size, KeyChoice::Zipf)) {
            texts_.push_back(filedKeyText(*day_[place]));
        }
        for (std::size_t i = 0; i < kWorkingSet; ++i) {
            workingSet_.push_back(filedKeyText(*day_[i * size / kWorkingSet]));
        }
        addInMemory();
        addRival();
        addPersisted();
    }

    std::vector<Latency> run() {
        for (int round = 0; round < watch_.rounds; ++round) {
            for (Situation& situation : situations_) {
                situation.latency.rounds.push_back(watched(situation));
            }
        }
        std::vector<Latency> latencies;
        for (Situation& situation : situations_) {
            latencies.push_back(std::move(situation.latency));
        }
        return latencies;
    }

private:
    Percentiles watched(const Situation& situation) const {
        if (situation.crowded != nullptr) {
            const Crowd crowd(*situation.crowded, day_.front());
            return askAway(*situation.texts, situation.ask, watch_.seconds, nullptr);
        }
        if (situation.batch == nullptr) {
            return askAway(*situation.texts, situation.ask, watch_.seconds, nullptr);
        }
        const Loader loader(*situation.batch, situation.load);
        return askAway(*situation.texts, situation.ask, watch_.seconds, &loader);
    }

    void add(const char* what, const char* who, Beside beside, const Ask& ask, const Batch* batch = nullptr,
             const Load& load = nullptr) {
        Situation& situation = situations_.emplace_back();
        situation.latency = {what, who, day_.size(), batch == nullptr ? 0 : batch->records.size(), beside, {}};
        situation.texts = what == kCachedRead ? &workingSet_ : &texts_;
        situation.ask = ask;
        situation.batch = batch;
        situation.load = load;
    }

    /// Loads of a center that is read, beside those that leave the reader alone.
    void addCenter(const char* what, mxservice::IInstrumentCenter& center, const std::vector<const Batch*>& batches) {
        center.initInstruments(kLoadedMarkets, day_);
        const Ask ask = [&center](const std::string& text) { return center.getInstrument(text) != nullptr; };
        const Load load = [&center](const auto& markets, const Records& records) {
            center.initInstruments(markets, records);
        };
        add(what, kCenter, Beside::Nothing, ask);
        add(what, kNobody, Beside::Nothing, nobody_);
        for (const Batch* const batch : batches) {
            add(what, kCenter, Beside::Reload, ask, batch, load);
            add(what, kNobody, Beside::Other, nobody_, batch, load);
        }
    }

    void addInMemory() {
        addCenter(kTextLookup, server_, {&tenth_, &all_});
        other_.initInstruments(kLoadedMarkets, day_);
        const Ask ask = [this](const std::string& text) { return server_.getInstrument(text) != nullptr; };
        for (const Batch* const batch : {&tenth_, &all_}) {
            add(kTextLookup, kCenter, Beside::Other, ask, batch,
                [this](const auto& markets, const Records& records) { other_.initInstruments(markets, records); });
        }
        add(kTextLookup, kCenter, Beside::Crowd, ask);
        situations_.back().crowded = &server_;
        add(kTextLookup, kCenter, Beside::Elsewhere, ask);
        situations_.back().crowded = &other_;
    }

    void addRival() {
        fill(rival_, day_);
        const Ask ask = [this](const std::string& text) { return rival_.find(text) != nullptr; };
        add(kTextLookup, NodeRival::kName, Beside::Nothing, ask);
        for (const Batch* const batch : {&tenth_, &all_}) {
            add(kTextLookup, NodeRival::kName, Beside::Reload, ask, batch,
                [this](const auto& /*markets*/, const Records& records) { reload(rival_, records); });
        }
    }

    void addPersisted() {
        std::vector<const Batch*> batches{&tenth_};
        if (watch_.wholeStore) {
            batches.push_back(&all_);
        }
        addCenter(kCachedRead, client_, batches);
        constexpr int kWarmingRounds = 3;
        for (int round = 0; round < kWarmingRounds; ++round) {
            for (const std::string& text : workingSet_) {
                client_.getInstrument(text);
            }
        }
    }

    const Records day_;
    const Watch watch_;
    const Ask nobody_ = [](const std::string& /*text*/) { return true; };
    Batch tenth_;
    Batch all_;
    std::vector<std::string> texts_;
    std::vector<std::string> workingSet_;
    std::vector<Situation> situations_;
    const TemporaryStore store_;
    mxservice::CServerInstrumentCenter server_{"bench"};
    mxservice::CServerInstrumentCenter other_{"bench"};
    NodeRival rival_;
    mxservice::CClientInstrumentCenter client_{"bench", kCachedRecords, kCachedRecords, kCachedRecords};
};

}  // namespace

std::vector<Latency> measureReloads(std::size_t size, const Watch& watch) {
    return std::make_unique<Reloads>(size, watch)->run();
}

}  // namespace bench
