#pragma once

#include <string>
#include <string_view>

namespace inscenter {

/// The text as people look for it: small letters, full-width letters and digits as plain ones ("万科Ａ" as "万科a"),
/// without blanks. Bytes that are no UTF-8 stay out.
std::string foldedText(std::string_view text);

}  // namespace inscenter
