#include "tools/inscenter/NearNames.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>
#include <utility>

#include "tools/inscenter/FoldedText.h"

namespace inscenter {
namespace {

constexpr std::size_t kMostNames = 3;
constexpr std::size_t kLeastPart = 3;  // shorter texts are part of too many names

/// The letters to add, drop, change or swap with the next to get from one text to the other.
std::size_t editDistance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> before(to.size() + 1);  // the row of two letters ago
    std::vector<std::size_t> above(to.size() + 1);
    std::vector<std::size_t> row(to.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < from.size(); ++i) {
        before.swap(above);
        above.swap(row);
        row[0] = i + 1;
        for (std::size_t j = 0; j < to.size(); ++j) {
            row[j + 1] = std::min({row[j] + 1, above[j + 1] + 1, above[j] + (from[i] == to[j] ? 0 : 1)});
            // Swapped neighbours are one slip of the fingers and not two: "DEC" is near to "DCE".
            if (i > 0 && j > 0 && from[i] == to[j - 1] && from[i - 1] == to[j]) {
                row[j + 1] = std::min(row[j + 1], before[j - 1] + 1);
            }
        }
    }
    return row.back();
}

}  // namespace

std::vector<std::string> nearNames(std::string_view wrong, const std::vector<std::string>& names) {
    // Keys are told apart by case, but who writes "sh" means "SH".
    const std::string asked = foldedText(wrong);
    std::vector<std::pair<std::size_t, std::string>> near;
    for (const std::string& name : names) {
        const std::string folded = foldedText(name);
        const std::size_t distance = editDistance(asked, folded);
        const bool part = asked.size() >= kLeastPart && folded.find(asked) != std::string::npos;
        // A third of the letters: with more, short names are near to each other whatever they say.
        if (part || distance <= std::max<std::size_t>(1, asked.size() / 3)) {
            near.emplace_back(distance, name);
        }
    }
    std::sort(near.begin(), near.end());
    std::vector<std::string> nearest;
    for (std::size_t i = 0; i < std::min(near.size(), kMostNames); ++i) {
        nearest.push_back(near[i].second);
    }
    return nearest;
}

std::string didYouMean(std::vector<std::string> names) {
    if (names.empty()) {
        return {};
    }
    const std::string last = names.back();
    names.pop_back();
    return fmt::format("; did you mean {}{}{}?", fmt::join(names, ", "), names.empty() ? "" : " or ", last);
}

std::string didYouMean(std::string_view wrong, const std::vector<std::string>& names) {
    return didYouMean(nearNames(wrong, names));
}

}  // namespace inscenter
