#pragma once

#include <nats/nats.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "feed/Feed.h"
#include "feed/Log.h"

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

/// A connection with what is made of it.
struct NatsLine {
    NatsConnection connection;
    NatsContext context;
    NatsSubscription bell;
};
/// Shared by the calls under way: a line that is given up lives until they have returned.
using NatsLineHandle = std::shared_ptr<NatsLine>;

/// Why there is no answer.
struct NatsFailure {
    Reply reply = Reply::Unreachable;
    std::string reason;
};

/// The way to the servers: one connection, made when it is first needed and again where the library has given one up.
/// Safe from any thread.
class NatsLines {
public:
    /// `bellSubject`: where the stream's bell rings.
    NatsLines(const Options& options, std::string bellSubject);
    ~NatsLines();
    NatsLines(const NatsLines&) = delete;
    NatsLines& operator=(const NatsLines&) = delete;

    /// A line that is connected; null with a reason where there is none at the moment.
    NatsLineHandle get(NatsFailure& failure);
    NatsFailure failureOf(natsStatus status, jsErrCode code) const;
    /// An answer came: what was remarked before no longer explains anything.
    void answered();
    void listen(std::function<void(std::uint64_t)> bell);
    std::string server() const;
    void close();

private:
    /// What the library's threads may still call when all else is gone.
    struct Shared {
        std::mutex lock;
        std::function<void(std::uint64_t)> bell;  // called under the lock, so that close() ends it
        std::string lastError;
    };
    using SharedHandle = std::shared_ptr<Shared>;

    static void noteError(natsConnection* connection, natsSubscription* unused, natsStatus status, void* closure);
    static void noteBell(natsConnection* unused, natsSubscription* unusedToo, natsMsg* message, void* closure);
    static void dropShared(void* closure);
    static void dropSharedOf(natsConnection* unused, void* closure);

    bool usesTls() const;
    natsStatus setUp(natsOptions* options) const;
    NatsLineHandle connect(NatsFailure& failure);
    void subscribe(NatsLine& line) const;

    const Options options_;
    const std::string bellSubject_;
    const SharedHandle shared_ = std::make_shared<Shared>();
    std::mutex connecting_;  // one connects at a time
    mutable std::mutex lock_;
    NatsLineHandle line_;
    bool closed_ = false;
};

}  // namespace mxservice::feed
