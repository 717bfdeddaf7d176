#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "feed/Log.h"

namespace mxservice::feed {

/// A stream as a server keeps it, with its rules: sequences, ids that are known again, the expected last message.
struct MemoryStream {
    struct Stored {
        std::string subject;
        Headers headers;
        std::string payload;
    };
    std::mutex lock;
    bool exists = false;
    std::uint64_t last = 0;
    std::map<std::uint64_t, Stored> messages;
    std::map<std::string, std::uint64_t> sequenceById;
    std::map<int, std::function<void(std::uint64_t)>> bells;

    void wipe() {
        exists = false;
        last = 0;
        messages.clear();
        sequenceById.clear();
    }
    /// A power cut that cost the end.
    void forgetAfter(std::uint64_t sequence) {
        messages.erase(messages.upper_bound(sequence), messages.end());
        last = sequence;
    }
    std::uint64_t lastLog() const {
        for (auto at = messages.rbegin(); at != messages.rend(); ++at) {
            if (at->second.subject == "log") {
                return at->first;
            }
        }
        return 0;
    }
};

/// A connection to such a stream, failing on demand.
class MemoryLog : public Log {
public:
    explicit MemoryLog(std::shared_ptr<MemoryStream> stream) : stream_(std::move(stream)) {}

    enum class Fault { None, Unanswered, AnswerLost };
    /// Asked for each call.
    std::function<Fault()> fault;
    /// Log messages that a replica asked instead of the leader does not have yet.
    std::function<std::uint64_t()> lag;
    bool bells = true;

    Got last(Asked whom) override {
        return get([&] {
            std::uint64_t found = 0;
            for (const auto& [sequence, stored] : stream_->messages) {
                found = stored.subject == "log" && (whom == Asked::Leader || visible(sequence)) ? sequence : found;
            }
            return found;
        });
    }
    Got next(std::uint64_t after) override {
        return get([&]() -> std::uint64_t {
            for (auto at = stream_->messages.upper_bound(after); at != stream_->messages.end(); ++at) {
                if (at->second.subject == "log" && visible(at->first)) {
                    return at->first;
                }
            }
            return 0;
        });
    }
    Got at(std::uint64_t sequence) override {
        return get([&] { return stream_->messages.count(sequence) != 0 ? sequence : 0; });
    }
    Got part(const std::string& token, std::uint64_t index) override {
        return get([&]() -> std::uint64_t {
            for (const auto& [sequence, stored] : stream_->messages) {
                if (stored.subject == token + "." + std::to_string(index)) {
                    return sequence;
                }
            }
            return 0;
        });
    }
    Put prepare() override {
        return put([&](Put& /*put*/) { stream_->exists = true; });
    }
    Put putPart(const std::string& token, std::uint64_t index, const std::string& bytes) override {
        const std::string name = token + "." + std::to_string(index);
        return put([&](Put& put) { store(put, name, name, {}, bytes); });
    }
    Put commit(const Headers& headers, const std::string& payload, const std::string& id,
               std::uint64_t expected) override {
        const Put answer = put([&](Put& put) {
            // Servers differ in which of the two they look at first; this way round nobody is told of a duplicate.
            if (stream_->exists && stream_->lastLog() != expected) {
                put.reply = Reply::Conflict;
                return;
            }
            store(put, id, "log", headers, payload);
        });
        ring(answer.sequence);
        return answer;
    }
    Put purgeBefore(std::uint64_t sequence) override {
        return put([&](Put& /*put*/) {
            stream_->messages.erase(stream_->messages.begin(), stream_->messages.lower_bound(sequence));
        });
    }
    void listen(std::function<void(std::uint64_t)> bell) override {
        const std::lock_guard guard(stream_->lock);
        static int number = 0;
        stream_->bells[number_ = ++number] = std::move(bell);
    }
    std::string server() const override { return "memory"; }
    void close() override {
        const std::lock_guard guard(stream_->lock);
        stream_->bells.erase(number_);
    }

private:
    bool visible(std::uint64_t sequence) const {
        std::uint64_t behind = 0;
        for (auto at = stream_->messages.upper_bound(sequence); at != stream_->messages.end(); ++at) {
            behind += at->second.subject == "log" ? 1U : 0U;
        }
        return behind >= (lag ? lag() : 0);
    }
    template <class Find>
    Got get(Find find) {
        const std::lock_guard guard(stream_->lock);
        Got got;
        if (fault && fault() != Fault::None) {
            got.reason = "no answer";
            return got;
        }
        const std::uint64_t sequence = find();
        got.reply = sequence == 0 ? Reply::Missing : Reply::Ok;
        if (sequence != 0) {
            const auto& stored = stream_->messages.at(sequence);
            got.message = {sequence, stored.headers, stored.payload};
        }
        return got;
    }
    template <class Do>
    Put put(Do what) {
        const std::lock_guard guard(stream_->lock);
        const Fault fails = fault ? fault() : Fault::None;
        Put put;
        put.reason = "no answer";
        if (fails == Fault::Unanswered) {
            return put;
        }
        Put done;
        done.reply = Reply::Ok;
        what(done);
        return fails == Fault::AnswerLost ? put : done;
    }
    void store(Put& put, const std::string& id, const std::string& subject, const Headers& headers,
               const std::string& payload) {
        if (!stream_->exists) {
            put.reply = Reply::Unreachable;
            return;
        }
        const auto [known, fresh] = stream_->sequenceById.try_emplace(id, stream_->last + 1);
        if (fresh) {
            stream_->messages[++stream_->last] = {subject, headers, payload};
        }
        put.sequence = known->second;
    }
    void ring(std::uint64_t sequence) {
        if (sequence == 0 || !bells) {
            return;
        }
        const std::lock_guard guard(stream_->lock);
        for (const auto& [number, bell] : stream_->bells) {
            bell(sequence);
        }
    }

    const std::shared_ptr<MemoryStream> stream_;
    int number_ = 0;
};

}  // namespace mxservice::feed
