#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

// The log as everything but NatsLog sees it: a stream of messages with two kinds of subjects, parts and log messages.
// Small enough that tests hand in one in memory and let it fail in every way.

namespace mxservice::feed {

using Headers = std::map<std::string, std::string>;

/// A message of the log's own subject.
struct Message {
    std::uint64_t sequence = 0;
    Headers headers;
    std::string payload;
};

enum class Reply : std::uint8_t {
    Ok,
    Missing,      // the server knows for sure that there is none
    Unreachable,  // no answer: what was to be done may have been done
    Denied,       // nothing that trying again mends
    Conflict      // the last message of the log is another one
};

struct Got {
    Reply reply = Reply::Unreachable;
    std::string reason;  // for people, unless Ok
    Message message;
};

struct Put {
    Reply reply = Reply::Unreachable;
    std::string reason;
    std::uint64_t sequence = 0;
};

/// Whom to ask: any replica, which may lag behind, or the one that decides.
enum class Asked : bool { Any, Leader };

/// Safe from any thread.
class Log {
public:
    Log() = default;
    virtual ~Log() = default;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;

    /// The last log message. Missing also when the stream itself is.
    virtual Got last(Asked whom) = 0;
    /// The first log message behind a sequence.
    virtual Got next(std::uint64_t after) = 0;
    /// The message of that sequence.
    virtual Got at(std::uint64_t sequence) = 0;
    /// A part, in the payload.
    virtual Got part(const std::string& token, std::uint64_t index) = 0;

    /// Makes the stream where there is none.
    virtual Put prepare() = 0;
    virtual Put putPart(const std::string& token, std::uint64_t index, const std::string& bytes) = 0;
    /// Adds a log message if the last one has the sequence `expected` (0: there is none). Again with the same id it is
    /// Ok and adds nothing.
    virtual Put commit(const Headers& headers, const std::string& payload, const std::string& id,
                       std::uint64_t expected) = 0;
    /// Removes every message before that sequence.
    virtual Put purgeBefore(std::uint64_t sequence) = 0;

    /// Calls `bell` with the sequence of each log message that is added, on a thread of the log's; some may go missing.
    virtual void listen(std::function<void(std::uint64_t sequence)> bell) = 0;
    /// Where it is connected to; empty: nowhere.
    virtual std::string server() const = 0;
    /// Lets calls that wait return, and every later one fail.
    virtual void close() = 0;
};

}  // namespace mxservice::feed
