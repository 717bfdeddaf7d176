#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "feed/Feed.h"
#include "feed/Replica.h"

namespace mxservice::feed {

/// A publisher over any log. Safe from any thread, one operation after the other.
class PublisherCore {
public:
    PublisherCore(std::shared_ptr<Log> log, const Options& options);
    ~PublisherCore();
    PublisherCore(const PublisherCore&) = delete;
    PublisherCore& operator=(const PublisherCore&) = delete;

    Outcome publish(const std::string& tradingDay, const Day& day);
    Outcome apply(const Change& change);
    Outcome catchUp();
    Revision revision() const;

private:
    /// The last log message that this publisher knows of.
    struct Tip {
        Head head;
        std::uint64_t sequence = 0;
        bool readable = true;  // else somebody has put something else there: a day goes on top, a change cannot
    };

    Outcome outcome(Published result, std::string reason = {}) const;
    Outcome readTip();
    Outcome readBook();
    Outcome send(Head head, std::string packed, bool inParts, Book book);
    Put putParts(const Head& head, const std::string& packed);
    Outcome settle(const Put& put, const Head& head, Book book);
    Outcome lost(const Head& head, Book book);
    void adopt(const Head& head, std::uint64_t sequence, Book book);
    void purge(std::uint64_t formerBase);
    template <class Try>
    Put insist(Try once);

    const std::shared_ptr<Log> log_;
    const Options options_;
    mutable std::mutex mutex_;
    bool known_ = false;  // whether tip_ is what the log last said
    std::optional<Tip> tip_;
    Replica replica_;  // follows only for changes, which need the book
};

}  // namespace mxservice::feed
