#include "feed/NatsLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/utils/LogLine.h"

namespace mxservice::feed {
namespace {

using std::chrono::milliseconds;

constexpr std::size_t kUrlBytes = 256;
constexpr milliseconds kMargin{500};  // of processors that are busy, before a thread counts as hanging
constexpr milliseconds kToClose{1000};
constexpr milliseconds kLongest = std::chrono::hours(1);  // of sums that still have to be a time
// The library makes a connection anew with its lock held, a server after the other. It lets go of it after each.
constexpr milliseconds kToLook{3 * kConnectMs};
constexpr unsigned kMostDoublings = 10;

NatsFailure unreachable(std::string reason) {
    return {Reply::Unreachable, std::move(reason)};
}

std::string urlOf(const NatsLine& line) {
    std::array<char, kUrlBytes> url{};
    const bool connected = natsConnection_GetConnectedUrl(line.connection.get(), url.data(), url.size()) == NATS_OK;
    return connected ? withoutCredentials(url.data()) : "";
}

/// What `work` has is let go of there, too: the last hold on a line closes it, which may wait.
void start(std::function<void()> work) {
    const auto held = std::make_shared<std::function<void()>>(std::move(work));
    const auto run = [held] {
        (*held)();
        *held = nullptr;
    };
    try {
        std::thread(run).detach();
    } catch (const std::system_error&) {
        run();  // there is no thread to be had: whoever asked waits for as long as it takes
    }
}

}  // namespace

/// What the threads have, too.
struct NatsLines::Shared {
    explicit Shared(NatsWay given) : way(std::move(given)), request(std::min(way.options.requestTimeout, kLongest)) {}

    const NatsWay way;
    const milliseconds request;  // of one question
    std::mutex lock;             // of what follows; nothing is called under it, and no other lock is taken
    std::condition_variable changed;
    bool closed = false;
    NatsLineHandle line;
    std::string server;       // of the line when it was last connected
    NatsFailure refused;      // of the last attempt to connect
    std::uint64_t ended = 0;  // attempts that have failed
    unsigned attempts = 0;    // under way, those that nobody waits for any more among them
    std::chrono::steady_clock::time_point lastAttempt;
    bool refusedBellTold = false;
};

NatsLines::NatsLines(const Options& options, std::string bellSubject)
    : shared_(std::make_shared<Shared>(NatsWay{options, std::move(bellSubject), std::make_shared<NatsNotes>()})) {}

NatsLines::~NatsLines() {
    close();
}

/// Does `work` on another thread and waits for it, until close() unless it is that which waits.
NatsLines::Ended NatsLines::within(milliseconds most, std::function<void()> work, bool closing) {
    struct Call {
        bool done = false;  // under the lock
        std::exception_ptr thrown;
    };
    const auto call = std::make_shared<Call>();
    start([shared = shared_, work = std::move(work), call]() mutable {
        try {
            work();
        } catch (...) {
            call->thrown = std::current_exception();
        }
        work = nullptr;
        {
            const std::lock_guard guard(shared->lock);
            call->done = true;
        }
        shared->changed.notify_all();
    });
    std::unique_lock lock(shared_->lock);
    shared_->changed.wait_for(lock, most, [&] { return call->done || (shared_->closed && !closing); });
    if (call->done && call->thrown) {
        std::rethrow_exception(call->thrown);
    }
    return call->done ? Ended::Done : shared_->closed ? Ended::Closed : Ended::Late;
}

void NatsLines::connect(const SharedHandle& shared, unsigned others) {
    NatsLineHandle made;
    NatsFailure failure;
    std::string server;
    try {
        made = connectLine(shared->way, others, failure);
        server = made ? urlOf(*made) : "";
    } catch (const std::exception& thrown) {
        failure = unreachable(thrown.what());
    }
    {
        const std::lock_guard guard(shared->lock);
        --shared->attempts;
        if (!made) {
            ++shared->ended;
            shared->refused = std::move(failure);
        } else if (!shared->closed && !shared->line) {
            shared->line = std::move(made);
            shared->server = std::move(server);
        }
    }
    shared->changed.notify_all();
    // What nobody waits for any more, or another attempt was faster than, is closed here.
}

/// Makes a line where there is none. A first one is tried anew at each look. The library could do so by itself
/// (natsOptions_SetRetryOnFailedConnect), but would not say what is wrong: certificates that are refused would look
/// like a server that is away.
NatsLineHandle NatsLines::waitForLine(NatsFailure& failure) {
    const auto servers = static_cast<std::int64_t>(shared_->way.options.servers.size());
    const milliseconds most = milliseconds(kConnectMs * servers) + shared_->request;
    std::unique_lock lock(shared_->lock);
    const std::uint64_t ended = shared_->ended;
    if (!shared_->line && !shared_->closed) {
        // One that hangs is left to itself, for the next one may come to a server that answers. Ever more rarely, so
        // that threads do not pile up.
        const auto now = std::chrono::steady_clock::now();
        const unsigned others = shared_->attempts;
        if (others == 0 || now - shared_->lastAttempt >= most * (1U << std::min(others - 1, kMostDoublings))) {
            ++shared_->attempts;
            shared_->lastAttempt = now;
            lock.unlock();
            start([shared = shared_, others] { connect(shared, others); });
            lock.lock();
        }
    }
    shared_->changed.wait_for(lock, most, [&] { return shared_->closed || shared_->line || shared_->ended != ended; });
    if (shared_->closed) {
        failure = unreachable("closed");
        return nullptr;
    }
    if (!shared_->line) {
        failure = shared_->ended != ended
                      ? shared_->refused
                      : unreachable(fmt::format("no server has answered within {} ms", most.count()));
    }
    return shared_->line;
}

/// A line that is connected; null with a reason where there is none at the moment.
NatsLineHandle NatsLines::get(NatsFailure& failure) {
    for (;;) {
        NatsLineHandle line = waitForLine(failure);
        if (!line || line->tie->connected) {
            return line;
        }
        switch (lookAt(line, failure)) {
            case NATS_CONN_STATUS_CONNECTED:
                return line;
            case NATS_CONN_STATUS_CLOSED:  // the library does not go on after two refused credentials
                giveUp(std::move(line));
                break;
            case NATS_CONN_STATUS_DISCONNECTED:
                giveUp(std::move(line));
                return nullptr;
            default:
                // Reconnecting: the library does so by itself, and a request would only wait for its time to pass.
                return nullptr;
        }
    }
}

/// What has become of a line that was not connected; disconnected is one that does not even say that.
natsConnStatus NatsLines::lookAt(const NatsLineHandle& line, NatsFailure& failure) {
    struct Found {
        natsConnStatus status = NATS_CONN_STATUS_RECONNECTING;
        std::string server;
        std::string remark;
    };
    const auto seen = std::make_shared<Found>();
    const Ended ended = within(kToLook, [line, seen] {
        natsConnection* const connection = line->connection.get();
        line->tie->connected = true;  // before the look: whatever is told from here on comes after it
        seen->status = natsConnection_Status(connection);
        const char* text = nullptr;
        if (seen->status == NATS_CONN_STATUS_CONNECTED) {
            seen->server = urlOf(*line);
            return;
        }
        line->tie->connected = false;
        if (natsConnection_GetLastError(connection, &text) != NATS_OK && text != nullptr) {
            seen->remark = text;
        }
    });
    if (ended != Ended::Done) {
        failure =
            unreachable(ended == Ended::Closed ? "closed" : "not connected: a server hangs while it is connected to");
        return NATS_CONN_STATUS_DISCONNECTED;
    }
    if (seen->status == NATS_CONN_STATUS_CONNECTED) {
        const std::lock_guard guard(shared_->lock);
        shared_->server = seen->server;
    }
    failure = {isRefusal(seen->remark) ? Reply::Denied : Reply::Unreachable,
               fmt::format("not connected{}{}", seen->remark.empty() ? "" : ": ", seen->remark)};
    return seen->status;
}

/// Another one is made when it is next needed. A thread lets go of this one.
void NatsLines::giveUp(NatsLineHandle line) {
    {
        const std::lock_guard guard(shared_->lock);
        if (shared_->line == line) {
            shared_->line.reset();
        }
    }
    start([line = std::move(line)] {});
}

NatsHeard NatsLines::ask(NatsQuestion question) {
    NatsHeard heard;
    NatsLineHandle line = get(heard.failure);
    if (line) {
        const auto asked = std::make_shared<NatsHeard>();
        // The time of a write, of the answer, and of threads that have to wait for a processor.
        const Ended ended = within(2 * shared_->request + kMargin, [line, asked, question = std::move(question)] {
            asked->status = question(*line, asked->code);
        });
        if (ended == Ended::Done) {
            heard.status = asked->status;
            heard.code = asked->code;
            heard.failure =
                heard.status == NATS_OK ? answered() : failureOf(shared_->way.notes, heard.status, heard.code);
            if (heard.status == NATS_CONNECTION_CLOSED) {
                line->tie->connected = false;  // that thread of the library's which tells it may be held up elsewhere
            }
        } else if (ended == Ended::Late) {
            giveUp(std::move(line));
            heard.failure = unreachable("the connection hangs");
        } else {
            heard.failure = unreachable("closed");
        }
    }
    heard.failure.reason = withoutCredentials(std::move(heard.failure.reason));
    return heard;
}

/// What was remarked before no longer explains anything. One remark would never have been told: the bell's.
NatsFailure NatsLines::answered() {
    std::string remark;
    {
        const std::lock_guard guard(shared_->way.notes->lock);
        remark = std::exchange(shared_->way.notes->remark, {});
    }
    if (remark.find(shared_->way.bellSubject) != std::string::npos) {
        const std::lock_guard guard(shared_->lock);
        remark = std::exchange(shared_->refusedBellTold, true) ? "" : remark;
    } else {
        remark.clear();
    }
    if (!remark.empty()) {
        PM_LOG(utils::kLogError, __FILE__, "[feed] no bell rings, changes are seen at each look: " + remark);
    }
    return {Reply::Ok, ""};
}

void NatsLines::listen(std::function<void(std::uint64_t)> bell) {
    const std::lock_guard guard(shared_->way.notes->lock);
    const std::lock_guard closing(shared_->lock);
    if (!shared_->closed) {
        shared_->way.notes->bell = std::move(bell);
    }
}

/// Without its user and password.
std::string NatsLines::server() const {
    const std::lock_guard guard(shared_->lock);
    return shared_->line && shared_->line->tie->connected ? shared_->server : "";
}

void NatsLines::close() {
    NatsLineHandle line;
    {
        const std::lock_guard guard(shared_->lock);
        shared_->closed = true;
        line = std::move(shared_->line);
    }
    {
        // From here on nobody is called: whoever owns the bell may be gone when this returns.
        const std::lock_guard guard(shared_->way.notes->lock);
        shared_->way.notes->bell = nullptr;
    }
    shared_->changed.notify_all();  // who waits for an answer, or for an attempt to connect, does not any more
    if (line) {
        // Only closed: calls under way still have the line. They fail at once, and the last of them destroys it.
        within(
            kToClose, [line = std::move(line)] { natsConnection_Close(line->connection.get()); }, true);
    }
}

}  // namespace mxservice::feed
