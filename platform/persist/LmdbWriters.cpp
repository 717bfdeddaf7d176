#include "platform/persist/LmdbWriters.h"

#include <algorithm>

#include "platform/persist/LmdbEnvironment.h"

namespace persist {

LmdbWriters& LmdbWriters::instance() {
    // Never destroyed: threads that outlive main() may still write.
    static LmdbWriters* const writers = new LmdbWriters;
    return *writers;
}

void LmdbWriters::keep(LmdbEnvironment& environment) {
    // Held while the one that makes room is opened anew: until then it must not be closed. Nobody waits for a
    // transaction meanwhile, neither here nor there.
    const std::lock_guard guard(lock_);
    auto place = std::find(latest_.begin(), latest_.end(), &environment);
    if (place == latest_.end()) {
        --place;
        if (*place != nullptr) {
            (*place)->stopWriting();
        }
        *place = &environment;
    }
    std::rotate(latest_.begin(), place, place + 1);
}

void LmdbWriters::forget(LmdbEnvironment& environment) {
    const std::lock_guard guard(lock_);
    const auto place = std::find(latest_.begin(), latest_.end(), &environment);
    if (place != latest_.end()) {
        *place = nullptr;
    }
}

}  // namespace persist
