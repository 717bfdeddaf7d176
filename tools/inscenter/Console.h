#pragma once

#include <chrono>
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "tools/inscenter/TextTable.h"

namespace inscenter {

/// The text without user and password of the URLs in it: what stands between "//" and "@".
std::string withoutSecrets(std::string_view text);

/// Standard error: messages, and on a terminal a progress bar once a step takes longer than a second. Not for several
/// threads at once.
class Console {
public:
    /// `terminal`: the stream is a terminal, so that a bar may be drawn.
    Console(std::ostream& err, bool terminal, const Screen& screen = {});
    /// Takes the bar away.
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    /// Writes one line, on a terminal broken between words. Bytes and control characters that could upset a terminal
    /// are shown in a harmless form, URLs without their secrets.
    void message(std::string_view text);

    /// Shows a byte of a line that the last message was about: the line, or what of it has room, and a mark below.
    void point(std::string_view line, std::size_t at);

    /// Begins a step of `total` units; 0 when it cannot be told how far the step is.
    void begin(std::string step, std::uint64_t total);
    /// So many units are done.
    void advance(std::uint64_t done);
    /// Takes the bar away.
    void end();

private:
    using Clock = std::chrono::steady_clock;
    void draw(std::uint64_t done);

    std::ostream& err_;
    const bool terminal_;
    const Screen screen_;
    Clock::time_point began_ = Clock::now();
    Clock::time_point drawn_;
    std::string step_;
    std::uint64_t total_ = 0;
    bool shown_ = false;
};

}  // namespace inscenter
