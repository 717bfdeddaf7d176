#include "tools/inscenter/ShellWords.h"

#include <utility>

namespace inscenter {
namespace {

/// Whether what follows a backslash begins with a character that means something here. Before any other a backslash
/// stands for itself: paths of Windows are full of them.
bool isSpecial(std::string_view next) {
    return next.find_first_of(" \t'\"\\>#") == 0;
}

}  // namespace

std::optional<ShellLine> shellLine(std::string_view line) {
    ShellLine taken;
    std::vector<std::string>& words = taken.words;
    std::string word;
    bool begun = false;
    char quote = '\0';
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char character = line[i];
        if (character == '\\' && quote != '\'' && isSpecial(line.substr(i + 1))) {
            word += line[++i];
            begun = true;
        } else if (quote != '\0') {
            if (character == quote) {
                quote = '\0';
            } else {
                word += character;
            }
        } else if (character == '\'' || character == '"') {
            quote = character;
            begun = true;
        } else if (character == ' ' || character == '\t' || character == '\r') {
            // A return ends the lines of scripts that were written on other systems.
            if (begun) {
                words.push_back(std::exchange(word, {}));
            }
            begun = false;
        } else if (character == '>' && !begun && !taken.file) {
            // The first one alone: a second is a word, so that the caller can refuse two files.
            taken.file = words.size();
            taken.append = line.substr(i + 1).starts_with('>');
            i += taken.append ? 1 : 0;
        } else {
            word += character;
            begun = true;
        }
    }
    if (quote != '\0') {
        return std::nullopt;
    }
    if (begun) {
        words.push_back(std::move(word));
    }
    return taken;
}

}  // namespace inscenter
