#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "feed/Feed.h"

namespace mxservice::feed {

/// Functions that a subscriber's thread calls, one after the other. They may register and unregister, themselves
/// included.
template <class... Arguments>
class Handlers {
public:
    using Function = std::function<void(Arguments...)>;

    Registration add(Function function) {
        if (!function) {
            return Registration();
        }
        auto handler = std::make_shared<Handler>();
        handler->function = std::move(function);
        {
            const std::lock_guard guard(shared_->lock);
            shared_->list.push_back(handler);
        }
        // The list weakly, for a registration may outlive the subscriber.
        return Registration([handler, list = std::weak_ptr<Shared>(shared_)] {
            if (const auto shared = list.lock()) {
                const std::lock_guard guard(shared->lock);
                shared->list.remove(handler);
            }
            // Recursive: by the handler itself it is had already. Waits for a call on another thread, and with the
            // list's lock released: that call may register.
            const std::lock_guard running(handler->running);
            handler->function = nullptr;  // each() may have it still in its round
        });
    }

    /// `call` runs one of them, and is to swallow what it throws.
    template <class Call>
    void each(Call call) {
        std::vector<std::shared_ptr<Handler>> now;  // what is called may change the list
        {
            const std::lock_guard guard(shared_->lock);
            now.assign(shared_->list.begin(), shared_->list.end());
        }
        for (const auto& handler : now) {
            const std::lock_guard running(handler->running);
            if (const Function function = handler->function) {  // a copy: it may end its own registration
                call(function);
            }
        }
    }

private:
    struct Handler {
        std::recursive_mutex running;  // held while the function is called
        Function function;
    };
    struct Shared {
        std::mutex lock;  // of the list; nothing is called under it
        std::list<std::shared_ptr<Handler>> list;
    };
    std::shared_ptr<Shared> shared_ = std::make_shared<Shared>();
};

}  // namespace mxservice::feed
