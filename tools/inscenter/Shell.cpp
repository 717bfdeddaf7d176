#include "tools/inscenter/Shell.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <exception>
#include <fstream>
#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <string_view>
#include <utility>

#include "tools/inscenter/ExitCodes.h"
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
constexpr std::string_view kSql = "sql";

/// Whether the line begins a statement that goes on until its semicolon: behind "sql" stands neither an option nor the
/// whole statement as one quoted word.
bool beginsStatement(const std::string& line) {
    const std::size_t verb = line.find_first_not_of(" \t");
    if (verb == std::string::npos || line.compare(verb, kSql.size(), kSql) != 0) {
        return false;
    }
    const std::size_t end = verb + kSql.size();
    const std::size_t next = line.find_first_not_of(" \t\r", end);
    return end == line.size() || (next != end && (next == std::string::npos ||
                                                  std::string_view("-'\"").find(line[next]) == std::string_view::npos));
}

class Shell {
public:
    Shell(const Command& settings, LoadedDay& loaded, const std::function<void()>& reload, LineSource& lines,
          std::ostream& out, Console& console, std::ostream& err)
        : settings_(settings),
          loaded_(loaded),
          reload_(reload),
          lines_(lines),
          out_(out),
          console_(console),
          err_(err) {}

    void run() {
        std::string line;
        for (bool more = true; more;) {
            switch (lines_.next(line, !statement_.empty())) {
                case LineSource::Next::Line:
                    more = take(line);
                    break;
                case LineSource::Next::GivenUp:
                    statement_.clear();
                    break;
                case LineSource::Next::End:
                    // Nothing can follow, so the semicolon is no longer needed to tell the end.
                    if (!statement_.empty() && takeStatement(";") && !statement_.empty()) {
                        console_.message("the last statement has no end");
                        note(exitcode::kUnreadable);
                    }
                    return;
            }
        }
    }

    int exitCode() const { return exitCode_; }
    /// What was typed of a statement on the lines before.
    const std::string& statement() const { return statement_; }

private:
    /// Answers one line; false when it asks to leave.
    bool take(const std::string& line) {
        if (!statement_.empty() || beginsStatement(line)) {
            return takeStatement(line);
        }
        auto taken = shellLine(line);
        if (!taken) {
            console_.message("a quotation is not closed");
            note(exitcode::kUnreadable);
            return true;
        }
        const std::vector<std::string>& words = taken->words;
        if (words.empty() || words.front().starts_with('#')) {  // files of questions have comments
            return true;
        }
        if (words == std::vector<std::string>{"quit"} || words == std::vector<std::string>{"exit"}) {
            return false;
        }
        return answered(words.front() == "format"                     ? setFormat(words)
                        : words == std::vector<std::string>{"reload"} ? reload()
                                                                      : answer(std::move(*taken)));
    }

    /// The same of a line of statements. What stands behind the last semicolon are words of the command again.
    bool takeStatement(const std::string& line) {
        statement_ += line + '\n';
        const std::size_t begin = statement_.find(kSql) + kSql.size();
        // From the last semicolon backwards: one within a text or a comment ends nothing, and what stands between two
        // that end something is of the same answer.
        for (std::size_t end = statement_.rfind(';'); end != std::string::npos && end >= begin;
             end = end == 0 ? std::string::npos : statement_.rfind(';', end - 1)) {
            std::string text = statement_.substr(begin, end + 1 - begin);
            auto behind = Sql::isComplete(text) ? shellLine(statement_.substr(end + 1, statement_.size() - end - 2))
                                                : std::nullopt;
            // Options of the command or a file; anything else begins a further statement.
            if (behind && (behind->words.empty() || behind->words.front().starts_with('-') || behind->file == 0U)) {
                statement_.clear();
                text.erase(0, std::min(text.find_first_not_of(" \t\r\n"), text.size()));
                behind->words.insert(behind->words.begin(), {std::string(kSql), std::move(text)});
                behind->file = behind->file ? std::optional(*behind->file + 2) : std::nullopt;
                return answered(answer(std::move(*behind)));
            }
        }
        return true;
    }

    // The first counts: what goes wrong later often follows from it.
    void note(int code) { exitCode_ = exitCode_ == 0 ? code : exitCode_; }

    bool answered(int code) {
        note(code);
        out_.flush();
        return static_cast<bool>(out_);  // where nobody can read answers, no more are asked for
    }

    int setFormat(const std::vector<std::string>& words) {
        const auto format = words.size() == 2 ? formatNamed(words.back()) : std::nullopt;
        if (!format) {
            console_.message("format table, json, jsonl or csv");
            return exitcode::kUnreadable;
        }
        settings_.format = *format;
        return 0;
    }

    int reload() {
        return guarded([this] {
            reload_();
            console_.message(fmt::format("{} instruments read", loaded_.day.records->instruments.size()));
            return 0;
        });
    }

    template <class Work>
    int guarded(const Work& work) {
        try {
            return work();
        } catch (const std::bad_alloc&) {  // of one answer, whose memory is free again: the day stays loaded
            console_.message("out of memory");
        } catch (const std::exception& failure) {
            // Interrupted is one of them: it ends the answer and not the shell.
            console_.message(failure.what());
        }
        return exitcode::kUnreadable;
    }

    int answer(ShellLine line) {
        std::string file;
        if (line.file) {
            if (line.words.size() != *line.file + 1) {
                console_.message("behind > stands the name of one file, and nothing else");
                return exitcode::kUnreadable;
            }
            file = std::move(line.words.back());
            line.words.pop_back();
        }
        int code = 0;
        const auto command = parseQuestion(helpAsOption(std::move(line.words)), settings_, out_, err_, code);
        if (!command) {
            return code;
        }
        return guarded([&] { return line.file ? answerInto(file, line.append, *command) : answerOnScreen(*command); });
    }

    int answerOnScreen(const Command& command) {
        const Screen screen = screenOf(out_);
        if (!lines_.hasPages()) {
            return answer(command, out_, screen);
        }
        // Whole before it is shown: how long it is decides where.
        std::ostringstream text;
        const int code = answer(command, text, screen);
        if (!lines_.show(text.str())) {
            out_ << text.str();
        }
        return code;
    }

    int answer(const Command& command, std::ostream& out, const Screen& screen) {
        Output output(out, command.format, screen);
        Session session{*loaded_.center, settings_.center, loaded_.day, output, console_};
        command.verb(session, command.query);
        return session.failed ? exitcode::kUnreadable : session.missing ? exitcode::kMissing : exitcode::kAnswered;
    }

    /// The file is touched once the line makes sense, so that a slip of the pen does not empty it.
    int answerInto(const std::string& name, bool append, const Command& command) {
        errno = 0;  // for requireWritten, which could tell a reason of long ago
        std::ofstream file(pathOf(name), std::ios::binary | (append ? std::ios::app : std::ios::trunc));
        requireWritten(file, name);
        const int code = answer(command, file, {});
        file.close();  // or what the buffer still holds would fail unseen
        requireWritten(file, name);
        return code;
    }

    Command settings_;
    LoadedDay& loaded_;
    const std::function<void()>& reload_;
    LineSource& lines_;
    std::ostream& out_;
    Console& console_;
    std::ostream& err_;
    std::string statement_;
    int exitCode_ = 0;
};

std::vector<std::string> verbNames() {
    std::vector<std::string> names{"format", "help", "quit", "reload"};
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

/// Of the class that the verb lists; "--fields" takes several and "--sort" a minus before its one.
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
    if (last == "--format" || (before.size() == 1 && last == "format")) {
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

/// Tables and columns, behind whatever of an expression stands before them in the word.
std::vector<std::string> namesIn(const Sql& sql, const std::string& word) {
    const std::string before = word.substr(0, word.find_last_of(".,(=<>|+-*/") + 1);
    std::vector<std::string> names = sql.names();
    for (std::string& name : names) {
        name.insert(0, before);
    }
    return names;
}

}  // namespace

std::vector<std::string> shellCompletions(const std::string& line, const std::string& word,
                                          mxservice::IInstrumentCenter& center, const Day& day) {
    std::vector<std::string> fitting;
    const bool statement =
        day.sql && beginsStatement(line + word) && line.find_first_not_of(" \t") != std::string::npos;
    const ShellLine taken = shellLine(line).value_or(ShellLine());
    if (taken.file && !statement) {  // names of files are the system's, and none of what is known here
        return fitting;
    }
    for (std::string& candidate : statement ? namesIn(*day.sql, word) : candidates(taken.words, word, center, day)) {
        if (candidate.starts_with(word)) {
            fitting.push_back(std::move(candidate));
        }
    }
    return fitting;
}

int runShell(const Command& settings, LoadedDay& loaded, const std::function<void()>& reload, std::ostream& out,
             Console& console, std::ostream& err) {
    // Both: with either end in a pipe a prompt would stand among the answers, or wait for keys that nobody types.
    const bool prompt = terminalOf(Standard::Input) && isTerminal(out);
    std::unique_ptr<LineSource> lines;
    const Shell* typed = nullptr;
    if (prompt) {
        const std::size_t columns = screenOf(out).columns;
        const std::string banner = std::string("Type a command, \"help\" for the list, or \"quit\". ") + Prompt::keys();
        out << (columns == 0 ? banner + '\n' : wrapped(banner, columns)) << std::flush;
        // Asked while the shell runs, which is made below and needs the lines first. The center at each call: a reload
        // puts another one there.
        lines = std::make_unique<Prompt>([&](const std::string& line, const std::string& word) {
            return shellCompletions(typed->statement() + line, word, *loaded.center, loaded.day);
        });
    } else {
        lines = std::make_unique<PlainLines>();
    }
    Shell shell(settings, loaded, reload, *lines, out, console, err);
    typed = &shell;
    shell.run();
    return prompt ? 0 : shell.exitCode();  // who sits at a prompt has seen what went wrong
}

}  // namespace inscenter
