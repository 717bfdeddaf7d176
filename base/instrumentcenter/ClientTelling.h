#pragma once

#include <string>

#include "base/instrumentcenter/ClientState.h"

namespace mxservice {

/// What subscribers are told of a write to a market's database: what lists have of the market, which is in the store or
/// unwritten, against what they are to have. To be asked while the caller has the DatabaseWriting, before it writes, so
/// that what each writer tells follows on what the one before has told. `isWhole`: what is not among the records goes.
/// `name` may be empty where there are no records.
CatalogueChange marketDifference(const Market& known, std::string name, const MarketRecords& records, bool isWhole);

/// Adds a part of what is told together.
void add(CatalogueChange part, CatalogueChange& whole);

/// Adds what becomes of one record; either may be null.
void addDifference(const InstrumentPtr& before, const InstrumentPtr& after, CatalogueChange& change);

}  // namespace mxservice
