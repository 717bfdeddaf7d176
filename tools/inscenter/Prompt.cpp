#include "tools/inscenter/Prompt.h"

#include <editline/readline.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <utility>

namespace inscenter {
namespace {

constexpr const char* kPrompt = "inscenter> ";
constexpr int kKeptLines = 1000;

// The line editor calls back without an argument of ours.
Prompt::Completer& currentCompleter() {
    static Prompt::Completer current;
    return current;
}

std::string historyFile() {
    const char* const home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.inscenter_history";
}

char* nextCandidate(const char* /*word*/, int state) {
    static std::vector<std::string> candidates;
    static std::size_t position = 0;
    if (state == 0) {
        position = 0;
        const std::string line(rl_line_buffer, static_cast<std::size_t>(rl_point));
        const std::size_t blank = line.find_last_of(" \t");
        const std::size_t begin = blank == std::string::npos ? 0 : blank + 1;
        candidates = currentCompleter()(line.substr(0, begin), line.substr(begin));
    }
    return position < candidates.size() ? strdup(candidates[position++].c_str()) : nullptr;
}

char** complete(const char* word, int /*begin*/, int /*end*/) {
    rl_attempted_completion_over = 1;  // no names of files
    return rl_completion_matches(word, nextCandidate);
}

}  // namespace

bool PlainLines::next(std::string& line) {
    return static_cast<bool>(std::getline(std::cin, line));
}

Prompt::Prompt(Completer completer) {
    std::setlocale(LC_CTYPE, "");  // the editor counts characters, not bytes
    currentCompleter() = std::move(completer);
    static char name[] = "inscenter";
    static char separators[] = " \t";
    rl_readline_name = name;
    rl_basic_word_break_characters = separators;
    rl_completer_word_break_characters = separators;
    rl_attempted_completion_function = complete;
    using_history();
    stifle_history(kKeptLines);
    if (!historyFile().empty()) {
        read_history(historyFile().c_str());
    }
}

Prompt::~Prompt() {
    currentCompleter() = nullptr;
}

bool Prompt::next(std::string& line) {
    const std::unique_ptr<char, void (*)(void*)> read(readline(kPrompt), std::free);
    if (!read) {
        std::cout << '\n' << std::flush;
        return false;
    }
    line = read.get();
    if (line.find_first_not_of(" \t") != std::string::npos) {
        add_history(line.c_str());
        // At once: Ctrl-C ends the process.
        if (!historyFile().empty()) {
            write_history(historyFile().c_str());
        }
    }
    return true;
}

}  // namespace inscenter
