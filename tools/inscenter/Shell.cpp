#include "tools/inscenter/Shell.h"

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <memory>
#include <new>
#include <ostream>
#include <utility>

#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/Prompt.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/ShellWords.h"
#include "tools/inscenter/System.h"
#include "tools/inscenter/Terminal.h"
#include "tools/inscenter/TextTable.h"
#include "tools/inscenter/Utf8.h"
#include "tools/inscenter/VerbList.h"

namespace inscenter {
namespace {

constexpr std::size_t kMostKeys = 200;  // more than anybody reads to choose from
constexpr int kBadLine = 2;

class Shell {
public:
    Shell(const Command& settings, mxservice::IInstrumentCenter& center, const Day& day, std::ostream& out,
          Console& console, std::ostream& err)
        : settings_(settings), center_(center), day_(day), out_(out), console_(console), err_(err) {}

    /// Answers one line; false when it asks to leave.
    bool take(const std::string& line) {
        auto taken = shellLine(line);
        if (!taken) {
            console_.message("a quotation is not closed");
            note(kBadLine);
            return true;
        }
        const std::vector<std::string>& words = taken->words;
        if (words.empty() || words.front().starts_with('#')) {
            return true;
        }
        if (words == std::vector<std::string>{"quit"} || words == std::vector<std::string>{"exit"}) {
            return false;
        }
        note(answer(std::move(*taken)));
        out_.flush();
        return static_cast<bool>(out_);  // where nobody can read answers, no more are asked for
    }

    int exitCode() const { return exitCode_; }

private:
    // The first counts: what goes wrong later often follows from it.
    void note(int code) { exitCode_ = exitCode_ == 0 ? code : exitCode_; }

    int answer(ShellLine line) {
        std::string file;
        if (line.file) {
            if (line.words.size() != *line.file + 1) {
                console_.message("behind > stands the name of one file, and nothing else");
                return kBadLine;
            }
            file = std::move(line.words.back());
            line.words.pop_back();
        }
        int code = 0;
        const auto command = parseQuestion(helpAsOption(std::move(line.words)), settings_, out_, err_, code);
        if (!command) {
            return code;
        }
        try {
            return line.file ? answerInto(file, line.append, *command) : answer(*command, out_);
        } catch (const std::bad_alloc&) {
            console_.message("out of memory");
        } catch (const std::exception& failure) {
            // Interrupted is one of them: it ends the answer and not the shell.
            console_.message(failure.what());
        }
        return kBadLine;
    }

    int answer(const Command& command, std::ostream& out) {
        Output output(out, command.format, screenOf(out));
        Session session{center_, settings_.center, day_, output, console_};
        command.verb(session, command.query);
        return session.missing ? 1 : 0;
    }

    /// The file is touched once the line makes sense, so that a slip of the pen does not empty it.
    int answerInto(const std::string& name, bool append, const Command& command) {
        errno = 0;
        std::ofstream file(pathOf(name), std::ios::binary | (append ? std::ios::app : std::ios::trunc));
        requireWritten(file, name);
        const int code = answer(command, file);
        file.close();
        requireWritten(file, name);
        return code;
    }

    const Command& settings_;
    mxservice::IInstrumentCenter& center_;
    const Day& day_;
    std::ostream& out_;
    Console& console_;
    std::ostream& err_;
    int exitCode_ = 0;
};

std::vector<std::string> verbNames() {
    std::vector<std::string> names{"help", "quit"};
    for (const VerbLine& verb : kVerbs) {
        names.emplace_back(verb.name);
    }
    std::sort(names.begin(), names.end());  // the verbs themselves stand by subject
    return names;
}

/// The markets of the day, by the names of its records and of the lists that hold them.
std::vector<std::string> marketNames(const Day& day) {
    std::vector<std::string> names = filedMarkets(day.markets);
    for (const auto& [market, count] : day.markets) {
        if (std::find(names.begin(), names.end(), market) == names.end()) {
            names.push_back(market);
        }
    }
    return names;
}

std::vector<std::string> optionNames(const std::string& verb) {
    for (const VerbHelp& help : describeVerbs()) {  // asked of the parser, which forgets none
        if (help.name == verb) {
            return help.options;
        }
    }
    return {};
}

/// Key texts that begin so. Only the market that the word begins with is asked, so that a prompt does not wait for a
/// store to be read whole.
std::vector<std::string> keysBeginning(const std::string& word, mxservice::IInstrumentCenter& center, const Day& day) {
    std::vector<std::string> keys;
    for (const std::string& market : marketNames(day)) {
        if (!word.starts_with(market)) {
            continue;
        }
        for (const Filed& instrument : instrumentsOf(center, {market})) {
            std::string key = market + instrument.record->code;
            // A key with a blank would have to be quoted, and the quotation be begun before the word that was typed.
            if (key.starts_with(word) && keys.size() < kMostKeys && key.find(' ') == std::string::npos) {
                keys.push_back(std::move(key));
            }
        }
    }
    return keys.empty() ? marketNames(day) : keys;
}

std::vector<std::string> fieldsOf(const VerbLine& verb, const std::string& option, const std::string& word) {
    std::vector<std::string> names = verb.listed == nullptr ? std::vector<std::string>() : fieldNames(verb.listed());
    // What is typed is replaced as one word, so a candidate begins with all that stands in it already.
    const std::size_t comma = option == "--fields" ? word.rfind(',') : std::string::npos;
    const std::string before = comma != std::string::npos             ? word.substr(0, comma + 1)
                               : option == "--sort" && word[0] == '-' ? "-"
                                                                      : "";
    for (std::string& name : names) {
        name.insert(0, before);
    }
    return names;
}

/// Everything that may stand in that place, whatever the word begins with.
std::vector<std::string> candidates(const std::vector<std::string>& before, const std::string& word,
                                    mxservice::IInstrumentCenter& center, const Day& day) {
    if (before.empty() || (before.size() == 1 && before.front() == "help")) {
        return verbNames();
    }
    const std::string& last = before.back();
    if (last == "--format") {
        return {"csv", "json", "jsonl", "table"};
    }
    const auto verb =
        std::find_if(kVerbs.begin(), kVerbs.end(), [&](const VerbLine& known) { return before.front() == known.name; });
    if (verb == kVerbs.end()) {
        return {};
    }
    if (last == "--fields" || last == "--sort" || last == "--where") {
        return fieldsOf(*verb, last, word);
    }
    if (word.starts_with('-')) {
        return optionNames(before.front());
    }
    // Not the last word alone: behind --market there may be several names.
    const auto option = std::find_if(before.rbegin(), before.rend(), [](const auto& w) { return w.starts_with('-'); });
    if (option != before.rend() && *option == "--market") {
        return marketNames(day);
    }
    const bool keys = verb->arguments == Arguments::Keys || verb->arguments == Arguments::Codes;
    return keys ? keysBeginning(word, center, day) : optionNames(before.front());
}

}  // namespace

std::vector<std::string> shellCompletions(const std::string& line, const std::string& word,
                                          mxservice::IInstrumentCenter& center, const Day& day) {
    std::vector<std::string> fitting;
    const ShellLine taken = shellLine(line).value_or(ShellLine());
    if (taken.file) {  // names of files are the system's, and none of what is known here
        return fitting;
    }
    for (std::string& candidate : candidates(taken.words, word, center, day)) {
        if (candidate.starts_with(word)) {
            fitting.push_back(std::move(candidate));
        }
    }
    return fitting;
}

int runShell(const Command& settings, mxservice::IInstrumentCenter& center, const Day& day, std::ostream& out,
             Console& console, std::ostream& err) {
    Shell shell(settings, center, day, out, console, err);
    // Both: with either end in a pipe a prompt would stand among the answers, or wait for keys that nobody types.
    const bool prompt = terminalOf(Standard::Input) && isTerminal(out);
    std::unique_ptr<LineSource> lines;
    if (prompt) {
        const std::size_t columns = screenOf(out).columns;
        const std::string banner = std::string("Type a command, \"help\" for the list, or \"quit\". ") + Prompt::keys();
        out << (columns == 0 ? banner + '\n' : wrapped(banner, columns)) << std::flush;
        lines = std::make_unique<Prompt>([&](const std::string& line, const std::string& word) {
            return shellCompletions(line, word, center, day);
        });
    } else {
        lines = std::make_unique<PlainLines>();
    }
    std::string line;
    while (lines->next(line) && shell.take(line)) {
    }
    return prompt ? 0 : shell.exitCode();  // who sits at a prompt has seen what went wrong
}

}  // namespace inscenter
