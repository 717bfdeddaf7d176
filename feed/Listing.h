#pragma once

#include <boost/shared_ptr.hpp>

#include <set>
#include <string>
#include <vector>

#include "feed/Feed.h"

namespace mxservice::feed {

/// The instruments of a whole day as one batch, so that a center that has another day takes it in one step.
struct Listing {
    std::vector<std::string> markets;
    std::vector<boost::shared_ptr<CInstrumentDetail>> instruments;
};

/// How a center takes Hong Kong when it comes in parts, one load for each of "HGT", "SGT" and "HK": the in-memory one
/// keeps the last record of a code and nothing before both connect markets are there, the persisted one groups all
/// records as it would those of one load. Beside that, the persisted one empties every market that a load names, the
/// in-memory one those alone that the load has records of.
enum class ConnectParts : bool { LastWins, Grouped };

/// What the loads of a day and the changes since come to. A load replaces what earlier ones brought for its markets.
Listing listingOf(const Day& day, const std::vector<Change>& changes, ConnectParts parts);

/// Of the changes, the last upsert of each key that is still there, for keys that several markets share: who takes
/// such a key is decided otherwise in a change than in a batch.
std::vector<boost::shared_ptr<CInstrumentDetail>> sharedUpserts(const std::vector<Change>& changes);

/// Adds those of the folded names that are missing. Where the result is exactly one of "HGT", "SGT" and "HK", a second
/// one: the in-memory center would take it for a part and wait for the others.
void nameAll(const std::set<std::string>& folded, std::vector<std::string>& markets);

/// The folded names of a day's markets.
std::set<std::string> marketsOf(const Listing& listing);

}  // namespace mxservice::feed
