#pragma once

#include <list>
#include <string>

#include "base/instrumentcenter/vocabulary/TraderType.h"

namespace mxservice {

/// The exchanges of a trader type in their fixed order; an unknown value gives an empty list. Types 1 and 8 put "BJ"
/// first while 4096 and 1048576 leave it out; the difference is intended.
std::list<std::string> exchangesOf(EOvTraderType type);

/// Whether the in-memory center answers this type with every record there is.
bool meansEverything(EOvTraderType type);

}  // namespace mxservice
