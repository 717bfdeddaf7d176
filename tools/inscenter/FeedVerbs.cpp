#include "tools/inscenter/FeedVerbs.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <map>
#include <thread>
#include <utility>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "feed/Feed.h"
#include "tools/inscenter/ExitCodes.h"
#include "tools/inscenter/Interruption.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {
namespace {

namespace feed = mxservice::feed;

constexpr std::chrono::seconds kPatience{10};           // with a server that starts, or a cluster that elects
constexpr std::chrono::milliseconds kBetweenLooks{50};  // at Ctrl-C, which wakes nobody

feed::Options optionsOf(const FeedQuery& query) {
    feed::Options options;
    if (!query.servers.empty()) {
        options.servers = query.servers;
    }
    options.feed = query.feed;
    options.name = "inscenter";
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

int finish(const feed::Outcome& outcome, std::uint64_t skipped, Output& output, Console& console) {
    if (!outcome) {
        console.message("not published: " + outcome.reason);
        return exitcode::kUnwritten;
    }
    output.table(tableOf(outcome.revision), "");
    return skipped > 0 ? exitcode::kSkipped : exitcode::kAnswered;
}

/// One event as a line: for people words, for programs the same columns each time.
class EventLines {
public:
    explicit EventLines(Output& output) : output_(output) { output_.head(columns_); }

    void add(const std::string& event, const feed::Revision& revision, const std::string& key,
             const std::string& text) {
        const std::vector<Cell> cells{event, revision.tradingDay, std::to_string(revision.number), key, text};
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

private:
    const std::vector<std::string> columns_{"event", "tradingDay", "revision", "key", "text"};
    Output& output_;
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

/// Lines that were skipped do not keep the rest from being published, as they do not keep a center from loading it; the
/// exit code tells.
int publishDay(const FeedQuery& query, Output& output, Console& console) {
    Snapshot snapshot;
    const ReadReport read = readSnapshot(query.source, snapshot, console);
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
        read = readSnapshot(query.source, snapshot, console);
        change.upserts = snapshot.instruments;  // a change has nothing of other catalogues
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
    feed::Subscriber subscriber(center, optionsOf(query));
    // All of it on the subscriber's thread, so that lines stand in the order of what they tell.
    std::vector<mxservice::CatalogueChange> told;
    const auto changes = center.subscribe([&](const mxservice::CatalogueChange& change) { told.push_back(change); });
    const auto states = subscriber.onState([&](feed::State state, const std::string& reason) {
        lines.add(feed::stateName(state), subscriber.revision(), "", reason);
    });
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

Snapshot readFeed(const std::string& url) {
    FeedQuery query;
    query.servers = {url};
    try {
        Snapshot day = feed::read(optionsOf(query), kPatience).day;
        day.recordsRead = countsOf(day);  // as reading files counts them, for verbs that tell what was read
        return day;
    } catch (const std::exception& failure) {
        throw UnreadableInput(fmt::format("{}: {}", url, failure.what()));
    }
}

}  // namespace inscenter
