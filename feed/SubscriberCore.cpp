#include "feed/SubscriberCore.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "platform/utils/LogLine.h"

namespace mxservice::feed {
namespace {

// Doublings of the pause while the log is damaged: up to a minute. Each look fetches the damaged day again, and what
// heals it rings.
constexpr unsigned kLongestBackoff = 5;

void complain(const char* what, const std::exception& failure) {
    PM_LOG(utils::kLogError, __FILE__, fmt::format("[feed] {}: {}", what, failure.what()));
}

}  // namespace

SubscriberCore::SubscriberCore(std::unique_ptr<Host> host, std::shared_ptr<Log> log, const Options& options, bool start)
    : host_(std::move(host)),
      log_(std::move(log)),
      options_(options),
      file_(options.cacheFile),
      replica_(*log_, options.maxUnpackedBytes) {
    if (start) {
        thread_ = std::thread([this] { run(); });
    }
}

SubscriberCore::~SubscriberCore() {
    {
        const std::lock_guard guard(mutex_);
        stopped_ = true;
    }
    changed_.notify_all();
    log_->close();  // a server that hangs is not waited for, and no bell rings any more
    if (thread_.joinable()) {
        thread_.join();
    }
}

void SubscriberCore::run() {
    restore();
    // Before the first look: that one connects, and a line that was made without a bell stays without.
    log_->listen([this](std::uint64_t sequence) {
        {
            const std::lock_guard guard(mutex_);
            heard_ = std::max(heard_, sequence);
            rung_ = true;
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
        if (look.seen != Seen::Current) {
            health_.lastFailure = look.reason;
        }
        const std::uint64_t have = health_.revision.number;
        // Of another epoch the numbers may be the smaller ones.
        health_.lag = health_.newest > have ? health_.newest - have : 0;
    }
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
    states_.each([&](const auto& handler) {
        try {
            handler(state, reason);
        } catch (const std::exception& failure) {
            complain("a handler of states", failure);
        } catch (...) {
            PM_LOG(utils::kLogError, __FILE__, "[feed] a handler of states threw");
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
    changes_.each([&](const auto& handler) {
        try {
            handler(revision);
        } catch (const std::exception& failure) {
            complain("a handler of changes", failure);
        } catch (...) {
            PM_LOG(utils::kLogError, __FILE__, "[feed] a handler of changes threw");
        }
    });
}

void SubscriberCore::loading(bool fault) {
    bool hasDay = false;
    {
        const std::lock_guard guard(mutex_);
        health_.reloads += fault ? 1U : 0U;
        hasDay = hasDay_;
    }
    if (fault) {
        PM_LOG(utils::kLogInfo, __FILE__, "[feed] the log does not go on from what is loaded: its day is loaded anew");
    }
    // With a day it is not Loading: the center answers as before until the new one takes its place in one step.
    if (!hasDay) {
        enter(State::Loading, "");
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

State SubscriberCore::state() const {
    const std::lock_guard guard(mutex_);
    return health_.state;
}

Revision SubscriberCore::revision() const {
    const std::lock_guard guard(mutex_);
    return health_.revision;
}

Health SubscriberCore::health() const {
    const std::lock_guard guard(mutex_);
    return health_;
}

bool SubscriberCore::waitCurrent(std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return health_.state == State::Current; });
}

}  // namespace mxservice::feed
