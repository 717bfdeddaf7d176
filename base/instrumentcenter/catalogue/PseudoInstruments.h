#pragma once

#include <string>
#include <vector>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

namespace mxservice {

/// The pseudo-market under which ETFs are registered for creation and redemption. Stored; never change.
constexpr const char* kEtfInstruments = "ETFINSTS";

/// The two keys of a fund: by its trading code and by its creation/redemption code.
StockKey etfKey(const CETFDetail& etf);
StockKey creationKey(const CETFDetail& etf);

/// The key text that a fund is listed under, made of its own market and trading code.
std::string keyTextOf(const CETFDetail& etf);

/// Adds the instrument that stands for a fund's creation and redemption, unless its code is there already. It is named
/// after the basket's first component, or after its own code when the basket is empty.
void addEtfInstrument(const CETFDetail& etf, MarketRecords& instruments);

/// The key of an interbank bond.
StockKey bondKey(const CBondInfoDetail& bond);

/// The keys of the instruments that are a bond: of "BANK", and of "SH" and "SZ" where it has a code.
std::vector<StockKey> listingKeysOf(const CBondInfoDetail& bond);

/// Adds the instrument of market "BANK" that stands for a bond, unless its code is there already.
void addBondInstrument(const CBondInfoDetail& bond, MarketRecords& instruments);

}  // namespace mxservice
