#pragma once

#include <string>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "tools/inscenter/FiledInstruments.h"

namespace inscenter {

/// What sort of thing the instrument is, as its center's predicates see it: "future", "ETF", ... Shares, other funds,
/// bonds and indices of one market are "security", because no predicate tells them apart. Empty for what none knows.
std::string instrumentKind(mxservice::IInstrumentCenter& center, const Filed& instrument);

}  // namespace inscenter
