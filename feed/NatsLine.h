#pragma once

#include <nats/nats.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "feed/Feed.h"
#include "feed/Log.h"

// One connection: how it is made, what it says of itself, and in which words its failures are told. Everything here may
// wait for as long as the library does, so it is called on the threads of NatsLines alone.

namespace mxservice::feed {

template <auto destroy>
struct NatsDestroyer {
    template <class T>
    void operator()(T* object) const {
        destroy(object);
    }
};
using NatsOptions = std::unique_ptr<natsOptions, NatsDestroyer<natsOptions_Destroy>>;
using NatsConnection = std::unique_ptr<natsConnection, NatsDestroyer<natsConnection_Destroy>>;
using NatsContext = std::unique_ptr<jsCtx, NatsDestroyer<jsCtx_Destroy>>;
using NatsMessage = std::unique_ptr<natsMsg, NatsDestroyer<natsMsg_Destroy>>;
using NatsSubscription = std::unique_ptr<natsSubscription, NatsDestroyer<natsSubscription_Destroy>>;
using NatsAck = std::unique_ptr<jsPubAck, NatsDestroyer<jsPubAck_Destroy>>;
using NatsInfo = std::unique_ptr<jsStreamInfo, NatsDestroyer<jsStreamInfo_Destroy>>;

/// For each server that takes the connection and then says nothing, or does not even take it.
constexpr std::int64_t kConnectMs = 1000;

/// Why there is no answer.
struct NatsFailure {
    Reply reply = Reply::Unreachable;
    std::string reason;
};

/// What the connections of one log leave for others, and what the library's threads may still call when all else is
/// gone.
struct NatsNotes {
    std::mutex lock;
    std::function<void(std::uint64_t)> bell;  // called under the lock, so that taking it away ends it
    std::string remark;                       // the library's or the server's last, until something is answered
};
using NatsNotesHandle = std::shared_ptr<NatsNotes>;

/// A connection with what is made of it.
struct NatsLine {
    /// For the library's threads, as long as they know the connection.
    struct Tie {
        explicit Tie(NatsNotesHandle given) : notes(std::move(given)) {}

        const NatsNotesHandle notes;
        std::atomic<bool> connected{true};
    };

    NatsConnection connection;
    NatsContext context;
    NatsSubscription bell;
    std::shared_ptr<Tie> tie;
};
/// Shared by the calls under way: a line that is given up lives until they have returned.
using NatsLineHandle = std::shared_ptr<NatsLine>;

/// How a line is made.
struct NatsWay {
    const Options options;
    const std::string bellSubject;
    const NatsNotesHandle notes;
};

/// Connects; null with the reason where that fails. `others`: attempts that hang; none of their servers shall hold up
/// this one, too.
NatsLineHandle connectLine(const NatsWay& way, unsigned others, NatsFailure& failure);

/// In words, with what was remarked meanwhile. Waits for nothing.
NatsFailure failureOf(const NatsNotesHandle& notes, natsStatus status, jsErrCode code);
/// Whether what the library or the server remarks is nothing that passes by itself.
bool isRefusal(const std::string& remark);
/// The text without the user, password or token in its URLs, for it is shown and logged.
std::string withoutCredentials(std::string text);

}  // namespace mxservice::feed
