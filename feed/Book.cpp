#include "feed/Book.h"

#include <fmt/format.h>

#define XXH_INLINE_ALL
#include <xxhash.h>

#include <charconv>
#include <system_error>

namespace mxservice::feed {
namespace {

constexpr std::size_t kHalfDigits = 16;  // of one half

std::optional<std::uint64_t> halfOf(std::string_view digits) {
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
    if (error != std::errc() || end != digits.data() + digits.size()) {
        return std::nullopt;
    }
    return value;
}

}  // namespace

Digest& Digest::operator+=(const Digest& other) {
    low += other.low;
    high += other.high + (low < other.low ? 1U : 0U);
    return *this;
}

Digest& Digest::operator-=(const Digest& other) {
    high -= other.high + (low < other.low ? 1U : 0U);
    low -= other.low;
    return *this;
}

std::string Digest::text() const {
    return fmt::format("{:016x}{:016x}", high, low);
}

std::optional<Digest> Digest::of(std::string_view text) {
    if (text.size() != 2 * kHalfDigits) {
        return std::nullopt;
    }
    const auto high = halfOf(text.substr(0, kHalfDigits));
    const auto low = halfOf(text.substr(kHalfDigits));
    return high && low ? std::optional<Digest>({*high, *low}) : std::nullopt;
}

std::uint64_t Book::keyOf(SnapshotCatalogue catalogue, std::string_view key) {
    return XXH3_64bits_withSeed(key.data(), key.size(), static_cast<XXH64_hash_t>(catalogue) + 1);
}

Digest Book::hashOf(std::uint64_t key, std::string_view bytes) {
    const XXH128_hash_t hash = XXH3_128bits_withSeed(bytes.data(), bytes.size(), key);
    return {hash.high64, hash.low64};
}

void Book::addCall(SnapshotCatalogue catalogue, const std::vector<std::string>& markets, std::uint64_t records) {
    std::string text = fmt::format("{} {} {}", calls_, static_cast<int>(catalogue), records);
    for (const std::string& market : markets) {
        text += '\0' + market;
        markets_.insert(market);
    }
    digest_ += hashOf(calls_++, text);
}

void Book::add(std::uint64_t key, const Digest& hash) {
    hashByKey_[key] += hash;
    digest_ += hash;
}

void Book::put(std::uint64_t key, std::string_view bytes) {
    const Digest hash = hashOf(key, bytes);
    Digest& place = hashByKey_[key];
    digest_ -= place;
    place = hash;
    digest_ += hash;
}

void Book::remove(std::uint64_t key) {
    const auto found = hashByKey_.find(key);
    if (found != hashByKey_.end()) {
        digest_ -= found->second;
        hashByKey_.erase(found);
    }
}

}  // namespace mxservice::feed
