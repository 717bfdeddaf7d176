#include "tests/FaultyCalls.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define PM_SANITIZED
#endif

namespace faulty {
namespace {

struct Failing {
    std::atomic<bool> armed{false};
    Kind kind = Kind::Write;
    int at = 0;
    bool forever = false;
    int error = 0;
    std::atomic<int> calls{0};
    std::atomic<bool> hit{false};
};

Failing failing;
thread_local int memoryScopes = 0;

bool fails(Kind kind) {
    if (!failing.armed.load() || failing.kind != kind) {
        return false;
    }
    const int call = failing.calls++;
    const bool fails = call == failing.at || (failing.forever && call > failing.at);
    if (fails) {
        failing.hit = true;
        errno = failing.error;
    }
    return fails;
}

std::atomic<bool> skippingSyncs{false};
std::array<std::atomic<bool>, 1024> syncsEachWrite{};  // by file descriptor
std::atomic<bool> recording{false};
std::string recordedRoot;
std::vector<Event> events;
std::mutex eventsLock;

std::atomic<bool> ignoringCase{false};
std::string caselessRoot;

/// The C library's function of that name.
template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

std::string pathOf(int fd) {
    std::array<char, 4096> path;
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
    return size < 0 ? std::string() : std::string(path.data(), static_cast<std::size_t>(size));
}

void record(Event event) {
    if ((event.path + "/").compare(0, recordedRoot.size(), recordedRoot) == 0) {
        const std::lock_guard guard(eventsLock);
        events.push_back(std::move(event));
    }
}

void recordWrite(int fd, std::uint64_t offset, const iovec* parts, int count, ssize_t written) {
    if (!recording.load() || written <= 0) {
        return;
    }
    Event event{Event::What::Write, pathOf(fd), offset, {}, fd < 1024 && syncsEachWrite[static_cast<std::size_t>(fd)]};
    for (int i = 0; i < count; ++i) {
        event.bytes.append(static_cast<const char*>(parts[i].iov_base), parts[i].iov_len);
    }
    event.bytes.resize(static_cast<std::size_t>(written));
    record(std::move(event));
}

int sync(int fd, const char* name) {
    if (fails(Kind::Sync)) {
        return -1;
    }
    if (recording.load()) {
        record({Event::What::Sync, pathOf(fd), 0, {}, true});
    }
    return skippingSyncs.load() ? 0 : real<int(int)>(name)(fd);
}

/// The path that a file system that ignores case would find; `text` keeps it.
const char* found(const char* path, std::string& text) {
    if (!ignoringCase.load() || ::strncmp(path, caselessRoot.c_str(), caselessRoot.size()) != 0) {
        return path;
    }
    text = path;
    const std::size_t begin = caselessRoot.size();
    const std::size_t size = std::min(text.find('/', begin), text.size()) - begin;
    DIR* const directory = ::opendir(caselessRoot.c_str());
    while (const dirent* entry = directory == nullptr ? nullptr : ::readdir(directory)) {
        if (::strlen(entry->d_name) == size && ::strncasecmp(entry->d_name, text.c_str() + begin, size) == 0) {
            text.replace(begin, size, entry->d_name);
            break;
        }
    }
    if (directory != nullptr) {
        ::closedir(directory);
    }
    return text.c_str();
}

}  // namespace

void failAt(Kind kind, int at, bool forever, int error) {
    failing.kind = kind;
    failing.at = at;
    failing.forever = forever;
    failing.error = error;
    failing.calls = 0;
    failing.hit = false;
    failing.armed = true;
}

bool stopFailing() {
    failing.armed = false;
    return failing.hit.load();
}

bool memoryCanFail() {
#if defined(__SANITIZE_THREAD__)
    return false;  // the sanitizer's own memory is in the way
#else
    return true;
#endif
}

MemoryScope::MemoryScope() {
    ++memoryScopes;
}

MemoryScope::~MemoryScope() {
    --memoryScopes;
}

void skipSyncs(bool skip) {
    skippingSyncs = skip;
}

void startRecording(const std::filesystem::path& beneath) {
    recordedRoot = beneath.string() + "/";
    events.clear();
    recording = true;
}

std::vector<Event> stopRecording() {
    recording = false;
    return std::move(events);
}

void ignoreCaseBeneath(const std::filesystem::path& directory) {
    caselessRoot = directory.string() + "/";
    ignoringCase = !directory.empty();
}

}  // namespace faulty

#define PM_OURS extern "C" __attribute__((visibility("default")))

PM_OURS ssize_t pwrite(int fd, const void* bytes, size_t size, off_t offset) {
    if (faulty::fails(faulty::Kind::Write)) {
        if (errno != 0) {
            return -1;
        }
        size /= 2;
    }
    const ssize_t written = faulty::real<ssize_t(int, const void*, size_t, off_t)>("pwrite")(fd, bytes, size, offset);
    const iovec part{const_cast<void*>(bytes), size};
    faulty::recordWrite(fd, static_cast<std::uint64_t>(offset), &part, 1, written);
    return written;
}

PM_OURS ssize_t writev(int fd, const iovec* parts, int count) {
    if (faulty::fails(faulty::Kind::Write)) {
        if (errno != 0) {
            return -1;
        }
        count /= 2;
    }
    const off_t offset = ::lseek(fd, 0, SEEK_CUR);
    const ssize_t written = faulty::real<ssize_t(int, const iovec*, int)>("writev")(fd, parts, count);
    faulty::recordWrite(fd, static_cast<std::uint64_t>(offset), parts, count, written);
    return written;
}

PM_OURS int fdatasync(int fd) {
    return faulty::sync(fd, "fdatasync");
}

PM_OURS int fsync(int fd) {
    return faulty::sync(fd, "fsync");
}

PM_OURS int ftruncate(int fd, off_t size) noexcept {
    return faulty::fails(faulty::Kind::Truncate) ? -1 : faulty::real<int(int, off_t)>("ftruncate")(fd, size);
}

PM_OURS int open(const char* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list more;
        va_start(more, flags);
        mode = va_arg(more, mode_t);
        va_end(more);
    }
    std::string text;
    const char* const there = faulty::found(path, text);
    struct stat file {};
    const bool makes = faulty::recording.load() && (flags & O_CREAT) != 0 && ::lstat(there, &file) != 0;
    const int passed = faulty::skippingSyncs.load() ? flags & ~O_SYNC : flags;
    const int fd = faulty::real<int(const char*, int, ...)>("open")(there, passed, mode);
    if (fd >= 0 && fd < 1024) {
        faulty::syncsEachWrite[static_cast<std::size_t>(fd)] = (flags & O_DSYNC) != 0;
    }
    if (makes && fd >= 0) {
        faulty::record({faulty::Event::What::Make, there, 0, {}, false});
    }
    return fd;
}

PM_OURS int mkdir(const char* path, mode_t mode) noexcept {
    std::string text;
    const char* const there = faulty::found(path, text);
    const int result = faulty::real<int(const char*, mode_t)>("mkdir")(there, mode);
    if (faulty::recording.load() && result == 0) {
        faulty::record({faulty::Event::What::Make, there, 0, {}, false});
    }
    return result;
}

PM_OURS int stat(const char* path, struct stat* file) noexcept {
    std::string text;
    return faulty::real<int(const char*, struct stat*)>("stat")(faulty::found(path, text), file);
}

PM_OURS int access(const char* path, int mode) noexcept {
    std::string text;
    return faulty::real<int(const char*, int)>("access")(faulty::found(path, text), mode);
}

#if !defined(PM_SANITIZED)

extern "C" void* __libc_malloc(size_t size);
extern "C" void* __libc_calloc(size_t count, size_t size);
extern "C" void* __libc_realloc(void* block, size_t size);

PM_OURS void* malloc(size_t size) {
    return faulty::memoryScopes > 0 && faulty::fails(faulty::Kind::Memory) ? nullptr : __libc_malloc(size);
}

PM_OURS void* calloc(size_t count, size_t size) {
    return faulty::memoryScopes > 0 && faulty::fails(faulty::Kind::Memory) ? nullptr : __libc_calloc(count, size);
}

PM_OURS void* realloc(void* block, size_t size) {
    return faulty::memoryScopes > 0 && faulty::fails(faulty::Kind::Memory) ? nullptr : __libc_realloc(block, size);
}

#elif defined(__SANITIZE_ADDRESS__)

// The sanitizer keeps malloc to itself; what C++ code asks for can fail here as well.

void* operator new(std::size_t size, const std::nothrow_t& /*none*/) noexcept {
    return faulty::memoryScopes > 0 && faulty::fails(faulty::Kind::Memory) ? nullptr : std::malloc(size);
}

void* operator new(std::size_t size) {
    void* const block = operator new(size, std::nothrow);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void operator delete(void* block) noexcept {
    std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
    std::free(block);
}

#endif
