#pragma once

#include <cstddef>
#include <string_view>

#include "snapshot/Utf8.h"

namespace inscenter {

using mxservice::snapshot::CodePoint;
using mxservice::snapshot::decodeUtf8;
using mxservice::snapshot::isUtf8;
using mxservice::snapshot::pathOf;
using mxservice::snapshot::printable;
using mxservice::snapshot::textOf;

/// Columns that a terminal gives the text: 2 for wide and full-width characters, 0 for combining and invisible ones,
/// else 1, by Unicode Standard Annex #11.
std::size_t displayWidth(std::string_view text);

}  // namespace inscenter
