#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "feed/Book.h"
#include "feed/Feed.h"
#include "feed/Head.h"
#include "feed/Log.h"

namespace mxservice::feed {

/// A log message with all that belongs to it: of a day the joined parts.
struct Entry {
    std::uint64_t sequence = 0;
    Headers headers;
    Head head;
    std::string packed;
};

/// Takes what a replica has verified. What it throws leaves the replica where it was, or without a day.
class Receiver {
public:
    Receiver() = default;
    virtual ~Receiver() = default;
    Receiver(const Receiver&) = delete;
    Receiver& operator=(const Receiver&) = delete;

    /// A day is going to be fetched; `fault`: because the log does not go on from what the replica has.
    virtual void loading(bool fault) = 0;
    /// The log has a newer revision; nothing of what is missing has been fetched yet.
    virtual void behind(std::uint64_t /*newest*/) {}
    /// A day and the changes since, all at once; `entries` are the messages they came in.
    virtual void day(const Day& day, const std::vector<Change>& changes, const std::vector<Entry>& entries) = 0;
    virtual void change(const Change& change, const Entry& entry) = 0;
    /// Something was refused.
    virtual void damaged(const std::string& reason) = 0;
};

/// What a look at the log has brought.
enum class Seen : std::uint8_t {
    Current,      // the replica has what the log had
    Empty,        // the log has no day
    Unreachable,  // no answer, or not all of it
    Denied,
    Damaged,  // the log cannot be followed, nor its day loaded
    Newer     // nor ever will, by this library
};

struct Look {
    Seen seen = Seen::Unreachable;
    std::string reason;        // for people, unless current
    std::uint64_t newest = 0;  // revision of the last message, where there was one
};

/// What to do about the last message of a log.
enum class Step : std::uint8_t {
    Nothing,  // it is what the replica has
    Follow,   // take the messages between
    NewDay,   // load the day that it is, or is built on
    Reload    // the same, because it is no successor of what the replica has
};
Step decide(const Head* have, std::uint64_t sequence, const Head& last, std::uint64_t lastSequence);

/// The first log message behind a sequence, of a log whose last one is `last`; found also where the replicas lag.
Got firstBehind(Log& log, std::uint64_t after, const Message& last);

/// Follows a log: knows the state it has reached, fetches what is missing, checks the digest of every revision. Not for
/// several threads.
class Replica {
public:
    Replica(Log& log, std::uint64_t maxBytes) : log_(log), maxBytes_(maxBytes) {}

    /// Looks at the last message and catches up with it. `heard` is the largest sequence that a bell has told of.
    Look look(std::uint64_t heard, Receiver& receiver);

    /// Takes a day and the changes since that were kept somewhere. False, with `damaged` told, where they are no such.
    bool restore(const std::vector<Entry>& entries, Receiver& receiver);

    /// What the caller itself has added to the log.
    void adopt(const Head& head, std::uint64_t sequence, Book book);

    /// Null: no day.
    const Head* head() const { return head_ ? &*head_ : nullptr; }
    std::uint64_t sequence() const { return sequence_; }
    const Book& book() const { return book_; }

private:
    enum class Fetched : std::uint8_t { Ok, Gone, Unreachable, Denied, Damaged, Newer };

    Got lastMessage(std::uint64_t heard);
    Look catchUp(const Message& last, const Head& head, Receiver& receiver);
    Fetched follow(const Message& last, Receiver& receiver);
    Fetched reload(const Message& last, const Head& head, Receiver& receiver);
    Fetched fetch(Message message, Entry& entry);
    Fetched fetchNext(std::uint64_t after, const Message& last, Entry& entry);
    Fetched fetchParts(Entry& entry);
    bool continues(const Entry& entry) const;
    void build(const std::vector<Entry>& entries, Receiver& receiver);
    Fetched failed(const Got& got);

    Log& log_;
    const std::uint64_t maxBytes_;
    std::optional<Head> head_;
    std::uint64_t sequence_ = 0;
    std::uint64_t base_ = 0;
    Book book_;
    std::string reason_;  // of the last fetch that failed
};

}  // namespace mxservice::feed
