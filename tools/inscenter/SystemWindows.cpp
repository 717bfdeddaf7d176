#define WIN32_LEAN_AND_MEAN
#define NOMINMAX
#include <windows.h>
// After the header that it builds upon.
#include <fcntl.h>
#include <io.h>
#include <psapi.h>
#include <shellapi.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <stdexcept>
#include <streambuf>
#include <string_view>
#include <system_error>

#include "tools/inscenter/System.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

// Consoles of older systems take no longer text at once; the same bound will do for what is typed.
constexpr std::size_t kConsoleUnits = 8192;
constexpr std::size_t kKeptBytes = std::size_t{1} << 16U;

HANDLE handleOf(Standard stream) {
    constexpr std::array kHandles{STD_INPUT_HANDLE, STD_OUTPUT_HANDLE, STD_ERROR_HANDLE};
    return ::GetStdHandle(kHandles.at(static_cast<std::size_t>(stream)));
}

bool isConsole(HANDLE handle) {
    DWORD mode = 0;
    return ::GetConsoleMode(handle, &mode) != FALSE;
}

/// What is no text becomes U+FFFD in either direction.
std::string narrow(std::wstring_view wide) {
    const int units = static_cast<int>(wide.size());
    const int bytes = ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, nullptr, 0, nullptr, nullptr);
    std::string text(static_cast<std::size_t>(bytes), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, wide.data(), units, text.data(), bytes, nullptr, nullptr);
    return text;
}

std::wstring widen(std::string_view text) {
    const int bytes = static_cast<int>(text.size());
    const int units = ::MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(units), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, text.data(), bytes, wide.data(), units);
    return wide;
}

bool writeToConsole(HANDLE console, std::wstring_view text) {
    while (!text.empty()) {
        std::size_t units = std::min(text.size(), kConsoleUnits);
        // A letter of two units is written at once.
        units -= units < text.size() && IS_HIGH_SURROGATE(text[units - 1]) ? 1U : 0U;
        DWORD written = 0;
        if (::WriteConsoleW(console, text.data(), static_cast<DWORD>(units), &written, nullptr) == FALSE ||
            written == 0) {
            return false;
        }
        text.remove_prefix(written);
    }
    return true;
}

/// Which of these it is depends on the kind of pipe.
bool readerHasGone(DWORD reason) {
    return reason == ERROR_NO_DATA || reason == ERROR_BROKEN_PIPE || reason == ERROR_PIPE_NOT_CONNECTED;
}

bool writeBytes(HANDLE file, std::string_view bytes) {
    while (!bytes.empty()) {
        DWORD written = 0;
        if (::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr) == FALSE) {
            if (readerHasGone(::GetLastError())) {
                std::_Exit(0);
            }
            return false;
        }
        bytes.remove_prefix(written);
    }
    return true;
}

/// Writes to a console in the system's own letters, whatever its code page is, and elsewhere bytes as they are: the C
/// runtime would put a return in front of each end of a line. Texts are handed over whole: a letter whose bytes came
/// apart around a flush would be none.
class HandleWriter : public std::streambuf {
public:
    explicit HandleWriter(HANDLE handle) : handle_(handle), console_(isConsole(handle)) {}

protected:
    int_type overflow(int_type character) override {
        if (traits_type::eq_int_type(character, traits_type::eof())) {
            return traits_type::not_eof(character);
        }
        const char byte = traits_type::to_char_type(character);
        return xsputn(&byte, 1) == 1 ? character : traits_type::eof();
    }
    std::streamsize xsputn(const char* bytes, std::streamsize count) override {
        kept_.append(bytes, static_cast<std::size_t>(count));
        return kept_.size() < kKeptBytes || sync() == 0 ? count : 0;
    }
    int sync() override {
        const bool written = console_ ? writeToConsole(handle_, widen(kept_)) : writeBytes(handle_, kept_);
        kept_.clear();
        return written ? 0 : -1;
    }

private:
    const HANDLE handle_;
    const bool console_;
    std::string kept_;
};

/// Lines that are typed, in UTF-8. Ctrl-Z at the beginning of one is the end.
class ConsoleReader : public std::streambuf {
public:
    explicit ConsoleReader(HANDLE console) : console_(console) {}

protected:
    int_type underflow() override {
        constexpr wchar_t kControlZ = 0x1A;
        std::wstring typed(kConsoleUnits, L'\0');
        DWORD units = 0;
        do {
            ::SetLastError(ERROR_SUCCESS);
            if (::ReadConsoleW(console_, typed.data(), static_cast<DWORD>(typed.size()), &units, nullptr) == FALSE) {
                return traits_type::eof();
            }
            // Ctrl-C gives up the line, as terminals do elsewhere; whether it ends the program is decided by another
            // thread.
        } while (units == 0 && ::GetLastError() == ERROR_OPERATION_ABORTED);
        if (units == 0 || typed.front() == kControlZ) {
            return traits_type::eof();
        }
        line_ = narrow({typed.data(), units});
        setg(line_.data(), line_.data(), line_.data() + line_.size());
        return traits_type::to_int_type(line_.front());
    }

private:
    const HANDLE console_;
    std::string line_;
};

/// Has the console obey escapes for as long as it lives. Its mode belongs to all who share it.
class ObeyedEscapes {
public:
    explicit ObeyedEscapes(HANDLE console) : console_(console) {
        known_ = ::GetConsoleMode(console_, &before_) != FALSE &&
                 ::SetConsoleMode(console_, before_ | ENABLE_VIRTUAL_TERMINAL_PROCESSING) != FALSE;
    }
    ~ObeyedEscapes() {
        if (known_) {
            ::SetConsoleMode(console_, before_);
        }
    }
    ObeyedEscapes(const ObeyedEscapes&) = delete;
    ObeyedEscapes& operator=(const ObeyedEscapes&) = delete;

private:
    const HANDLE console_;
    DWORD before_ = 0;
    bool known_ = false;
};

/// Puts another buffer under a stream for as long as it lives.
class Replaced {
public:
    Replaced(std::ios& stream, std::unique_ptr<std::streambuf> buffer)
        : stream_(stream), buffer_(std::move(buffer)), before_(stream.rdbuf(buffer_.get())) {}
    ~Replaced() {
        buffer_->pubsync();
        stream_.rdbuf(before_);
    }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

private:
    std::ios& stream_;
    const std::unique_ptr<std::streambuf> buffer_;
    std::streambuf* const before_;
};

/// The process's streams for as long as it lives; escapes are obeyed until all is written.
struct Streams {
    ObeyedEscapes outputEscapes{handleOf(Standard::Output)};
    ObeyedEscapes errorEscapes{handleOf(Standard::Error)};
    std::optional<Replaced> input;
    Replaced output{std::cout, std::make_unique<HandleWriter>(handleOf(Standard::Output))};
    Replaced error{std::cerr, std::make_unique<HandleWriter>(handleOf(Standard::Error))};
};

std::optional<Streams> streams;

}  // namespace

std::optional<TerminalState> terminalOf(Standard stream) {
    const HANDLE handle = handleOf(stream);
    DWORD mode = 0;
    if (::GetConsoleMode(handle, &mode) == FALSE) {
        return std::nullopt;
    }
    TerminalState state;
    state.escapes = (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
    // Its window, not the buffer behind it, which may be far wider.
    CONSOLE_SCREEN_BUFFER_INFO screen{};
    if (::GetConsoleScreenBufferInfo(handle, &screen) != FALSE) {
        state.columns = static_cast<std::size_t>(screen.srWindow.Right - screen.srWindow.Left + 1);
    }
    return state;
}

StandardStreams::StandardStreams() {
    std::ios::sync_with_stdio(false);
    streams.emplace();
    const HANDLE input = handleOf(Standard::Input);
    if (isConsole(input)) {
        streams->input.emplace(std::cin, std::make_unique<ConsoleReader>(input));
    } else {
        _setmode(_fileno(stdin), _O_BINARY);  // packed days, and no Ctrl-Z that ends a text
    }
}

StandardStreams::~StandardStreams() {
    streams.reset();
}

// Not those of main(), which are in the process's code page, and in which names with * have been looked up as files.
std::vector<std::string> commandWords(int /*argc*/, const char* const* /*argv*/) {
    int count = 0;
    const std::unique_ptr<LPWSTR, HLOCAL (*)(HLOCAL)> words(::CommandLineToArgvW(::GetCommandLineW(), &count),
                                                            ::LocalFree);
    std::vector<std::string> texts;
    for (int i = 0; words && i < count; ++i) {
        texts.push_back(narrow(words.get()[i]));
    }
    return texts;
}

MemoryUse memoryUse() {
    PROCESS_MEMORY_COUNTERS counters{};
    if (::K32GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof(counters)) == FALSE) {
        return {};
    }
    return {counters.WorkingSetSize, counters.PeakWorkingSetSize};
}

// Asked by opening, because only that weighs all that Windows has of rights. To a directory the same right means to
// make files in it.
bool mayWrite(const std::filesystem::path& path) {
    constexpr DWORD kAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
    const HANDLE file =
        ::CreateFileW(path.c_str(), FILE_WRITE_DATA, kAll, nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    const bool opened = file != INVALID_HANDLE_VALUE;
    if (opened) {
        ::CloseHandle(file);
    }
    return opened;
}

// Beneath the user's own directory of such files, which others may not look into.
std::string makeTemporaryDirectory() {
    std::random_device random;
    std::filesystem::path path;
    std::error_code failure;
    do {
        path = std::filesystem::temp_directory_path() / ("inscenter-" + std::to_string(random()));
    } while (!std::filesystem::create_directory(path, failure) && !failure);
    if (failure) {
        throw std::runtime_error(textOf(path) + ": cannot be made: " + failure.message());
    }
    return textOf(path);
}

void makePrivateFile(const std::filesystem::path& path) {
    const HANDLE file =
        ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const std::error_code failure(static_cast<int>(::GetLastError()), std::system_category());
        throw std::runtime_error(textOf(path) + ": cannot be made: " + failure.message());
    }
    ::CloseHandle(file);
}

}  // namespace inscenter
