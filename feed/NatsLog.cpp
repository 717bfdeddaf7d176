#include "feed/NatsLog.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
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
    void listen(std::function<void(std::uint64_t)> bell) override { lines_.listen(std::move(bell)); }
    std::string server() const override { return lines_.server(); }
    void close() override { lines_.close(); }

private:
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
    NatsLines lines_;
};

/// Got or Put that says why there is nothing.
template <class Answer>
Answer failed(const NatsFailure& failure) {
    Answer answer;
    answer.reply = failure.reply;
    answer.reason = failure.reason;
    return answer;
}

template <class Ask>
Got NatsLog::got(Ask ask) {
    NatsFailure failure;
    const NatsLineHandle line = lines_.get(failure);
    if (!line) {
        return failed<Got>(failure);
    }
    natsMsg* message = nullptr;
    auto code = static_cast<jsErrCode>(0);
    const natsStatus status = ask(*line, &message, &code);
    const NatsMessage owned(message);
    if (status != NATS_OK) {
        // Without the stream nobody has published, either: who follows waits for a day, who publishes makes the stream.
        const bool missing = status == NATS_NOT_FOUND || code == JSNoMessageFoundErr || code == JSStreamNotFoundErr;
        return failed<Got>(missing ? NatsFailure{Reply::Missing, "not there"} : lines_.failureOf(status, code));
    }
    Got got;
    got.reply = Reply::Ok;
    got.message.sequence = natsMsg_GetSequence(message);
    got.message.payload.assign(natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message)));
    const char** keys = nullptr;
    int count = 0;
    if (natsMsgHeader_Keys(message, &keys, &count) == NATS_OK) {
        for (int i = 0; i < count; ++i) {
            const char* value = nullptr;
            const std::string_view key = keys[i];
            // What servers add differs by the way of asking; cache files keep what the publisher wrote.
            if (key.substr(0, 4) == "Ins-" && natsMsgHeader_Get(message, keys[i], &value) == NATS_OK) {
                got.message.headers.emplace(key, value);
            }
        }
        free(keys);  // the list alone is ours, its texts are the message's
    }
    lines_.answered();
    return got;
}

template <class Fill>
Got NatsLog::direct(Fill fill) {
    return got([&](NatsLine& line, natsMsg** message, jsErrCode* /*code*/) {
        jsDirectGetMsgOptions get;
        jsDirectGetMsgOptions_Init(&get);
        fill(get);
        const natsStatus status = js_DirectGetMsg(message, line.context.get(), stream_.c_str(), nullptr, &get);
        // Nobody listens: there is no such stream, or none of its replicas is ready. Whoever cares asks the leader.
        return status == NATS_NO_RESPONDERS ? NATS_NOT_FOUND : status;
    });
}

/// Of the leader, which alone knows for sure that there is none.
Got NatsLog::lastOf(const std::string& subject) {
    return got([&](NatsLine& line, natsMsg** message, jsErrCode* code) {
        return js_GetLastMsg(message, line.context.get(), stream_.c_str(), subject.c_str(), nullptr, code);
    });
}

/// A replica may not have yet what a bell or another replica has told of; the leader has.
Got NatsLog::at(std::uint64_t sequence) {
    Got got = direct([&](jsDirectGetMsgOptions& get) { get.Sequence = sequence; });
    return got.reply != Reply::Missing ? got : this->got([&](NatsLine& line, natsMsg** message, jsErrCode* code) {
        return js_GetMsg(message, line.context.get(), stream_.c_str(), sequence, nullptr, code);
    });
}

/// By its subject: the sequences that acknowledgements tell are not reliable where a cluster takes a duplicate. A bell
/// may ring before every replica has the parts, so one that lacks one is no proof, as above.
Got NatsLog::part(const std::string& token, std::uint64_t index) {
    const std::string subject = partName(token, index);
    Got got = direct([&](jsDirectGetMsgOptions& get) { get.LastBySubject = subject.c_str(); });
    return got.reply != Reply::Missing ? got : lastOf(subject);
}

template <class Ask>
Put NatsLog::put(Ask ask) {
    NatsFailure failure;
    const NatsLineHandle line = lines_.get(failure);
    if (!line) {
        return failed<Put>(failure);
    }
    auto code = static_cast<jsErrCode>(0);
    jsPubAck* answered = nullptr;
    const natsStatus status = ask(*line, &answered, &code);
    const NatsAck ack(answered);
    if (status != NATS_OK) {
        failure = lines_.failureOf(status, code);
        if (code == JSStreamWrongLastSequenceErr) {
            failure.reply = Reply::Conflict;
        }
        return failed<Put>(failure);
    }
    lines_.answered();
    return {Reply::Ok, "", answered != nullptr ? answered->Sequence : 0};  // only messages are acknowledged with one
}

/// A stream that is there stays as it is: what an operator has set on it (replicas, limits, placement) wins.
Put NatsLog::prepare() {
    return put([this](NatsLine& line, jsPubAck** /*ack*/, jsErrCode* code) {
        jsStreamInfo* info = nullptr;
        natsStatus status = js_GetStreamInfo(&info, line.context.get(), stream_.c_str(), nullptr, code);
        const NatsInfo owned(info);
        // The library's own word for it comes without a code.
        if (status != NATS_NOT_FOUND && *code != JSStreamNotFoundErr) {
            return status;
        }
        jsStreamConfig config;
        jsStreamConfig_Init(&config);
        jsRePublish bell;
        jsRePublish_Init(&bell);
        bell.Source = logSubject_.c_str();
        bell.Destination = bellSubject_.c_str();
        bell.HeadersOnly = true;  // hosts need no more than the sequence: what is new they ask for, as when they start
        const std::string parts = partSubject_ + ".>";
        std::array<const char*, 2> subjects{logSubject_.c_str(), parts.c_str()};
        config.Name = stream_.c_str();
        config.Subjects = subjects.data();
        config.SubjectsLen = static_cast<int>(subjects.size());
        config.Storage = js_FileStorage;
        config.Replicas = options_.replicas;
        config.Duplicates = options_.duplicates.count() * kNanoseconds;
        config.AllowDirect = true;  // any replica answers hosts, so that the leader does not serve them all
        config.RePublish = &bell;
        status = js_AddStream(nullptr, line.context.get(), &config, nullptr, code);
        // Another publisher may have made it in between.
        return *code == JSStreamNameExistErr ? NATS_OK : status;
    });
}

/// Without an expectation: parts of several publishers may lie between each other, only log messages are in order.
Put NatsLog::putPart(const std::string& token, std::uint64_t index, const std::string& bytes) {
    const std::string subject = partName(token, index);
    const std::string id = fmt::format("{}-{}", token, index);
    return put([&](NatsLine& line, jsPubAck** ack, jsErrCode* code) {
        jsPubOptions options;
        jsPubOptions_Init(&options);
        options.MsgId = id.c_str();
        return js_Publish(ack, line.context.get(), subject.c_str(), bytes.data(), static_cast<int>(bytes.size()),
                          &options, code);
    });
}

Put NatsLog::commit(const Headers& headers, const std::string& payload, const std::string& id, std::uint64_t expected) {
    return put([&](NatsLine& line, jsPubAck** ack, jsErrCode* code) {
        natsMsg* made = nullptr;
        natsStatus status =
            natsMsg_Create(&made, logSubject_.c_str(), nullptr, payload.data(), static_cast<int>(payload.size()));
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
        // Of the subject, not of the stream: the parts of this commit came in between. 0 means no expectation to the
        // library, so that the first commit of all has to be told otherwise, or two publishers would both begin a log.
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
    return put([&](NatsLine& line, jsPubAck** /*ack*/, jsErrCode* code) {
        jsOptions options;
        jsOptions_Init(&options);
        options.Stream.Purge.Sequence = sequence;
        return js_PurgeStream(line.context.get(), stream_.c_str(), &options, code);
    });
}

}  // namespace

std::shared_ptr<Log> makeNatsLog(const Options& options) {
    return std::make_shared<NatsLog>(options);
}

}  // namespace mxservice::feed
