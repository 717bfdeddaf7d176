#include "tools/inscenter/Generate.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <system_error>

#include "platform/utils/Calendar.h"
#include "tools/inscenter/RecordText.h"
#include "tools/marketday/MarketDay.h"

namespace inscenter {
namespace {

constexpr int kWritten = 0;
constexpr int kNotWritten = 2;
constexpr std::size_t kBufferBytes = std::size_t{1} << 20;

[[noreturn]] void fail(const std::filesystem::path& path, int reason) {
    throw std::runtime_error(path.string() + ": cannot be written: " + std::generic_category().message(reason));
}

/// Writes a catalogue as it comes, a record a line. Answers how many.
std::size_t writeFile(const marketday::MarketDay& day, const std::string& catalogue,
                      const std::filesystem::path& path) {
    const auto close = [](std::FILE* file) { std::fclose(file); };
    std::unique_ptr<std::FILE, decltype(close)> file(std::fopen(path.c_str(), "wb"), close);
    if (!file) {
        fail(path, errno);
    }
    std::size_t records = 0;
    std::string buffer;
    const auto flush = [&] {
        if (std::fwrite(buffer.data(), 1, buffer.size(), file.get()) != buffer.size()) {
            fail(path, errno);
        }
        buffer.clear();
    };
    day.visit(catalogue, [&](const boost::shared_ptr<mxservice::IData>& record) {
        appendJson(buffer, *record);
        buffer += '\n';
        ++records;
        if (buffer.size() >= kBufferBytes) {
            flush();
        }
    });
    flush();
    // What the system has kept back may be refused only now.
    if (std::fclose(file.release()) != 0) {
        fail(path, errno);
    }
    return records;
}

void writeSnapshot(const GenerateOptions& options, std::ostream& out) {
    const marketday::MarketDay day(options.size, options.seed, options.date.empty() ? utils::today() : options.date);
    const std::filesystem::path directory(options.directory);
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) {
        throw std::runtime_error(options.directory + ": cannot be made: " + error.message());
    }
    for (const std::string& catalogue : marketday::MarketDay::catalogues()) {
        const std::string file = catalogue + ".ndjson";
        out << file << ": " << writeFile(day, catalogue, directory / file) << " records\n";
    }
}

}  // namespace

int runGenerate(const GenerateOptions& options, std::ostream& out, std::ostream& err) {
    try {
        writeSnapshot(options, out);
    } catch (const std::exception& error) {
        err << "inscenter: " << error.what() << "\n";
        return kNotWritten;
    }
    return kWritten;
}

}  // namespace inscenter
