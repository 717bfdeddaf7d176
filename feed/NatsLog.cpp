#include "feed/NatsLog.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "feed/NatsLines.h"

namespace mxservice::feed {
namespace {

constexpr std::int64_t kNanoseconds = 1000000;  // a millisecond

class NatsLog : public Log {
public:
    explicit NatsLog(const Options& options)
        : options_(options),
          stream_(options.feed + "-v1"),
          logSubject_(options.feed + ".v1.log"),
          partSubject_(options.feed + ".v1.part"),
          bellSubject_(options.feed + ".v1.bell"),
          lines_(options, bellSubject_) {}

    Got last(Asked whom) override {
        return whom == Asked::Any ? direct([subject = logSubject_](jsDirectGetMsgOptions& get) {
            get.LastBySubject = subject.c_str();
        })
                                  : lastOf(logSubject_);
    }
    Got next(std::uint64_t after) override {
        return direct([after, subject = logSubject_](jsDirectGetMsgOptions& get) {
            get.Sequence = after + 1;
            get.NextBySubject = subject.c_str();
        });
    }
    Got at(std::uint64_t sequence) override;
    Got part(const std::string& token, std::uint64_t index) override;
    Put prepare() override;
    Put putPart(const std::string& token, std::uint64_t index, const std::string& bytes) override;
    Put commit(const Headers& headers, const std::string& payload, const std::string& id,
               std::uint64_t expected) override;
    Put purgeBefore(std::uint64_t sequence) override;
    void listen(std::function<void(std::uint64_t)> bell) override { lines_.listen(std::move(bell)); }
    std::string server() const override { return lines_.server(); }
    void close() override { lines_.close(); }

private:
    // Calls of the library, which may outlive this object: they own what they touch.
    using Ask = std::function<natsStatus(jsCtx* context, natsMsg** message, jsErrCode* code)>;
    using Send = std::function<natsStatus(jsCtx* context, jsPubAck** ack, jsErrCode* code)>;

    Got direct(std::function<void(jsDirectGetMsgOptions&)> fill);
    Got lastOf(const std::string& subject);
    Got got(Ask ask);
    Put put(Send send);
    Put checkStream();
    Put makeStream();
    std::string partName(const std::string& token, std::uint64_t index) const {
        return fmt::format("{}.{}.{}", partSubject_, token, index);
    }

    const Options options_;
    const std::string stream_;
    const std::string logSubject_;
    const std::string partSubject_;
    const std::string bellSubject_;
    NatsLines lines_;
};

Message messageOf(natsMsg* message) {
    Message made;
    made.sequence = natsMsg_GetSequence(message);
    made.payload.assign(natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    const char** keys = nullptr;
    int count = 0;
    if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            const char* value = nullptr;
            const std::string_view key = keys[i];
            // What servers add differs by the way of asking; cache files keep what the publisher wrote.
            if (key.substr(0, 4) == "Ins-" && natsMsgHeader_Get(message, keys[i], &value) == NATS_OK) {
                made.headers.emplace(key, value);
            }
        }
        free(keys);  // the list alone is ours, its texts are the message's
    }
    return made;
}

Got NatsLog::got(Ask ask) {
    const auto message = std::make_shared<Message>();
    const NatsHeard heard = lines_.ask([ask = std::move(ask), message](const NatsLine& line, jsErrCode& code) {
        natsMsg* answer = nullptr;
        const natsStatus status = ask(line.context.get(), &answer, &code);
        const NatsMessage owned(answer);
        if (status == NATS_OK) {
            *message = messageOf(answer);
        }
        return status;
    });
    if (heard.status == NATS_OK) {
        return {Reply::Ok, "", std::move(*message)};
    }
    // Without the stream nobody has published, either: who follows waits for a day, who publishes makes the stream.
    const bool missing =
        heard.status == NATS_NOT_FOUND || heard.code == JSNoMessageFoundErr || heard.code == JSStreamNotFoundErr;
    return missing ? Got{Reply::Missing, "not there", {}} : Got{heard.failure.reply, heard.failure.reason, {}};
}

Got NatsLog::direct(std::function<void(jsDirectGetMsgOptions&)> fill) {
    return got([stream = stream_, fill = std::move(fill)](jsCtx* context, natsMsg** message, jsErrCode* /*code*/) {
        jsDirectGetMsgOptions get;
        jsDirectGetMsgOptions_Init(&get);
        fill(get);
        const natsStatus status = js_DirectGetMsg(message, context, stream.c_str(), nullptr, &get);
        // Nobody listens: there is no such stream, or none of its replicas is ready. Whoever cares asks the leader.
        return status == NATS_NO_RESPONDERS ? NATS_NOT_FOUND : status;
    });
}

/// Of the leader, which alone knows for sure that there is none.
Got NatsLog::lastOf(const std::string& subject) {
    return got([stream = stream_, subject](jsCtx* context, natsMsg** message, jsErrCode* code) {
        return js_GetLastMsg(message, context, stream.c_str(), subject.c_str(), nullptr, code);
    });
}

/// A replica may not have yet what a bell or another replica has told of; the leader has.
Got NatsLog::at(std::uint64_t sequence) {
    Got got = direct([sequence](jsDirectGetMsgOptions& get) { get.Sequence = sequence; });
    return got.reply != Reply::Missing
               ? got
               : this->got([stream = stream_, sequence](jsCtx* context, natsMsg** message, jsErrCode* code) {
                     return js_GetMsg(message, context, stream.c_str(), sequence, nullptr, code);
                 });
}

/// By its subject: the sequences that acknowledgements tell are not reliable where a cluster takes a duplicate. A bell
/// may ring before every replica has the parts, so one that lacks one is no proof, as above.
Got NatsLog::part(const std::string& token, std::uint64_t index) {
    const std::string subject = partName(token, index);
    Got got = direct([subject](jsDirectGetMsgOptions& get) { get.LastBySubject = subject.c_str(); });
    return got.reply != Reply::Missing ? got : lastOf(subject);
}

Put NatsLog::put(Send send) {
    const auto sequence = std::make_shared<std::uint64_t>(0);
    const NatsHeard heard = lines_.ask([send = std::move(send), sequence](const NatsLine& line, jsErrCode& code) {
        jsPubAck* answered = nullptr;
        const natsStatus status = send(line.context.get(), &answered, &code);
        const NatsAck ack(answered);
        *sequence = answered != nullptr ? answered->Sequence : 0;  // only messages are acknowledged with one
        return status;
    });
    if (heard.status == NATS_OK) {
        return {Reply::Ok, "", *sequence};
    }
    return {heard.code == JSStreamWrongLastSequenceErr ? Reply::Conflict : heard.failure.reply, heard.failure.reason,
            0};
}

Put NatsLog::prepare() {
    Put there = checkStream();
    return there.reply == Reply::Missing ? makeStream() : there;
}

/// A stream that is there stays as it is: what an operator has set on it (replicas, limits, placement) wins. Where it
/// lacks what hosts cannot do without, it is for the operator to say so, too: an update would have to send back every
/// option of a server that may know more of them than this library.
Put NatsLog::checkStream() {
    struct Lacks {
        bool direct = false;
        bool bell = false;
    };
    const auto lacks = std::make_shared<Lacks>();
    const NatsHeard heard =
        lines_.ask([stream = stream_, bell = bellSubject_, lacks](const NatsLine& line, jsErrCode& code) {
            jsStreamInfo* info = nullptr;
            const natsStatus status = js_GetStreamInfo(&info, line.context.get(), stream.c_str(), nullptr, &code);
            const NatsInfo owned(info);
            if (status == NATS_OK) {
                const jsRePublish* const again = info->Config->RePublish;
                lacks->direct = !info->Config->AllowDirect;
                lacks->bell = again == nullptr || again->Destination == nullptr || bell != again->Destination;
            }
            return status;
        });
    // The library's own word for it comes without a code.
    if (heard.status == NATS_NOT_FOUND || heard.code == JSStreamNotFoundErr) {
        return {Reply::Missing, "not there", 0};
    }
    if (heard.status != NATS_OK) {
        return {heard.failure.reply, heard.failure.reason, 0};
    }
    if (lacks->direct || lacks->bell) {
        return {Reply::Denied,
                fmt::format("the stream {} is there, but was not made for a feed:{}{}", stream_,
                            lacks->direct ? " hosts cannot read it without allow_direct;" : "",
                            lacks->bell ? fmt::format(" no bell rings unless {} is republished, headers only, as {};",
                                                      logSubject_, bellSubject_)
                                        : "") +
                    " set that, or remove the stream",
                0};
    }
    return {Reply::Ok, "", 0};
}

Put NatsLog::makeStream() {
    return put([stream = stream_, log = logSubject_, parts = partSubject_ + ".>", rings = bellSubject_,
                replicas = options_.replicas, duplicates = options_.duplicates.count() * kNanoseconds](
                   jsCtx* context, jsPubAck** /*ack*/, jsErrCode* code) {
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        jsRePublish bell;
        jsRePublish_Init(&bell);
        bell.Source = log.c_str();
        bell.Destination = rings.c_str();
        bell.HeadersOnly = true;  // hosts need no more than the sequence: what is new they ask for, as when they start
        std::array<const char*, 2> subjects{log.c_str(), parts.c_str()};
        config.Name = stream.c_str();
        config.Subjects = subjects.data();
        config.SubjectsLen = static_cast<int>(subjects.size());
        config.Storage = js_FileStorage;
        config.Replicas = replicas;
        config.Duplicates = duplicates;
        config.AllowDirect = true;  // any replica answers hosts, so that the leader does not serve them all
        config.RePublish = &bell;
        const natsStatus status = js_AddStream(nullptr, context, &config, nullptr, code);
        // Another publisher may have made it in between.
        return *code == JSStreamNameExistErr ? NATS_OK : status;
    });
}

/// Without an expectation: parts of several publishers may lie between each other, only log messages are in order.
Put NatsLog::putPart(const std::string& token, std::uint64_t index, const std::string& bytes) {
    return put([subject = partName(token, index), id = fmt::format("{}-{}", token, index), bytes](
                   jsCtx* context, jsPubAck** ack, jsErrCode* code) {
        jsPubOptions options;
        jsPubOptions_Init(&options);
        options.MsgId = id.c_str();
        return js_Publish(ack, context, subject.c_str(), bytes.data(), static_cast<int>(bytes.size()), &options, code);
    });
}

Put NatsLog::commit(const Headers& headers, const std::string& payload, const std::string& id, std::uint64_t expected) {
    return put(
        [subject = logSubject_, headers, payload, id, expected](jsCtx* context, jsPubAck** ack, jsErrCode* code) {
            natsMsg* made = nullptr;
            natsStatus status =
                natsMsg_Create(&made, subject.c_str(), nullptr, payload.data(), static_cast<int>(payload.size()));
            const NatsMessage message(made);
            for (const auto& [name, value] : headers) {
                if (status == NATS_OK) {
                    status = natsMsgHeader_Set(made, name.c_str(), value.c_str());
                }
            }
            if (status != NATS_OK) {
                return status;
            }
            jsPubOptions options;
            jsPubOptions_Init(&options);
            options.MsgId = id.c_str();
            // Of the subject, not of the stream: the parts of this commit came in between. 0 means no expectation to
            // the library, so that the first commit of all has to be told otherwise, or two publishers would both begin
            // a log.
            options.ExpectLastSubjectSeq = expected;
            options.ExpectNoMessage = expected == 0;
            return js_PublishMsg(ack, context, made, &options, code);
        });
}

Put NatsLog::purgeBefore(std::uint64_t sequence) {
    if (sequence <= 1) {
        // Servers take "before the first message" for no bound at all, and remove everything.
        return {Reply::Ok, "", 0};
    }
    return put([stream = stream_, sequence](jsCtx* context, jsPubAck** /*ack*/, jsErrCode* code) {
        jsOptions options;
        jsOptions_Init(&options);
        options.Stream.Purge.Sequence = sequence;
        return js_PurgeStream(context, stream.c_str(), &options, code);
    });
}

}  // namespace

std::shared_ptr<Log> makeNatsLog(const Options& options) {
    return std::make_shared<NatsLog>(options);
}

}  // namespace mxservice::feed
