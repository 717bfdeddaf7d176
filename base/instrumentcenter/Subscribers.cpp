#include "base/instrumentcenter/Subscribers.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <iterator>
#include <mutex>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/boundary/Records.h"
#include "system/ThreadObject.h"

namespace mxservice {
namespace {

constexpr const char* kSource = "base/instrumentcenter/Subscribers";

void logFailure(const char* what, const char* why) noexcept {
    try {
        PM_CENTER_LOG(kLogError, kSource, fmt::format("[inscenter] {} failed: {}", what, why));
    } catch (...) {
        // Without memory even for the line.
    }
}

/// Runs what is the host's; what it throws ends here, for a load must not fail for who listens to it.
template <class Call>
void guarded(const char* what, const Call& call) noexcept {
    try {
        call();
    } catch (const std::exception& error) {
        logFailure(what, error.what());
    } catch (...) {
        logFailure(what, "no standard exception");
    }
}

}  // namespace

struct Subscriber {
    Subscriber(ChangeHandler changeHandler, Executor taskExecutor, std::uint64_t version)
        : executor(std::move(taskExecutor)), since(version), handler_(std::move(changeHandler)) {}

    // Asked before the work of making a change; call() asks again, for it may end in between.
    bool hasEnded() {
        const std::lock_guard guard(lock_);
        return ended_;
    }

    void call(const CatalogueChange& change) {
        {
            const std::lock_guard guard(lock_);
            if (ended_) {
                return;
            }
            // Known by their threads: an executor may run several calls at once, and end() must not wait for its own.
            callers_.push_back(std::this_thread::get_id());
        }
        guarded("a subscriber", [&] { handler_(change); });
        ChangeHandler done;  // goes with what it holds when no lock is held
        const std::lock_guard guard(lock_);
        callers_.erase(std::find(callers_.begin(), callers_.end(), std::this_thread::get_id()));
        if (ended_ && callers_.empty()) {
            done.swap(handler_);
        }
        // Under the lock: who waits may destroy the condition once it has seen that nobody calls.
        left_.notify_all();
    }

    // Once this returns, no call begins and none of another thread is under way, so what the handler refers to may go.
    void end() {
        ChangeHandler done;
        std::unique_lock guard(lock_);
        ended_ = true;
        // A handler that unsubscribes would wait for itself.
        left_.wait(guard, [this] {
            return std::all_of(callers_.begin(), callers_.end(),
                               [](std::thread::id caller) { return caller == std::this_thread::get_id(); });
        });
        // Else the handler is running above this very call: it is destroyed when that returns.
        if (callers_.empty()) {
            done.swap(handler_);
        }
    }

    const Executor executor;
    const std::uint64_t since;
    std::weak_ptr<Subscribers::Queue> queue;  // that it is in

private:
    std::mutex lock_;  // guards the rest
    std::condition_variable left_;
    std::vector<std::thread::id> callers_;
    ChangeHandler handler_;  // not replaced while somebody calls it
    bool ended_ = false;
};

/// A change on its way to the subscribers.
class Subscribers::Note {
public:
    Note(std::uint64_t number, const void* load, Difference derive)
        : version(number), origin(load), difference_(std::move(derive)) {}

    /// Makes it of several that stand together.
    explicit Note(std::vector<std::shared_ptr<Note>> parts)
        : version(parts.back()->version), origin(parts.back()->origin), difference_([parts = std::move(parts)] {
              CatalogueChange whole;
              for (const std::shared_ptr<Note>& part : parts) {
                  add(part->change(), whole);
              }
              return whole;
          }) {}

    const CatalogueChange& change() {
        // An executor may have several tasks ask for it at once.
        std::call_once(made_, [this] {
            change_ = difference_();
            difference_ = nullptr;  // and with it the former version
        });
        return change_;
    }

    const std::uint64_t version;
    const void* const origin;  // the hold within which it was noted; null: none
    bool shown = false;        // guarded by the queue's lock

private:
    static void add(const CatalogueChange& part, CatalogueChange& whole) {
        whole.version = part.version;
        whole.instruments.insert(whole.instruments.end(), part.instruments.begin(), part.instruments.end());
        // A load may touch a market or a catalogue twice.
        const auto addNames = [](const std::vector<std::string>& names, std::vector<std::string>& all) {
            std::copy_if(names.begin(), names.end(), std::back_inserter(all),
                         [&](const std::string& name) { return std::find(all.begin(), all.end(), name) == all.end(); });
        };
        addNames(part.markets, whole.markets);
        addNames(part.catalogues, whole.catalogues);
    }

    std::once_flag made_;
    Difference difference_;
    CatalogueChange change_;
};

/// What a center keeps of its subscribers.
class Subscribers::Queue {
public:
    void add(std::shared_ptr<Subscriber> subscriber) {
        const std::lock_guard guard(lock_);
        subscribers_.push_back(std::move(subscriber));
        count = subscribers_.size();
    }

    void remove(const Subscriber* subscriber) {
        const std::lock_guard guard(lock_);
        std::erase_if(subscribers_, [&](const auto& each) { return each.get() == subscriber; });
        count = subscribers_.size();
    }

    // A copy: a handler may subscribe and unsubscribe.
    std::vector<std::shared_ptr<Subscriber>> all() {
        const std::lock_guard guard(lock_);
        return subscribers_;
    }

    void put(std::shared_ptr<Note> note) {
        const std::lock_guard guard(lock_);
        notes_.push_back(std::move(note));
        waiting = notes_.size();
    }

    // Between put() and this, readers do not see the change yet. Notes behind it wait, so that none is told out of
    // order.
    void show(Note& note) {
        const std::lock_guard guard(lock_);
        note.shown = true;
    }

    void tell() noexcept {
        assertNoLockHeld();
        {
            const std::lock_guard guard(lock_);
            // That thread will find what is there now: it looks once more, under this lock, before it ends.
            if (telling_) {
                return;
            }
            telling_ = true;
        }
        for (;;) {
            bool more = false;
            guarded("telling a change", [&] {
                if (const std::shared_ptr<Note> note = next()) {
                    more = true;
                    tellAll(note);
                }
            });
            if (!more && !goesOn()) {
                return;
            }
        }
    }

    std::atomic<std::size_t> count{0};    // of subscribers
    std::atomic<std::size_t> waiting{0};  // of notes

private:
    /// The next change to be told, with those that stand together with it; null where there is none.
    std::shared_ptr<Note> next() {
        std::vector<std::shared_ptr<Note>> parts;
        {
            const std::lock_guard guard(lock_);
            // Parts of one load, such as a market a version, are told as one: whoever listens wants to hear of the
            // load.
            while (!notes_.empty() && notes_.front()->shown &&
                   (parts.empty() ||
                    (notes_.front()->origin != nullptr && notes_.front()->origin == parts.back()->origin))) {
                parts.push_back(notes_.front());
                notes_.pop_front();
            }
            waiting = notes_.size();
        }
        if (parts.size() < 2) {
            return parts.empty() ? nullptr : parts.front();
        }
        return std::make_shared<Note>(std::move(parts));
    }

    /// Whether something has come in since; if not, nobody tells any more.
    bool goesOn() {
        const std::lock_guard guard(lock_);
        // Decided and said under one lock: whoever shows a note after this finds that nobody is telling, and tells it.
        telling_ = !notes_.empty() && notes_.front()->shown;
        return telling_;
    }

    void tellAll(const std::shared_ptr<Note>& note) {
        const auto tellOne = [note](Subscriber& subscriber) {
            if (subscriber.hasEnded()) {
                return;  // before the change is made for nobody
            }
            const CatalogueChange& change = note->change();
            // Not where nothing has changed but what is derived.
            if (!change.markets.empty() || !change.instruments.empty() || !change.catalogues.empty()) {
                subscriber.call(change);
            }
        };
        for (const std::shared_ptr<Subscriber>& subscriber : all()) {
            // Who subscribed while it waited could see it by then.
            if (note->version <= subscriber->since) {
                continue;
            }
            if (!subscriber->executor) {
                guarded("telling a change", [&] { tellOne(*subscriber); });
                continue;
            }
            guarded("an executor", [&] {
                subscriber->executor(
                    [subscriber, tellOne] { guarded("telling a change", [&] { tellOne(*subscriber); }); });
            });
        }
    }

    std::mutex lock_;  // guards what follows; nothing is called while it is held
    std::vector<std::shared_ptr<Subscriber>> subscribers_;
    std::deque<std::shared_ptr<Note>> notes_;
    bool telling_ = false;
};

namespace {

/// What the thread holds back.
struct Held {
    int depth = 0;
    const void* outermost = nullptr;
    std::vector<std::function<void()>> telling;  // of other centers
};

Held& held() {
    return sys::ofThread<Held>();
}

}  // namespace

Subscription::Subscription() = default;

Subscription::Subscription(std::shared_ptr<Subscriber> subscriber) : subscriber_(std::move(subscriber)) {}

Subscription::~Subscription() {
    if (subscriber_) {
        if (const auto queue = subscriber_->queue.lock()) {
            // First out of the queue, so that no new call begins while those under way are waited for.
            queue->remove(subscriber_.get());
        }
        subscriber_->end();
    }
}

Subscription::Subscription(Subscription&& other) noexcept = default;

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    // What it held ends when this function does, by which time `other` has been taken over.
    const Subscription former(std::move(*this));
    subscriber_ = std::move(other.subscriber_);
    return *this;
}

Subscribers::Subscribers() : queue_(std::make_shared<Queue>()), count_(&queue_->count) {}

Subscribers::~Subscribers() = default;

Subscription Subscribers::add(ChangeHandler handler, Executor executor, std::uint64_t version) {
    if (!handler) {
        return {};
    }
    // Any version that is published from here on is noted, for the flag is up; what came before was told others or
    // nobody.
    auto subscriber = std::make_shared<Subscriber>(std::move(handler), std::move(executor), version);
    subscriber->queue = queue_;
    queue_->add(subscriber);
    return Subscription(std::move(subscriber));
}

std::shared_ptr<Subscribers::Note> Subscribers::note(std::uint64_t version, Difference difference) noexcept {
    try {
        auto noted = std::make_shared<Note>(version, held().outermost, std::move(difference));
        queue_->put(noted);
        return noted;
    } catch (const std::bad_alloc&) {
        logFailure("telling a change", "no memory");
        return nullptr;
    }
}

void Subscribers::show(Note& note) noexcept {
    queue_->show(note);
}

void Subscribers::tell() noexcept {
    if (queue_->waiting == 0) {
        return;
    }
    Held& own = held();
    if (own.depth == 0) {
        queue_->tell();
        return;
    }
    // Of another center than the one that holds back, too: its handlers would run beneath the locks of this one.
    guarded("telling a change", [&] { own.telling.emplace_back([queue = queue_] { queue->tell(); }); });
}

void Subscribers::close() {
    for (const std::shared_ptr<Subscriber>& subscriber : queue_->all()) {
        subscriber->end();
    }
}

Subscribers::HoldBack::HoldBack(Subscribers& subscribers) : subscribers_(subscribers) {
    Held& own = held();
    if (own.depth++ == 0) {
        // Its address names the load in the notes: what is noted within it stands together.
        own.outermost = this;
    }
}

Subscribers::HoldBack::~HoldBack() {
    Held& own = held();
    if (own.depth > 1) {
        --own.depth;
        subscribers_.tell();  // later
        return;
    }
    // Before anything is told: what a handler loads is a load of its own.
    own.outermost = nullptr;
    own.depth = 0;
    subscribers_.tell();
    // Taken first: a handler may load, and hold back itself.
    for (const auto& telling : std::exchange(own.telling, {})) {
        telling();
    }
}

std::vector<std::string> changedFields(const IData& before, const IData& after) {
    return differingFields(before, after);
}

}  // namespace mxservice
