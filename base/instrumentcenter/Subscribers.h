#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>

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

    Subscribers();
    ~Subscribers();

    /// Whether there is anybody to tell.
    bool any() const noexcept { return *count_ != 0; }

    /// `version`: changes up to it are not told.
    Subscription add(ChangeHandler handler, Executor executor, std::uint64_t version);

    /// Notes a change that readers do not see yet; it is told after show(). Null where memory lacks for it: a load does
    /// not fail for who listens to it.
    std::shared_ptr<Note> note(std::uint64_t version, Difference difference) noexcept;
    void show(Note& note) noexcept;

    /// Tells what has been noted and shown, with no lock held. Nothing where another thread is telling, the calling one
    /// further up among them; where a HoldBack of this thread lives, at its end. What was noted within one HoldBack and
    /// stands together is told as one change.
    void tell() noexcept;

    /// Ends every subscription; waits for calls under way. Before a center is destroyed.
    void close();

    /// Keeps the calling thread from telling anything, of any center: while it holds a lock, or has not noted its load
    /// in the statistics yet. What it was to tell is told at the end of the outermost one.
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
    friend struct Subscriber;
    class Queue;

    std::shared_ptr<Queue> queue_;  // shared: a thread that holds back may outlive the center that it is to tell of
    const std::atomic<std::size_t>* count_;
};

}  // namespace mxservice
