// The classes of the public header: cores over a log in NATS.

#include "feed/Feed.h"

#include <stdexcept>
#include <thread>
#include <utility>

#include "feed/Host.h"
#include "feed/NatsLog.h"
#include "feed/PublisherCore.h"
#include "feed/SubscriberCore.h"

namespace mxservice::feed {
namespace {

/// What no waiting mends throws here, before there is a thread. A feed's name becomes part of subjects, in which dots,
/// blanks and wildcards would be those of other feeds.
std::shared_ptr<Log> logOf(const Options& options) {
    constexpr const char* kAllowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789_-";
    if (options.feed.empty() || options.feed.find_first_not_of(kAllowed) != std::string::npos) {
        throw std::invalid_argument("a feed is named by letters, digits, '_' and '-', not '" + options.feed + "'");
    }
    if (options.servers.empty()) {
        throw std::invalid_argument("a feed needs the URL of a server");
    }
    return makeNatsLog(options);
}

/// Keeps what a replica brings.
class Reader : public Receiver {
public:
    void loading(bool /*fault*/) override {}
    void day(const Day& day, const std::vector<Change>& changes, const std::vector<Entry>& entries) override {
        reading.day = day.snapshot();
        reading.day.instruments = instrumentsOf(day, changes);
        reading.revision = revisionOf(entries.back().head, entries.back().sequence);
    }
    void change(const Change& /*change*/, const Entry& /*entry*/) override {}
    void damaged(const std::string& /*reason*/) override {}

    Reading reading;
};

}  // namespace

Publisher::Publisher(const Options& options) : core_(std::make_unique<PublisherCore>(logOf(options), options)) {}
Publisher::~Publisher() = default;

Outcome Publisher::publish(const std::string& tradingDay, const Day& day) {
    return core_->publish(tradingDay, day);
}

Outcome Publisher::apply(const Change& change) {
    return core_->apply(change);
}

Outcome Publisher::catchUp() {
    return core_->catchUp();
}

Revision Publisher::revision() const {
    return core_->revision();
}

Subscriber::Subscriber(CServerInstrumentCenter& center, const Options& options)
    : core_(std::make_unique<SubscriberCore>(hostOf(center), logOf(options), options)) {}
Subscriber::Subscriber(CClientInstrumentCenter& center, const Options& options)
    : core_(std::make_unique<SubscriberCore>(hostOf(center), logOf(options), options)) {}
Subscriber::~Subscriber() {
    SubscriberCore::end(std::move(core_));
}

State Subscriber::state() const {
    return core_->state();
}

Revision Subscriber::revision() const {
    return core_->revision();
}

Health Subscriber::health() const {
    return core_->health();
}

Registration Subscriber::onChange(std::function<void(const Revision&)> handler) {
    return core_->onChange(std::move(handler));
}

Registration Subscriber::onState(std::function<void(State, const std::string& reason)> handler) {
    return core_->onState(std::move(handler));
}

bool Subscriber::waitCurrent(std::chrono::milliseconds timeout) const {
    return core_->waitCurrent(timeout);
}

Reading read(const Options& options, std::chrono::milliseconds timeout) {
    constexpr std::chrono::milliseconds kBetweenLooks{50};
    const auto until = std::chrono::steady_clock::now() + timeout;
    const std::shared_ptr<Log> log = logOf(options);
    Replica replica(*log, options.maxUnpackedBytes);
    for (;;) {
        Reader reader;
        const Look look = replica.look(0, reader);  // no bell has told of a sequence
        if (look.seen == Seen::Current) {
            return std::move(reader.reading);
        }
        // Only silence may end by itself.
        if (look.seen != Seen::Unreachable || std::chrono::steady_clock::now() > until) {
            throw std::runtime_error(look.reason);
        }
        std::this_thread::sleep_for(kBetweenLooks);
    }
}

}  // namespace mxservice::feed
