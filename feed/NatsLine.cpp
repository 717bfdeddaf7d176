#include "feed/NatsLine.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

namespace mxservice::feed {
namespace {

// A line that swallows bytes is given up after four to six seconds. Requests fail before, but they alone do not make
// the library look for another server.
constexpr std::int64_t kPingMs = 2000;
constexpr int kPingsUnanswered = 2;
// Between two rounds through all servers. Until one is found a host neither hears nor can ask, so the library's two
// seconds would be felt; the jitter keeps the hosts of a server that has died from all coming to the next in one
// moment.
constexpr std::int64_t kReconnectMs = 250;
constexpr std::int64_t kReconnectJitterMs = 250;

bool isDenied(natsStatus status, jsErrCode code) {
    switch (status) {
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
        case NATS_SSL_ERROR:
        case NATS_SECURE_CONNECTION_REQUIRED:
        case NATS_SECURE_CONNECTION_WANTED:
        case NATS_ADDRESS_MISSING:
        case NATS_INVALID_ARG:  // of options: a certificate without its key, a URL that is none
            return true;
        default:
            // Others pass, as those of a cluster that has no leader yet.
            return code == JSNotEnabledErr || code == JSNotEnabledForAccountErr || code == JSStreamSubjectOverlapErr ||
                   code == JSStreamReplicasNotSupportedErr || code == JSStorageResourcesExceededErr ||
                   code == JSStreamMessageExceedsMaximumErr || code == JSStreamInvalidConfig;
    }
}

// What the library calls on its own threads, of which all connections of the process share one. A connection's lock is
// held for as long as it is being made anew, so no call of the library that takes it may stand here.

using TieHandle = std::shared_ptr<NatsLine::Tie>;

void noteError(natsConnection* /*connection*/, natsSubscription* /*unused*/, natsStatus status, void* closure) {
    const auto& tie = *static_cast<TieHandle*>(closure);
    natsStatus told = NATS_OK;
    const char* const text = nats_GetLastError(&told);  // of this thread: the status alone names no permission
    const bool has = told == status && text != nullptr && *text != '\0';
    std::string remark = withoutCredentials(has ? text : natsStatus_GetText(status));
    const std::lock_guard guard(tie->notes->lock);
    tie->notes->remark = std::move(remark);
}

void noteDisconnected(natsConnection* /*connection*/, void* closure) {
    (*static_cast<TieHandle*>(closure))->connected = false;
}

void dropTie(natsConnection* /*connection*/, void* closure) {
    delete static_cast<TieHandle*>(closure);
}

void noteBell(natsConnection* /*unused*/, natsSubscription* /*unusedToo*/, natsMsg* message, void* closure) {
    const NatsMessage owned(message);
    const char* text = nullptr;
    std::uint64_t sequence = 0;
    if (natsMsgHeader_Get(message, JSSequence, &text) == NATS_OK) {
        const std::string_view digits(text);
        std::from_chars(digits.data(), digits.data() + digits.size(), sequence);
    }
    // A bell without a number rings as well: whoever hears it looks at the log, which alone says what is new.
    auto& notes = **static_cast<NatsNotesHandle*>(closure);
    const std::lock_guard guard(notes.lock);
    if (notes.bell) {
        notes.bell(sequence);
    }
}

void dropNotes(void* closure) {
    delete static_cast<NatsNotesHandle*>(closure);
}

bool usesTls(const Options& options) {
    return options.tls || std::any_of(options.servers.begin(), options.servers.end(),
                                      [](const auto& url) { return url.rfind("tls://", 0) == 0; });
}

natsStatus setUp(natsOptions* options, const Options& wanted, unsigned others) {
    std::vector<const char*> servers;
    for (std::size_t i = 0; i < wanted.servers.size(); ++i) {
        servers.push_back(wanted.servers[(i + others) % wanted.servers.size()].c_str());
    }
    natsStatus status = natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size()));
    const auto with = [&status](bool given, auto set) {
        if (status == NATS_OK && given) {
            status = set();
        }
    };
    with(true, [&] { return natsOptions_SetTimeout(options, kConnectMs); });
    // Hosts are spread over the servers by the library's dice. Beside an attempt that hangs each begins with another
    // server, so that it takes no more of them than there are servers until one comes through.
    with(others > 0, [&] { return natsOptions_SetNoRandomize(options, true); });
    // A peer that takes no more bytes would keep the connection's lock, and with it the library's one thread of timers,
    // so that no connection of the process was pinged any more. Over TLS too, though there the library's reading and
    // writing threads may then misread each other's "would block": that costs a reconnection, rarely.
    with(true, [&] { return natsOptions_SetWriteDeadline(options, wanted.requestTimeout.count()); });
    with(true, [&] { return natsOptions_SetPingInterval(options, kPingMs); });
    with(true, [&] { return natsOptions_SetMaxPingsOut(options, kPingsUnanswered); });
    with(true,
         [&] { return natsOptions_SetMaxReconnect(options, -1); });  // as long as it takes: a host outlives servers
    with(true, [&] { return natsOptions_SetReconnectWait(options, kReconnectMs); });
    with(true, [&] { return natsOptions_SetReconnectJitter(options, kReconnectJitterMs, kReconnectJitterMs); });
    // A request that waits for a server that is gone ends at once, as does one of a connection that is closed.
    with(true, [&] { return natsOptions_SetFailRequestsOnDisconnect(options, true); });
    // Nothing waits in the library for a connection: what is asked meanwhile is answered with a failure. (Its manual
    // has 0 mean a default of 8 MB, but only an option that is not set gets that.)
    with(true, [&] { return natsOptions_SetReconnectBufSize(options, 0); });
    with(!wanted.name.empty(), [&] { return natsOptions_SetName(options, wanted.name.c_str()); });
    with(!wanted.user.empty(),
         [&] { return natsOptions_SetUserInfo(options, wanted.user.c_str(), wanted.password.c_str()); });
    with(!wanted.token.empty(), [&] { return natsOptions_SetToken(options, wanted.token.c_str()); });
    with(!wanted.credentialsFile.empty(),
         [&] { return natsOptions_SetUserCredentialsFromFiles(options, wanted.credentialsFile.c_str(), nullptr); });
    // The library reads no scheme: without this "tls://" would speak plainly to a server that does not insist.
    with(usesTls(wanted), [&] { return natsOptions_SetSecure(options, true); });
    with(!wanted.caFile.empty(), [&] { return natsOptions_LoadCATrustedCertificates(options, wanted.caFile.c_str()); });
    with(!wanted.certificateFile.empty(), [&] {
        return natsOptions_LoadCertificatesChain(options, wanted.certificateFile.c_str(), wanted.keyFile.c_str());
    });
    return status;
}

/// Another handle than the connection's: either may be the last that the library lets go of.
void subscribe(NatsLine& line, const NatsWay& way) {
    {
        const std::lock_guard guard(way.notes->lock);
        if (!way.notes->bell) {
            return;  // a publisher's
        }
    }
    auto* const closure = new NatsNotesHandle(way.notes);
    natsSubscription* subscription = nullptr;
    if (natsConnection_Subscribe(&subscription, line.connection.get(), way.bellSubject.c_str(), noteBell, closure) !=
        NATS_OK) {
        delete closure;  // without a bell the log is looked at now and then
        return;
    }
    natsSubscription_SetOnCompleteCB(subscription, dropNotes, closure);
    line.bell.reset(subscription);
}

NatsFailure notConnected(const NatsWay& way, natsStatus status) {
    // Of this thread's last call: there is no connection yet that could have remarked anything.
    const char* const text = nats_GetLastError(nullptr);
    NatsFailure failure = failureOf(way.notes, status, static_cast<jsErrCode>(0));
    failure.reason += text != nullptr && *text != '\0' ? fmt::format(", {}", text) : "";
    if (usesTls(way.options) && (status == NATS_PROTOCOL_ERROR || status == NATS_IO_ERROR)) {
        // By TLS 1.3 a client takes the handshake for done before the server has looked at its certificate. One that is
        // refused shows as a connection that ends, which a server that is being stopped does as well.
        failure.reason += "; the server may not accept this certificate";
    }
    return failure;
}

}  // namespace

bool isRefusal(const std::string& remark) {
    // By the text, for the status of such a request is that of one without an answer; without the first letters, which
    // library and servers write differently.
    constexpr std::array kRefusals{"ermissions Violation", "uthorization", "uthentication", "certificate", "SSL"};
    return std::any_of(kRefusals.begin(), kRefusals.end(),
                       [&](const char* refusal) { return remark.find(refusal) != std::string::npos; });
}

std::string withoutCredentials(std::string text) {
    constexpr std::string_view kSlashes = "//";
    for (std::size_t at = text.find(kSlashes); at != std::string::npos; at = text.find(kSlashes, at)) {
        at += kSlashes.size();
        // Up to the last '@' of the word: people write passwords that have one, or quotes, as they are.
        const std::size_t end = std::min(text.find_first_of(" \t\r\n", at), text.size());
        const std::size_t sign = text.substr(at, end - at).rfind('@');
        text.erase(at, sign == std::string::npos ? 0 : sign + 1);
    }
    return text;
}

NatsFailure failureOf(const NatsNotesHandle& notes, natsStatus status, jsErrCode code) {
    std::string reason = natsStatus_GetText(status);
    if (code != 0) {
        reason += fmt::format(" ({})", static_cast<int>(code));
    }
    // Refused permissions come as a remark on the connection; the request itself hears nothing.
    const std::lock_guard guard(notes->lock);
    if (!notes->remark.empty()) {
        reason += ": " + notes->remark;
    }
    return {isRefusal(notes->remark) || isDenied(status, code) ? Reply::Denied : Reply::Unreachable, reason};
}

NatsLineHandle connectLine(const NatsWay& way, unsigned others, NatsFailure& failure) {
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const NatsOptions options(made);
    if (status == NATS_OK) {
        status = setUp(made, way.options, others);
    }
    auto line = std::make_shared<NatsLine>();
    line->tie = std::make_shared<NatsLine::Tie>(way.notes);
    auto tie = std::make_unique<TieHandle>(line->tie);
    if (status == NATS_OK) {
        natsOptions_SetErrorHandler(made, noteError, tie.get());
        natsOptions_SetDisconnectedCB(made, noteDisconnected, tie.get());
        // The last that the library says of a connection, however it ends.
        status = natsOptions_SetClosedCB(made, dropTie, tie.get());
    }
    natsConnection* connection = nullptr;
    if (status == NATS_OK) {
        status = natsConnection_Connect(&connection, made);
    }
    if (status != NATS_OK) {
        failure = notConnected(way, status);
        return nullptr;  // a connection that never was is not closed, so the tie is still ours
    }
    (void)tie.release();
    line->connection.reset(connection);
    jsOptions waits;
    jsOptions_Init(&waits);
    waits.Wait = way.options.requestTimeout.count();  // of every request of this context that names none
    jsCtx* context = nullptr;
    status = natsConnection_JetStream(&context, connection, &waits);
    line->context.reset(context);
    if (status != NATS_OK) {
        failure = failureOf(way.notes, status, static_cast<jsErrCode>(0));
        return nullptr;
    }
    subscribe(*line, way);
    return line;
}

}  // namespace mxservice::feed
