#include "feed/NatsLog.h"

#include <fmt/format.h>
#include <nats/nats.h>

#include <array>
#include <atomic>
#include <charconv>
#include <mutex>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace mxservice::feed {
namespace {

constexpr std::int64_t kConnectMs = 1000;
constexpr std::int64_t kPingMs = 2000;
constexpr int kPingsUnanswered = 2;
constexpr std::int64_t kReconnectMs = 250;
constexpr std::int64_t kReconnectJitterMs = 250;
constexpr std::size_t kUrlBytes = 256;
constexpr std::int64_t kNanoseconds = 1000000;  // a millisecond

template <auto destroy>
struct Destroyer {
    template <class T>
    void operator()(T* object) const {
        destroy(object);
    }
};
using OptionsHandle = std::unique_ptr<natsOptions, Destroyer<natsOptions_Destroy>>;
using Connection = std::unique_ptr<natsConnection, Destroyer<natsConnection_Destroy>>;
using Context = std::unique_ptr<jsCtx, Destroyer<jsCtx_Destroy>>;
using MessageHandle = std::unique_ptr<natsMsg, Destroyer<natsMsg_Destroy>>;
using Subscription = std::unique_ptr<natsSubscription, Destroyer<natsSubscription_Destroy>>;
using Ack = std::unique_ptr<jsPubAck, Destroyer<jsPubAck_Destroy>>;
using Info = std::unique_ptr<jsStreamInfo, Destroyer<jsStreamInfo_Destroy>>;

/// What the library's threads may still call when the log is gone.
struct Shared {
    std::mutex lock;
    std::function<void(std::uint64_t)> bell;  // called under the lock, so that close() ends it
    std::string lastError;
};
using SharedHandle = std::shared_ptr<Shared>;

void noteError(natsConnection* connection, natsSubscription* /*unused*/, natsStatus status, void* closure) {
    auto& shared = **static_cast<SharedHandle*>(closure);
    const char* text = nullptr;
    natsConnection_GetLastError(connection, &text);
    const std::lock_guard guard(shared.lock);
    shared.lastError = text != nullptr && *text != '\0' ? text : natsStatus_GetText(status);
}

void noteBell(natsConnection* /*unused*/, natsSubscription* /*unused*/, natsMsg* message, void* closure) {
    const MessageHandle owned(message);
    const char* text = nullptr;
    std::uint64_t sequence = 0;
    if (natsMsgHeader_Get(message, JSSequence, &text) == NATS_OK) {
        const std::string_view digits(text);
        std::from_chars(digits.data(), digits.data() + digits.size(), sequence);
    }
    auto& shared = **static_cast<SharedHandle*>(closure);
    const std::lock_guard guard(shared.lock);
    if (shared.bell) {
        shared.bell(sequence);
    }
}

void dropShared(void* closure) {
    delete static_cast<SharedHandle*>(closure);
}

void dropSharedOfConnection(natsConnection* /*unused*/, void* closure) {
    dropShared(closure);
}

bool isDenied(natsStatus status, jsErrCode code) {
    switch (status) {
        case NATS_CONNECTION_AUTH_FAILED:
        case NATS_NOT_PERMITTED:
        case NATS_SSL_ERROR:
        case NATS_SECURE_CONNECTION_REQUIRED:
        case NATS_SECURE_CONNECTION_WANTED:
        case NATS_ADDRESS_MISSING:
        case NATS_INVALID_ARG:
            return true;
        default:
            return code == JSNotEnabledErr || code == JSNotEnabledForAccountErr || code == JSStreamSubjectOverlapErr ||
                   code == JSStreamReplicasNotSupportedErr || code == JSStorageResourcesExceededErr ||
                   code == JSStreamMessageExceedsMaximumErr || code == JSStreamInvalidConfig;
    }
}

class NatsLog : public Log {
public:
    explicit NatsLog(const Options& options)
        : options_(options),
          stream_(options.feed + "-v1"),
          logSubject_(options.feed + ".v1.log"),
          partSubject_(options.feed + ".v1.part"),
          bellSubject_(options.feed + ".v1.bell") {}
    ~NatsLog() override { close(); }

    Got last(Asked whom) override {
        return whom == Asked::Any
                   ? direct([this](jsDirectGetMsgOptions& get) { get.LastBySubject = logSubject_.c_str(); })
                   : lastOf(logSubject_);
    }
    Got next(std::uint64_t after) override {
        return direct([&](jsDirectGetMsgOptions& get) {
            get.Sequence = after + 1;
            get.NextBySubject = logSubject_.c_str();
        });
    }
    Got at(std::uint64_t sequence) override;
    Got part(const std::string& token, std::uint64_t index) override;
    Put prepare() override;
    Put putPart(const std::string& token, std::uint64_t index, const std::string& bytes) override;
    Put commit(const Headers& headers, const std::string& payload, const std::string& id,
               std::uint64_t expected) override;
    Put purgeBefore(std::uint64_t sequence) override;
    void listen(std::function<void(std::uint64_t)> bell) override;
    std::string server() const override;
    void close() override;

private:
    /// A connection with what is made of it. Shared by the calls under way: one that is given up lives until they have
    /// returned.
    struct Line {
        Connection connection;
        Context context;
        Subscription bell;
    };
    using LineHandle = std::shared_ptr<Line>;

    struct Failure {
        Reply reply;
        std::string reason;
    };

    LineHandle line(Failure& failure);
    LineHandle connect(Failure& failure);
    natsStatus setUp(natsOptions* options) const;
    void subscribe(Line& line) const;
    Failure failureOf(natsStatus status, jsErrCode code) const;
    template <class Fill>
    Got direct(Fill fill);
    Got lastOf(const std::string& subject);
    template <class Ask>
    Got got(Ask ask);
    template <class Ask>
    Put put(Ask ask);
    std::string partName(const std::string& token, std::uint64_t index) const {
        return fmt::format("{}.{}.{}", partSubject_, token, index);
    }

    const Options options_;
    const std::string stream_;
    const std::string logSubject_;
    const std::string partSubject_;
    const std::string bellSubject_;
    const SharedHandle shared_ = std::make_shared<Shared>();

    std::mutex connecting_;  // one connects at a time
    mutable std::mutex lock_;
    LineHandle line_;
    bool closed_ = false;
};

natsStatus NatsLog::setUp(natsOptions* options) const {
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
    const auto text = [](const std::string& value) { return value.empty() ? nullptr : value.c_str(); };
    with(true, [&] { return natsOptions_SetTimeout(options, kConnectMs); });
    with(true, [&] { return natsOptions_SetPingInterval(options, kPingMs); });
    with(true, [&] { return natsOptions_SetMaxPingsOut(options, kPingsUnanswered); });
    with(true, [&] { return natsOptions_SetMaxReconnect(options, -1); });
    with(true, [&] { return natsOptions_SetReconnectWait(options, kReconnectMs); });
    with(true, [&] { return natsOptions_SetReconnectJitter(options, kReconnectJitterMs, kReconnectJitterMs); });
    // A request that waits for a server that is gone ends at once, as does one of a connection that is closed.
    with(true, [&] { return natsOptions_SetFailRequestsOnDisconnect(options, true); });
    with(true, [&] { return natsOptions_SetSendAsap(options, true); });
    // Nothing waits in the library for a connection: what is asked meanwhile is answered with a failure.
    with(true, [&] { return natsOptions_SetReconnectBufSize(options, 0); });
    with(true, [&] {
        return natsOptions_SetRetryOnFailedConnect(
            options, true, [](natsConnection*, void*) {}, nullptr);
    });
    with(!options_.name.empty(), [&] { return natsOptions_SetName(options, options_.name.c_str()); });
    with(!options_.user.empty(),
         [&] { return natsOptions_SetUserInfo(options, options_.user.c_str(), options_.password.c_str()); });
    with(!options_.token.empty(), [&] { return natsOptions_SetToken(options, options_.token.c_str()); });
    with(!options_.credentialsFile.empty(),
         [&] { return natsOptions_SetUserCredentialsFromFiles(options, options_.credentialsFile.c_str(), nullptr); });
    with(options_.tls, [&] { return natsOptions_SetSecure(options, true); });
    with(!options_.caFile.empty(),
         [&] { return natsOptions_LoadCATrustedCertificates(options, options_.caFile.c_str()); });
    with(!options_.certificateFile.empty(), [&] {
        return natsOptions_LoadCertificatesChain(options, options_.certificateFile.c_str(), text(options_.keyFile));
    });
    return status;
}

NatsLog::Failure NatsLog::failureOf(natsStatus status, jsErrCode code) const {
    std::string reason = natsStatus_GetText(status);
    if (code != 0) {
        reason += fmt::format(" ({})", static_cast<int>(code));
    }
    // Refused permissions come as a remark on the connection; the request itself hears nothing.
    const std::lock_guard guard(shared_->lock);
    if (!shared_->lastError.empty()) {
        reason += ": " + shared_->lastError;
    }
    const bool refused = shared_->lastError.find("ermissions Violation") != std::string::npos ||
                         shared_->lastError.find("uthorization Violation") != std::string::npos;
    return {refused || isDenied(status, code) ? Reply::Denied : Reply::Unreachable, reason};
}

NatsLog::LineHandle NatsLog::connect(Failure& failure) {
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const OptionsHandle options(made);
    if (status == NATS_OK) {
        status = setUp(made);
    }
    auto* const errors = new SharedHandle(shared_);
    if (status == NATS_OK) {
        natsOptions_SetErrorHandler(made, noteError, errors);
        // The last that the library says of a connection, however it ends.
        status = natsOptions_SetClosedCB(made, dropSharedOfConnection, errors);
    }
    natsConnection* connection = nullptr;
    if (status == NATS_OK) {
        status = natsConnection_Connect(&connection, made);
    }
    const bool trying = status == NATS_NOT_YET_CONNECTED;
    if (status != NATS_OK && !trying) {
        failure = failureOf(status, static_cast<jsErrCode>(0));
        delete errors;
        return nullptr;
    }
    auto line = std::make_shared<Line>();
    line->connection.reset(connection);
    jsOptions waits;
    jsOptions_Init(&waits);
    waits.Wait = options_.requestTimeout.count();
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

void NatsLog::subscribe(Line& line) const {
    {
        const std::lock_guard guard(shared_->lock);
        if (!shared_->bell) {
            return;
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
/// credentials.
NatsLog::LineHandle NatsLog::line(Failure& failure) {
    const std::lock_guard one(connecting_);
    LineHandle line;
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
        if (closed_) {
            line_.reset();
            failure = {Reply::Unreachable, "closed"};
            return nullptr;
        }
    }
    const natsConnStatus status = natsConnection_Status(line->connection.get());
    if (status != NATS_CONN_STATUS_CONNECTED) {
        const char* text = nullptr;
        natsConnection_GetLastError(line->connection.get(), &text);
        const std::string_view reason = text != nullptr ? text : "";
        const bool refused = reason.find("uthorization") != std::string_view::npos;
        failure = {refused ? Reply::Denied : Reply::Unreachable,
                   fmt::format("not connected{}{}", reason.empty() ? "" : ": ", reason)};
        return nullptr;
    }
    return line;
}

template <class Ask>
Got NatsLog::got(Ask ask) {
    Got got;
    Failure failure;
    const LineHandle line = this->line(failure);
    if (!line) {
        got.reply = failure.reply;
        got.reason = failure.reason;
        return got;
    }
    natsMsg* message = nullptr;
    auto code = static_cast<jsErrCode>(0);
    const natsStatus status = ask(*line, &message, &code);
    const MessageHandle owned(message);
    if (status != NATS_OK) {
        const bool missing = status == NATS_NOT_FOUND || code == JSNoMessageFoundErr || code == JSStreamNotFoundErr;
        failure = missing ? Failure{Reply::Missing, "not there"} : failureOf(status, code);
        got.reply = failure.reply;
        got.reason = failure.reason;
        return got;
    }
    got.reply = Reply::Ok;
    got.message.sequence = natsMsg_GetSequence(message);
    got.message.payload.assign(natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    const char** keys = nullptr;
    int count = 0;
    if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            const char* value = nullptr;
            const std::string_view key = keys[i];
            const bool ours = key.substr(0, 4) == "Ins-" || key == kIdHeader;
            if (ours && natsMsgHeader_Get(message, keys[i], &value) == NATS_OK) {
                got.message.headers.emplace(key, value);
            }
        }
        free(keys);
    }
    const std::lock_guard guard(shared_->lock);
    shared_->lastError.clear();
    return got;
}

template <class Fill>
Got NatsLog::direct(Fill fill) {
    return got([&](Line& line, natsMsg** message, jsErrCode* /*code*/) {
        jsDirectGetMsgOptions get;
        jsDirectGetMsgOptions_Init(&get);
        fill(get);
        return js_DirectGetMsg(message, line.context.get(), stream_.c_str(), nullptr, &get);
    });
}

Got NatsLog::lastOf(const std::string& subject) {
    return got([&](Line& line, natsMsg** message, jsErrCode* code) {
        return js_GetLastMsg(message, line.context.get(), stream_.c_str(), subject.c_str(), nullptr, code);
    });
}

/// A replica may not have yet what a bell or another replica has told of; the leader has.
Got NatsLog::at(std::uint64_t sequence) {
    Got got = direct([&](jsDirectGetMsgOptions& get) { get.Sequence = sequence; });
    return got.reply != Reply::Missing ? got : this->got([&](Line& line, natsMsg** message, jsErrCode* code) {
        return js_GetMsg(message, line.context.get(), stream_.c_str(), sequence, nullptr, code);
    });
}

Got NatsLog::part(const std::string& token, std::uint64_t index) {
    const std::string subject = partName(token, index);
    Got got = direct([&](jsDirectGetMsgOptions& get) { get.LastBySubject = subject.c_str(); });
    return got.reply != Reply::Missing ? got : lastOf(subject);
}

template <class Ask>
Put NatsLog::put(Ask ask) {
    Put put;
    Failure failure;
    const LineHandle line = this->line(failure);
    if (!line) {
        put.reply = failure.reply;
        put.reason = failure.reason;
        return put;
    }
    auto code = static_cast<jsErrCode>(0);
    jsPubAck* answered = nullptr;
    const natsStatus status = ask(*line, &answered, &code);
    const Ack ack(answered);
    if (status != NATS_OK) {
        failure = failureOf(status, code);
        const bool conflict = code == JSStreamWrongLastSequenceErr;
        put.reply = conflict ? Reply::Conflict : failure.reply;
        put.reason = failure.reason;
        return put;
    }
    put.reply = Reply::Ok;
    put.sequence = answered != nullptr ? answered->Sequence : 0;
    return put;
}

Put NatsLog::prepare() {
    return put([this](Line& line, jsPubAck** /*ack*/, jsErrCode* code) {
        jsStreamInfo* info = nullptr;
        natsStatus status = js_GetStreamInfo(&info, line.context.get(), stream_.c_str(), nullptr, code);
        const Info owned(info);
        if (status == NATS_OK || *code != JSStreamNotFoundErr) {
            // The library's own word for it comes without a code.
            if (status != NATS_NOT_FOUND) {
                return status;
            }
        }
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        jsRePublish bell;
        jsRePublish_Init(&bell);
        bell.Source = logSubject_.c_str();
        bell.Destination = bellSubject_.c_str();
        bell.HeadersOnly = true;
        const std::string parts = partSubject_ + ".>";
        std::array<const char*, 2> subjects{logSubject_.c_str(), parts.c_str()};
        config.Name = stream_.c_str();
        config.Subjects = subjects.data();
        config.SubjectsLen = static_cast<int>(subjects.size());
        config.Storage = js_FileStorage;
        config.Replicas = options_.replicas;
        config.Duplicates = options_.duplicates.count() * kNanoseconds;
        config.AllowDirect = true;
        config.RePublish = &bell;
        status = js_AddStream(nullptr, line.context.get(), &config, nullptr, code);
        // Another publisher may have made it in between.
        return *code == JSStreamNameExistErr ? NATS_OK : status;
    });
}

Put NatsLog::putPart(const std::string& token, std::uint64_t index, const std::string& bytes) {
    const std::string subject = partName(token, index);
    const std::string id = fmt::format("{}-{}", token, index);
    return put([&](Line& line, jsPubAck** ack, jsErrCode* code) {
        jsPubOptions options;
        jsPubOptions_Init(&options);
        options.MsgId = id.c_str();
        return js_Publish(ack, line.context.get(), subject.c_str(), bytes.data(), static_cast<int>(bytes.size()),
                          &options, code);
    });
}

Put NatsLog::commit(const Headers& headers, const std::string& payload, const std::string& id, std::uint64_t expected) {
    return put([&](Line& line, jsPubAck** ack, jsErrCode* code) {
        natsMsg* made = nullptr;
        natsStatus status =
            natsMsg_Create(&made, logSubject_.c_str(), nullptr, payload.data(), static_cast<int>(payload.size()));
        const MessageHandle message(made);
        for (const auto& [name, value] : headers) {
            if (status == NATS_OK && name != kIdHeader) {
                status = natsMsgHeader_Set(made, name.c_str(), value.c_str());
            }
        }
        if (status != NATS_OK) {
            return status;
        }
        jsPubOptions options;
        jsPubOptions_Init(&options);
        options.MsgId = id.c_str();
        options.ExpectLastSubjectSeq = expected;
        options.ExpectNoMessage = expected == 0;
        return js_PublishMsg(ack, line.context.get(), made, &options, code);
    });
}

Put NatsLog::purgeBefore(std::uint64_t sequence) {
    if (sequence <= 1) {
        // Servers take "before the first message" for no bound at all, and remove everything.
        return {Reply::Ok, "", 0};
    }
    return put([&](Line& line, jsPubAck** /*ack*/, jsErrCode* code) {
        jsOptions options;
        jsOptions_Init(&options);
        options.Wait = options_.requestTimeout.count();
        options.Stream.Purge.Sequence = sequence;
        return js_PurgeStream(line.context.get(), stream_.c_str(), &options, code);
    });
}

void NatsLog::listen(std::function<void(std::uint64_t)> bell) {
    const std::lock_guard guard(shared_->lock);
    shared_->bell = std::move(bell);
}

std::string NatsLog::server() const {
    LineHandle line;
    {
        const std::lock_guard guard(lock_);
        line = line_;
    }
    std::array<char, kUrlBytes> url{};
    const bool connected =
        line && natsConnection_GetConnectedUrl(line->connection.get(), url.data(), url.size()) == NATS_OK;
    return connected ? url.data() : "";
}

void NatsLog::close() {
    LineHandle line;
    {
        const std::lock_guard guard(lock_);
        closed_ = true;
        line = std::move(line_);
    }
    if (line) {
        natsConnection_Close(line->connection.get());
    }
    // From here on nobody is called: whoever owns the bell may be gone when this returns.
    const std::lock_guard guard(shared_->lock);
    shared_->bell = nullptr;
}

}  // namespace

std::shared_ptr<Log> makeNatsLog(const Options& options) {
    return std::make_shared<NatsLog>(options);
}

}  // namespace mxservice::feed
