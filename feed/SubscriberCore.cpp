#include "feed/SubscriberCore.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <stdexcept>
#include <utility>

#include "platform/utils/LogLine.h"

namespace mxservice::feed {
namespace {

// Doublings of the pause while the log is damaged: up to a minute. Each look fetches the damaged day again, and what
// heals it rings.
constexpr unsigned kLongestBackoff = 5;
// A look that finds nobody has said so before three pauses and three requests are over: later than that the thread
// hangs.
constexpr int kLooksMissed = 3;
// Larger durations are taken for this one: added to the present, the largest that there are would overflow.
constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24 * 365);

void complain(const char* what, const std::exception& failure) {
    PM_LOG(utils::kLogError, __FILE__, fmt::format("[feed] {}: {}", what, failure.what()));
}

}  // namespace

SubscriberCore::SubscriberCore(std::unique_ptr<Host> host, std::shared_ptr<Log> log, const Options& options, bool start)
    : host_(std::move(host)),
      log_(std::move(log)),
      options_(options),
      validFor_(kLooksMissed * (std::min(options.pollEvery, kLongest) + std::min(options.requestTimeout, kLongest))),
      file_(options.cacheFile),
      replica_(*log_, options.maxUnpackedBytes) {
    if (start) {
        thread_ = std::thread([this] {
            run();
            const auto itself = std::move(itself_);
        });
    }
}

SubscriberCore::~SubscriberCore() {
    stop();
    if (thread_.joinable()) {
        thread_.join();
    }
}

void SubscriberCore::end(std::unique_ptr<SubscriberCore> core) {
    if (core && core->thread_.get_id() == std::this_thread::get_id()) {
        PM_LOG(utils::kLogError, __FILE__,
               "[feed] a subscriber is destroyed on its own thread, by one of its handlers");
        core->stop();
        core->thread_.detach();
        SubscriberCore& still = *core;  // its handlers and the look that called them are further up on this stack
        still.itself_ = std::move(core);
    }
}

void SubscriberCore::stop() {
    {
        const std::lock_guard guard(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    log_->close();  // a server that hangs is not waited for, and no bell rings any more
}

void SubscriberCore::run() {
    restore();
    // Before the first look: that one connects, and a line that was made without a bell stays without.
    log_->listen([this](std::uint64_t sequence) {
        {
            const std::lock_guard guard(mutex_);
            heard_ = std::max(heard_, sequence);
            rung_ = true;
            moreIsKnown();
        }
        changed_.notify_all();
    });
    for (;;) {
        step();
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, pause(), [this] { return rung_ || stopped_; });
        if (stopped_) {
            return;
        }
        rung_ = false;  // before the look: a bell during it may be of something that it no longer saw
    }
}

/// A quarter more or less: hosts that were started together, or lost the same server, do not ask it together.
std::chrono::milliseconds SubscriberCore::pause() {
    const double jitter = std::uniform_real_distribution(0.75, 1.25)(random_);
    const unsigned doublings = std::min(refused_, kLongestBackoff);
    return std::chrono::duration_cast<std::chrono::milliseconds>(options_.pollEvery * jitter * (1U << doublings));
}

/// Whatever is wrong with the file or the day in it costs nothing but a start without them.
void SubscriberCore::restore() {
    try {
        const std::vector<Entry> entries = file_.read();
        restoring_ = true;  // what comes from the file need not be written to it
        if (!entries.empty() && replica_.restore(entries, *this)) {
            enter(State::Stale, "loaded from the cache file; not confirmed yet");
        }
    } catch (const std::exception& failure) {
        complain("the cached day was not loaded", failure);
    }
    restoring_ = false;
}

void SubscriberCore::step() {
    std::uint64_t heard = 0;
    {
        const std::lock_guard guard(mutex_);
        heard = heard_;
    }
    Look look;
    try {
        look = replica_.look(heard, *this);
    } catch (const std::exception& failure) {
        // Of the center or for want of memory. The replica has forgotten its day, so the next step loads it whole; with
        // the pauses of a damaged log, for what has thrown once is likely to throw again.
        complain("a day or change was not loaded", failure);
        look.seen = Seen::Damaged;
        look.reason = failure.what();
    }
    refused_ = look.seen == Seen::Damaged ? refused_ + 1 : 0;
    if (look.seen == Seen::Current || look.seen == Seen::Empty) {
        const std::lock_guard guard(mutex_);
        heard_ = heard_ == heard ? 0 : heard_;  // followed; or a bell of a stream that is gone
    }
    tell(look);
}

void SubscriberCore::tell(const Look& look) {
    bool hasDay = false;
    std::string server = log_->server();  // before the lock: it is the log's affair how long that takes
    {
        const std::lock_guard guard(mutex_);
        hasDay = hasDay_;
        health_.server = std::move(server);
        // What the log last said of itself stays, so that the lag of a host that is cut off does not look like none.
        if (look.newest != 0) {
            health_.newest = look.newest;
        }
        if (look.seen == Seen::Unreachable || look.seen == Seen::Denied) {
            ++health_.failures;
        } else {
            health_.lastSeen = std::chrono::system_clock::now();
        }
        if (look.seen == Seen::Current) {
            currentUntil_ = std::chrono::steady_clock::now() + validFor_;
        }
        if (look.seen != Seen::Current) {
            health_.lastFailure = look.reason;
        }
    }
    changed_.notify_all();  // also where no state is entered: one that was Current all the time may be so again
    switch (look.seen) {
        case Seen::Current:
            return enter(State::Current, "");
        case Seen::Empty:
        case Seen::Unreachable:
            return enter(hasDay ? State::Stale : State::Connecting, look.reason);
        // With a day or without: none of these mends by itself, so operators are to be told also while hosts answer.
        case Seen::Denied:
        case Seen::Damaged:
        case Seen::Newer:
            return enter(State::Failed, look.reason);
    }
}

void SubscriberCore::enter(State state, const std::string& reason) {
    {
        const std::lock_guard guard(mutex_);
        if (health_.state == state) {
            return;  // each look finds a server that is away again; that says nothing new
        }
        health_.state = state;
    }
    changed_.notify_all();
    PM_LOG(state == State::Failed ? utils::kLogError : utils::kLogInfo, __FILE__,
           fmt::format("[feed] {}{}{}", stateName(state), reason.empty() ? "" : ": ", reason));
    call(states_, "a handler of states", state, reason);
}

template <class List, class... Arguments>
void SubscriberCore::call(List& handlers, const char* whose, const Arguments&... arguments) {
    handlers.each([&](const auto& handler) {
        if (itself_) {
            return;  // the one before has ended us, and with us perhaps what this one needs
        }
        try {
            handler(arguments...);
        } catch (const std::exception& failure) {
            complain(whose, failure);
        } catch (...) {
            PM_LOG(utils::kLogError, __FILE__, fmt::format("[feed] {} threw", whose));
        }
    });
}

/// The revision first: a handler that asks for it, or another thread that it wakes, has the one that was told.
void SubscriberCore::tellChange(const Revision& revision) {
    {
        const std::lock_guard guard(mutex_);
        health_.revision = revision;
        hasDay_ = true;
    }
    call(changes_, "a handler of changes", revision);
}

/// No state is entered: what is missing is mostly one change, which is there before anybody could act on it.
void SubscriberCore::behind(std::uint64_t newest) {
    const std::lock_guard guard(mutex_);
    health_.newest = newest;
    moreIsKnown();
}

void SubscriberCore::moreIsKnown() {
    currentUntil_ =
        std::min(currentUntil_, std::chrono::steady_clock::now() + std::min(options_.requestTimeout, kLongest));
}

void SubscriberCore::loading(bool fault) {
    const char* const reason =
        fault ? "the log does not go on from what is loaded: its day is loaded anew" : "a newer day is being loaded";
    bool hasDay = false;
    bool current = false;
    {
        const std::lock_guard guard(mutex_);
        health_.reloads += fault ? 1U : 0U;
        hasDay = hasDay_;
        current = health_.state == State::Current;
    }
    if (fault) {
        PM_LOG(utils::kLogInfo, __FILE__, fmt::format("[feed] {}", reason));
    }
    // With a day it is not Loading: the center answers as before until the new one takes its place in one step. But
    // over a slow line that may take minutes, so it is not Current either; and Failed stays Failed until it is done.
    if (!hasDay) {
        enter(State::Loading, "");
    } else if (current) {
        enter(State::Stale, reason);
    }
}

void SubscriberCore::day(const Day& day, const std::vector<Change>& changes, const std::vector<Entry>& entries) {
    host_->load(day, changes);
    const Revision revision = revisionOf(entries.back().head, entries.back().sequence);
    PM_LOG(utils::kLogInfo, __FILE__,
           fmt::format("[feed] loaded {}, revision {} with {} changes", revision.tradingDay, revision.number,
                       changes.size()));
    {
        const std::lock_guard guard(mutex_);
        ++health_.days;
    }
    // After the center has it: readers do not wait for a disk.
    if (!restoring_) {
        file_.write(entries);
    }
    tellChange(revision);
}

/// A center that throws leaves the change out of the file: the whole day is loaded next, which writes it anew.
void SubscriberCore::change(const Change& change, const Entry& entry) {
    if (itself_) {
        throw std::runtime_error("the subscriber was destroyed");  // with the center, perhaps
    }
    host_->apply(change);
    {
        const std::lock_guard guard(mutex_);
        ++health_.changes;
    }
    file_.append(entry);
    tellChange(revisionOf(entry.head, entry.sequence));
}

void SubscriberCore::damaged(const std::string& reason) {
    {
        const std::lock_guard guard(mutex_);
        ++health_.corrupt;
        health_.lastFailure = reason;
    }
    PM_LOG(utils::kLogError, __FILE__, "[feed] refused: " + reason);
}

/// A thread that hangs cannot enter a state, so that each who asks looks at the time. Steady: the time of day may be
/// set.
State SubscriberCore::stateNow() const {
    const bool passed = health_.state == State::Current && std::chrono::steady_clock::now() >= currentUntil_;
    return passed ? State::Stale : health_.state;
}

State SubscriberCore::state() const {
    const std::lock_guard guard(mutex_);
    return stateNow();
}

Revision SubscriberCore::revision() const {
    const std::lock_guard guard(mutex_);
    return health_.revision;
}

Health SubscriberCore::health() const {
    const std::lock_guard guard(mutex_);
    Health health = health_;
    health.state = stateNow();
    // Of another epoch the numbers may be the smaller ones.
    health.lag = health.newest > health.revision.number ? health.newest - health.revision.number : 0;
    return health;
}

bool SubscriberCore::waitCurrent(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::min(timeout, kLongest), [this] { return stateNow() == State::Current; });
}

}  // namespace mxservice::feed
