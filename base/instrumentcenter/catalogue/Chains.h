#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {

// Contracts of a product, options of an underlying, and records by day. Asked one by one where records lie in a store,
// or of tables made of all of them; both give the same records in the same order. Where all that an order goes by is
// alike, the folded market decides, then the code: of one record the centers may keep different listings.

/// What an option is an option on; the code is empty where the record is none or does not say. Views of the record.
struct Underlying {
    std::string_view market;
    std::string_view code;
};
/// Of a call or put of an option market. Where the record leaves it out, the market is that of the option's exchange:
/// "SH" for "SHO", "SZ" for "SZO", else its own; and a stock option's code stands in the parentheses of its product.
Underlying underlyingOf(const CInstrumentDetail& record);

/// The hash of an underlying. Not that of market and code in one text, where "SH" with "FEcu" would be "SHFE" with
/// "cu".
std::uint64_t underlyingKey(std::string_view market, std::string_view code);

/// The markets that may list options on something of a market: a futures exchange and "WP" themselves; for "SH" and
/// "SZ" their option market and "CFFEX", which has options on indexes.
std::vector<MarketKey> optionMarketsOf(std::string_view underlyingMarket);
/// The markets that list options or contracts at all.
std::vector<MarketKey> derivativeMarkets();

/// Whether it is a contract of a futures exchange that names a product, and no option.
bool isContract(const InstrumentPtr& record);

/// By expiry, then code. Texts are compared as they stand, so an unknown day comes first.
void sortAsContracts(std::vector<InstrumentPtr>& records);
/// By expiry, strike price, then calls before puts.
void sortAsChain(std::vector<InstrumentPtr>& options);
/// By folded market, then code.
void sortByKey(std::vector<InstrumentPtr>& records);

/// Records in their order, by the hash of what they are asked for by.
using RecordTable = HashIndex<std::vector<InstrumentPtr>>;

/// Where records stand in the table that keeps them.
using RecordPlaces = std::vector<const InstrumentPtr*>;

struct DerivativeTables {
    RecordTable contractsByProduct;   // key: textKey of the product
    RecordTable optionsByUnderlying;  // key: underlyingKey
};
/// Of the records of `derivativeMarkets()`.
DerivativeTables deriveDerivatives(const RecordPlaces& records);

/// Any records by one of their dates, under its textKey; unknown days have no entry.
RecordTable deriveDays(const RecordPlaces& records, std::string CInstrumentDetail::*date);

}  // namespace mxservice
