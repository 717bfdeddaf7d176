#pragma once

#include <boost/shared_ptr.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/record/Records.h"
#include "tools/inscenter/Console.h"

namespace inscenter {

/// Input that cannot be worked with at all: the tool says so and ends with exit code 2.
class UnreadableInput : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The catalogues of a snapshot, in the order in which a center is loaded.
enum class Catalogue : std::uint8_t {
    Instruments,
    Etfs,
    Bonds,
    TenderBonds,
    Counterparties,
    OtcFundPlans,
    Issuances,
    IssuancePrices
};
constexpr std::size_t kCatalogues = 8;

/// The name of a catalogue, with which the names of its files begin.
const char* catalogueName(Catalogue catalogue);

/// The records of a snapshot, in the order of the files and lines.
struct Snapshot {
    std::vector<boost::shared_ptr<mxservice::CInstrumentDetail>> instruments;
    std::vector<boost::shared_ptr<mxservice::CETFDetail>> etfs;
    std::vector<boost::shared_ptr<mxservice::CBondInfoDetail>> bonds;
    std::vector<boost::shared_ptr<mxservice::CTenderBondInfoDetail>> tenderBonds;
    std::vector<boost::shared_ptr<mxservice::CCounterpartyDetail>> counterparties;
    std::vector<boost::shared_ptr<mxservice::COTCFundPlanInfo>> otcFundPlans;
    std::vector<boost::shared_ptr<mxservice::COTCSecuritiesIssuanceInfo>> issuances;
    std::vector<boost::shared_ptr<mxservice::COTCStockEnquiryPriceSetting>> issuancePrices;
};

/// The same with records of the caller's own, their baskets included.
Snapshot copyOf(const Snapshot& snapshot);

/// The records of one catalogue.
std::vector<boost::shared_ptr<mxservice::IData>> recordsOf(const Snapshot& snapshot, Catalogue catalogue);

/// The trading day that all records name which name one, YYYYMMDD; empty when none does or two differ.
std::string tradingDayOf(const Snapshot& snapshot);

/// Puts the record, which must be of the catalogue's class, behind those of its catalogue.
void addRecord(Snapshot& snapshot, Catalogue catalogue, boost::shared_ptr<mxservice::IData> record);

/// What reading brought.
struct ReadReport {
    std::array<std::size_t, kCatalogues> records{};  ///< by catalogue
    std::size_t skipped = 0;                         ///< lines and files that were passed over
    double seconds = 0;
};

/// The directory or file as messages name it: "standard input" for "-".
std::string snapshotName(const std::filesystem::path& path);

/// Reads every file of the directory `directory` whose name begins with the name of a catalogue and ends in ".ndjson"
/// (a JSON object a line) or ".csv" (a header line and a record a line), in the order of the names; packed with gzip,
/// behind that in ".gz". Keys are the records' document keys.
///
/// The directory "-" stands for standard input, which holds instruments, a JSON object a line, packed or not.
///
/// What cannot be used is reported on `console` and passed over: a line as "FILE:LINE: field NAME: REASON", up to 20
/// lines a file and then their number; unknown keys once a file; files of other names, except hidden ones and READMEs.
/// Fractions of whole numbers are cut off, the line is taken and reported likewise.
/// Throws UnreadableInput when the directory cannot be read, or none of its files can.
ReadReport readSnapshot(const std::filesystem::path& directory, Snapshot& snapshot, Console& console);

}  // namespace inscenter
