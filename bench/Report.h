#pragma once

#include <iosfwd>
#include <string>

#include "Comparison.h"
#include "Conditions.h"

namespace bench {

/// Prints the comparisons topic by topic, latencies and memory. Targets stand beside; nothing depends on whether they
/// are met.
void printReport(std::ostream& out, const Measurements& measured);

/// Writes every run and every comparison as one JSON document. Answers false when the file cannot be written.
bool writeJson(const std::string& path, const Conditions& conditions, const Measurements& measured);

}  // namespace bench
