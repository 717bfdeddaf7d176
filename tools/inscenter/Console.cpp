#include "tools/inscenter/Console.h"

#include <fmt/format.h>

#include <algorithm>
#include <ostream>

#include "tools/inscenter/TextTable.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

constexpr auto kPatience = std::chrono::seconds(1);
constexpr auto kRedraw = std::chrono::milliseconds(100);
constexpr std::size_t kBarColumns = 30;
constexpr std::string_view kName = "inscenter:";
/// Return to the first column, erase the line (ECMA-48, EL).
constexpr const char* kEraseLine = "\r\x1B[K";

}  // namespace

std::string withoutSecrets(std::string_view text) {
    constexpr std::string_view kScheme = "://";
    std::string shown;
    for (;;) {
        const std::size_t scheme = text.find(kScheme);
        if (scheme == std::string_view::npos) {
            return shown.append(text);
        }
        const std::size_t begin = scheme + kScheme.size();
        shown += text.substr(0, begin);
        text.remove_prefix(begin);
        // The last of them, for a password may hold one that should have been escaped; but not of the next URL.
        const std::size_t end = std::min(text.find_first_of(" \t\n"), text.find(kScheme));
        const std::size_t at = text.substr(0, end).rfind('@');
        text.remove_prefix(at == std::string_view::npos ? 0 : at + 1);
    }
}

Console::Console(std::ostream& err, bool terminal, const Screen& screen)
    : err_(err), terminal_(terminal), screen_(screen) {}

Console::~Console() {
    end();
}

void Console::message(std::string_view text) {
    end();
    std::string line = fmt::format("{} {}\n", kName, printable(withoutSecrets(text)));
    if (screen_.columns > 0) {
        line = wrapped(line, screen_.columns);
    }
    // Toned when the line was broken: escapes take bytes, but no columns.
    std::string name;
    appendToned(name, kName, Tone::Bad, screen_);
    err_ << line.replace(0, kName.size(), name);
}

void Console::point(std::string_view line, std::size_t at) {
    constexpr std::string_view kIndent = "  ";
    std::string before = printable(line.substr(0, at));
    std::string behind = printable(line.substr(at));
    const std::size_t room =
        screen_.columns == 0 ? std::string::npos : screen_.columns - std::min(screen_.columns, 2 * kIndent.size());
    // The place itself is what is to be seen: the line loses its beginning first, then its end.
    while (!before.empty() && displayWidth(before) > room * 2 / 3) {
        before.erase(0, decodeUtf8(before).length);
    }
    if (room != std::string::npos) {
        behind = cutText(behind, room - displayWidth(before));
    }
    err_ << kIndent << before << behind << '\n' << kIndent << std::string(displayWidth(before), ' ') << "^\n";
}

void Console::begin(std::string step, std::uint64_t total) {
    step_ = std::move(step);
    total_ = total;
    // A step that cannot say how far it is shows its name at once when the steps before took their time.
    advance(0);
}

void Console::advance(std::uint64_t done) {
    if (!terminal_) {  // a log is no place for a bar
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now - began_ >= kPatience && now - drawn_ >= kRedraw) {
        drawn_ = now;
        draw(done);
    }
}

void Console::draw(std::uint64_t done) {
    err_ << kEraseLine << step_;
    if (total_ > 0) {
        // A file may grow while it is read.
        const double share = std::min(1.0, static_cast<double>(done) / static_cast<double>(total_));
        const auto filled = static_cast<std::size_t>(share * static_cast<double>(kBarColumns));
        err_ << fmt::format(" [{}{}] {:3.0f} %", std::string(filled, '#'), std::string(kBarColumns - filled, '.'),
                            share * 100);
    } else {
        err_ << " ...";
    }
    err_.flush();
    shown_ = true;
}

void Console::end() {
    if (shown_) {
        err_ << kEraseLine;
        err_.flush();
        shown_ = false;
    }
}

}  // namespace inscenter
