#pragma once

#include <string>
#include <string_view>

namespace inscenter {

/// How a Chinese letter (one code point in UTF-8) is read, in small Latin letters without tones; ü is u. Of several
/// readings the most common one. Empty for what is no Chinese letter, and for all where the tool was built without ICU.
std::string hanReading(std::string_view letter);

}  // namespace inscenter
