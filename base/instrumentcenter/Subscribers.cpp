#include "base/instrumentcenter/Subscribers.h"

#include <fmt/format.h>

#include <algorithm>
#include <condition_variable>
#include <exception>
#include <thread>
#include <utility>

#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/boundary/Log.h"
#include "base/instrumentcenter/boundary/Records.h"

namespace mxservice {
namespace {

constexpr const char* kSource = "base/instrumentcenter/Subscribers";

int& heldBack() {
    static thread_local int depth = 0;
    return depth;
}

/// Runs what is the host's; what it throws ends here, for a load must not fail for who listens to it.
template <class Call>
void guarded(const char* what, const Call& call) noexcept {
    try {
        call();
    } catch (const std::exception& error) {
        PM_CENTER_LOG(kLogError, kSource, fmt::format("[inscenter] {} failed: {}", what, error.what()));
    } catch (...) {
        PM_CENTER_LOG(kLogError, kSource, fmt::format("[inscenter] {} failed", what));
    }
}

}  // namespace

struct Subscriber {
    Subscriber(ChangeHandler changeHandler, Executor taskExecutor, std::uint64_t version)
        : handler(std::move(changeHandler)), executor(std::move(taskExecutor)), since(version) {}

    void call(const CatalogueChange& change) {
        {
            const std::lock_guard guard(lock);
            if (ended) {
                return;
            }
            callers.push_back(std::this_thread::get_id());
        }
        guarded("a subscriber", [&] { handler(change); });
        const std::lock_guard guard(lock);
        callers.erase(std::find(callers.begin(), callers.end(), std::this_thread::get_id()));
        // Under the lock: who waits may destroy the condition once it has seen that nobody calls.
        left.notify_all();
    }

    void end() {
        std::unique_lock guard(lock);
        ended = true;
        // A handler that unsubscribes would wait for itself.
        left.wait(guard, [this] {
            return std::all_of(callers.begin(), callers.end(),
                               [](std::thread::id caller) { return caller == std::this_thread::get_id(); });
        });
    }

    const ChangeHandler handler;
    const Executor executor;
    const std::uint64_t since;
    std::mutex lock;
    std::condition_variable left;
    std::vector<std::thread::id> callers;
    bool ended = false;
};

/// A change on its way to the subscribers.
class Subscribers::Note {
public:
    Note(std::uint64_t number, Difference derive) : version(number), difference_(std::move(derive)) {}

    const CatalogueChange& change() {
        // An executor may have several tasks ask for it at once.
        std::call_once(made_, [this] {
            change_ = difference_();
            difference_ = nullptr;  // and with it the former version
        });
        return change_;
    }

    const std::uint64_t version;
    bool shown = false;  // guarded by the subscribers' lock

private:
    std::once_flag made_;
    Difference difference_;
    CatalogueChange change_;
};

Subscription::Subscription() = default;

Subscription::Subscription(std::shared_ptr<Subscriber> subscriber) : subscriber_(std::move(subscriber)) {}

Subscription::~Subscription() {
    if (subscriber_) {
        subscriber_->end();
    }
}

Subscription::Subscription(Subscription&& other) noexcept = default;

Subscription& Subscription::operator=(Subscription&& other) noexcept {
    Subscription former(std::move(*this));
    subscriber_ = std::move(other.subscriber_);
    return *this;
}

Subscription Subscribers::add(ChangeHandler handler, Executor executor, std::uint64_t version) {
    if (!handler) {
        return {};
    }
    auto subscriber = std::make_shared<Subscriber>(std::move(handler), std::move(executor), version);
    const std::lock_guard guard(lock_);
    subscribers_.push_back(subscriber);
    count_.store(subscribers_.size(), std::memory_order_release);
    return Subscription(std::move(subscriber));
}

std::shared_ptr<Subscribers::Note> Subscribers::note(std::uint64_t version, Difference difference) {
    auto noted = std::make_shared<Note>(version, std::move(difference));
    const std::lock_guard guard(lock_);
    notes_.push_back(noted);
    waiting_.store(notes_.size(), std::memory_order_release);
    return noted;
}

void Subscribers::show(Note& note) {
    const std::lock_guard guard(lock_);
    note.shown = true;
}

/// The change to be told now; null, with nobody telling any more, where there is none.
std::shared_ptr<Subscribers::Note> Subscribers::next() {
    const std::lock_guard guard(lock_);
    if (notes_.empty() || !notes_.front()->shown) {
        telling_ = false;
        return nullptr;
    }
    std::shared_ptr<Note> note = std::move(notes_.front());
    notes_.pop_front();
    waiting_.store(notes_.size(), std::memory_order_release);
    return note;
}

/// The subscribers, without those that have ended: their own end does not know this table, which may be gone by then.
std::vector<std::shared_ptr<Subscriber>> Subscribers::current() {
    const std::lock_guard guard(lock_);
    std::erase_if(subscribers_, [](const auto& subscriber) {
        const std::lock_guard own(subscriber->lock);
        return subscriber->ended;
    });
    count_.store(subscribers_.size(), std::memory_order_release);
    return subscribers_;
}

void Subscribers::tell() noexcept {
    if (waiting_.load(std::memory_order_acquire) == 0 || heldBack() != 0) {
        return;
    }
    assertNoLockHeld();
    {
        const std::lock_guard guard(lock_);
        if (telling_) {
            return;
        }
        telling_ = true;
    }
    while (const std::shared_ptr<Note> note = next()) {
        guarded("telling a change", [&] { call(note); });
    }
}

void Subscribers::call(const std::shared_ptr<Note>& note) {
    const auto tell = [note](Subscriber& subscriber) {
        const CatalogueChange& change = note->change();
        // Not where nothing has changed but what is derived.
        if (!change.markets.empty() || !change.instruments.empty() || !change.catalogues.empty()) {
            subscriber.call(change);
        }
    };
    for (const std::shared_ptr<Subscriber>& subscriber : current()) {
        if (note->version <= subscriber->since) {
            continue;
        }
        if (!subscriber->executor) {
            tell(*subscriber);
            continue;
        }
        guarded("an executor", [&] {
            subscriber->executor([subscriber, tell] { guarded("telling a change", [&] { tell(*subscriber); }); });
        });
    }
}

void Subscribers::close() {
    for (const std::shared_ptr<Subscriber>& subscriber : current()) {
        subscriber->end();
    }
}

Subscribers::HoldBack::HoldBack(Subscribers& subscribers) : subscribers_(subscribers) {
    ++heldBack();
}

Subscribers::HoldBack::~HoldBack() {
    --heldBack();
    subscribers_.tell();
}

std::vector<std::string> changedFields(const IData& before, const IData& after) {
    return differingFields(before, after);
}

}  // namespace mxservice
