#include "tools/inscenter/Prompt.h"

#include <editline/readline.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iostream>
#include <memory>
#include <utility>

namespace inscenter {
namespace {

constexpr const char* kPrompt = "inscenter> ";
constexpr const char* kContinued = "      ...> ";
constexpr int kNoSuchProgram = 127;  // of a shell's exit codes
constexpr int kKeptLines = 1000;
constexpr int kControlC = 3;

// The line editor calls back without an argument of ours.
Prompt::Completer& currentCompleter() {
    static Prompt::Completer current;
    return current;
}

std::string historyFile() {
    const char* const home = std::getenv("HOME");
    return home == nullptr || *home == '\0' ? "" : std::string(home) + "/.inscenter_history";
}

/// Adds the line to the history, and to its file at once: a closed terminal ends the process. Another shell may have
/// written to the file meanwhile, so it is read anew, while no other does the same. A file that cannot be locked or
/// written leaves the history of this process.
void remember(const std::string& line) {
    const std::string name = historyFile();
    // For the owner alone: what was asked is nobody else's business.
    const int file = name.empty() ? -1 : ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, S_IRUSR | S_IWUSR);
    if (file < 0 || ::flock(file, LOCK_EX) != 0) {
        add_history(line.c_str());
    } else {
        struct stat written {};
        // An empty file is new, or was being written when its process ended: then what this one remembers is all there
        // is.
        if (::fstat(file, &written) == 0 && written.st_size > 0) {
            clear_history();
            read_history(name.c_str());
        }
        add_history(line.c_str());
        write_history(name.c_str());  // in place: who is killed here leaves its beginning
    }
    if (file >= 0) {
        ::close(file);  // and with it the lock, also where the process ends first
    }
}

std::string pager() {
    const char* const named = std::getenv("PAGER");
    return named == nullptr ? "less" : named;
}

/// The bytes before the cursor; rl_point counts characters.
std::string beforeCursor() {
    const std::string line = rl_line_buffer;
    std::mbstate_t state{};
    std::size_t bytes = 0;
    for (int i = 0; i < rl_point && bytes < line.size(); ++i) {
        const std::size_t length = std::mbrlen(&line[bytes], line.size() - bytes, &state);
        const bool character = length > 0 && length <= line.size() - bytes;
        bytes += character ? length : 1;
        state = character ? state : std::mbstate_t{};
    }
    return line.substr(0, bytes);
}

char* nextCandidate(const char* /*word*/, int state) {
    static std::vector<std::string> candidates;
    static std::size_t position = 0;
    if (state == 0) {
        position = 0;
        const std::string line = beforeCursor();
        const std::size_t blank = line.find_last_of(" \t");
        const std::size_t begin = blank == std::string::npos ? 0 : blank + 1;
        candidates = currentCompleter()(line.substr(0, begin), line.substr(begin));
    }
    return position < candidates.size() ? strdup(candidates[position++].c_str()) : nullptr;  // the editor frees it
}

char** complete(const char* word, int /*begin*/, int /*end*/) {
    rl_attempted_completion_over = 1;  // no names of files
    return rl_completion_matches(word, nextCandidate);
}

bool givenUp = false;

int giveUpLine(int /*count*/, int /*key*/) {
    givenUp = true;
    rl_done = 1;
    return 0;
}

/// While it lives, Ctrl-C is a key of the editor's: a signal between two of its reads would be lost.
class TypedControlC {
public:
    TypedControlC() {
        tcgetattr(STDIN_FILENO, &before_);
        termios typed = before_;
        typed.c_cc[VINTR] = _POSIX_VDISABLE;
        tcsetattr(STDIN_FILENO, TCSADRAIN, &typed);
    }
    ~TypedControlC() { tcsetattr(STDIN_FILENO, TCSADRAIN, &before_); }
    TypedControlC(const TypedControlC&) = delete;
    TypedControlC& operator=(const TypedControlC&) = delete;

private:
    termios before_{};
};

}  // namespace

const char* Prompt::keys() {
    return "Tab completes, Ctrl-C stops.";
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
    rl_initialize();
    rl_add_defun("give-up-line", giveUpLine, kControlC);
    using_history();
    stifle_history(kKeptLines);
    if (!historyFile().empty()) {
        read_history(historyFile().c_str());
    }
}

Prompt::~Prompt() {
    currentCompleter() = nullptr;  // it refers to the center and day of whoever made this prompt
}

LineSource::Next Prompt::next(std::string& line, bool continued) {
    Interruption::forget();
    givenUp = false;
    const TypedControlC typed;
    const std::unique_ptr<char, void (*)(void*)> read(readline(continued ? kContinued : kPrompt), std::free);
    if (!read) {
        std::cout << (givenUp ? "^C\n" : "\n") << std::flush;
        return givenUp ? Next::GivenUp : Next::End;
    }
    line = read.get();
    if (line.find_first_not_of(" \t") != std::string::npos) {
        remember(line);
    }
    return Next::Line;
}

bool Prompt::hasPages() const {
    return !pager().empty() && pager() != "cat";
}

bool Prompt::show(const std::string& answer) {
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 ||
        std::count(answer.begin(), answer.end(), '\n') < static_cast<std::ptrdiff_t>(size.ws_row)) {
        return false;
    }
    ::setenv("LESS", "FRX", 0);  // colours as they are, and the answer stays on the screen afterwards
    // Whoever leaves the pager early has seen enough; that is no reason to end the shell.
    const auto before = std::signal(SIGPIPE, SIG_IGN);
    std::cout.flush();
    FILE* const pages = ::popen(pager().c_str(), "w");
    if (pages != nullptr) {
        std::fwrite(answer.data(), 1, answer.size(), pages);
    }
    const int ended = pages == nullptr ? -1 : ::pclose(pages);
    std::signal(SIGPIPE, before);
    return ended != -1 && !(WIFEXITED(ended) && WEXITSTATUS(ended) == kNoSuchProgram);
}

}  // namespace inscenter
