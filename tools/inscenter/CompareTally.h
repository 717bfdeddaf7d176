#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/inscenter/Output.h"

namespace inscenter {

/// Counts compared answers by group and keeps the first differences.
class Tally {
public:
    static constexpr std::size_t kNamedDifferences = 20;

    void begin(std::string group) { groups_.push_back({std::move(group), 0, 0}); }

    /// Counts an answer of the group begun last; `difference` is empty when it is the same. `question` makes the
    /// question's text and is called only when there is a difference.
    template <class Question>
    void add(const std::string& difference, Question question) {
        ++groups_.back().compared;
        if (!difference.empty()) {
            ++groups_.back().different;
            if (named_.size() < kNamedDifferences) {
                named_.push_back(fmt::format("{}: {}", question(), difference));
            }
        }
    }

    std::int64_t different() const { return total().different; }

    /// A table of the groups; the differences as notes, or in formats for programs in the last row.
    void write(Output& output) const;

private:
    struct Group {
        std::string name;
        std::int64_t compared;
        std::int64_t different;
    };

    Group total() const;

    std::vector<Group> groups_;
    std::vector<std::string> named_;
};

}  // namespace inscenter
