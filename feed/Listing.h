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

/// How a center takes loads that follow one another. Both replace the markets that a load has records of. The in-memory
/// one takes Hong Kong in parts, one load for each of "HGT", "SGT" and "HK": it keeps the last record of a code, and
/// nothing before both connect markets are there. The persisted one empties every market that a load names, and
/// completes what shares a market ("HK", "SH") from what it has kept of those that the load does not bring.
enum class Loads : bool { InMemory, Persisted };

/// What the loads of a day and the changes since come to.
Listing listingOf(const Day& day, const std::vector<Change>& changes, Loads loads);

/// What is to be done, one after the other, behind a batch that has the changes in it, for markets where the batch does
/// not decide alone. Of keys that several markets share, the upserts since the last removal: who takes such a key, and
/// which flags it has, is decided otherwise in a change. Of the instruments that stand for funds and bonds, whatever
/// was changed: the loads of those come behind the batch.
std::vector<Change> afterBatch(const std::vector<Change>& changes);

/// Adds those of the folded names that are missing, and of "HK" and "SH" all markets that are filed there: a center
/// that is to have nothing else of them must not complete them from what it has kept. Never exactly one of "HGT", "SGT"
/// and "HK", which the in-memory center would take for a part.
void nameAll(const std::set<std::string>& folded, std::vector<std::string>& markets);

/// The folded names of a day's markets.
std::set<std::string> marketsOf(const Listing& listing);

}  // namespace mxservice::feed
