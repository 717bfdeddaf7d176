#pragma once

#include <string>

namespace bench {

/// What ran how and where: all that makes two reports comparable.
struct Conditions {
    bool quick = false;
    std::string build;      // compiler and whether asserts are compiled in
    std::string day;        // YYYY-MM-DD
    std::string processor;  // model
    unsigned processors = 0;
    double memoryBytes = 0;
    std::string system;  // kernel
};

Conditions conditionsOfNow(bool quick);

/// Bytes that programs may still ask for without the system swapping.
double availableBytes();

}  // namespace bench
