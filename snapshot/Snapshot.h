#pragma once

// A day's records from files and back. docs/guide/snapshots.md has the form of the files.

#include <boost/shared_ptr.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "platform/record/Records.h"
#include "snapshot/Export.h"

namespace mxservice {

/// The catalogues of a day, in the order in which a center is loaded.
enum class SnapshotCatalogue : std::uint8_t {
    Instruments,
    Etfs,
    Bonds,
    TenderBonds,
    Counterparties,
    OtcPlans,
    Issuances,
    IssuancePrices
};
/// How many there are.
constexpr std::size_t kSnapshotCatalogues = 8;
/// Every one of them, in their order.
inline constexpr std::array<SnapshotCatalogue, kSnapshotCatalogues> kEveryCatalogue{
    SnapshotCatalogue::Instruments, SnapshotCatalogue::Etfs,           SnapshotCatalogue::Bonds,
    SnapshotCatalogue::TenderBonds, SnapshotCatalogue::Counterparties, SnapshotCatalogue::OtcPlans,
    SnapshotCatalogue::Issuances,   SnapshotCatalogue::IssuancePrices};

/// The name of a catalogue, with which the names of its files begin: "instruments", "etfs", "bonds", "tenderbonds",
/// "counterparties", "otcfundplans", "issuances", "issuanceprices".
PM_SNAPSHOT_API const char* catalogueName(SnapshotCatalogue catalogue);

/// The field table of a catalogue's class of records, whose fields are the keys and columns of its files. It is the
/// same object at every call, lives as long as the process and is never changed, so any thread may ask and keep it.
PM_SNAPSHOT_API const RecordType& catalogueType(SnapshotCatalogue catalogue);

/// What a file is made of: a JSON object a line, or a header line and a record a line (RFC 4180).
enum class SnapshotFormat : std::uint8_t { Ndjson, Csv };

/// What a file is packed with.
enum class SnapshotPacking : std::uint8_t { None, Gzip, Zstd };

/// What an issue is about. The first two are records that are not there, the others remarks on some that are.
enum class SnapshotIssueKind : std::uint8_t {
    LineSkipped,     ///< the line makes no record
    FileSkipped,     ///< the file was passed over, or given up where it broke off: what was read before stays
    NumberCut,       ///< the fraction of a number was cut off, because the field holds whole numbers
    RecordReplaced,  ///< a later record of the catalogue has the key of an earlier one and took its place
    KeyUnknown,      ///< no field has this name; said once a file, where it first occurs
    FileChanged      ///< the file grew or shrank while it was read
};

/// Something that reading has met. Texts are UTF-8 without control characters, whatever stood in the file.
struct SnapshotIssue {
    std::string file;        ///< as its path was given; of a stream or memory SnapshotReadOptions::name
    std::uint64_t line = 0;  ///< from 1, of a record over several lines the first; 0: the file as a whole
    std::string field;       ///< document key or column; empty where no field is at fault
    std::string reason;      ///< for people
    SnapshotIssueKind kind = SnapshotIssueKind::LineSkipped;  ///< what it is about
    /// How many the issue stands for: 1, but where it says how many more there were than are listed. Of further unknown
    /// keys 0: nobody counts them.
    std::uint64_t count = 1;
};

/// Nothing could be read at all. what() says why; `issues` is what was met until then.
class PM_SNAPSHOT_API SnapshotUnreadable : public std::runtime_error {
public:
    /// `met`: what was met until then.
    SnapshotUnreadable(const std::string& reason, std::vector<SnapshotIssue> met);
    ~SnapshotUnreadable() override;

    std::vector<SnapshotIssue> issues;  ///< what was met until then
};

/// How a snapshot is read. What is left as it is suits a host that reads a day.
struct SnapshotReadOptions {
    /// The catalogue of a stream, of memory, or of a single file whose name tells none. Left out: instruments, and such
    /// a file is refused.
    std::optional<SnapshotCatalogue> catalogue;
    /// Likewise the format. Left out: NDJSON.
    std::optional<SnapshotFormat> format;
    /// What issues call a stream or memory.
    std::string name = "input";
    /// Threads that read, the caller's among them. 0: as many as pay: no others for a few megabytes, and never more
    /// than processors. What is read does not depend on it.
    unsigned threads = 0;
    /// Is told on the caller's thread how far reading is: bytes of the files as they are stored, and the bytes of all
    /// of them (0 where nobody knows). What it throws ends the reading and reaches the caller.
    std::function<void(std::uint64_t done, std::uint64_t total)> progress;
    /// Issues of each kind that are listed of one file; one more then says how many others there were.
    std::size_t issuesPerFile = 100;
    /// Input that one thread takes at a time. 0: what suits. What is read does not depend on it.
    std::size_t blockBytes = 0;
};

/// How a snapshot is written.
struct SnapshotWriteOptions {
    SnapshotFormat format = SnapshotFormat::Ndjson;   ///< what files are made of
    SnapshotPacking packing = SnapshotPacking::None;  ///< what they are packed with
    /// Numbers that are at their default are written, too: for readers that take a missing one for unknown.
    bool zeros = false;
    /// Files begin with a byte-order mark, by which spreadsheets know UTF-8.
    bool byteOrderMark = false;
    /// In CSV also "components.csv": a line for each component of each basket behind the fund's key. Reading passes
    /// over it, because the baskets stand in "etfs.csv" as well, as JSON in a cell.
    bool components = false;
};

/// The records of a day, each catalogue as the center's operation for it takes them, and what is to be said of its
/// files. A plain value; copies share the records (see copy()). Not for several threads while one of them changes it.
struct Snapshot {
    std::vector<boost::shared_ptr<CInstrumentDetail>> instruments;                          ///< initInstruments
    std::vector<boost::shared_ptr<CETFDetail>> etfs;                                        ///< initEtfs
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;                        ///< initBonds; by getKey
    std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> tenderBonds;            ///< by getKey
    std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> counterparties;           ///< by getKey
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> otcPlans;                              ///< initOtcInstruments
    std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>> issuances;                   ///< initIssuanceInfos
    std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>> issuancePrices;  ///< by getKey

    /// What reading has met, file after file in the order of reading. Of one file: lines skipped; why the file was
    /// given up; numbers cut; records replaced; unknown keys. Bounded by SnapshotReadOptions::issuesPerFile; of files
    /// that are passed over 1,000 are listed.
    std::vector<SnapshotIssue> issues;
    std::uint64_t skippedLines = 0;  ///< lines that made no record
    std::uint64_t skippedFiles = 0;  ///< files passed over or given up
    /// Records that were read, catalogue by catalogue, those included that were replaced.
    std::array<std::uint64_t, kSnapshotCatalogues> recordsRead{};

    /// Reads a day. A directory: every file whose name begins with the name of a catalogue and ends in ".ndjson" or
    /// ".csv", then perhaps ".gz" or ".zst", in the order of the names; others are passed over with an issue, hidden
    /// ones and READMEs silently. Or one such file. What a file is packed with is known by its first bytes; one that is
    /// named .gz or .zst and is not is refused.
    ///
    /// Records come in the order of files and lines. A line that cannot be used is skipped with an issue and the next
    /// ones are read; so are lines above 64 MiB, and CSV records over several lines above 1 MiB. Memory is that of the
    /// records, some megabytes, and the longest line.
    ///
    /// Throws SnapshotUnreadable when nothing can be read: the path is not there, the directory holds no catalogue
    /// file, or no file can be opened. An empty file is no such case.
    PM_SNAPSHOT_API static Snapshot read(const std::string& path);
    /// The same with options.
    PM_SNAPSHOT_API static Snapshot read(const std::string& path, const SnapshotReadOptions& options);
    /// Reads one catalogue from a stream up to its end, packed or not. Throws SnapshotUnreadable when it fails before
    /// the first record.
    PM_SNAPSHOT_API static Snapshot read(std::istream& stream, const SnapshotReadOptions& options);
    /// Reads one catalogue from `size` bytes, packed or not. Throws the same.
    PM_SNAPSHOT_API static Snapshot read(const char* bytes, std::size_t size, const SnapshotReadOptions& options);

    /// Writes all eight catalogues into the directory, which is made when it is missing: "instruments.ndjson" and so
    /// on, also those without records; behind the names ".gz" or ".zst" when packed. The same records give the same
    /// bytes, and reading them back gives equal records, but for what no file holds: bytes that are not UTF-8 become
    /// U+FFFD, numbers that are not finite 0, and records that reading refuses (no code, a date that is none) stay out.
    ///
    /// Files of the same names are replaced, after all of them were written under temporary names. Throws
    /// std::runtime_error naming file and reason when that fails; no temporary file is left. When the directory holds
    /// other catalogue files, which would be read together with these, nothing is written and the error names one.
    PM_SNAPSHOT_API void write(const std::string& directory, SnapshotFormat format,
                               SnapshotPacking packing = SnapshotPacking::None) const;
    /// The same with options.
    PM_SNAPSHOT_API void write(const std::string& directory, const SnapshotWriteOptions& options) const;

    /// Does `load` for one catalogue of so many records, and whatever is to be done around it.
    using LoadStep =
        std::function<void(SnapshotCatalogue catalogue, std::size_t records, const std::function<void()>& load)>;

    /// Hands every catalogue that has records to the center, instruments first in one batch (see markets()); those
    /// without are left alone. The center shares the records and fills in three of their fields: the combined connect
    /// flags of listed Hong Kong records, the market of records of "SHFI", the names of funds' components. Where that
    /// matters, or two centers are loaded, hand over a copy(). Throws what the center's operations throw.
    PM_SNAPSHOT_API void loadInto(IInstrumentCenter& center) const;
    /// The same, each catalogue through `step`, which can tell or time it.
    PM_SNAPSHOT_API void loadInto(IInstrumentCenter& center, const LoadStep& step) const;

    /// The markets that the instruments name, in the order in which they first occur, as initInstruments and
    /// replaceInstruments take them. Where that is exactly one of "HGT", "SGT" and "HK" a second of the three is added:
    /// the in-memory center takes a list of one of them for a part of Hong Kong and waits for the others.
    PM_SNAPSHOT_API std::vector<std::string> markets() const;

    /// The same with records of its own, components of funds included.
    PM_SNAPSHOT_API Snapshot copy() const;

    /// The records of one catalogue; they are shared.
    PM_SNAPSHOT_API std::vector<boost::shared_ptr<IData>> records(SnapshotCatalogue catalogue) const;
    /// Puts the record behind those of its catalogue, or under its key. It must be of the catalogue's class. Answers
    /// false when another of the same key made way for it.
    PM_SNAPSHOT_API bool add(SnapshotCatalogue catalogue, boost::shared_ptr<IData> record);
};

}  // namespace mxservice
