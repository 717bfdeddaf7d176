#pragma once

#include <cstddef>

#include "tools/inscenter/generate/MarketDay.h"
#include "tools/inscenter/generate/RecordFile.h"

namespace inscenter::generate {

// Each writes the records of its kinds, as many as the day's plan says. The same day gives the same records.

// Into instruments.ndjson.
void writeShanghaiStocks(const MarketDay& day, RecordFile& file);  ///< indexes, shares and funds too
void writeShenzhenStocks(const MarketDay& day, RecordFile& file);  ///< indexes, shares and funds too
void writeBeijingStocks(const MarketDay& day, RecordFile& file);
void writeNeeq(const MarketDay& day, RecordFile& file);
void writeListedBonds(const MarketDay& day, RecordFile& file);  ///< "SH", "SHFI" and "SZ"
void writeIssues(const MarketDay& day, RecordFile& file);       ///< of today, and depositary receipts
void writeHongKong(const MarketDay& day, RecordFile& file);     ///< "HK", "HGT" and "SGT"
void writeUsStocks(const MarketDay& day, RecordFile& file);
void writeStockOptions(const MarketDay& day, RecordFile& file);
void writeFutures(const MarketDay& day, RecordFile& file);  ///< spreads too
void writeFutureOptions(const MarketDay& day, RecordFile& file);
void writeOuterFutures(const MarketDay& day, RecordFile& file);
void writeGold(const MarketDay& day, RecordFile& file);
void writeOtcInstruments(const MarketDay& day, RecordFile& file);

// Into the other catalogues; `count` records each.
void writeEtfs(const MarketDay& day, std::size_t count, RecordFile& file);
void writeInterbankBonds(const MarketDay& day, std::size_t count, RecordFile& file);
void writeTenderBonds(const MarketDay& day, std::size_t count, RecordFile& file);
void writeCounterparties(const MarketDay& day, std::size_t count, RecordFile& file);
void writeFundPlans(const MarketDay& day, std::size_t count, RecordFile& file);
void writeIssuances(const MarketDay& day, std::size_t count, RecordFile& file);
void writeIssuancePrices(const MarketDay& day, std::size_t count, RecordFile& file);

}  // namespace inscenter::generate
