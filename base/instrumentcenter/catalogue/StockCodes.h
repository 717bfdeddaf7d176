#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "base/instrumentcenter/catalogue/CodeSets.h"
#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"

namespace mxservice {

/// Today's new issues and depositary receipts of a snapshot, by market; entries are market directly followed by code.
struct StockCodes {
    std::map<std::string, std::set<std::string>> ipo;
    std::map<std::string, std::set<std::string>> cdr;
};

/// Whether a load of these markets may change the stock code sets: one of them is "SH", "SZ" or "BJ".
bool touchesStockCodes(const std::vector<std::string>& markets);

/// Classifies the records of "SH", "SZ" and "BJ" by utils::isToday and the market rules. Additional issues of listed
/// stocks belong to neither set.
StockCodes deriveStockCodes(const GroupedSnapshot& grouped);

/// The records of "NEEQ" with security class 5.
std::set<std::string> deriveNeeqInquiryCodes(const GroupedSnapshot& grouped);

/// The hashes of the codes that the product ids of "SHO" and "SZO" carry in parentheses ("50ETF(510050)"), by the
/// underlying's exchange, "SH" or "SZ"; an exchange without any has no entry.
std::map<std::string, std::set<std::uint64_t>> deriveOptionUnderlyings(const GroupedSnapshot& grouped);

/// Replaces the sets of all three markets, also by empty ones: a load of "SZ" empties "BJ".
void install(StockCodes codes, CodeSets& sets);

/// Replaces the sets of the exchanges present; `underlyings` leaves with the former ones.
void installOptionUnderlyings(std::map<std::string, std::set<std::uint64_t>>& underlyings, CodeSets& sets);

/// Of "NEEQ", "SHO" and "SZO" those that the snapshot has and that have no codes in it. A load leaves them their former
/// ones; a replaced market keeps none.
std::vector<std::string> marketsWithoutCodes(const GroupedSnapshot& grouped);

/// Takes out what a market has in the sets: issues and receipts of "SH", "SZ" and "BJ", the inquiry codes of "NEEQ",
/// the underlyings of "SHO" and "SZO".
void removeMarket(const std::string& market, CodeSets& sets);

}  // namespace mxservice
