#pragma once

#include <boost/format.hpp>

#include <string>

#include "base/instrumentcenter/boundary/Log.h"

namespace mxservice {

/// The source file that every log line of the persisted center names, whatever unit it comes from.
constexpr const char* kClientSource = "base/instrumentcenter/CClientInstrumentCenter";

/// A text with its %1%, %2%, ... replaced.
template <class... Arguments>
std::string formatted(const char* text, const Arguments&... arguments) {
    boost::format format(text);
    return (format % ... % arguments).str();
}

/// The text of a failed write of a market or pseudo-market.
constexpr const char* kSaveFailed = "[clientIns] save to persist failed, market = %1%";

/// The text of a document that is not of the record whose key it stands under.
constexpr const char* kNotItsOwn = "[clientIns] document of another record, db = %1%, key = %2%";

}  // namespace mxservice
