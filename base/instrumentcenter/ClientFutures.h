#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "base/instrumentcenter/ClientState.h"

namespace mxservice {

// The stored catalogues of futures, for whoever has the DatabaseWriting of "FUMAIN" or "FUPROD": documents first, then
// the version that tells of them, both before anybody else can write.

/// Writes the main contracts of each market in the place of those that are stored. Answers the markets that the store
/// refused, with its reasons.
std::map<MarketKey, std::string> writeMains(const GroupedSnapshot& mainsByMarket);
/// Notes which of them are stored and which are not.
void setUnwrittenMains(const GroupedSnapshot& mainsByMarket, const std::map<MarketKey, std::string>& refused,
                       ClientVersion& version);

/// Writes the contracts of each product likewise; answers why not.
std::optional<std::string> writeProducts(const std::map<std::string, std::vector<InstrumentPtr>>& contractsByProduct);
/// Notes them.
void setProducts(const std::map<std::string, std::vector<InstrumentPtr>>& contractsByProduct, bool isUnwritten,
                 ClientVersion& version);

/// Logs and counts it, when no lock is held any more.
void reportRefused(const char* catalogue, const std::string& reason, ClientState& client);

}  // namespace mxservice
