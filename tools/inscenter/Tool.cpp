#include "tools/inscenter/Tool.h"

#include <fmt/format.h>

#include <exception>
#include <filesystem>
#include <new>
#include <optional>
#include <ostream>
#include <system_error>

#include "platform/persist/CPersistService.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/CommandLine.h"
#include "tools/inscenter/Diff.h"
#include "tools/inscenter/LogOutput.h"
#include "tools/inscenter/Shell.h"
#include "tools/inscenter/Terminal.h"
#include "tools/inscenter/Tour.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

constexpr int kAnswered = 0;
constexpr int kKeyMissing = 1;
constexpr int kUnreadable = 2;
constexpr int kSkipped = 3;
constexpr int kUnwritten = 4;

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
        if (!command.store.empty()) {
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
    if (!day.empty()) {
        utils::setToday(day);
        console.message(fmt::format("today is {}, the trading day of the records; --today names another", day));
    }
    return day;
}

/// Reads the snapshot into the center and lets go of its records: from here on the center alone holds them.
Day loadDay(const Command& command, mxservice::IInstrumentCenter& center, Console& console) {
    Day day;
    Side today;
    day.name = today.name = snapshotName(command.data);
    day.read = readSnapshot(command.data, today.records, console);
    // Now and not at the first question: which issues are new is decided while the center is loaded.
    day.today = settleToday(command, today.records, console);
    if (!command.query.against.empty()) {
        const Side before = readSide(command.query.against, console);
        day.read.skipped += before.skipped;
        // Before the load, which changes records. The day that a record describes differs in all of them.
        day.comparison = compareSides(before, today, {"tradingDay", "tradingday"}, console);
    }
    // Before the load as well: it writes "SH" into the records of "SHFI".
    day.markets = marketsOf(today.records);
    day.steps = load(center, today.records, console);
    day.stored = wroteEverything(center, command.center, console);
    return day;
}

/// What an answer about a day is worth. What is on disk goes before what was skipped: it is the next process that is
/// misled by it, and the skipped lines are on standard error either way.
int worthOf(bool stored, const ReadReport& read) {
    return !stored ? kUnwritten : read.skipped > 0 ? kSkipped : kAnswered;
}

int answer(const Command& command, std::ostream& out, Console& console) {
    const ProcessSettings settings(command);
    const auto center = makeCenter(command.center);
    const Day day = loadDay(command, *center, console);
    Output output(out, command.format, screenOf(out));
    Session session{*center, command.center, day, output, console};
    command.verb(session, command.query);
    // A script that asks for a key wants to hear that it is not there before anything about other lines of the file.
    return session.missing ? kKeyMissing : worthOf(day.stored, day.read);
}

int converse(const Command& command, std::ostream& out, Console& console, std::ostream& err) {
    const ProcessSettings settings(command);
    const auto center = makeCenter(command.center);
    const Day day = loadDay(command, *center, console);
    const int code = runShell(command, *center, day, out, console, err);
    return code == kAnswered ? worthOf(day.stored, day.read) : code;
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
    return command.storeVerb(command.storeQuery, output, console) ? kAnswered : kUnreadable;
}

int diff(const Command& command, std::ostream& out, Console& console) {
    Output output(out, command.format, screenOf(out));
    return showDiff(command.diff, output, console) ? kAnswered : kSkipped;
}

int run(const Command& command, std::ostream& out, std::ostream& err) {
    Console console(err, isTerminal(err), screenOf(err));
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
            case Task::Generate:
                return runGenerate(command.generate, out, err);
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
