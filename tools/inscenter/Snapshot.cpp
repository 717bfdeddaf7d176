#include "tools/inscenter/Snapshot.h"

#include <fmt/format.h>

#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <chrono>
#include <string_view>
#include <system_error>
#include <utility>

#include "tools/inscenter/CsvRecordReader.h"
#include "tools/inscenter/JsonRecordReader.h"
#include "tools/inscenter/LineReader.h"
#include "tools/inscenter/StoreDirectory.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::IData;
using mxservice::RecordType;

constexpr std::size_t kShownLines = 20;  // of a file: one wrong column spoils every line
/// Between two looks at the clock.
constexpr std::size_t kLinesAStep = 1024;

template <class Record, std::vector<shared_ptr<Record>> Snapshot::*member>
void add(Snapshot& snapshot, shared_ptr<IData> record) {
    (snapshot.*member).push_back(boost::static_pointer_cast<Record>(std::move(record)));
}

template <class Record, std::vector<shared_ptr<Record>> Snapshot::*member>
std::vector<shared_ptr<IData>> all(const Snapshot& snapshot) {
    return {(snapshot.*member).begin(), (snapshot.*member).end()};
}

/// How the files of one catalogue become records.
struct CatalogueKind {
    const char* name;
    const RecordType& (*table)();
    void (*add)(Snapshot&, shared_ptr<IData>);
    std::vector<shared_ptr<IData>> (*all)(const Snapshot&);
};

template <class Record, std::vector<shared_ptr<Record>> Snapshot::*member>
constexpr CatalogueKind kind(const char* name) {
    return {name, &Record::table, &add<Record, member>, &all<Record, member>};
}

// In the order of the enumeration. No name begins with another, so that a file belongs to one catalogue.
constexpr std::array<CatalogueKind, kCatalogues> kKinds{
    kind<mxservice::CInstrumentDetail, &Snapshot::instruments>("instruments"),
    kind<mxservice::CETFDetail, &Snapshot::etfs>("etfs"),
    kind<mxservice::CBondInfoDetail, &Snapshot::bonds>("bonds"),
    kind<mxservice::CTenderBondInfoDetail, &Snapshot::tenderBonds>("tenderbonds"),
    kind<mxservice::CCounterpartyDetail, &Snapshot::counterparties>("counterparties"),
    kind<mxservice::COTCFundPlanInfo, &Snapshot::otcFundPlans>("otcfundplans"),
    kind<mxservice::COTCSecuritiesIssuanceInfo, &Snapshot::issuances>("issuances"),
    kind<mxservice::COTCStockEnquiryPriceSetting, &Snapshot::issuancePrices>("issuanceprices")};

/// Stands for standard input where a directory or file is named.
constexpr const char* kStandardInput = "-";

enum class Form { Json, Csv };

struct CatalogueFile {
    std::filesystem::path path;
    std::size_t catalogue;
    Form form;
};

/// Reports what is to be said of one file; of the lines that were passed over, the first few in full.
class SkippedLines {
public:
    SkippedLines(Console& console, std::string file) : console_(console), file_(std::move(file)) {}

    void add(std::size_t line, const LineError& error) {
        if (count_++ < kShownLines) {
            say({line, error.text()});
        }
    }
    void say(const FileNote& note) const {
        const std::string place = note.line == 0 ? file_ : fmt::format("{}:{}", file_, note.line);
        console_.message(fmt::format("{}: {}", place, note.text));
    }
    std::size_t count() const { return count_; }
    /// Says how many lines went unmentioned.
    void finish() const {
        if (count_ > kShownLines) {
            say({0, fmt::format("... and {} more lines skipped", count_ - kShownLines)});
        }
    }

private:
    Console& console_;
    std::string file_;
    std::size_t count_ = 0;
};

bool isBlank(std::string_view line) {
    return line.find_first_not_of(" \t") == std::string_view::npos;
}

/// Reads one file into the snapshot.
class FileReader {
public:
    FileReader(const CatalogueFile& file, Snapshot& snapshot, Console& console)
        : file_(file),
          kind_(kKinds[file.catalogue]),
          type_(kind_.table()),
          identity_(identityFields(type_)),
          dates_(dateFields(type_)),
          json_(type_),
          csv_(type_),
          skipped_(console, snapshotName(file.path)),
          snapshot_(snapshot),
          console_(console) {}

    /// `before`: bytes of the files before this one. Throws std::runtime_error where the file cannot be read; what was
    /// read up to there stays.
    void read(std::uint64_t before) {
        LineReader lines = file_.path == kStandardInput ? LineReader() : LineReader(file_.path);
        bool header = file_.form == Form::Json;
        while (lines.next()) {
            if (lines.number() % kLinesAStep == 0) {
                console_.advance(before + lines.bytesRead());
            }
            if (lines.tooLong()) {
                skipped_.add(lines.number(), {"", fmt::format("longer than {} bytes", LineReader::kMaxLineBytes)});
            } else if (!isBlank(lines.line())) {
                if (header) {
                    readRecord(lines);
                } else {
                    readHeader(lines);
                    header = true;
                }
            }
        }
    }

    /// Reports what was not worth stopping for.
    void finish() const {
        skipped_.finish();
        for (const FileNote& note : notes_.notes()) {
            skipped_.say(note);
        }
    }

    std::size_t records() const { return records_; }
    std::size_t skipped() const { return skipped_.count(); }

private:
    void readHeader(const LineReader& lines) {
        LineError error;
        // Without the names no cell means anything: the file is given up with one message instead of one for each line.
        if (!csv_.readHeader(lines.line(), notes_, error)) {
            throw std::runtime_error("cannot be read: " + error.text());
        }
    }

    void readRecord(const LineReader& lines) {
        LineError error;
        notes_.beginLine(lines.number());
        shared_ptr<IData> record = type_.make();
        const bool read = file_.form == Form::Json ? json_.readLine(lines.line(), *record, notes_, error)
                                                   : csv_.readLine(lines.line(), *record, notes_, error);
        if (!read || !hasIdentity(*record, identity_, error) || !hasDays(*record, dates_, error)) {
            skipped_.add(lines.number(), error);
            return;
        }
        kind_.add(snapshot_, std::move(record));
        ++records_;
    }

    const CatalogueFile& file_;
    const CatalogueKind& kind_;
    const RecordType& type_;
    const std::vector<const mxservice::Field*> identity_;
    const std::vector<const mxservice::Field*> dates_;
    JsonRecordReader json_;
    CsvRecordReader csv_;
    SkippedLines skipped_;
    FileNotes notes_;
    Snapshot& snapshot_;
    Console& console_;
    std::size_t records_ = 0;
};

bool isIgnoredSilently(std::string_view name) {
    return name.starts_with('.') || name.starts_with("README");
}

/// The files of the directory that hold a catalogue, in the order of their names.
std::vector<CatalogueFile> listFiles(const std::filesystem::path& directory, Console& console, std::size_t& skipped) {
    if (directory == kStandardInput) {
        return {{directory, static_cast<std::size_t>(Catalogue::Instruments), Form::Json}};
    }
    std::vector<std::filesystem::path> paths;
    try {
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            paths.push_back(entry.path());
        }
    } catch (const std::filesystem::filesystem_error& failure) {
        throw UnreadableInput(fmt::format("{}: cannot be read: {}", directory.string(), failure.code().message()));
    }
    // A directory has no order of its own. Of two records with one key the later stays, so the answer would depend on
    // the disk.
    std::sort(paths.begin(), paths.end());
    std::vector<CatalogueFile> files;
    std::vector<std::filesystem::path> others;
    for (const std::filesystem::path& path : paths) {
        const std::string fileName = path.filename().string();
        std::string_view name = fileName;
        if (name.ends_with(LineReader::kPackedEnding)) {
            name.remove_suffix(LineReader::kPackedEnding.size());
        }
        const auto found = std::find_if(kKinds.begin(), kKinds.end(),
                                        [&](const CatalogueKind& kind) { return name.starts_with(kind.name); });
        const bool json = name.ends_with(".ndjson");
        if (found != kKinds.end() && (json || name.ends_with(".csv"))) {
            files.push_back({path, static_cast<std::size_t>(found - kKinds.begin()), json ? Form::Json : Form::Csv});
        } else if (!isIgnoredSilently(name)) {
            others.push_back(path);
        }
    }
    // Before the others are named: one sentence says more than a line about each database.
    if (files.empty() && looksLikeStore(directory)) {
        throw UnreadableInput(
            fmt::format("{}: is a store, not a snapshot; the commands \"store\" look into it, and \"diff\" compares it",
                        directory.string()));
    }
    for (const std::filesystem::path& path : others) {
        console.message(fmt::format("{}: no catalogue file, skipped", path.string()));
    }
    skipped += others.size();
    return files;
}

template <class Record>
std::vector<shared_ptr<Record>> copiesOf(const std::vector<shared_ptr<Record>>& records) {
    std::vector<shared_ptr<Record>> copies;
    copies.reserve(records.size());
    for (const auto& record : records) {
        copies.push_back(boost::static_pointer_cast<Record>(record->copy()));
        // A copied fund shares its basket, and a load writes the names of components.
        if constexpr (std::is_same_v<Record, mxservice::CETFDetail>) {
            for (auto& [code, component] : copies.back()->components) {
                component = boost::static_pointer_cast<mxservice::CETFComponentStockInfo>(component->copy());
            }
        }
    }
    return copies;
}

std::uint64_t sizeOf(const std::filesystem::path& path) {
    std::error_code failure;
    // For the bar alone: a file that cannot be measured is reported where it is read.
    const auto size = std::filesystem::file_size(path, failure);
    return failure ? 0 : size;
}

}  // namespace

const char* catalogueName(Catalogue catalogue) {
    return kKinds[static_cast<std::size_t>(catalogue)].name;
}

std::string snapshotName(const std::filesystem::path& path) {
    return path == kStandardInput ? "standard input" : path.string();
}

Snapshot copyOf(const Snapshot& snapshot) {
    return {copiesOf(snapshot.instruments), copiesOf(snapshot.etfs),           copiesOf(snapshot.bonds),
            copiesOf(snapshot.tenderBonds), copiesOf(snapshot.counterparties), copiesOf(snapshot.otcFundPlans),
            copiesOf(snapshot.issuances),   copiesOf(snapshot.issuancePrices)};
}

std::vector<shared_ptr<IData>> recordsOf(const Snapshot& snapshot, Catalogue catalogue) {
    return kKinds[static_cast<std::size_t>(catalogue)].all(snapshot);
}

std::string tradingDayOf(const Snapshot& snapshot) {
    std::string day;
    const auto agree = [&day](const auto& records) {
        return std::all_of(records.begin(), records.end(), [&day](const auto& record) {
            day = day.empty() ? record->tradingDay : day;
            return record->tradingDay.empty() || record->tradingDay == day;
        });
    };
    // The other classes have no trading day.
    const bool agreed = agree(snapshot.instruments) && agree(snapshot.etfs) && agree(snapshot.otcFundPlans) &&
                        agree(snapshot.issuancePrices);
    return agreed ? day : std::string();
}

void addRecord(Snapshot& snapshot, Catalogue catalogue, shared_ptr<IData> record) {
    kKinds[static_cast<std::size_t>(catalogue)].add(snapshot, std::move(record));
}

ReadReport readSnapshot(const std::filesystem::path& directory, Snapshot& snapshot, Console& console) {
    const auto began = std::chrono::steady_clock::now();
    ReadReport report;
    const std::vector<CatalogueFile> files = listFiles(directory, console, report.skipped);
    std::uint64_t total = 0;
    for (const CatalogueFile& file : files) {
        total += sizeOf(file.path);
    }
    console.begin("reading", total);
    std::uint64_t done = 0;
    bool readable = false;
    for (const CatalogueFile& file : files) {
        FileReader reader(file, snapshot, console);
        try {
            reader.read(done);
            readable = true;
        } catch (const std::runtime_error& failure) {
            // A file is given up, not the day: what the others hold is worth an answer, and the exit code says that it
            // is not all.
            console.message(fmt::format("{}: {}", snapshotName(file.path), failure.what()));
            ++report.skipped;
        }
        reader.finish();
        readable = readable || reader.records() > 0;  // also a file that broke off: its records stay
        report.records[file.catalogue] += reader.records();
        report.skipped += reader.skipped();
        done += sizeOf(file.path);  // all of it, also where reading was given up
    }
    console.end();
    const bool input = directory == kStandardInput;
    // A pipe without a record is mostly that of a program that failed; a file may well be empty.
    if (!readable || (input && report.records.front() == 0)) {
        throw UnreadableInput(input ? "standard input holds no record"
                                    : fmt::format("{}: holds no catalogue file that can be read", directory.string()));
    }
    report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    return report;
}

}  // namespace inscenter
