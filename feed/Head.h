#pragma once

#include <cstdint>
#include <string>

#include "feed/Book.h"
#include "feed/Feed.h"
#include "feed/Log.h"

namespace mxservice::feed {

/// What the headers of a log message say.
struct Head {
    bool isDay = false;
    std::string tradingDay;      // YYYYMMDD
    std::string epoch;           // random per life of the stream
    std::uint64_t revision = 0;  // counts log messages of the epoch from 1
    std::uint64_t base = 0;      // sequence of the day that a change is of; of a day 0, which cannot know its own
    std::uint64_t after = 0;     // sequence of the log message before; all parts of this one are behind that
    std::string token;           // names the parts, and is the id under which it was committed
    std::uint64_t parts = 0;     // 0: the payload is in the message
    std::uint64_t bytes = 0;     // of all parts
    Digest digest;               // of the state after it

    /// The sequence of the day that the state is built on.
    std::uint64_t baseOf(std::uint64_t sequence) const { return isDay ? sequence : base; }
};

Headers headersOf(const Head& head);

enum class HeadKind : std::uint8_t { Good, Newer, Damaged };

/// Reads headers that nobody has checked; `reason` is for people, unless good.
HeadKind readHead(const Headers& headers, Head& head, std::string& reason);

/// The state after a message, as hosts are told.
Revision revisionOf(const Head& head, std::uint64_t sequence);

/// Sixteen hexadecimal digits that nobody has used before.
std::string randomToken();

}  // namespace mxservice::feed
