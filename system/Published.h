#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <type_traits>
#include <utility>

#include "system/GracePeriod.h"

namespace sys {

/// A value that is never changed, only replaced whole. Readers never wait: they ask the value that is there. Who
/// replaces it waits until no reader can be asking the former one any more. Value derives from
/// std::enable_shared_from_this<Value>; a version that somebody holds lives on for as long as it is held.
template <class Value>
class Published {
public:
    explicit Published(std::shared_ptr<const Value> first) : owner_(std::move(first)), current_(owner_.get()) {}
    Published(const Published&) = delete;
    Published& operator=(const Published&) = delete;

    /// What `question` answers when it is given the value, for short questions: meanwhile who replaces the value waits
    /// for its end. No call to another function stands on the common way.
    template <class Question>
    auto ask(Question question) const {  // by value: what it holds then stays in registers
        static_assert(std::is_nothrow_invocable_v<Question&, const Value&>, "nothing would take the mark back");
        if (GracePeriod::Count* const mark = readers_.tryEnter()) [[likely]] {
            auto answer = question(*current_.load(std::memory_order_acquire));
            GracePeriod::leave(mark);
            return answer;
        }
        return askSlowly(question);
    }

    /// The value of this moment, for any length of time. Whoever lets go of a replaced one last destroys it.
    std::shared_ptr<const Value> hold() const {
        return ask([](const Value& value) noexcept { return value.weak_from_this().lock(); });
    }

    /// Replaces the value by what `change` makes of it, a std::shared_ptr. Changes are made one after the other, so
    /// none is lost; one that throws has changed nothing. Returns when nobody asks the former value any more, but for
    /// those who hold it; it is destroyed after that, with no lock held.
    template <class Change>
    void update(const Change& change) {
        std::shared_ptr<const Value> former;
        {
            const std::lock_guard guard(writers_);
            std::shared_ptr<const Value> fresh = change(*owner_);
            current_.store(fresh.get(), std::memory_order_seq_cst);
            former = std::exchange(owner_, std::move(fresh));
        }
        readers_.wait();
    }

    /// Runs `task` with the value while nobody replaces it: what is replaced afterwards is so after the task.
    template <class Task>
    auto between(const Task& task) {
        const std::lock_guard guard(writers_);
        return task(*owner_);
    }

private:
    template <class Question>
    [[gnu::noinline, gnu::cold]] auto askSlowly(Question question) const {
        GracePeriod::Count* const mark = readers_.enterShared();
        auto answer = question(*current_.load(std::memory_order_seq_cst));
        GracePeriod::leaveShared(mark);
        return answer;
    }

    std::shared_ptr<const Value> owner_;
    alignas(64) std::atomic<const Value*> current_;
    mutable GracePeriod readers_;
    std::mutex writers_;
};

}  // namespace sys
