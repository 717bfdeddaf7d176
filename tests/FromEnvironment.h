#pragma once

#include <cstdlib>
#include <random>

/// Whether a sanitizer looks on, which keeps freed memory and takes ten times as long.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

/// A number that may be set in the environment, so that the same test runs short or long.
template <class Number>
Number fromEnvironment(const char* name, Number otherwise) {
    const char* const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<Number>(std::strtoll(text, nullptr, 10));
}

/// What a test that draws lots begins with, and prints when it fails: PM_SEED repeats the run.
inline unsigned seedOfRun() {
    return fromEnvironment("PM_SEED", std::random_device()());
}
