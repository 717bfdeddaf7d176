#pragma once

#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "tools/inscenter/Interruption.h"

namespace inscenter {

/// Where the lines of a shell come from, and where its answers may be shown.
class LineSource {
public:
    enum class Next { Line, GivenUp, End };

    virtual ~LineSource() = default;
    /// The next line, of one that goes on where `continued`.
    virtual Next next(std::string& line, bool continued) = 0;
    /// Whether long answers may be shown in pages.
    virtual bool hasPages() const { return false; }
    /// Shows an answer in pages that is too long for the screen; false where it is not, or cannot be shown so.
    virtual bool show(const std::string& /*answer*/) { return false; }

protected:
    LineSource() = default;
    LineSource(const LineSource&) = default;
    LineSource& operator=(const LineSource&) = default;
};

/// Standard input as it stands, for scripts.
class PlainLines : public LineSource {
public:
    Next next(std::string& line, bool /*continued*/) override {
        return std::getline(std::cin, line) ? Next::Line : Next::End;
    }
};

/// A prompt on the terminal. Ctrl-C gives up the line that is being typed; Ctrl-D on an empty one is the end. With
/// libedit it has completion, a history that outlives the process (~/.inscenter_history), and shows long answers with
/// $PAGER or less (not where that is empty or "cat"); a build without that library takes PlainPrompt.cpp instead. One
/// at a time.
class Prompt : public LineSource {
public:
    /// Answers what the word at the end of `line` may become.
    using Completer = std::function<std::vector<std::string>(const std::string& line, const std::string& word)>;

    explicit Prompt(Completer completer);
    ~Prompt() override;
    Prompt(const Prompt&) = delete;
    Prompt& operator=(const Prompt&) = delete;

    Next next(std::string& line, bool continued) override;
    bool hasPages() const override;
    bool show(const std::string& answer) override;

    /// What the keys do, in a sentence.
    static const char* keys();

private:
    Interruption interruption_;
};

}  // namespace inscenter
