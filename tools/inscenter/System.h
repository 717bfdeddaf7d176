#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// All that the tool asks of the operating system. Each system has one unit that answers, System*.cpp; but for the
// prompt of a build with a line editor, nothing else in this directory knows which system it is. Texts and paths are
// UTF-8.

namespace inscenter {

/// A program's standard streams.
enum class Standard { Input, Output, Error };

/// What a terminal can do.
struct TerminalState {
    std::size_t columns = 0;  ///< 0: nobody knows
    bool escapes = false;     ///< it obeys those of ECMA-48, when they are colours
};

/// The terminal behind the stream; nothing when it goes elsewhere.
std::optional<TerminalState> terminalOf(Standard stream);

/// While it lives, std::cin, std::cout and std::cerr pass on bytes as they are, on a terminal as the letters that they
/// stand for; and once nobody reads what the program writes, it ends at once with exit code 0: whoever read the answer
/// has seen enough ("inscenter ... | head"). One in a process, and nothing may be read or written before.
class StandardStreams {
public:
    StandardStreams();
    ~StandardStreams();
    StandardStreams(const StandardStreams&) = delete;
    StandardStreams& operator=(const StandardStreams&) = delete;
};

/// The words of the command line, the program's name first. `argc` and `argv` are those of main().
std::vector<std::string> commandWords(int argc, const char* const* argv);

/// The memory of this process, in bytes; 0 where the system does not tell.
struct MemoryUse {
    std::uint64_t now = 0;
    std::uint64_t most = 0;
};
MemoryUse memoryUse();

/// Whether the process may write to the file, or make files in the directory.
bool mayWrite(const std::filesystem::path& path);

/// Makes a directory of a new name, for its owner alone. Throws std::runtime_error when that fails.
std::string makeTemporaryDirectory();

/// Makes an empty file for what only its owner may read. Throws std::runtime_error where there is one already, or none
/// can be made. On Windows who may read it is up to the directory.
void makePrivateFile(const std::filesystem::path& path);

}  // namespace inscenter
