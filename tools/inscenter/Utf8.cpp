#include "tools/inscenter/Utf8.h"

#include <utf8proc.h>

namespace inscenter {

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    while (!text.empty()) {
        const CodePoint next = decodeUtf8(text);
        // Control characters are none to the library, but where they are counted they will be shown as signs.
        const bool sign = mxservice::snapshot::isControl(next.value);
        const int columns = sign ? 1 : utf8proc_charwidth(static_cast<utf8proc_int32_t>(next.value));
        width += static_cast<std::size_t>(columns);
        text.remove_prefix(next.length);
    }
    return width;
}

}  // namespace inscenter
