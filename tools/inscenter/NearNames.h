#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace inscenter {

/// Those of the names that someone who wrote `wrong` may have meant, the nearest first; at most three.
std::vector<std::string> nearNames(std::string_view wrong, const std::vector<std::string>& names);

/// "; did you mean A, B or C?", or nothing where there is no name.
std::string didYouMean(std::vector<std::string> names);

/// The same of the names that are near.
std::string didYouMean(std::string_view wrong, const std::vector<std::string>& names);

}  // namespace inscenter
