#pragma once

#ifdef _WIN32
#include <windows.h>
#else
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#endif

#include <optional>
#include <string>
#include <vector>

#include "system/Path.h"

/// A program that runs beside the test until it ends or is killed; killed with the object at the latest.
class ChildProgram {
public:
    explicit ChildProgram(std::vector<std::string> command);
    ~ChildProgram();
    ChildProgram(const ChildProgram&) = delete;
    ChildProgram& operator=(const ChildProgram&) = delete;

    /// Waits for what it writes to standard output; nothing when that has ended.
    std::optional<char> read();
    /// Waits for its end; its exit code, negative when it was killed.
    int wait();
    /// Ends it, whatever it is doing; whether it had not ended by itself. What it wrote before can still be read.
    bool kill();

private:
#ifdef _WIN32
    static constexpr UINT kKilled = 0xDEAD;

    HANDLE process_ = nullptr;
    HANDLE output_ = nullptr;
#else
    pid_t process_ = 0;
    int output_ = -1;
#endif
    std::optional<int> result_;
};

#ifdef _WIN32

inline ChildProgram::ChildProgram(std::vector<std::string> command) {
    SECURITY_ATTRIBUTES inherited{sizeof inherited, nullptr, TRUE};
    HANDLE end = nullptr;
    if (::CreatePipe(&output_, &end, &inherited, 0) == FALSE) {
        result_ = 127;
        return;
    }
    ::SetHandleInformation(output_, HANDLE_FLAG_INHERIT, 0);
    std::string line;
    for (const std::string& argument : command) {
        line += '"' + argument + "\" ";
    }
    std::wstring wide = sys::pathOf(line).native();
    STARTUPINFOW start{};
    start.cb = sizeof start;
    start.dwFlags = STARTF_USESTDHANDLES;
    start.hStdOutput = end;
    start.hStdError = ::GetStdHandle(STD_ERROR_HANDLE);
    PROCESS_INFORMATION made{};
    if (::CreateProcessW(nullptr, wide.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &start, &made) == FALSE) {
        result_ = 127;
    } else {
        ::CloseHandle(made.hThread);
        process_ = made.hProcess;
    }
    ::CloseHandle(end);
}

inline std::optional<char> ChildProgram::read() {
    char byte = 0;
    DWORD got = 0;
    return ::ReadFile(output_, &byte, 1, &got, nullptr) != FALSE && got == 1 ? std::optional(byte) : std::nullopt;
}

inline int ChildProgram::wait() {
    if (!result_) {
        ::WaitForSingleObject(process_, INFINITE);
        DWORD code = 0;
        ::GetExitCodeProcess(process_, &code);
        result_ = code == kKilled ? -1 : static_cast<int>(code);
    }
    return *result_;
}

inline bool ChildProgram::kill() {
    if (!result_) {
        ::TerminateProcess(process_, kKilled);
    }
    return wait() < 0;
}

inline ChildProgram::~ChildProgram() {
    kill();
    ::CloseHandle(process_);
    ::CloseHandle(output_);
}

#else

inline ChildProgram::ChildProgram(std::vector<std::string> command) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        result_ = 127;
        return;
    }
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::vector<char*> arguments;
    for (std::string& argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    if (::posix_spawn(&process_, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
        result_ = 127;
    }
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    output_ = ends[0];
}

inline std::optional<char> ChildProgram::read() {
    char byte = 0;
    return ::read(output_, &byte, 1) == 1 ? std::optional(byte) : std::nullopt;
}

inline int ChildProgram::wait() {
    if (!result_) {
        int status = 0;
        ::waitpid(process_, &status, 0);
        result_ = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    }
    return *result_;
}

inline bool ChildProgram::kill() {
    if (!result_) {
        ::kill(process_, SIGKILL);
    }
    return wait() < 0;
}

inline ChildProgram::~ChildProgram() {
    kill();
    ::close(output_);
}

#endif
