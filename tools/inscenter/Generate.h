#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace inscenter {

/// What `inscenter generate` is asked for.
struct GenerateOptions {
    std::size_t size = 0;    ///< records of instruments.ndjson; the other catalogues grow with it
    std::uint64_t seed = 1;  ///< the same seed, size and date give the same bytes on every machine
    std::string date;        ///< trading day, YYYYMMDD; empty: utils::today()
    std::string directory;   ///< made when it is missing; files of the same names are overwritten
};

/// Writes an invented market day as a snapshot: instruments.ndjson with exactly `size` records, and beside it
/// etfs, bonds, tenderbonds, counterparties, otcfundplans, issuances and issuanceprices. Codes, units and price steps
/// have the forms of the real exchanges, companies and funds are made up. From about 450 records on, every market and
/// every kind of record is there; what exceeds an ordinary day's number goes to options, bonds and US stocks.
///
/// `out` gets one line a file. Throws what says why it is not written: a bad date, a size without enough codes, or a
/// file that cannot be written; files begun so far stay. Memory does not grow with the size.
void generate(const GenerateOptions& options, std::ostream& out);

}  // namespace inscenter
