#include "Footprint.h"

#include <fmt/format.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace bench {
namespace {

double residentAnonymousBytes() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        if (word == "RssAnon:") {
            double kilobytes = 0;
            status >> kilobytes;
            return kilobytes * 1024;
        }
    }
    return 0;
}

[[noreturn]] void fail(const char* step) {
    std::perror(step);
    std::exit(1);
}

}  // namespace

double anonymousBytes(const std::function<std::shared_ptr<void>()>& make) {
    int ends[2];
    if (::pipe(ends) != 0) {
        fail("pipe");
    }
    const pid_t child = ::fork();
    if (child < 0) {
        fail("fork");
    }
    if (child == 0) {
        const double before = residentAnonymousBytes();
        std::shared_ptr<void> kept = make();
        malloc_trim(0);
        const double grown = residentAnonymousBytes() - before;
        kept.reset();
        ::_exit(::write(ends[1], &grown, sizeof grown) == sizeof grown ? 0 : 1);
    }
    ::close(ends[1]);
    double grown = 0;
    const bool told = ::read(ends[0], &grown, sizeof grown) == sizeof grown;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!told) {
        fmt::print(stderr, "center_bench: the process whose memory is measured did not end well\n");
        std::exit(1);
    }
    return grown;
}

}  // namespace bench
