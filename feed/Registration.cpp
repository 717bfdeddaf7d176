#include <utility>

#include "feed/Feed.h"

namespace mxservice::feed {

Registration::Registration(std::function<void()> end) : end_(std::move(end)) {}

Registration::~Registration() {
    if (end_) {
        end_();
    }
}

// Exchanged, not moved: a function that was moved from need not be empty, and would be ended twice.
Registration::Registration(Registration&& other) noexcept : end_(std::exchange(other.end_, nullptr)) {}

Registration& Registration::operator=(Registration&& other) noexcept {
    if (this != &other) {
        // The new one is in place before the old one ends: that waits for a call, which may look at this object.
        const auto end = std::exchange(end_, std::exchange(other.end_, nullptr));
        if (end) {
            end();
        }
    }
    return *this;
}

// Without a default: a further state does not compile as long as it has no name.
const char* stateName(State state) {
    switch (state) {
        case State::Connecting:
            return "Connecting";
        case State::Loading:
            return "Loading";
        case State::Current:
            return "Current";
        case State::Stale:
            return "Stale";
        case State::Failed:
            break;
    }
    return "Failed";
}

}  // namespace mxservice::feed
