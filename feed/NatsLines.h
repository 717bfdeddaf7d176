#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "feed/NatsLine.h"

namespace mxservice::feed {

/// A call of the library. It may outlive whoever asked, so it owns all that it touches.
using NatsQuestion = std::function<natsStatus(const NatsLine& line, jsErrCode& code)>;

/// What came of it.
struct NatsHeard {
    natsStatus status = NATS_CONNECTION_CLOSED;
    jsErrCode code = static_cast<jsErrCode>(0);
    NatsFailure failure;  // unless the status is NATS_OK
};

/// The way to the servers: one connection, made when it is first needed and again where the library has given one up.
/// Safe from any thread, and nobody waits longer than a bound, whatever the library does.
///
/// That has to be seen to: the library shakes hands over TLS without a deadline, with the connection's lock held, and
/// nearly all that can be asked of a connection takes that lock, closing it included. So whatever may wait is done by a
/// thread of its own, and who waits for that thread gives up in time. A thread that is left behind has all that it
/// needs (Shared), calls nobody, and ends when the library lets it go.
///
/// When the process exits, such a thread is in a call of the library, as the library's own threads are, which do not
/// end before the process either. It has no static of ours, the library frees nothing of its own while a connection is
/// there, and what it waits for is a socket that says nothing.
class NatsLines {
public:
    /// `bellSubject`: where the stream's bell rings.
    NatsLines(const Options& options, std::string bellSubject);
    ~NatsLines();
    NatsLines(const NatsLines&) = delete;
    NatsLines& operator=(const NatsLines&) = delete;

    /// Asks that of a line that is connected.
    NatsHeard ask(NatsQuestion question);
    void listen(std::function<void(std::uint64_t)> bell);
    std::string server() const;
    void close();

private:
    struct Shared;
    using SharedHandle = std::shared_ptr<Shared>;
    enum class Ended : std::uint8_t { Done, Closed, Late };

    static void connect(const SharedHandle& shared, unsigned others);
    Ended within(std::chrono::milliseconds most, std::function<void()> work, bool closing = false);
    NatsLineHandle get(NatsFailure& failure);
    NatsLineHandle waitForLine(NatsFailure& failure);
    natsConnStatus lookAt(const NatsLineHandle& line, NatsFailure& failure);
    void giveUp(NatsLineHandle line);
    NatsFailure answered();

    const SharedHandle shared_;
};

}  // namespace mxservice::feed
