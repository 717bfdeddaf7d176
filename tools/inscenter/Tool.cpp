#include "tools/inscenter/Tool.h"

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <filesystem>
#include <memory>
#include <new>
#include <optional>
#include <ostream>
#include <system_error>

#include "platform/persist/CPersistService.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/CommandLine.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/ExitCodes.h"
#include "tools/inscenter/LogOutput.h"
#include "tools/inscenter/Shell.h"
#include "tools/inscenter/StoreSnapshot.h"
#include "tools/inscenter/Terminal.h"
#include "tools/inscenter/Tour.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using namespace exitcode;

/// What a run changes in the process, for as long as it lasts.
class ProcessSettings {
public:
    ProcessSettings() = default;
    /// From the default, so that what is in force goes back when a rules file or a day is refused: the destructor runs.
    explicit ProcessSettings(const Command& command) : ProcessSettings() {
        if (command.log) {
            log_.emplace();
        }
        if (!command.rulesFile.empty()) {
            utils::CMarketRules::load(command.rulesFile);
        }
        utils::setToday(command.today);
        // Without a day the store is what is asked, and no center may write to it.
        if (!command.store.empty() && !command.data.empty()) {
            persist::CPersistService::instance()->setRootPath(command.store);
            storeOpen_ = true;
        }
    }
    ~ProcessSettings() {
        if (storeOpen_) {
            persist::CPersistService::instance()->setRootPath("");
        }
        log_.reset();
        utils::CMarketRules::reset();
        utils::setToday("");
    }
    ProcessSettings(const ProcessSettings&) = delete;
    ProcessSettings& operator=(const ProcessSettings&) = delete;

private:
    std::optional<LogOutput> log_;
    bool storeOpen_ = false;
};

/// Pins the records' trading day as today, unless the user did so. What a day's file calls an issue of today is one on
/// that day alone, whenever the file is looked at. Answers the day; empty when the clock's has to do.
std::string settleToday(const Command& command, const Snapshot& snapshot, Console& console) {
    if (!command.today.empty()) {
        return command.today;
    }
    std::string day = tradingDayOf(snapshot);
    utils::setToday(day);  // also to none: a day before it may have had one
    if (!day.empty()) {
        console.message(fmt::format("today is {}, the trading day of the records; --today names another", day));
    }
    return day;
}

/// Whether the verb asks for single records by their keys, and for nothing that others tell about them.
bool asksKeysAlone(const Command& command) {
    return command.verb == showInstruments || command.verb == showEtf || command.verb == showBond;
}

/// The store's records: of a question for single keys those alone, but for a miss, which is explained by all others.
Side readStore(const Command& command, ReadReport& read, Console& console) {
    Side side;
    side.name = command.store;
    side.store = true;
    const auto began = std::chrono::steady_clock::now();
    if (!asksKeysAlone(command) || !readStoredRecords(command.store, command.query.keys, side.records, console)) {
        side.records = Snapshot();
        side.skipped = read.skipped = readStoredSnapshot(command.store, side.records, console);
        if (read.skipped == 0 && side.records.instruments.empty()) {
            console.message(command.store + ": there is no instrument in this store");
        }
    }
    read.records = countsOf(side.records);
    read.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return side;
}

Side readDay(const Command& command, ReadReport& read, Console& console) {
    if (command.data.empty()) {
        return readStore(command, read, console);
    }
    Side side;
    side.name = snapshotName(command.data);
    read = readSnapshot(command.data, side.records, console);
    return side;
}

/// Reads the day, into a center if it is asked, which alone holds the records then: but for verbs that ask the records
/// themselves. What is loaded already stays as it is when that throws.
void loadDay(const Command& command, LoadedDay& loaded, Console& console) {
    Day day;
    Side today = readDay(command, day.read, console);
    day.name = today.name;
    // Now and not at the first question: which issues are new is decided while the center is loaded.
    day.today = settleToday(command, today.records, console);
    std::optional<Side> before;
    if (!command.query.against.empty()) {
        before = readSide(command.query.against, console);
        day.read.skipped += before->skipped;
    }
    if (command.asksRecords || command.task == Task::Shell) {
        day.records = std::make_shared<Snapshot>(today.records);
        day.sql = std::make_shared<Sql>(*day.records, before ? &before->records : nullptr);
        separate(today.records);
    } else if (before) {
        // Before the load, which changes records. The day that a record describes differs in all of them.
        day.comparison = compareSides(*before, today, {"tradingDay", "tradingday"}, console);
    }
    // Before the load as well: it writes "SH" into the records of "SHFI".
    day.markets = marketsOf(today.records);
    // A persisted center empties its databases with its second load of a market and not with its first, and one in
    // memory keeps answering for keys that a later load lacks: the one goes on, the other is made anew.
    const bool goesOn = loaded.center && command.center == CenterKind::Client;
    const auto center = goesOn ? loaded.center : makeCenter(command.center);
    if (!command.asksRecords) {
        day.steps = load(*center, today.records, console);
        day.stored = wroteEverything(*center, command.center, console);
    }
    loaded = {center, std::move(day)};
}

/// What an answer about a day is worth. What is on disk goes before what was skipped: it is the next process that is
/// misled by it, and the skipped lines are on standard error either way.
int worthOf(bool stored, const ReadReport& read) {
    return !stored ? kUnwritten : read.skipped > 0 ? kSkipped : kAnswered;
}

/// A store of its own for a persisted center that answers what another has left, else nothing.
std::unique_ptr<ScratchStore> scratchFor(const Command& command) {
    const bool needed = command.data.empty() && command.center == CenterKind::Client && !command.asksRecords;
    return needed ? std::make_unique<ScratchStore>() : nullptr;
}

int answer(const Command& command, std::ostream& out, Console& console) {
    const ProcessSettings settings(command);
    const auto scratch = scratchFor(command);
    LoadedDay loaded;
    loadDay(command, loaded, console);
    const Day& day = loaded.day;
    Output output(out, command.format, screenOf(out));
    Session session{*loaded.center, command.center, day, output, console};
    command.verb(session, command.query);
    // A script that asks for a key wants to hear that it is not there before anything about other lines of the file.
    return session.failed ? kUnreadable : session.missing ? kMissing : worthOf(day.stored, day.read);
}

int converse(const Command& command, std::ostream& out, Console& console, std::ostream& err) {
    const ProcessSettings settings(command);
    const auto scratch = scratchFor(command);
    LoadedDay loaded;
    const auto reload = [&] { loadDay(command, loaded, console); };
    reload();
    const int code = runShell(command, loaded, reload, out, console, err);
    return code == kAnswered ? worthOf(loaded.day.stored, loaded.day.read) : code;
}

/// The persisted center answers whatever its store holds, so that a store of another day shows as differences.
int tour(const Command& command, std::ostream& out, Console& console) {
    const ProcessSettings settings(command);
    // A directory that is not there yet is as good as an empty one.
    std::error_code ignored;
    if (!std::filesystem::is_empty(pathOf(command.store), ignored) && !ignored) {
        console.message(command.store + ": not empty; what earlier loads left there may show as differences");
    }
    Snapshot snapshot;
    const ReadReport read = readSnapshot(command.data, snapshot, console);
    settleToday(command, snapshot, console);
    const BothCenters both = loadBoth(snapshot, console);
    const bool stored = wroteEverything(*both.client, CenterKind::Client, console);
    Output output(out, command.format, screenOf(out));
    showTour(both, snapshot, output, console);
    return worthOf(stored, read);
}

int lookIntoStore(const Command& command, std::ostream& out, Console& console) {
    Output output(out, command.format, screenOf(out));
    switch (command.storeVerb(command.storeQuery, output, console)) {
        case StoreOutcome::Good:
            return kAnswered;
        case StoreOutcome::Missing:
            return kMissing;
        case StoreOutcome::Bad:
            break;
    }
    return kUnreadable;
}

int diff(const Command& command, std::ostream& out, Console& console) {
    Output output(out, command.format, screenOf(out));
    const DiffOutcome outcome = showDiff(command.diff, output, console);
    return outcome.different && command.diff.exitCode ? kMissing : outcome.whole ? kAnswered : kSkipped;
}

int feed(const Command& command, std::ostream& out, Console& console) {
    const ProcessSettings settings(command);
    Output output(out, command.format, screenOf(out));
    return command.feedVerb(command.feed, output, console);
}

int run(const Command& command, std::ostream& out, std::ostream& err) {
    Console console(err, isTerminal(err), screenOf(err));
    // Those of a feed that is published to are not shown to another one that the day comes from.
    setFeedAccess(command.task == Task::Feed ? FeedQuery() : command.feed);
    try {
        switch (command.task) {
            case Task::Ask:
                return answer(command, out, console);
            case Task::Shell:
                return converse(command, out, console, err);
            case Task::Tour:
                return tour(command, out, console);
            case Task::Diff:
                return diff(command, out, console);
            case Task::Store:
                return lookIntoStore(command, out, console);
            case Task::Feed:
                return feed(command, out, console);
            case Task::Generate:
                generate(command.generate, out);
                return kAnswered;
        }
    } catch (const std::bad_alloc&) {
        console.message("out of memory");
    } catch (const std::exception& failure) {
        console.message(failure.what());
    }
    return kUnreadable;
}

}  // namespace

int runTool(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
    int exitCode = kAnswered;
    const auto command = parseCommand(argc, argv, out, err, exitCode);
    if (command) {
        exitCode = run(*command, out, err);
    }
    // What the stream holds back may be refused only now: a script must not take half an answer on a full disk for a
    // whole one.
    out.flush();
    if (!out) {
        err << "inscenter: the answer cannot be written\n";
        return kUnreadable;
    }
    return exitCode;
}

}  // namespace inscenter
