#pragma once

#include "tools/marketday/Day.h"

namespace marketday {

using Data = boost::shared_ptr<mxservice::IData>;

/// A catalogue beside the instruments: one record for so many of these, within limits.
struct Catalogue {
    const char* name;
    Data (*make)(const Day& day, std::size_t index);  ///< null: the day is too small for so many
    std::size_t instrumentsForOne;
    std::size_t least;
    std::size_t most;
};

extern const std::span<const Catalogue> kCatalogues;

}  // namespace marketday
