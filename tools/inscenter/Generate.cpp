#include "tools/inscenter/Generate.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <system_error>

#include "platform/utils/Calendar.h"
#include "tools/inscenter/Output.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/Utf8.h"
#include "tools/marketday/MarketDay.h"

namespace inscenter {
namespace {

/// Writes a catalogue as it comes, a record a line. Answers how many.
std::size_t writeFile(const marketday::MarketDay& day, const std::string& catalogue,
                      const std::filesystem::path& path) {
    errno = 0;
    std::ofstream file(path, std::ios::binary);
    std::size_t records = 0;
    std::string line;
    day.visit(catalogue, [&](const boost::shared_ptr<mxservice::IData>& record) {
        line.clear();
        appendJson(line, *record);
        file << line << '\n';
        ++records;
    });
    // What the system has kept back may be refused only now.
    file.close();
    requireWritten(file, textOf(path));
    return records;
}

}  // namespace

void generate(const GenerateOptions& options, std::ostream& out) {
    const marketday::MarketDay day(options.size, options.seed, options.date.empty() ? utils::today() : options.date);
    const std::filesystem::path directory = pathOf(options.directory);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw UnreadableInput(options.directory + ": cannot be made: " + error.message());
    }
    // Each under its own name at once: a run that is broken off leaves whole files and the beginning of one.
    for (const std::string& catalogue : marketday::MarketDay::catalogues()) {
        const std::string file = catalogue + ".ndjson";
        out << file << ": " << writeFile(day, catalogue, directory / file) << " records\n";
    }
}

}  // namespace inscenter
