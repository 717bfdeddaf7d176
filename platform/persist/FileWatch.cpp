#include "platform/persist/FileWatch.h"

#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>

namespace persist {

FileWatch::FileWatch() : queue_(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {}

FileWatch& FileWatch::instance() {
    static FileWatch* const watch = new FileWatch;
    return *watch;
}

bool FileWatch::add(const std::string& path) {
    constexpr std::uint32_t kEvents = IN_MODIFY | IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF;
    return queue_ >= 0 && ::inotify_add_watch(queue_, path.c_str(), kEvents) >= 0;
}

std::uint64_t FileWatch::changes() {
    int waiting = 0;
    if (::ioctl(queue_, FIONREAD, &waiting) != 0 || waiting > 0) {
        // Counted before the news are taken, for a thread that finds none left; and after, for one that has looked at
        // the files before the last of them.
        ++changes_;
        constexpr std::size_t kBufferBytes = 16384;
        std::array<char, kBufferBytes> ignored;
        while (::read(queue_, ignored.data(), ignored.size()) > 0) {
        }
        ++changes_;
    }
    return changes_.load();
}

}  // namespace persist
