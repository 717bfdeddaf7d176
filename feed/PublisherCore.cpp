#include "feed/PublisherCore.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "feed/Operations.h"
#include "platform/utils/LogLine.h"

namespace mxservice::feed {
namespace {

// Half of what servers take in a message unless told otherwise; a line needs 2 Mbit/s for one to be acknowledged within
// the two seconds of a request.
constexpr std::size_t kPartBytes = std::size_t{512} << 10U;
constexpr std::size_t kMostInOneMessage = 900000;  // servers refuse more than 1 MiB, headers included
// Some failures come at once: a server that is started again, or a cluster that elects, is asked ten times a second.
constexpr std::chrono::milliseconds kBetweenTries{100};

/// A publisher has no use for records: the replica keeps the book.
class NoReceiver : public Receiver {
public:
    void loading(bool /*fault*/) override {}
    void day(const Day& /*day*/, const std::vector<Change>& /*changes*/,
             const std::vector<Entry>& /*entries*/) override {}
    void change(const Change& /*change*/, const Entry& /*entry*/) override {}
    void damaged(const std::string& reason) override {
        PM_LOG(utils::kLogError, __FILE__, "[feed] publisher: " + reason);
    }
};

/// Whether days compare as their texts do; whether the calendar has it is the caller's affair.
bool isDay(const std::string& text) {
    constexpr std::size_t kDigits = 8;
    return text.size() == kDigits && text.find_first_not_of("0123456789") == std::string::npos;
}

}  // namespace

PublisherCore::PublisherCore(std::shared_ptr<Log> log, const Options& options)
    : log_(std::move(log)), options_(options), replica_(*log_, options.maxUnpackedBytes) {}

PublisherCore::~PublisherCore() {
    log_->close();
}

Revision PublisherCore::revision() const {
    const std::lock_guard guard(mutex_);
    return tip_ && tip_->readable ? revisionOf(tip_->head, tip_->sequence) : Revision();
}

Outcome PublisherCore::outcome(Published result, std::string reason) const {
    if (result != Published::Done) {
        PM_LOG(utils::kLogError, __FILE__, "[feed] not published: " + reason);
    }
    return {result, tip_ && tip_->readable ? revisionOf(tip_->head, tip_->sequence) : Revision(), std::move(reason)};
}

Outcome PublisherCore::catchUp() {
    const std::lock_guard guard(mutex_);
    known_ = false;
    return readTip();
}

/// Asks the leader: what a replica that lags says would let every commit lose. Once and no more: nothing is lost yet,
/// and the caller may be one that looks on its way to something else.
Outcome PublisherCore::readTip() {
    if (known_) {
        return outcome(Published::Done);
    }
    Got got = log_->last(Asked::Leader);
    if (got.reply == Reply::Missing) {
        // This one is tried again: a cluster that has just been started takes its time until it can make a stream.
        const Put made = insist([&] { return log_->prepare(); });
        if (made.reply != Reply::Ok) {
            return outcome(made.reply == Reply::Denied ? Published::Failed : Published::Unreachable, made.reason);
        }
        tip_.reset();
        known_ = true;
        return outcome(Published::Done);
    }
    if (got.reply != Reply::Ok) {
        return outcome(got.reply == Reply::Denied ? Published::Failed : Published::Unreachable, got.reason);
    }
    Tip tip;
    std::string reason;
    const HeadKind kind = readHead(got.message.headers, tip.head, reason);
    // Not even a day goes over it: hosts would be taken back to a format that their publisher has left.
    if (kind == HeadKind::Newer) {
        return outcome(Published::Failed, reason);
    }
    tip.readable = kind == HeadKind::Good;
    tip.sequence = got.message.sequence;
    tip_ = std::move(tip);
    known_ = true;
    return outcome(Published::Done);
}

/// Only a change needs to know the state that it changes. A day does not, so one can be published over a log that is
/// damaged.
Outcome PublisherCore::readBook() {
    // The sequence alone says nothing: after a store was wiped, others may have come up to the same one.
    const auto atTip = [this] {
        return decide(replica_.head(), replica_.sequence(), tip_->head, tip_->sequence) == Step::Nothing;
    };
    if (atTip()) {
        return outcome(Published::Done);
    }
    NoReceiver unused;
    const Look look = replica_.look(tip_->sequence, unused);
    if (look.seen != Seen::Current) {
        // Empty: the log has gone since the tip was read. Only catchUp() begins another one.
        const bool unreachable = look.seen == Seen::Unreachable || look.seen == Seen::Empty;
        return outcome(unreachable ? Published::Unreachable : Published::Failed, look.reason);
    }
    // Had the tip followed the replica, the change would go on top of something that the caller has not seen.
    if (!atTip()) {
        return outcome(Published::Lost, "another publisher was faster");
    }
    return outcome(Published::Done);
}

Outcome PublisherCore::publish(const std::string& tradingDay, const Day& day) {
    const std::lock_guard guard(mutex_);
    if (!isDay(tradingDay)) {
        return outcome(Published::Refused, fmt::format("the trading day '{}' is not YYYYMMDD", tradingDay));
    }
    Outcome known = readTip();
    if (!known) {
        return known;
    }
    Head head;
    head.isDay = true;
    head.tradingDay = tradingDay;
    if (tip_ && tip_->readable) {
        // A publisher that was forgotten on some machine must not take all hosts back to its day.
        if (tradingDay < tip_->head.tradingDay) {
            return outcome(Published::Refused, fmt::format("the trading day {} is before the log's, {}", tradingDay,
                                                           tip_->head.tradingDay));
        }
        head.epoch = tip_->head.epoch;
        head.revision = tip_->head.revision + 1;
    } else {
        // Numbers cannot be gone on with where the last one is not known; hosts load a day of another epoch as a whole.
        head.epoch = randomToken();
        head.revision = 1;
    }
    Book book;
    std::string packed = packDay(day, book);
    return send(std::move(head), std::move(packed), true, std::move(book));
}

Outcome PublisherCore::apply(const Change& change) {
    const std::lock_guard guard(mutex_);
    Outcome known = readTip();
    if (!known) {
        return known;
    }
    if (!tip_ || !tip_->readable) {
        return outcome(Published::Refused, "the log has no day that could be changed");
    }
    known = readBook();
    if (!known) {
        return known;
    }
    // A host that takes the next day names the markets of the one it has, so that nothing of them is left. A record of
    // any other market would stay in the hosts that saw the change, and be in none that starts after the next day.
    for (const auto& upsert : change.upserts) {
        if (upsert && !replica_.book().hasMarket(upsert->market)) {
            return outcome(Published::Refused,
                           fmt::format("{}{} is of a market that the day does not have", upsert->market, upsert->code));
        }
    }
    Head head;
    head.tradingDay = tip_->head.tradingDay;
    head.epoch = tip_->head.epoch;
    head.revision = tip_->head.revision + 1;
    head.base = tip_->head.baseOf(tip_->sequence);
    Book book = replica_.book();  // a copy, for the commit may fail
    std::string packed = packChange(change, book);
    const bool inParts = packed.size() > kMostInOneMessage;
    return send(std::move(head), std::move(packed), inParts, std::move(book));
}

/// Does `once` until it is answered, no longer than a commit may take. What was done without our hearing of it is
/// known again by its id.
template <class Try>
Put PublisherCore::insist(Try once) {
    const auto until = std::chrono::steady_clock::now() + options_.publishFor;
    for (;;) {
        Put put = once();
        if (put.reply != Reply::Unreachable || std::chrono::steady_clock::now() >= until) {
            return put;
        }
        std::this_thread::sleep_for(kBetweenTries);
    }
}

Put PublisherCore::putParts(const Head& head, const std::string& packed) {
    Put put;
    put.reply = Reply::Ok;
    for (std::uint64_t i = 0; i < head.parts && put.reply == Reply::Ok; ++i) {
        const std::string part = packed.substr(i * kPartBytes, kPartBytes);
        put = insist([&] { return log_->putPart(head.token, i, part); });
    }
    return put;
}

/// First the parts, then the one message that makes them count: whoever dies in between leaves parts that nobody reads
/// and that a later day removes. Their name is new at each attempt, so that those of one that failed half-way are never
/// taken for these.
Outcome PublisherCore::send(Head head, std::string packed, bool inParts, Book book) {
    head.digest = book.digest();
    head.token = randomToken();
    head.after = tip_ ? tip_->sequence : 0;
    if (inParts) {
        head.parts = (packed.size() + kPartBytes - 1) / kPartBytes;
        head.bytes = packed.size();
        const Put put = putParts(head, packed);
        if (put.reply != Reply::Ok) {
            known_ = false;  // the stream itself may have gone, and only a look makes one anew
            return outcome(put.reply == Reply::Denied ? Published::Failed : Published::Unreachable, put.reason);
        }
        packed.clear();
    }
    const Headers headers = headersOf(head);
    const Put put = insist([&] { return log_->commit(headers, packed, head.token, head.after); });
    return settle(put, head, std::move(book));
}

Outcome PublisherCore::settle(const Put& put, const Head& head, Book book) {
    switch (put.reply) {
        case Reply::Ok:
            adopt(head, put.sequence, std::move(book));
            return outcome(Published::Done);
        case Reply::Conflict:
            return lost(head, std::move(book));
        case Reply::Denied:
            return outcome(Published::Failed, put.reason);  // nothing was stored: the tip is what it was
        case Reply::Missing:
        case Reply::Unreachable:
            break;
    }
    known_ = false;  // it may be there or not: the next operation looks
    return outcome(Published::Unreachable, put.reason);
}

/// The last message is another one than we go on from. It may be our own: its acknowledgement was lost, and the server
/// looks at the expected sequence before it looks whether it knows the message. By now others may have gone on from
/// ours, so what counts is the message that took the place behind our tip. Where that is somebody else's, the tip stays
/// as it was, so that every further commit loses until catchUp(): the caller decided on a state that is no more.
Outcome PublisherCore::lost(const Head& head, Book book) {
    Got got;
    insist([&] {
        got = log_->last(Asked::Leader);
        if (got.reply == Reply::Ok && got.message.sequence > head.after) {
            got = firstBehind(*log_, head.after, got.message);
        }
        return Put{got.reply, got.reason, 0};
    });
    if (got.reply == Reply::Unreachable || got.reply == Reply::Denied) {
        known_ = false;  // whose it is nobody has said: to call it lost would be to deny what may be published
        return outcome(got.reply == Reply::Denied ? Published::Failed : Published::Unreachable, got.reason);
    }
    Head winner;
    std::string reason;
    if (got.reply == Reply::Ok && readHead(got.message.headers, winner, reason) == HeadKind::Good) {
        if (winner.token == head.token) {
            adopt(head, got.message.sequence, std::move(book));
            return outcome(Published::Done);
        }
        return outcome(Published::Lost, fmt::format("another publisher has committed revision {} of {}",
                                                    winner.revision, winner.tradingDay));
    }
    return outcome(Published::Lost, "the log is no longer the one that was read");
}

/// The book is the replica's from now on: the next change needs nothing read, however large the day.
void PublisherCore::adopt(const Head& head, std::uint64_t sequence, Book book) {
    const std::uint64_t formerBase = tip_ && tip_->readable ? tip_->head.baseOf(tip_->sequence) : 0;
    tip_ = Tip{head, sequence, true};
    known_ = true;
    replica_.adopt(head, sequence, std::move(book));
    PM_LOG(utils::kLogInfo, __FILE__,
           fmt::format("[feed] published revision {} of {}: {}", head.revision, head.tradingDay,
                       head.isDay ? "a day" : "a change"));
    if (head.isDay && formerBase != 0) {
        purge(formerBase);
    }
}

/// Keeps the former day: hosts may be reading it. What is older goes; nobody needs it, and a host that still reads it
/// begins again with the new day. Whatever keeps this from being done the next day makes up for: it removes everything
/// before its own former day.
void PublisherCore::purge(std::uint64_t formerBase) {
    const Got got = log_->at(formerBase);
    Head former;
    std::string reason;
    if (got.reply == Reply::Ok && readHead(got.message.headers, former, reason) == HeadKind::Good) {
        const Put put = log_->purgeBefore(former.after + 1);  // its parts begin there, before its own message
        reason = put.reply == Reply::Ok ? "" : put.reason;
    } else {
        reason = got.reason + reason;
    }
    if (!reason.empty()) {
        PM_LOG(utils::kLogError, __FILE__, "[feed] old days stay in the stream: " + reason);
    }
}

}  // namespace mxservice::feed
