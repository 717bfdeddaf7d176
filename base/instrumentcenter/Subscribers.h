#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "base/instrumentcenter/CatalogueChange.h"

namespace mxservice {

using ChangeHandler = std::function<void(const CatalogueChange&)>;

/// Who wants to hear of a center's changes, and the changes that are to be told. Changes are noted in the order of
/// their versions and told in that order, by one thread at a time: a load that finds another thread telling leaves its
/// change to it. Without subscribers a load asks one flag.
class Subscribers {
public:
    /// Makes the change that is told; run at most once, when it is first wanted.
    using Difference = std::function<CatalogueChange()>;
    class Note;

    /// Whether there is anybody to tell.
    bool any() const noexcept { return count_.load(std::memory_order_acquire) != 0; }

    /// `version`: changes up to it are not told.
    Subscription add(ChangeHandler handler, Executor executor, std::uint64_t version);

    /// Notes a change that readers do not see yet; it is told after show().
    std::shared_ptr<Note> note(std::uint64_t version, Difference difference);
    void show(Note& note);

    /// Tells what has been noted and shown, with no lock held. Nothing where another thread is telling, the calling one
    /// further up among them, or where a HoldBack of this thread lives.
    void tell() noexcept;

    /// Ends every subscription; waits for calls under way. Before a center is destroyed.
    void close();

    /// Keeps the calling thread from telling while it holds a lock or has not noted its load yet; tells at its end.
    class HoldBack {
    public:
        explicit HoldBack(Subscribers& subscribers);
        ~HoldBack();
        HoldBack(const HoldBack&) = delete;
        HoldBack& operator=(const HoldBack&) = delete;

    private:
        Subscribers& subscribers_;
    };

private:
    std::shared_ptr<Note> next();
    void call(const std::shared_ptr<Note>& note);
    std::vector<std::shared_ptr<Subscriber>> current();

    std::atomic<std::size_t> count_{0};    // of subscribers
    std::atomic<std::size_t> waiting_{0};  // of notes
    std::mutex lock_;                      // guards the rest; nothing is called while it is held
    std::vector<std::shared_ptr<Subscriber>> subscribers_;
    std::deque<std::shared_ptr<Note>> notes_;
    bool telling_ = false;
};

}  // namespace mxservice
