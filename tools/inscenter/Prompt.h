#pragma once

#include <functional>
#include <iostream>
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
    bool next(std::string& line) override { return static_cast<bool>(std::getline(std::cin, line)); }
};

/// A prompt on the terminal. Ctrl-C gives up the line that is being typed; Ctrl-D on an empty one is the end. With
/// libedit it has completion, and a history that outlives the process (~/.inscenter_history); a build without that
/// library takes PlainPrompt.cpp instead. One at a time.
class Prompt : public LineSource {
public:
    /// Answers what the word at the end of `line` may become.
    using Completer = std::function<std::vector<std::string>(const std::string& line, const std::string& word)>;

    explicit Prompt(Completer completer);
    ~Prompt() override;
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    bool next(std::string& line) override;

    /// What the keys do, in a sentence.
    static const char* keys();

private:
    Interruption interruption_;
};

}  // namespace inscenter
