#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// How often which key is asked for.
enum class KeyChoice {
    Uniform,
    Zipf,  // the k-th most wanted key with a probability proportional to 1/k; which key is the k-th is random
};

/// How a result names the choice.
const char* nameOf(KeyChoice choice);

/// Places in a table of `population` keys, drawn one after the other; the same arguments give the same draws. The
/// length is a power of two, at least 65,536, and so large that neither the keys nor the records they lead to stay
/// in a core's own caches between two rounds of a large population.
std::vector<std::size_t> drawPlaces(std::size_t population, KeyChoice choice);

}  // namespace bench
