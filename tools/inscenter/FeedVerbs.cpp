#include "tools/inscenter/FeedVerbs.h"

#include <fmt/format.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <mutex>
#include <system_error>
#include <thread>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "feed/Feed.h"
#include "tools/inscenter/ExitCodes.h"
#include "tools/inscenter/Interruption.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

namespace feed = mxservice::feed;

constexpr std::chrono::seconds kPatience{10};           // with a server that starts, or a cluster that elects
constexpr std::chrono::milliseconds kBetweenLooks{50};  // at Ctrl-C, which wakes nobody

FeedQuery& accessOfReading() {
    static FeedQuery kept;
    return kept;
}

/// In a file, because everybody on the machine sees the words of a command.
std::string passwordOf(const FeedQuery& query) {
    if (query.user.empty() != query.passwordFile.empty()) {
        throw UnreadableInput("--user and --password-file need each other");
    }
    std::string password;
    if (!query.user.empty()) {
        errno = 0;
        std::ifstream file(pathOf(query.passwordFile));
        if (!std::getline(file, password)) {
            throw UnreadableInput(fmt::format("{}: no password can be read: {}", query.passwordFile,
                                              errno == 0 ? "it is empty" : std::generic_category().message(errno)));
        }
        password.erase(password.find_last_not_of('\r') + 1);
    }
    return password;
}

feed::Options optionsOf(const FeedQuery& query) {
    feed::Options options;
    if (!query.servers.empty()) {
        options.servers = query.servers;
    }
    options.feed = query.feed;
    options.name = "inscenter";
    options.user = query.user;
    options.password = passwordOf(query);
    options.credentialsFile = query.credentials;
    options.caFile = query.authority;
    options.replicas = query.replicas;
    return options;
}

Table tableOf(const feed::Revision& revision) {
    return {{"tradingDay", "revision", "epoch", "sequence", "digest"},
            {{revision.tradingDay, static_cast<std::int64_t>(revision.number), revision.epoch,
              static_cast<std::int64_t>(revision.sequence), revision.digest}}};
}

/// Reads what is to be published. Whoever publishes does so for every host, so that half a file is refused.
ReadReport readWhole(const FeedQuery& query, Snapshot& snapshot, Console& console) {
    ReadReport read = readSnapshot(query.source, snapshot, console);
    if (read.skipped > 0 && !query.despiteIssues) {
        throw UnreadableInput(
            fmt::format("{}: not published, because {} of its lines and files had to be skipped (see above); "
                        "--despite-issues publishes the others",
                        snapshotName(query.source), read.skipped));
    }
    return read;
}

int finish(const feed::Outcome& outcome, std::uint64_t skipped, Output& output, Console& console) {
    if (!outcome) {
        console.message("not published: " + outcome.reason);
        return exitcode::kUnwritten;
    }
    output.table(tableOf(outcome.revision), "");
    return skipped > 0 ? exitcode::kSkipped : exitcode::kAnswered;
}

/// One event as a line, at once: for people words, for programs the same columns each time. Safe from any thread.
class EventLines {
public:
    explicit EventLines(Output& output) : output_(output) { output_.head(columns_); }

    void add(const std::string& event, const feed::Revision& revision, const std::string& key,
             const std::string& text) {
        const std::lock_guard guard(mutex_);
        write({event, revision.tradingDay, std::to_string(revision.number), key, text});
    }

    /// Nothing where it was told already.
    void addState(feed::State state, const feed::Revision& revision, const std::string& reason) {
        const std::lock_guard guard(mutex_);
        tell(state, revision, reason);
    }

    /// What no handler hears: the state that a subscriber begins with, and one that came before there was a handler.
    void lookAt(const feed::Subscriber& subscriber) {
        const std::lock_guard guard(mutex_);  // first, or what is told may be older than what a handler told
        const feed::Health health = subscriber.health();
        const bool good = health.state == feed::State::Current || health.state == feed::State::Loading;
        tell(health.state, health.revision, good ? "" : health.lastFailure);
    }

private:
    void tell(feed::State state, const feed::Revision& revision, const std::string& reason) {
        // There is nothing to say of the beginning until the first look at the log has brought nothing.
        const bool begins = state == feed::State::Connecting;
        if (begins ? reason.empty() || told_ == reason : told_ == feed::stateName(state)) {
            return;
        }
        told_ = begins ? reason : feed::stateName(state);
        write({feed::stateName(state), revision.tradingDay, std::to_string(revision.number), "", reason});
    }

    void write(const std::vector<Cell>& cells) {
        if (output_.format() != Format::Table) {
            output_.row(columns_, cells);
        } else {
            std::string line;
            for (const Cell& cell : cells) {
                const std::string word = cellText(cell, "");
                line += (line.empty() || word.empty() ? "" : "  ") + word;
            }
            output_.line(line);
        }
        output_.flush();  // the next event may be hours away
    }

    const std::vector<std::string> columns_{"event", "tradingDay", "revision", "key", "text"};
    Output& output_;
    std::mutex mutex_;
    std::string told_;  ///< the last state; of Connecting, why
};

/// Told as one event what many records would bury.
void addChanges(const mxservice::CatalogueChange& change, const feed::Revision& revision, EventLines& lines) {
    constexpr std::size_t kMost = 100;
    for (std::size_t i = 0; i < change.instruments.size() && i < kMost; ++i) {
        const auto& [before, after] = change.instruments[i];
        const auto& record = after ? after : before;
        lines.add(!before  ? "listed"
                  : !after ? "delisted"
                           : "changed",
                  revision, record->getKey(),
                  before && after ? fmt::format("{}", fmt::join(mxservice::changedFields(*before, *after), " "))
                                  : record->name);
    }
    if (change.instruments.size() > kMost) {
        lines.add("more", revision, "", fmt::format("{} other instruments", change.instruments.size() - kMost));
    }
}

}  // namespace

int publishDay(const FeedQuery& query, Output& output, Console& console) {
    Snapshot snapshot;
    const ReadReport read = readWhole(query, snapshot, console);
    const std::string day = query.day.empty() ? tradingDayOf(snapshot) : query.day;
    // Never guessed: under too late a day it could not be taken back, because the log refuses earlier ones.
    if (day.empty()) {
        throw UnreadableInput("the records name no trading day, or several; --day names the one to publish");
    }
    feed::Publisher publisher(optionsOf(query));
    return finish(publisher.publish(day, feed::Day::of(snapshot)), read.skipped, output, console);
}

int publishChanges(const FeedQuery& query, Output& output, Console& console) {
    feed::Change change;
    ReadReport read;
    if (!query.source.empty()) {
        Snapshot snapshot;
        read = readWhole(query, snapshot, console);
        std::string others;
        for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
            const std::size_t count = snapshot.records(catalogue).size();
            if (catalogue != SnapshotCatalogue::Instruments && count > 0) {
                others += fmt::format("{}{} {}", others.empty() ? "" : ", ", count, catalogueName(catalogue));
            }
        }
        if (!others.empty()) {
            throw UnreadableInput(
                fmt::format("{}: a change is of instruments alone, and there are also {}; a day has all",
                            snapshotName(query.source), others));
        }
        change.upserts = snapshot.instruments;
    }
    change.removedKeys = query.removed;
    if (change.upserts.empty() && change.removedKeys.empty()) {
        throw UnreadableInput("neither an instrument to put nor a key to remove");
    }
    feed::Publisher publisher(optionsOf(query));
    return finish(publisher.apply(change), read.skipped, output, console);
}

int watchFeed(const FeedQuery& query, Output& output, Console& /*console*/) {
    const Interruption interruption;
    EventLines lines(output);
    std::atomic<std::size_t> revisions{0};
    mxservice::CServerInstrumentCenter center("inscenter");
    std::vector<mxservice::CatalogueChange> told;
    const auto changes = center.subscribe([&](const mxservice::CatalogueChange& change) { told.push_back(change); });
    feed::Subscriber subscriber(center, optionsOf(query));
    // But for states, all of it on the subscriber's thread, so that lines stand in the order of what they tell.
    const auto states = subscriber.onState(
        [&](feed::State state, const std::string& reason) { lines.addState(state, subscriber.revision(), reason); });
    const auto days = subscriber.onChange([&](const feed::Revision& revision) {
        if (query.count && revisions >= *query.count) {  // another one, before the thread below has looked
            return;
        }
        lines.add("revision", revision, "", revision.digest);
        // Of the first day everything is new.
        for (std::size_t i = 0; i < told.size() && revisions > 0; ++i) {
            addChanges(told[i], revision, lines);
        }
        told.clear();
        ++revisions;
    });
    while (!Interruption::happened() && !(query.count && revisions >= *query.count)) {
        lines.lookAt(subscriber);
        std::this_thread::sleep_for(kBetweenLooks);
    }
    return exitcode::kAnswered;
}

int showFeedStatus(const FeedQuery& query, Output& output, Console& /*console*/) {
    try {
        const feed::Reading reading = feed::read(optionsOf(query), kPatience);
        Table table = tableOf(reading.revision);
        table.columns.emplace_back("instruments");
        table.rows.front().emplace_back(static_cast<std::int64_t>(reading.day.instruments.size()));
        output.blocks(table);
        return exitcode::kAnswered;
    } catch (const std::exception& failure) {
        throw UnreadableInput(fmt::format("no day: {}", failure.what()));
    }
}

void setFeedAccess(const FeedQuery& query) {
    accessOfReading() = query;
}

Snapshot readFeed(const std::string& url) {
    FeedQuery query = accessOfReading();
    query.servers = {url};
    try {
        Snapshot day = feed::read(optionsOf(query), kPatience).day;
        day.recordsRead = countsOf(day);  // as reading files counts them, for verbs that tell what was read
        return day;
    } catch (const std::exception& failure) {
        throw UnreadableInput(fmt::format("{}: {}", snapshotName(url), failure.what()));
    }
}

}  // namespace inscenter
