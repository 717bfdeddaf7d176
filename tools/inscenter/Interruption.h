#pragma once

#include <exception>

namespace inscenter {

/// What ends an answer that the user has seen enough of.
class Interrupted : public std::exception {
public:
    const char* what() const noexcept override { return "stopped"; }
};

/// Ctrl-C at a prompt: while an object lives it is noted and no longer ends the process. One at a time.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// Since the process began, or since it was last forgotten.
    static bool happened();
    static void forget();
};

}  // namespace inscenter
