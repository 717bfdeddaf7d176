#include "feed/Head.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <optional>
#include <random>
#include <string_view>
#include <system_error>

namespace mxservice::feed {
namespace {

// Stored in logs; never change one. A log that others could not read gets another format number.
constexpr std::uint64_t kFormat = 1;
constexpr const char* kFormatHeader = "Ins-Format";
constexpr const char* kKindHeader = "Ins-Kind";
constexpr const char* kDayHeader = "Ins-Day";
constexpr const char* kEpochHeader = "Ins-Epoch";
constexpr const char* kRevisionHeader = "Ins-Revision";
constexpr const char* kBaseHeader = "Ins-Base";
constexpr const char* kAfterHeader = "Ins-After";
constexpr const char* kTokenHeader = "Ins-Token";
constexpr const char* kPartsHeader = "Ins-Parts";
constexpr const char* kBytesHeader = "Ins-Bytes";
constexpr const char* kDigestHeader = "Ins-Digest";
constexpr const char* kDay = "day";
constexpr const char* kChange = "change";

constexpr std::size_t kTokenDigits = 16;
constexpr std::size_t kDayDigits = 8;
// What a header may ask a reader to fetch before anything of it can be checked: no day has come near either.
constexpr std::uint64_t kMostParts = 1U << 16U;
constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 32U;

std::string_view textOf(const Headers& headers, const char* name) {
    const auto found = headers.find(name);
    return found == headers.end() ? std::string_view() : std::string_view(found->second);
}

/// Digits and nothing else: a number that is read in part would be another one that looks sound.
std::optional<std::uint64_t> numberOf(const Headers& headers, const char* name) {
    const std::string_view text = textOf(headers, name);
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool good = error == std::errc() && end == text.data() + text.size() && !text.empty();
    return good ? std::optional<std::uint64_t>(number) : std::nullopt;
}

bool onlyOf(std::string_view text, std::size_t size, const char* characters) {
    return text.size() == size && text.find_first_not_of(characters) == std::string_view::npos;
}

}  // namespace

Headers headersOf(const Head& head) {
    return {{kFormatHeader, std::to_string(kFormat)},
            {kKindHeader, head.isDay ? kDay : kChange},
            {kDayHeader, head.tradingDay},
            {kEpochHeader, head.epoch},
            {kRevisionHeader, std::to_string(head.revision)},
            {kBaseHeader, std::to_string(head.base)},
            {kAfterHeader, std::to_string(head.after)},
            {kTokenHeader, head.token},
            {kPartsHeader, std::to_string(head.parts)},
            {kBytesHeader, std::to_string(head.bytes)},
            {kDigestHeader, head.digest.text()}};
}

HeadKind readHead(const Headers& headers, Head& head, std::string& reason) {
    // Before all else: what a newer format has in the other headers is not for this library to judge, and its user
    // should hear that the library is old, not that the log is damaged.
    const auto format = numberOf(headers, kFormatHeader);
    if (format && *format > kFormat) {
        reason = fmt::format("the log is of format {}, this library reads up to {}", *format, kFormat);
        return HeadKind::Newer;
    }
    const auto refuse = [&reason](const char* name) {
        reason = fmt::format("header {} missing or damaged", name);
        return HeadKind::Damaged;
    };
    if (!format) {
        return refuse(kFormatHeader);
    }
    const std::string_view kind = textOf(headers, kKindHeader);
    if (kind != kDay && kind != kChange) {
        return refuse(kKindHeader);
    }
    head.isDay = kind == kDay;
    // Texts that go into subjects, file and log lines, so that they must be what they say.
    head.tradingDay = textOf(headers, kDayHeader);
    if (!onlyOf(head.tradingDay, kDayDigits, "0123456789")) {
        return refuse(kDayHeader);
    }
    head.epoch = textOf(headers, kEpochHeader);
    if (!onlyOf(head.epoch, kTokenDigits, "0123456789abcdef")) {
        return refuse(kEpochHeader);
    }
    head.token = textOf(headers, kTokenHeader);
    if (!onlyOf(head.token, kTokenDigits, "0123456789abcdef")) {
        return refuse(kTokenHeader);
    }
    struct Number {
        const char* name;
        std::uint64_t* to;
        std::uint64_t most;
    };
    // Whether a revision or sequence can be is for whoever knows the state before it.
    constexpr std::uint64_t kAny = std::numeric_limits<std::uint64_t>::max();
    for (const Number& number : {Number{kRevisionHeader, &head.revision, kAny}, Number{kBaseHeader, &head.base, kAny},
                                 Number{kAfterHeader, &head.after, kAny}, Number{kPartsHeader, &head.parts, kMostParts},
                                 Number{kBytesHeader, &head.bytes, kMostBytes}}) {
        const auto value = numberOf(headers, number.name);
        if (!value || *value > number.most) {
            return refuse(number.name);
        }
        *number.to = *value;
    }
    const auto digest = Digest::of(textOf(headers, kDigestHeader));
    if (!digest) {
        return refuse(kDigestHeader);
    }
    head.digest = *digest;
    return HeadKind::Good;
}

Revision revisionOf(const Head& head, std::uint64_t sequence) {
    return {head.epoch, head.revision, sequence, head.tradingDay, head.digest.text()};
}

/// From the system at each call: a generator seeded once would give a forked publisher and its parent the same names.
std::string randomToken() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}", random(), random());
}

}  // namespace mxservice::feed
