#include "tools/inscenter/Generate.h"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "platform/utils/Calendar.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter {
namespace {

using generate::MarketDay;
using generate::RecordFile;
using generate::Segment;

constexpr int kWritten = 0;
constexpr int kNotWritten = 2;

void writeInstruments(const MarketDay& day, RecordFile& file) {
    generate::writeShanghaiStocks(day, file);
    generate::writeShenzhenStocks(day, file);
    generate::writeBeijingStocks(day, file);
    generate::writeListedBonds(day, file);
    generate::writeIssues(day, file);
    generate::writeHongKong(day, file);
    generate::writeNeeq(day, file);
    generate::writeStockOptions(day, file);
    generate::writeFutures(day, file);
    generate::writeFutureOptions(day, file);
    generate::writeGold(day, file);
    generate::writeOuterFutures(day, file);
    generate::writeUsStocks(day, file);
    generate::writeOtcInstruments(day, file);
}

/// A catalogue beside the instruments: one record for so many of these, within limits.
struct CatalogueFile {
    const char* file;
    void (*write)(const MarketDay&, std::size_t, RecordFile&);
    std::size_t instrumentsForOne;
    std::size_t least;
    std::size_t most;
};
constexpr CatalogueFile kCatalogueFiles[] = {
    {"etfs.ndjson", generate::writeEtfs, 75, 8, 1'200},
    {"bonds.ndjson", generate::writeInterbankBonds, 15, 24, 60'000},
    {"tenderbonds.ndjson", generate::writeTenderBonds, 2'000, 6, 200},
    {"counterparties.ndjson", generate::writeCounterparties, 60, 12, 4'000},
    {"otcfundplans.ndjson", generate::writeFundPlans, 60, 12, 3'000},
    {"issuances.ndjson", generate::writeIssuances, 100, 8, 2'000},
    {"issuanceprices.ndjson", generate::writeIssuancePrices, 150, 6, 1'500},
};

template <class Write>
void writeFile(const std::filesystem::path& path, const Write& write, std::ostream& out) {
    RecordFile file(path);
    write(file);
    file.close();
    out << file.name() << ": " << file.records() << " records\n";
}

void writeSnapshot(const MarketDay& day, const GenerateOptions& options, std::ostream& out) {
    const std::filesystem::path directory(options.directory);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw UnreadableInput(options.directory + ": cannot be made: " + error.message());
    }
    writeFile(
        directory / "instruments.ndjson", [&](RecordFile& file) { writeInstruments(day, file); }, out);
    for (const CatalogueFile& catalogue : kCatalogueFiles) {
        const std::size_t count =
            std::clamp(options.size / catalogue.instrumentsForOne, catalogue.least, catalogue.most);
        writeFile(
            directory / catalogue.file, [&](RecordFile& file) { catalogue.write(day, count, file); }, out);
    }
}

}  // namespace

int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err) {
    const std::string text = options.date.empty() ? utils::today() : options.date;
    const auto date = generate::parseDate(text);
    if (!date) {
        err << "inscenter: \"" << text << "\" is no date of the form YYYYMMDD\n";
        return kNotWritten;
    }
    if (options.size > generate::largestSize()) {
        err << "inscenter: " << options.size << " instruments are more than there are codes for, at most "
            << generate::largestSize() << "\n";
        return kNotWritten;
    }
    try {
        writeSnapshot(MarketDay(options.seed, *date, generate::planSegments(options.size)), options, out);
    } catch (const std::exception& error) {
        err << "inscenter: " << error.what() << "\n";
        return kNotWritten;
    }
    return kWritten;
}

}  // namespace inscenter
