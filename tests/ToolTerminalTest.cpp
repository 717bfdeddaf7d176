#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "TemporaryStore.h"
#include "tools/inscenter/TextTable.h"
#include "tools/inscenter/Utf8.h"

// The tool's program at a terminal of its own.

namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

constexpr int kRecords = 20000;

/// A process at the other end of a pseudo terminal.
class Terminal {
public:
    Terminal(std::vector<std::string> command, unsigned short columns) {
        winsize size{};
        size.ws_col = columns;
        size.ws_row = 24;
        process_ = ::forkpty(&descriptor_, nullptr, nullptr, &size);
        if (process_ == 0) {
            std::vector<char*> argv;
            for (std::string& word : command) {
                argv.push_back(word.data());
            }
            argv.push_back(nullptr);
            ::execvp(argv[0], argv.data());
            ::_exit(127);
        }
    }
    ~Terminal() {
        ::close(descriptor_);
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
        }
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    void type(const std::string& keys) {
        EXPECT_EQ(::write(descriptor_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    /// What is shown up to and with `text`; everything when the process ends before.
    std::string readTo(const std::string& text) {
        std::size_t end = shown_.find(text);
        while (end == std::string::npos && readMore()) {
            end = shown_.find(text);
        }
        end = end == std::string::npos ? shown_.size() : end + text.size();
        std::string before = shown_.substr(0, end);
        shown_.erase(0, end);
        return before;
    }

    /// What is shown up to the shell's prompt, when the line editor has begun to read keys: it writes the prompt first.
    std::string readToPrompt() {
        const std::string prompt = "inscenter> ";
        const std::string before = readTo(prompt);
        termios mode{};
        while (before.ends_with(prompt) && ::tcgetattr(descriptor_, &mode) == 0 && (mode.c_lflag & ICANON) != 0) {
            ::usleep(1000);
        }
        return before;
    }

    /// What is shown until the process ends, and its exit code.
    std::pair<std::string, int> finish() {
        while (readMore()) {
        }
        int status = -1;
        ::waitpid(process_, &status, 0);
        process_ = -1;
        return {shown_, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
    }

private:
    bool readMore() {
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(descriptor_, buffer.data(), buffer.size());
        shown_.append(buffer.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return count > 0;
    }

    std::string shown_;
    pid_t process_ = -1;
    int descriptor_ = -1;
};

class ToolTerminalTest : public ::testing::Test {
protected:
    ToolTerminalTest() {
        std::ofstream file(day_.path() / "instruments.ndjson");
        for (int i = 0; i < kRecords; ++i) {
            file << R"({"market":"SH","code":")" << 600000 + i << R"(","name":"名称"})" << '\n';
        }
        ::setenv("HOME", home_.path().c_str(), 1);
        ::setenv("TERM", "xterm", 1);
        ::setenv("PAGER", "cat", 1);
        ::unsetenv("NO_COLOR");
    }

    Terminal start(const std::vector<std::string>& arguments, unsigned short columns = 80) const {
        std::vector<std::string> command{PM_INSCENTER, "--data", day_.path()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return {command, columns};
    }

    TemporaryDirectory day_;
    TemporaryDirectory home_;
};

TEST_F(ToolTerminalTest, ControlCGivesUpTheLineAndControlDEndsTheShell) {
    Terminal shell = start({"shell"});
    shell.readToPrompt();
    shell.type("has SH600000 SH99");
    shell.readTo("SH99");
    shell.type("\x03");
    shell.readTo("^C");
    shell.readToPrompt();
    shell.type("has SH600001\r");
    EXPECT_THAT(shell.readTo("hasStock"), AllOf(HasSubstr("SH600001"), Not(HasSubstr("SH600000"))));
    shell.readToPrompt();
    shell.type("\x04");
    EXPECT_EQ(shell.finish().second, 0);
    std::ifstream history(home_.path() / ".inscenter_history");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(history), {}),
                AllOf(HasSubstr("600001"), Not(HasSubstr("SH99"))));
}

TEST_F(ToolTerminalTest, ShellsAtTheSameTimeKeepTheHistoryOfBoth) {
    std::array<Terminal, 2> shells{start({"shell"}), start({"shell"})};
    for (Terminal& shell : shells) {
        shell.readToPrompt();
    }
    for (const int code : {0, 1, 2}) {
        Terminal& shell = shells[static_cast<std::size_t>(code) % 2];
        shell.type("has SH60000" + std::to_string(code) + "\r");
        shell.readTo("hasStock");
        shell.readToPrompt();
    }
    std::ifstream history(home_.path() / ".inscenter_history");
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(history), {}),
                AllOf(HasSubstr("600000\n"), HasSubstr("600001\n"), HasSubstr("600002\n")));
}

TEST_F(ToolTerminalTest, CompletesBehindWideLetters) {
    ::setenv("LC_ALL", "C.UTF-8", 1);
    Terminal shell = start({"shell"});
    shell.readToPrompt();
    shell.type("list --market SH --where 'name~名称' --limit 1 --fields code,na\t\r");
    EXPECT_THAT(shell.readTo("600000"), HasSubstr("code    name"));
    shell.readToPrompt();
    shell.type("\x04");
    EXPECT_EQ(shell.finish().second, 0);
}

TEST_F(ToolTerminalTest, ControlCStopsALongAnswer) {
    Terminal shell = start({"shell"});
    shell.readToPrompt();
    shell.type("list --market SH\r");
    shell.readTo("600100");  // the rest waits to be read
    shell.type("\x03");
    const std::string rest = shell.readToPrompt();
    EXPECT_TRUE(rest.ends_with("stopped\r\ninscenter> ")) << rest.substr(rest.size() - 200);
    EXPECT_EQ(rest.find("619999"), std::string::npos);
    shell.type("has SH600001\r");
    EXPECT_THAT(shell.readTo("hasStock"), HasSubstr("SH600001"));
    shell.readToPrompt();
    shell.type("\x04");
    EXPECT_EQ(shell.finish().second, 0);
}

TEST_F(ToolTerminalTest, LongAnswersGoThroughThePager) {
    ::setenv("PAGER", "sed 's/^/|/'; true", 1);
    Terminal shell = start({"shell"});
    shell.readToPrompt();
    shell.type("list --market SH --limit 30\r");
    EXPECT_THAT(shell.readToPrompt(), HasSubstr("|SH      600029"));
    shell.type("sql select code from instruments\r");
    shell.readTo("...> ");
    shell.type("where code < '600002';\r");
    EXPECT_THAT(shell.readToPrompt(), AllOf(HasSubstr("\r\n600001\r\n"), Not(HasSubstr("|600"))));
    shell.type("sql select 1\r");
    shell.readTo("...> ");
    shell.type("\x03");
    shell.readToPrompt();  // the statement is given up with its line
    shell.type("sql select nam\t from instr\tlimit 1;\r");
    EXPECT_THAT(shell.readToPrompt(), HasSubstr("\r\n名称\r\n"));
    ::setenv("PAGER", "no-such-program", 1);
    Terminal lost = start({"shell"});
    lost.readToPrompt();
    lost.type("list --market SH --limit 30\r");
    EXPECT_THAT(lost.readToPrompt(), HasSubstr("\nSH      600029"));
}

TEST_F(ToolTerminalTest, LongTextsAreBrokenBetweenWords) {
    const auto wordsOf = [](const std::string& text) {
        std::istringstream words(text);
        return std::vector<std::string>(std::istream_iterator<std::string>(words), {});
    };
    for (const std::vector<std::string>& arguments :
         {std::vector<std::string>{"--help"}, {"list", "--help"}, {"mains", "--help"}, {"store", "dump", "--help"}}) {
        const std::vector<std::string> words = wordsOf(start(arguments, 200).finish().first);
        EXPECT_GT(words.size(), 50U);
        for (const unsigned short columns : std::array<unsigned short, 3>{32, 60, 80}) {
            const std::string help = start(arguments, columns).finish().first;
            EXPECT_EQ(wordsOf(help), words) << columns;
            std::istringstream lines(help);
            for (std::string line; std::getline(lines, line);) {
                const std::size_t begin = line.find_first_not_of(' ');
                const bool oneWord = begin != std::string::npos && line.find(' ', begin) == std::string::npos;
                EXPECT_TRUE(oneWord || inscenter::displayWidth(line.substr(0, line.find('\r'))) <= columns) << line;
            }
        }
    }
    EXPECT_TRUE(inscenter::isUtf8(inscenter::wrapped("招商銀行", 1))) << "a letter that has no room stays whole";
    // A last column of texts goes on in further lines, also beside a cell that is empty.
    const auto [summary, code] = start({"summary"}, 60).finish();
    EXPECT_EQ(code, 0);
    EXPECT_THAT(summary, AllOf(HasSubstr("stocks, funds, bonds\r\n   "), HasSubstr("   and indices\r\ntotal  ")));
    Terminal shell = start({"shell"}, 40);
    EXPECT_THAT(shell.readToPrompt(), HasSubstr("or\r\n\"quit\". "));
}

}  // namespace
