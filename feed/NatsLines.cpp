#include "feed/NatsLines.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <utility>
#include <vector>

namespace mxservice::feed {
namespace {

// A subscriber that ends waits for an attempt to connect: this long for each server that takes the connection and then
// says nothing.
constexpr std::int64_t kConnectMs = 1000;
// A line that swallows bytes is given up after four to six seconds. Requests fail before, but they alone do not make
// the library look for another server.
constexpr std::int64_t kPingMs = 2000;
constexpr int kPingsUnanswered = 2;
// Between two rounds through all servers. Until one is found a host neither hears nor can ask, so the library's two
// seconds would be felt; the jitter keeps the hosts of a server that has died from all coming to the next in one
// moment.
constexpr std::int64_t kReconnectMs = 250;
constexpr std::int64_t kReconnectJitterMs = 250;
constexpr std::size_t kUrlBytes = 256;

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

/// Whether what the library or the server remarks is nothing that passes by itself. Told by the text, for the status of
/// such a request is that of one without an answer; without the first letters, which library and servers write
/// differently.
bool isRefusal(const std::string& remark) {
    constexpr std::array kRefusals{"ermissions Violation", "uthorization", "uthentication", "certificate", "SSL"};
    return std::any_of(kRefusals.begin(), kRefusals.end(),
                       [&](const char* refusal) { return remark.find(refusal) != std::string::npos; });
}

}  // namespace

NatsLines::NatsLines(const Options& options, std::string bellSubject)
    : options_(options), bellSubject_(std::move(bellSubject)) {}

NatsLines::~NatsLines() {
    close();
}

void NatsLines::noteError(natsConnection* connection, natsSubscription* /*unused*/, natsStatus status, void* closure) {
    auto& shared = **static_cast<SharedHandle*>(closure);
    const char* text = nullptr;
    natsConnection_GetLastError(connection, &text);  // the status alone does not say which permission is missing
    const std::lock_guard guard(shared.lock);
    shared.lastError = text != nullptr && *text != '\0' ? text : natsStatus_GetText(status);
}

void NatsLines::noteBell(natsConnection* /*unused*/, natsSubscription* /*unused*/, natsMsg* message, void* closure) {
    const NatsMessage owned(message);
    const char* text = nullptr;
    std::uint64_t sequence = 0;
    if (natsMsgHeader_Get(message, JSSequence, &text) == NATS_OK) {
        const std::string_view digits(text);
        std::from_chars(digits.data(), digits.data() + digits.size(), sequence);
    }
    // A bell without a number rings as well: whoever hears it looks at the log, which alone says what is new.
    auto& shared = **static_cast<SharedHandle*>(closure);
    const std::lock_guard guard(shared.lock);
    if (shared.bell) {
        shared.bell(sequence);
    }
}

void NatsLines::dropShared(void* closure) {
    delete static_cast<SharedHandle*>(closure);
}

void NatsLines::dropSharedOf(natsConnection* /*unused*/, void* closure) {
    dropShared(closure);
}

natsStatus NatsLines::setUp(natsOptions* options) const {
    std::vector<const char*> servers;
    for (const std::string& server : options_.servers) {
        servers.push_back(server.c_str());
    }
    natsStatus status = natsOptions_SetServers(options, servers.data(), static_cast<int>(servers.size()));
    const auto with = [&status](bool wanted, auto set) {
        if (status == NATS_OK && wanted) {
            status = set();
        }
    };
    with(true, [&] { return natsOptions_SetTimeout(options, kConnectMs); });
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
    with(!options_.name.empty(), [&] { return natsOptions_SetName(options, options_.name.c_str()); });
    with(!options_.user.empty(),
         [&] { return natsOptions_SetUserInfo(options, options_.user.c_str(), options_.password.c_str()); });
    with(!options_.token.empty(), [&] { return natsOptions_SetToken(options, options_.token.c_str()); });
    with(!options_.credentialsFile.empty(),
         [&] { return natsOptions_SetUserCredentialsFromFiles(options, options_.credentialsFile.c_str(), nullptr); });
    // The library reads no scheme: without this "tls://" would speak plainly to a server that does not insist.
    with(usesTls(), [&] { return natsOptions_SetSecure(options, true); });
    with(!options_.caFile.empty(),
         [&] { return natsOptions_LoadCATrustedCertificates(options, options_.caFile.c_str()); });
    with(!options_.certificateFile.empty(), [&] {
        return natsOptions_LoadCertificatesChain(options, options_.certificateFile.c_str(), options_.keyFile.c_str());
    });
    return status;
}

bool NatsLines::usesTls() const {
    return options_.tls || std::any_of(options_.servers.begin(), options_.servers.end(),
                                       [](const auto& url) { return url.rfind("tls://", 0) == 0; });
}

NatsFailure NatsLines::failureOf(natsStatus status, jsErrCode code) const {
    std::string reason = natsStatus_GetText(status);
    if (code != 0) {
        reason += fmt::format(" ({})", static_cast<int>(code));
    }
    // Refused permissions come as a remark on the connection; the request itself hears nothing.
    const std::lock_guard guard(shared_->lock);
    if (!shared_->lastError.empty()) {
        reason += ": " + shared_->lastError;
    }
    return {isRefusal(shared_->lastError) || isDenied(status, code) ? Reply::Denied : Reply::Unreachable, reason};
}

NatsLineHandle NatsLines::connect(NatsFailure& failure) {
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const NatsOptions options(made);
    if (status == NATS_OK) {
        status = setUp(made);
    }
    auto* const errors = new SharedHandle(shared_);
    if (status == NATS_OK) {
        natsOptions_SetErrorHandler(made, noteError, errors);
        // The last that the library says of a connection, however it ends.
        status = natsOptions_SetClosedCB(made, dropSharedOf, errors);
    }
    natsConnection* connection = nullptr;
    if (status == NATS_OK) {
        status = natsConnection_Connect(&connection, made);
    }
    if (status != NATS_OK) {
        // Of this thread's last call: there is no connection yet that could have remarked anything.
        const char* const text = nats_GetLastError(nullptr);
        failure = failureOf(status, static_cast<jsErrCode>(0));
        failure.reason += text != nullptr && *text != '\0' ? fmt::format(", {}", text) : "";
        if (usesTls() && (status == NATS_PROTOCOL_ERROR || status == NATS_IO_ERROR)) {
            // By TLS 1.3 a client takes the handshake for done before the server has looked at its certificate. One
            // that is refused shows as a connection that ends, which a server that is being stopped does as well.
            failure.reason += "; the server may not accept this certificate";
        }
        delete errors;  // a connection that never was is not closed, so nobody else does
        return nullptr;
    }
    auto line = std::make_shared<NatsLine>();
    line->connection.reset(connection);
    jsOptions waits;
    jsOptions_Init(&waits);
    waits.Wait = options_.requestTimeout.count();  // of every request of this context that names none
    jsCtx* context = nullptr;
    status = natsConnection_JetStream(&context, connection, &waits);
    line->context.reset(context);
    if (status != NATS_OK) {
        failure = failureOf(status, static_cast<jsErrCode>(0));
        return nullptr;
    }
    subscribe(*line);
    return line;
}

/// Another handle than the connection's: either may be the last that the library lets go of.
void NatsLines::subscribe(NatsLine& line) const {
    {
        const std::lock_guard guard(shared_->lock);
        if (!shared_->bell) {
            return;  // a publisher's
        }
    }
    auto* const closure = new SharedHandle(shared_);
    natsSubscription* subscription = nullptr;
    if (natsConnection_Subscribe(&subscription, line.connection.get(), bellSubject_.c_str(), noteBell, closure) !=
        NATS_OK) {
        delete closure;  // without a bell the log is looked at now and then
        return;
    }
    natsSubscription_SetOnCompleteCB(subscription, dropShared, closure);
    line.bell.reset(subscription);
}

/// The connection, made where there is none, or where the library has given one up: it does after two refused
/// credentials. A first one is tried anew at each look. The library could do so by itself
/// (natsOptions_SetRetryOnFailedConnect), but would not say what is wrong: certificates that are refused would look
/// like a server that is away.
NatsLineHandle NatsLines::get(NatsFailure& failure) {
    // Held while connecting, so that two that find no line do not make two. Whoever ends does not wait for it: close()
    // takes the other lock, which is never held across a call of the library that waits.
    const std::lock_guard one(connecting_);
    NatsLineHandle line;
    {
        const std::lock_guard guard(lock_);
        if (closed_) {
            failure = {Reply::Unreachable, "closed"};
            return nullptr;
        }
        line = line_;
    }
    if (!line || natsConnection_Status(line->connection.get()) == NATS_CONN_STATUS_CLOSED) {
        line = connect(failure);
        const std::lock_guard guard(lock_);
        line_ = line;
        if (!line) {
            return nullptr;
        }
        if (closed_) {  // while we connected; close() has not seen this line
            line_.reset();
            failure = {Reply::Unreachable, "closed"};
            return nullptr;
        }
    }
    // Reconnecting: the library does so by itself, and a request would only wait for its time to pass.
    const natsConnStatus status = natsConnection_Status(line->connection.get());
    if (status != NATS_CONN_STATUS_CONNECTED) {
        const char* text = nullptr;
        natsConnection_GetLastError(line->connection.get(), &text);
        const std::string reason = text != nullptr ? text : "";
        failure = {isRefusal(reason) ? Reply::Denied : Reply::Unreachable,
                   fmt::format("not connected{}{}", reason.empty() ? "" : ": ", reason)};
        return nullptr;
    }
    return line;
}

void NatsLines::answered() {
    const std::lock_guard guard(shared_->lock);
    shared_->lastError.clear();
}

void NatsLines::listen(std::function<void(std::uint64_t)> bell) {
    const std::lock_guard guard(shared_->lock);
    shared_->bell = std::move(bell);
}

std::string NatsLines::server() const {
    NatsLineHandle line;
    {
        const std::lock_guard guard(lock_);
        line = line_;
    }
    std::array<char, kUrlBytes> url{};
    const bool connected =
        line && natsConnection_GetConnectedUrl(line->connection.get(), url.data(), url.size()) == NATS_OK;
    return connected ? url.data() : "";
}

void NatsLines::close() {
    NatsLineHandle line;
    {
        const std::lock_guard guard(lock_);
        closed_ = true;
        line = std::move(line_);
    }
    // Only closed: calls under way still have the line. They fail at once, and the last of them destroys it.
    if (line) {
        natsConnection_Close(line->connection.get());
    }
    // From here on nobody is called: whoever owns the bell may be gone when this returns.
    const std::lock_guard guard(shared_->lock);
    shared_->bell = nullptr;
}

}  // namespace mxservice::feed
