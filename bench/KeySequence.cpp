#include "KeySequence.h"

#include <algorithm>
#include <bit>
#include <numeric>
#include <random>

namespace bench {
namespace {

constexpr std::uint64_t kSeed = 20260105;
constexpr std::size_t kShortest = std::size_t{1} << 16;
constexpr std::size_t kLongest = std::size_t{1} << 20;

/// Cumulative weights of ranks 1 to `population`.
std::vector<double> zipfWeights(std::size_t population) {
    std::vector<double> cumulative(population);
    double sum = 0;
    for (std::size_t rank = 0; rank < population; ++rank) {
        sum += 1.0 / static_cast<double>(rank + 1);
        cumulative[rank] = sum;
    }
    return cumulative;
}

}  // namespace

const char* nameOf(KeyChoice choice) {
    return choice == KeyChoice::Zipf ? "Zipf" : "uniform";
}

std::vector<std::size_t> drawPlaces(std::size_t population, KeyChoice choice) {
    std::mt19937_64 random(kSeed);
    std::vector<std::size_t> places(std::clamp(std::bit_ceil(population), kShortest, kLongest));
    if (choice == KeyChoice::Uniform) {
        std::uniform_int_distribution<std::size_t> draw(0, population - 1);
        std::generate(places.begin(), places.end(), [&] { return draw(random); });
        return places;
    }
    std::vector<std::size_t> placeOfRank(population);
    std::iota(placeOfRank.begin(), placeOfRank.end(), std::size_t{0});
    std::shuffle(placeOfRank.begin(), placeOfRank.end(), random);
    const std::vector<double> cumulative = zipfWeights(population);
    std::uniform_real_distribution<double> draw(0, cumulative.back());
    std::generate(places.begin(), places.end(), [&] {
        const auto rank = std::lower_bound(cumulative.begin(), cumulative.end(), draw(random)) - cumulative.begin();
        return placeOfRank[std::min(static_cast<std::size_t>(rank), population - 1)];
    });
    return places;
}

}  // namespace bench
