#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/record/IData.h"

namespace marketday {

struct Day;

/// An invented market day for samples, benchmarks and tests: any number of instruments, and the catalogues beside them.
///
/// It imitates a day of the mainland, Hong Kong, the United States and the outer futures markets. Code ranges, units,
/// price steps and limits have the forms of the real exchanges; companies, funds and bonds are made up. Records refer
/// to each other as real ones do: options to funds and futures, convertible bonds to shares, baskets to their
/// components, interbank bonds to their listings, new issues to the shares they are of, and the same stock comes under
/// "HK", "HGT" and "SGT". Of a record's 60 fields about 30 are filled, with 110 bytes of text, as an exchange's file
/// fills them; public lists of real instruments fill fewer. A document takes 1,366 bytes. Up to about 450 instruments a
/// day grows until every market and every kind of record is there, then to an ordinary day of 74,000; what exceeds that
/// goes to options, bonds and US stocks.
///
/// The same size, seed and date give the same records on every machine. Immutable; safe from any thread.
class MarketDay {
public:
    using Visit = std::function<void(const boost::shared_ptr<mxservice::IData>&)>;

    /// `date` is the trading day, YYYYMMDD. Throws std::invalid_argument, with a reason for a user, when it is no day
    /// or there are not codes enough for `size` instruments.
    MarketDay(std::size_t size, std::uint64_t seed, const std::string& date);
    ~MarketDay();

    /// "instruments", "etfs", "bonds" and so on, as a snapshot's files are named.
    static std::vector<std::string> catalogues();

    /// Calls `visit` with one record of the catalogue after the other, each a new one that the caller may keep. Memory
    /// does not grow with the size. Instruments are CInstrumentDetail, market by market, exactly `size` of them.
    void visit(std::string_view catalogue, const Visit& visit) const;

private:
    std::size_t size_;
    std::unique_ptr<const Day> day_;
};

}  // namespace marketday
