#pragma once

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <iostream>
#include <string>

// For what may end the process, or changes all of it.

/// What a child's work answers to have the test skipped.
constexpr const char* kNotHere = "not here: ";
constexpr int kSkipped = 77;

/// Runs `work` in a child, which says on standard error what text it answers. 0 when that was none, kSkipped when it
/// begins with kNotHere, else a status of failure, or the signal that ended the child. No database may be open.
template <class Work>
int inChild(Work work) {
#ifdef _WIN32  // where nothing forks: what ends the process ends the tests, and is noticed all the same
    const std::string problem = work();
    std::cerr << problem << (problem.empty() ? "" : "\n");
    return problem.empty() ? 0 : 1;
#else
    const pid_t child = ::fork();
    if (child == 0) {
        constexpr unsigned kSeconds = 300;
        ::alarm(kSeconds);
        const std::string problem = work();
        std::cerr << problem << (problem.empty() ? "" : "\n");
        const bool skipped = problem.rfind(kNotHere, 0) == 0;
        ::_exit(problem.empty() ? 0 : (skipped ? kSkipped : 1));
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
#endif
}
