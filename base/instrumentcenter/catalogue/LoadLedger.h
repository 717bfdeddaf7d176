#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/catalogue/DroppedRecords.h"
#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/HashIndex.h"

namespace mxservice {

/// Time since its construction.
class Stopwatch {
public:
    std::chrono::nanoseconds elapsed() const { return std::chrono::steady_clock::now() - began_; }

private:
    std::chrono::steady_clock::time_point began_ = std::chrono::steady_clock::now();
};

/// The steps of a load, as reports name them.
constexpr const char* kGroupingStep = "grouping";
constexpr const char* kFilingStep = "records and keys";
constexpr const char* kMainsStep = "main contracts";
constexpr const char* kProductsStep = "products";
constexpr const char* kSpreadsStep = "Dalian spreads";
constexpr const char* kStockCodesStep = "stock code sets";
constexpr const char* kNeeqStep = "NEEQ inquiry set";
constexpr const char* kOptionsStep = "option underlyings";
constexpr const char* kOuterStep = "outer markets";
constexpr const char* kReleaseStep = "clearing up";

/// Times the parts of a load.
class StepWatch {
public:
    /// What was done since the step before, or since construction.
    void done(const char* step) {
        const auto time = watch_.elapsed();
        steps_.push_back({step, time - told_});
        told_ = time;
    }
    std::vector<LoadStep> take() { return std::move(steps_); }

private:
    Stopwatch watch_;
    std::chrono::nanoseconds told_{};
    std::vector<LoadStep> steps_;
};

/// What one load has noted of its markets before their records are stored. Each load has its own, on its own thread:
/// what loads at the same time note of one another's markets must not mix.
class LoadNotes {
public:
    /// Records on their way into markets.
    void receive(const ReceivedByMarket& received);
    /// Of a market's received records, how many were read back from a raw database.
    void noteRestored(MarketKey market, std::size_t records);

    /// What the load drops is named here on its way.
    DroppedList& dropped() { return dropped_; }

    /// Keys that the load took out of a market, to bring the new ones later.
    void noteCleared(MarketKey market, const std::string& name, KeySet former);
    /// Hands them over.
    KeySet takeCleared(MarketKey market);

    /// `load`, of a market whose records are stored now, with what was noted of it before.
    MarketLoad settled(MarketKey market, MarketLoad load);
    /// The markets that were cleared and brought nothing for: they are empty now.
    std::map<MarketKey, MarketLoad> emptied();

private:
    struct Note {
        std::uint64_t received = 0;
        std::uint64_t restored = 0;
        std::string name;  // of a cleared market
        KeySet former;
    };

    std::map<MarketKey, Note> noteByMarket_;
    DroppedList dropped_;
};

/// What the loads of a center did.
class LoadLedger {
public:
    /// A market's records are stored.
    void settle(MarketKey market, MarketLoad load);
    /// So are those of the markets that were cleared and brought nothing for.
    void settleEmptied(LoadNotes& notes);

    /// A load of instruments is complete.
    void finish(LoadReport report, LoadNotes& notes);

    void noteFailedWrite(const std::string& database, const std::string& reason);

    /// Fills in what is known of loads and writes.
    void report(CenterStatistics& statistics) const;

private:
    std::map<MarketKey, MarketLoad> latest_;
    std::map<std::string, FailedWrites> failedWrites_;
    LoadReport lastLoad_;
};

/// A report with what can be told from the batch alone. Its empty pointers are the first that `dropped` names.
LoadReport reportOn(const std::vector<InstrumentPtr>& batch, DroppedList& dropped);

/// The name of a market by one of its records. Instruments that stand for ETFs carry their fund's market and not the
/// one that they are filed under.
std::string filedMarketName(MarketKey market, const MarketRecords& records);

}  // namespace mxservice
