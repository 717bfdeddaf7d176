#include "feed/Replica.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "feed/Operations.h"
#include "feed/Parallel.h"

namespace mxservice::feed {
namespace {

constexpr std::size_t kPartsAtOnce = 4;
constexpr int kTries = 3;       // of a look whose messages were purged while it read them
constexpr int kMostBack = 100;  // messages that a replica may lack before it is waited for

/// The log message that comes before one, as it says; 0 where it says nothing sound, which is for its reader to find.
std::uint64_t before(const Message& message) {
    Head head;
    std::string unread;
    return readHead(message.headers, head, unread) == HeadKind::Good ? head.after : 0;
}

}  // namespace

Step decide(const Head* have, std::uint64_t sequence, const Head& last, std::uint64_t lastSequence) {
    if (have == nullptr) {
        return Step::NewDay;
    }
    if (have->epoch != last.epoch) {
        return Step::Reload;  // the stream was made anew, or lost its end: numbers of the two say nothing of each other
    }
    if (lastSequence == sequence) {
        // Equal numbers are not enough: a power cut may have cost the log its end, and others have gone on from there.
        return last.revision == have->revision && last.digest == have->digest && last.token == have->token
                   ? Step::Nothing
                   : Step::Reload;
    }
    if (lastSequence < sequence || last.revision <= have->revision) {
        return Step::Reload;
    }
    return last.baseOf(lastSequence) > sequence ? Step::NewDay : Step::Follow;
}

Got firstBehind(Log& log, std::uint64_t after, const Message& last) {
    Got got{Reply::Ok, "", last};
    if (before(last) <= after) {
        return got;
    }
    got = log.next(after);
    if (got.reply != Reply::Missing) {
        return got;
    }
    // Any replica answers `next`, and this one does not have the message yet. So from the last one back, each of which
    // names the one before: for one that is asked for by its sequence the leader is asked, too.
    got = {Reply::Ok, "", last};
    for (int left = kMostBack; got.reply == Reply::Ok && before(got.message) > after; --left) {
        got = left > 0 ? log.at(before(got.message))
                       : Got{Reply::Unreachable, "the server does not have all messages yet", {}};
    }
    return got;
}

Look Replica::look(std::uint64_t heard, Receiver& receiver) {
    Look look;
    for (int left = kTries; left > 0; --left) {
        Got got = lastMessage(heard);
        if (got.reply != Reply::Ok) {
            look.seen = got.reply == Reply::Missing  ? Seen::Empty
                        : got.reply == Reply::Denied ? Seen::Denied
                                                     : Seen::Unreachable;
            look.reason = got.reply == Reply::Missing ? "nobody has published a day" : got.reason;
            return look;
        }
        Head head;
        switch (readHead(got.message.headers, head, look.reason)) {
            case HeadKind::Newer:
                look.seen = Seen::Newer;
                return look;
            case HeadKind::Damaged:
                receiver.damaged(look.reason);
                look.seen = Seen::Damaged;
                return look;
            case HeadKind::Good:
                break;
        }
        look = catchUp(got.message, head, receiver);
        if (look.seen != Seen::Damaged) {
            break;
        }
        // A publisher may have put a further day into the log meanwhile and removed what was being read; or another
        // replica of the server's has the message whole.
    }
    return look;
}

/// Any replica will do while it knows of something newer. Where it seems to have less than we do, the leader decides:
/// to take a replica that lags for a log that went back would load the whole day again. Where nobody answers, too: of a
/// stream that is not there only the leader says so.
Got Replica::lastMessage(std::uint64_t heard) {
    Got got = log_.last(Asked::Any);
    const bool old = got.reply == Reply::Ok && got.message.sequence < std::max(sequence_, heard);
    Head head;
    const bool other = got.reply == Reply::Ok && head_ &&
                       readHead(got.message.headers, head, reason_) == HeadKind::Good &&
                       decide(&*head_, sequence_, head, got.message.sequence) == Step::Reload;
    return got.reply == Reply::Missing || got.reply == Reply::Unreachable || old || other ? log_.last(Asked::Leader)
                                                                                          : got;
}

Look Replica::catchUp(const Message& last, const Head& head, Receiver& receiver) {
    Look look;
    look.newest = head.revision;
    Fetched fetched = Fetched::Ok;
    const Step step = decide(this->head(), sequence_, head, last.sequence);
    if (step != Step::Nothing) {
        receiver.behind(head.revision);
    }
    if (step == Step::Follow) {
        fetched = follow(last, receiver);
    }
    const bool broken = fetched == Fetched::Gone || fetched == Fetched::Damaged;
    if (broken || step == Step::NewDay || step == Step::Reload) {
        receiver.loading(broken || step == Step::Reload);
        fetched = reload(last, head, receiver);
    }
    switch (fetched) {
        case Fetched::Ok:
            look.seen = Seen::Current;
            return look;
        case Fetched::Gone:
        case Fetched::Damaged:
            look.seen = Seen::Damaged;
            receiver.damaged(reason_);
            break;
        case Fetched::Denied:
            look.seen = Seen::Denied;
            break;
        case Fetched::Newer:
            look.seen = Seen::Newer;
            break;
        case Fetched::Unreachable:
            break;
    }
    look.reason = reason_;
    return look;
}

Replica::Fetched Replica::follow(const Message& last, Receiver& receiver) {
    while (sequence_ < last.sequence) {
        Entry entry;
        const Fetched fetched = fetchNext(sequence_, last, entry);
        if (fetched != Fetched::Ok) {
            return fetched;
        }
        if (!continues(entry)) {
            reason_ = fmt::format("revision {} does not follow {}", entry.head.revision, head_->revision);
            return Fetched::Gone;
        }
        Change change;
        try {
            change = unpackChange(entry.packed, maxBytes_, book_);
            if (book_.digest() != entry.head.digest) {
                throw BadBytes("another digest");
            }
        } catch (const BadBytes& bad) {
            reason_ = fmt::format("revision {}: {}", entry.head.revision, bad.what());
            head_.reset();  // the book has followed half of it; only a whole day mends that
            receiver.damaged(reason_);
            return Fetched::Damaged;
        }
        head_.reset();  // while the receiver may throw: whether it then has the change is not known
        receiver.change(change, entry);
        head_ = entry.head;
        sequence_ = entry.sequence;
    }
    return Fetched::Ok;
}

bool Replica::continues(const Entry& entry) const {
    return !entry.head.isDay && entry.head.epoch == head_->epoch && entry.head.base == base_ &&
           entry.head.revision == head_->revision + 1;
}

Replica::Fetched Replica::reload(const Message& last, const Head& head, Receiver& receiver) {
    std::vector<Entry> entries(1);
    Message base = last;
    if (!head.isDay) {
        Got got = log_.at(head.base);
        if (got.reply != Reply::Ok) {
            return failed(got);
        }
        base = std::move(got.message);
    }
    Fetched fetched = fetch(std::move(base), entries.front());
    while (fetched == Fetched::Ok && entries.back().sequence < last.sequence) {
        Entry next;
        fetched = fetchNext(entries.back().sequence, last, next);
        entries.push_back(std::move(next));
    }
    if (fetched != Fetched::Ok) {
        return fetched;
    }
    try {
        build(entries, receiver);
    } catch (const BadBytes& bad) {
        reason_ = bad.what();
        return Fetched::Damaged;
    }
    return Fetched::Ok;
}

Replica::Fetched Replica::fetchNext(std::uint64_t after, const Message& last, Entry& entry) {
    Got got = firstBehind(log_, after, last);
    if (got.reply != Reply::Ok) {
        return failed(got);
    }
    if (got.message.sequence <= after || got.message.sequence > last.sequence) {
        reason_ = fmt::format("message {} where one behind {} was asked for", got.message.sequence, after);
        return Fetched::Gone;
    }
    return fetch(std::move(got.message), entry);
}

Replica::Fetched Replica::fetch(Message message, Entry& entry) {
    switch (readHead(message.headers, entry.head, reason_)) {
        case HeadKind::Newer:
            return Fetched::Newer;
        case HeadKind::Damaged:
            return Fetched::Damaged;
        case HeadKind::Good:
            break;
    }
    entry.sequence = message.sequence;
    entry.headers = std::move(message.headers);
    entry.packed = std::move(message.payload);
    return entry.head.parts == 0 ? Fetched::Ok : fetchParts(entry);
}

Replica::Fetched Replica::fetchParts(Entry& entry) {
    entry.packed.clear();
    for (std::uint64_t i = 0; i < entry.head.parts && entry.packed.size() <= entry.head.bytes;) {
        // Several at a time: the server reads one while this side takes another. Nothing is reserved on the word of a
        // header.
        std::vector<Got> parts(std::min<std::uint64_t>(entry.head.parts - i, kPartsAtOnce));
        inParallel(parts.size(), kPartsAtOnce, [&](std::size_t k) { parts[k] = log_.part(entry.head.token, i + k); });
        for (const Got& got : parts) {
            if (got.reply != Reply::Ok) {
                return failed(got);
            }
            entry.packed += got.message.payload;
        }
        i += parts.size();
    }
    if (entry.packed.size() != entry.head.bytes) {
        reason_ = fmt::format("revision {}: parts of {} bytes where {} were announced", entry.head.revision,
                              entry.packed.size(), entry.head.bytes);
        return Fetched::Damaged;
    }
    return Fetched::Ok;
}

Replica::Fetched Replica::failed(const Got& got) {
    reason_ = got.reply == Reply::Missing ? "a message or part is no longer there" : got.reason;
    return got.reply == Reply::Missing  ? Fetched::Gone
           : got.reply == Reply::Denied ? Fetched::Denied
                                        : Fetched::Unreachable;
}

/// Throws BadBytes, with nothing changed, when the entries are not a day and what follows it.
void Replica::build(const std::vector<Entry>& entries, Receiver& receiver) {
    const Entry& base = entries.front();
    if (!base.head.isDay) {
        throw BadBytes(fmt::format("message {} is no day", base.sequence));
    }
    Book book;
    const auto check = [&book](const Entry& entry) {
        if (book.digest() != entry.head.digest) {
            throw BadBytes(fmt::format("revision {}: another digest", entry.head.revision));
        }
    };
    const Day day = unpackDay(base.packed, maxBytes_, book);
    check(base);
    std::vector<Change> changes;
    for (std::size_t i = 1; i < entries.size(); ++i) {
        const Head& head = entries[i].head;
        if (head.isDay || head.epoch != base.head.epoch || head.base != base.sequence ||
            head.revision != entries[i - 1].head.revision + 1) {
            throw BadBytes(fmt::format("revision {} does not follow", head.revision));
        }
        changes.push_back(unpackChange(entries[i].packed, maxBytes_, book));
        check(entries[i]);
    }
    head_.reset();  // while the receiver may throw: what it then has is nothing to go on from
    receiver.day(day, changes, entries);
    adopt(entries.back().head, entries.back().sequence, std::move(book));
}

bool Replica::restore(const std::vector<Entry>& entries, Receiver& receiver) {
    try {
        build(entries, receiver);
        return true;
    } catch (const BadBytes& bad) {
        receiver.damaged(bad.what());
        return false;
    }
}

void Replica::adopt(const Head& head, std::uint64_t sequence, Book book) {
    head_ = head;
    sequence_ = sequence;
    base_ = head.baseOf(sequence);
    book_ = std::move(book);
}

}  // namespace mxservice::feed
