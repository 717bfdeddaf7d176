#pragma once

#include <functional>
#include <string>
#include <vector>

#include "tools/inscenter/Interruption.h"

namespace inscenter {

/// Where the lines of a shell come from.
class LineSource {
public:
    virtual ~LineSource() = default;
    /// False at the end.
    virtual bool next(std::string& line) = 0;

protected:
    LineSource() = default;
    LineSource(const LineSource&) = default;
    LineSource& operator=(const LineSource&) = default;
};

/// Standard input as it stands, for scripts.
class PlainLines : public LineSource {
public:
    bool next(std::string& line) override;
};

/// A prompt on the terminal, with a history that outlives the process (~/.inscenter_history) and completion. Ctrl-C
/// gives up the line that is being typed; Ctrl-D on an empty one is the end. One at a time.
class Prompt : public LineSource {
public:
    /// Answers what the word at the end of `line` may become.
    using Completer = std::function<std::vector<std::string>(const std::string& line, const std::string& word)>;

    explicit Prompt(Completer completer);
    ~Prompt() override;
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    bool next(std::string& line) override;

private:
    Interruption interruption_;
};

}  // namespace inscenter
