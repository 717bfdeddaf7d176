#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "feed/DayFile.h"
#include "feed/Feed.h"
#include "feed/Handlers.h"
#include "feed/Host.h"
#include "feed/Replica.h"

namespace mxservice::feed {

/// A subscriber over any log.
class SubscriberCore : private Receiver {
public:
    /// `start`: run a thread. Without one the caller does step() itself.
    SubscriberCore(std::unique_ptr<Host> host, std::shared_ptr<Log> log, const Options& options, bool start = true);
    ~SubscriberCore() override;
    /// Destroys it. On its own thread, which cannot wait for itself, that does it as its last act.
    static void end(std::unique_ptr<SubscriberCore> core);

    State state() const;
    Revision revision() const;
    Health health() const;
    Registration onChange(std::function<void(const Revision&)> handler) { return changes_.add(std::move(handler)); }
    Registration onState(std::function<void(State, const std::string&)> handler) {
        return states_.add(std::move(handler));
    }
    bool waitCurrent(std::chrono::milliseconds timeout) const;

    /// One look at the log, and what follows from it.
    void step();
    /// Loads what the cache file has.
    void restore();

private:
    void behind(std::uint64_t newest) override;
    void loading(bool fault) override;
    void day(const Day& day, const std::vector<Change>& changes, const std::vector<Entry>& entries) override;
    void change(const Change& change, const Entry& entry) override;
    void damaged(const std::string& reason) override;

    void run();
    void stop();
    void tell(const Look& look);
    State stateNow() const;
    void moreIsKnown();
    void enter(State state, const std::string& reason);
    void tellChange(const Revision& revision);
    template <class List, class... Arguments>
    void call(List& handlers, const char* whose, const Arguments&... arguments);
    std::chrono::milliseconds pause();

    const std::unique_ptr<Host> host_;
    const std::shared_ptr<Log> log_;
    const Options options_;
    const std::chrono::milliseconds validFor_;  // of one look, for the state to be Current
    Handlers<const Revision&> changes_;
    Handlers<State, const std::string&> states_;

    // Of the one thread alone.
    DayFile file_;
    Replica replica_;
    bool restoring_ = false;
    unsigned refused_ = 0;  // looks in a row that found the log damaged
    std::mt19937 random_{std::random_device()()};
    std::unique_ptr<SubscriberCore> itself_;  // once it was ended on the thread itself

    mutable std::mutex mutex_;  // of what follows; nothing is called under it
    mutable std::condition_variable changed_;
    Health health_;  // its state as it was entered; lag is counted when it is asked for
    std::chrono::steady_clock::time_point currentUntil_;
    bool hasDay_ = false;
    std::uint64_t heard_ = 0;  // largest sequence that a bell told of
    bool rung_ = false;
    bool stopped_ = false;

    std::thread thread_;
};

}  // namespace mxservice::feed
