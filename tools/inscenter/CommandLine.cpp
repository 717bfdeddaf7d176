#include "tools/inscenter/CommandLine.h"
#include "base/instrumentcenter/Version.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <memory>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tools/inscenter/Console.h"
#include "tools/inscenter/ExitCodes.h"
#include "tools/inscenter/FeedCommand.h"
#include "tools/inscenter/HelpTexts.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/RecordSelection.h"
#include "tools/inscenter/StoreCommand.h"
#include "tools/inscenter/Terminal.h"
#include "tools/inscenter/Utf8.h"
#include "tools/inscenter/VerbList.h"
#include "tools/inscenter/VerbOptions.h"

namespace inscenter {
namespace {

constexpr std::size_t kUsualColumns = 80;  // of help that goes to no terminal
constexpr std::size_t kNameColumns = 24;   // of options and commands, before what is said of them

/// The options of addListing.
constexpr std::array kListing{"--where", "--fields", "--sort", "--limit"};

std::vector<std::string> namesOf(const std::vector<const CLI::App*>& apps) {
    std::vector<std::string> names;
    names.reserve(apps.size());
    for (const CLI::App* const app : apps) {
        names.push_back(app->get_name());
    }
    return names;
}

/// A line for the user about what is wrong with the command line.
std::string explain(const CLI::App& app, const CLI::Error& error) {
    const std::vector<std::string> unknown = app.remaining(false);
    std::string text = error.what();
    // An unknown command comes as a missing one: the library asks for what is required before it looks at what is left
    // over.
    if (app.get_subcommands().empty() && !unknown.empty()) {
        text = "unknown command " + printable(unknown.front()) +
               didYouMean(unknown.front(), namesOf(app.get_subcommands([](const CLI::App*) { return true; })));
    } else if (text == CLI::RequiredError::Subcommand(1).what()) {
        text = "a command is required";
    } else if (text.find(": At Most 1 required") != std::string::npos) {
        // The library's count leaves people to guess what they have done.
        text = text.substr(0, text.find(':')) + " may stand only once";
    }
    return withoutSecrets("inscenter: " + text + "\n");
}

/// Where the words come from.
enum class Place { CommandLine, Shell };

class Parser {
public:
    Parser(Command& command, Place place, std::size_t columns = kUsualColumns)
        : command_(command),
          place_(place),
          columns_(columns),
          app_(place == Place::Shell ? "" : kAbout, place == Place::Shell ? "" : "inscenter") {
        app_.require_subcommand(1);
        const auto formatter = std::make_shared<CLI::Formatter>();
        formatter->label("SUBCOMMAND", "COMMAND");
        formatter->label("Positionals", "Arguments");
        formatter->label("REQUIRED", "(required)");
        formatter->label("TEXT", "");
        formatter->column_width(kNameColumns);
        app_.formatter(formatter);
        app_.allow_windows_style_options(false);  // the library's default there, to which a path like /day is an option
        app_.fallthrough();  // global options may stand behind the command; inherited by commands added from here on
        app_.failure_message([place](const CLI::App* app, const CLI::Error& error) {
            return explain(*app, error) + (place == Place::Shell ? "" : kSeeHelp);
        });
        // At a prompt the day is loaded: what would load another one, or none, is not offered there.
        if (place == Place::CommandLine) {
            app_.footer(kFooter);
            app_.set_version_flag("--version", std::string("inscenter ") + mxservice::version(),
                                  "Print the version and exit");
            addLoading();
        }
        if (place == Place::Shell) {
            app_.footer(kShellFooter);
        }
        addFormat();
        for (const VerbLine& verb : kVerbs) {
            addVerb(verb);
        }
        if (place == Place::CommandLine) {
            addShell();
            addStoreCommands(app_, command_.storeQuery, command_.store, [this](StoreVerb verb) {
                command_.task = Task::Store;
                command_.storeVerb = verb;
            });
            addTour();
            addDiff();
            addGenerate();
            addFeedCommands(app_, verbgroup::kSnapshots, command_.feed, [this](FeedVerb verb) {
                command_.task = Task::Feed;
                command_.feedVerb = verb;
            });
        }
    }

    CLI::App& app() { return app_; }

    void take(const std::vector<std::string>& words) {
        app_.parse(std::vector<std::string>(words.rbegin(), words.rend()));  // taken from the end
    }

    /// Writes the help that was asked for, or what is wrong; answers the exit code.
    int stop(const CLI::ParseError& reason, std::ostream& out, std::ostream& err) {
        if (reason.get_exit_code() == 0 && app_.get_subcommands().empty() && !app_.remaining().empty()) {
            err << explain(app_, reason);  // help on a command that there is not
            return exitcode::kUnreadable;
        }
        // Collected first, because the library breaks no lines.
        std::ostringstream help;
        const int code = app_.exit(reason, help, err);
        out << wrapped(help.str(), columns_);
        // The library has a number for each kind of mistake; scripts are promised one for all.
        return code == 0 ? exitcode::kAnswered : exitcode::kUnreadable;
    }

private:
    void addLoading() {
        auto* const data =
            app_.add_option("--data", command_.data,
                            "Directory of the snapshot; - for instruments from standard input, one JSON object a line")
                ->type_name("DIR");
        app_.add_option("--feed", command_.data, "URL of a feed's server, whose day takes the place of --data's")
            ->type_name("URL")
            ->check(
                [](const std::string& url) { return isFeed(url) ? "" : url + " is no URL, nats://... or tls://..."; })
            ->excludes(data);
        addFeedAccess(app_, command_.feed);
        app_.add_option_function<std::string>(
                "--center",
                [this](const std::string& name) {
                    command_.center = name == "client" ? CenterKind::Client : CenterKind::Server;
                },
                "server (in memory) or client (persisted); server by default")
            ->check(CLI::IsMember({"server", "client"}).description(""))  // which the text names already
            ->type_name("KIND");
        app_.add_option("--store", command_.store,
                        "Directory of the client's databases, made when missing; the server uses none")
            ->type_name("DIR");
        app_.add_option("--rules", command_.rulesFile, "JSON file with the market rules to use")->type_name("FILE");
        app_.add_option("--today", command_.today,
                        "Day that counts as today, for the codes of new issues; by default the trading day of the "
                        "records, if they agree on one")
            ->type_name("YYYYMMDD");
        app_.add_flag("--log", command_.log, "Write the library's log to standard error");
    }

    void addFormat() {
        auto* const format =
            app_.add_option_function<std::string>(
                    "--format", [this](const std::string& name) { command_.format = *formatNamed(name); },
                    "table, json (one object a line, also called jsonl) or csv; table by default")
                ->check(CLI::IsMember({"table", "json", "jsonl", "csv"}).description(""))
                ->type_name("FORMAT");
        app_.add_flag_callback(
                "--jsonl", [this] { command_.format = Format::Json; }, "The same as --format json")
            ->excludes(format);  // of two formats neither is the one that is meant
    }

    void addVerb(const VerbLine& verb) {
        CLI::App* const sub = app_.add_subcommand(verb.name, verb.about)->group(verb.group);
        sub->footer(exampleLines(place_ == Place::Shell ? "" : "inscenter --data day ", verb.examples));
        if (verb.listed != nullptr) {
            addListing(*sub, selection_);
        }
        sub->callback([this, &verb] {
            command_.verb = verb.verb;
            command_.asksRecords = asksRecords(verb.arguments);
            require(verb.arguments);
            if (verb.listed != nullptr) {
                select(verb.listed());
            }
        });
        addArguments(*sub, verb.arguments);
    }

    /// What one of several options will do for, which is known when the last word was taken.
    void require(Arguments arguments) const {
        const Query& query = command_.query;
        const ExportQuery& to = query.exported;
        if (arguments == Arguments::Export && to.sqlite.empty() && to.csv.empty() && to.ndjson.empty()) {
            throw CLI::RequiredError("--sqlite, --csv or --ndjson");
        }
        if (arguments == Arguments::Selection && query.markets.empty() && !query.traderType) {
            throw CLI::RequiredError("--market or --trader-type");
        }
    }

    void addArguments(CLI::App& app, Arguments arguments) {
        switch (arguments) {
            case Arguments::None:
                break;
            case Arguments::Keys:
                app.add_option("KEY", command_.query.keys, "Keys to ask for")->required();
                break;
            case Arguments::Codes:
                app.add_option("CODE", command_.query.keys, "Codes, with or without their market")->required();
                break;
            case Arguments::Text:
                app.add_option("TEXT", command_.query.text, "Case, full-width letters and blanks make no difference")
                    ->required();
                addLimit(app, command_.query.limit);
                break;
            case Arguments::Page:
                app.add_option("--html", command_.query.page, "File to write")->type_name("FILE")->required();
                if (place_ == Place::CommandLine) {
                    // The other day is read before this one is loaded; at a prompt that is past.
                    app.add_option("--against", command_.query.against,
                                   "Snapshot or store of another day, to show what changed since")
                        ->type_name("OLD");
                }
                break;
            case Arguments::Selection:
                addSelection(app);
                break;
            case Arguments::Exchange: {
                auto* const market = addMarkets(app, "Futures exchanges; all six by default");
                auto* const byProduct =
                    app.add_flag("--by-product", command_.query.byProduct, "By product instead of by exchange")
                        ->excludes(market);
                // The answer by product is a row a product, of which no record can be selected.
                for (const char* const option : kListing) {
                    byProduct->excludes(app.get_option(option));
                }
                break;
            }
            case Arguments::Statements:
                app.add_option("STATEMENTS", command_.query.text, "Separated by semicolons; - for standard input")
                    ->required();
                addOld(app);
                break;
            case Arguments::Export:
                addExport(app, command_.query.exported);
                break;
            case Arguments::Rules:
                addRules(app, command_.query.check);
                addLimit(app, command_.query.limit);
                break;
            case Arguments::Group:
                app.add_option("--group", command_.query.group, "Plans of this group only; -1 for all")
                    ->type_name("NUMBER");
                break;
        }
    }

    void addOld(CLI::App& app) {
        if (place_ == Place::CommandLine) {  // at a prompt the days are read already
            app.add_option("--old", command_.query.against, "Snapshot or store of another day, as the schema \"old\"")
                ->type_name("OLD");
        }
    }

    CLI::Option* addMarkets(CLI::App& app, const char* about) {
        return addList(app, "--market", command_.query.markets, about)->type_name("MARKET");
    }

    void select(const mxservice::RecordType& type) {
        try {
            command_.query.selection = RecordSelection(type, selection_);
        } catch (const BadSelection& bad) {
            throw CLI::ValidationError(bad.what());
        }
    }

    void addSelection(CLI::App& app) {
        auto* const markets = addMarkets(app, "Market names");
        app.add_option("--trader-type", command_.query.traderType,
                       "1 stocks, 2 futures, 16 gold, 32 stock options, 128 Hong Kong, 256 NEEQ, 1024 futures options, "
                       "4096 bonds, 1048576 funds, 4 everything")
            ->type_name("NUMBER")
            ->excludes(markets);
    }

    CLI::App& addTask(const char* name, const char* about, const char* group, Task task, const std::string& footer) {
        CLI::App* const sub = app_.add_subcommand(name, about)->group(group)->footer(footer);
        sub->callback([this, task] { command_.task = task; });
        return *sub;
    }

    void addShell() {
        addOld(addTask("shell", "The commands above at a prompt, or from standard input; loads once",
                       verbgroup::kInstruments, Task::Shell,
                       exampleLines("inscenter --data day ", "shell\nshell < questions.txt")));
    }

    void addTour() {
        addTask("tour", "Every catalogue in both centers, short, and where they differ on purpose", verbgroup::kStore,
                Task::Tour, exampleLines("inscenter ", "--data day --store db tour"));
    }

    void addDiff() {
        CLI::App* const sub = &addTask(
            "diff", "What was listed, delisted and changed from one day to another", verbgroup::kSnapshots, Task::Diff,
            exampleLines("inscenter ",
                         "diff monday tuesday --ignore tradingDay,preClosePrice\n"
                         "diff db tuesday --jsonl\ndiff monday - < tuesday.ndjson") +
                "\n\nA store is compared with the form in which a snapshot would be stored: listings merged, connect "
                "flags set.");
        sub->add_option("OLD", command_.diff.before, "Directory of a snapshot or a store; - for standard input")
            ->required();
        sub->add_option("NEW", command_.diff.after, "The same for the later day")->required();
        sub->add_option("--ignore", command_.diff.ignored, "Fields that make no change")->type_name("A,B,C");
        sub->add_flag("--exit-code", command_.diff.exitCode, "End with 1 where there is a difference");
    }

    void addGenerate() {
        CLI::App* const sub =
            &addTask("generate", "Write an invented market day as a snapshot", verbgroup::kSnapshots, Task::Generate,
                     exampleLines("inscenter ", "generate --size 300000 --seed 7 day"));
        sub->add_option("--size", command_.generate.size, "Number of instruments")
            ->type_name("N")
            ->required()
            ->check(notNegative);
        sub->add_option("--seed", command_.generate.seed, "The same seed gives the same bytes; 1 by default")
            ->type_name("N")
            ->check(notNegative);
        sub->add_option("--date", command_.generate.date, "Trading day; today by default")->type_name("YYYYMMDD");
        sub->add_option("DIR", command_.generate.directory, "Directory to write to, made when missing")->required();
    }

    Command& command_;
    const Place place_;
    const std::size_t columns_;
    SelectionTexts selection_;
    CLI::App app_;
};

std::size_t columnsOf(const std::ostream& out) {
    const std::size_t columns = screenOf(out).columns;
    return columns == 0 ? kUsualColumns : columns;
}

/// What the options say together; empty when that makes sense.
std::string contradiction(const Command& command) {
    // Said here and not as requirements of the options: what loads a center stands at the top, where it would be
    // required of commands that load none as well.
    if (command.task == Task::Generate || command.task == Task::Feed) {
        return {};
    }
    if (command.task == Task::Store || command.task == Task::Diff) {
        const bool others = !command.data.empty() || !command.store.empty() || command.center == CenterKind::Client;
        const bool twice = command.diff.before == "-" && command.diff.after == "-";
        return others  ? "store and diff take directories as arguments; --data, --center and --store load a center"
               : twice ? "standard input can be only one of the two days"
                       : "";
    }
    if (command.data.empty() && (command.store.empty() || command.task == Task::Tour)) {
        return command.task == Task::Tour ? "--data DIR is required" : "--data DIR or --store DIR is required";
    }
    if (command.task == Task::Tour) {
        return command.store.empty() ? "--store DIR is required, for the persisted center" : "";
    }
    if (command.task == Task::Shell && command.data == "-") {
        return "shell reads its commands from standard input, so --data - cannot";
    }
    if (command.data == "-" && command.query.against == "-") {
        return "standard input can be only one of the two days";
    }
    if (command.center == CenterKind::Client && command.store.empty()) {
        return "--center client needs --store DIR";
    }
    return {};
}

/// The long names of an app's options.
std::vector<std::string> optionsOf(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : app.get_options()) {
        for (const std::string& name : option->get_lnames()) {
            names.push_back("--" + name);
        }
    }
    return names;
}

void describe(const CLI::App& app, const std::string& name, std::vector<VerbHelp>& verbs) {
    verbs.push_back({name, optionsOf(app)});
    for (const CLI::App* const sub : app.get_subcommands([](const CLI::App*) { return true; })) {
        describe(*sub, (name.empty() ? "" : name + " ") + sub->get_name(), verbs);
    }
}

}  // namespace

std::optional<Command> parseCommand(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
                                    int& exitCode) {
    Command command;
    Parser parser(command, Place::CommandLine, columnsOf(out));
    try {
        // A program may be started without so much as its own name.
        parser.take(helpAsOption({argv + std::min(argc, 1), argv + argc}));
    } catch (const CLI::ParseError& stop) {
        exitCode = parser.stop(stop, out, err);
        return std::nullopt;
    }
    const std::string problem = contradiction(command);
    if (!problem.empty()) {
        err << "inscenter: " << problem << '\n' << kSeeHelp;
        exitCode = exitcode::kUnreadable;
        return std::nullopt;
    }
    const bool oneCenter = command.task == Task::Ask || command.task == Task::Shell;
    // Noted, not refused: a script may ask both centers with one list of arguments. Cleared, so that no directory is
    // made that nobody fills.
    if (oneCenter && command.center == CenterKind::Server && !command.data.empty() && !command.store.empty()) {
        err << "inscenter: the in-memory center does not use --store; --center client does\n";
        command.store.clear();
    }
    return command;
}

std::optional<Command> parseQuestion(const std::vector<std::string>& words, const Command& settings, std::ostream& out,
                                     std::ostream& err, int& exitCode) {
    // A copy: what a line says holds for that line alone.
    Command command = settings;
    command.task = Task::Ask;
    Parser parser(command, Place::Shell, columnsOf(out));
    try {
        parser.take(words);
    } catch (const CLI::ParseError& stop) {
        exitCode = parser.stop(stop, out, err);
        return std::nullopt;
    }
    return command;
}

std::optional<Format> formatNamed(std::string_view name) {
    return name == "table"                     ? std::optional(Format::Table)
           : name == "json" || name == "jsonl" ? std::optional(Format::Json)
           : name == "csv"                     ? std::optional(Format::Csv)
                                               : std::nullopt;
}

std::vector<std::string> helpAsOption(std::vector<std::string> words) {
    if (!words.empty() && words.front() == "help") {  // behind a verb it may be a text to find
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    return words;
}

std::vector<VerbHelp> describeVerbs() {
    Command unused;
    Parser parser(unused, Place::CommandLine);
    std::vector<VerbHelp> verbs;
    describe(parser.app(), "", verbs);
    return verbs;
}

}  // namespace inscenter
