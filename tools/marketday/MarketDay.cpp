#include "tools/marketday/MarketDay.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "platform/utils/Calendar.h"
#include "tools/marketday/Day.h"

namespace marketday {
namespace {

constexpr const char* kInstruments = "instruments";

Date dateOf(const std::string& text) {
    // Listing dates reach decades back and maturities decades ahead; both must keep four digits.
    if (!utils::isDay(text) || text < "19000101" || text > "29991231") {
        throw std::invalid_argument(fmt::format("\"{}\" is no date of the form YYYYMMDD", text));
    }
    const int number = std::stoi(text);
    return std::chrono::year(number / 10000) / (number / 100 % 100) / (number % 100);
}

std::vector<std::size_t> countsOf(std::size_t size) {
    if (size > largestDay()) {
        throw std::invalid_argument(
            fmt::format("{} instruments are more than there are codes for, at most {}", size, largestDay()));
    }
    return planDay(size);
}

}  // namespace

MarketDay::MarketDay(std::size_t size, std::uint64_t seed, const std::string& date)
    : size_(size), day_(std::make_unique<const Day>(Day{seed, dateOf(date), date, countsOf(size)})) {}

MarketDay::~MarketDay() = default;

std::vector<std::string> MarketDay::catalogues() {
    std::vector<std::string> names{kInstruments};
    for (const Catalogue& catalogue : kCatalogues) {
        names.emplace_back(catalogue.name);
    }
    return names;
}

void MarketDay::visit(std::string_view catalogue, const Visit& visit) const {
    if (catalogue == kInstruments) {
        for (const Row& row : kRows) {
            if (row.kind >= Kind::Future) {
                visitContracts(*day_, row, visit);
                continue;
            }
            for (std::size_t i = 0; i < day_->count(row); ++i) {
                visit(listed(*day_, row, i));
            }
        }
        return;
    }
    const auto found = std::find_if(kCatalogues.begin(), kCatalogues.end(),
                                    [&](const Catalogue& known) { return known.name == catalogue; });
    if (found == kCatalogues.end()) {
        throw std::invalid_argument(fmt::format("{} is no catalogue", catalogue));
    }
    // Some of each also in a small day: a sample without a catalogue would show nothing of it.
    const std::size_t count = std::clamp(size_ / found->instrumentsForOne, found->least, found->most);
    for (std::size_t i = 0; i < count; ++i) {
        if (const Data record = found->make(*day_, i)) {
            visit(record);
        }
    }
}

}  // namespace marketday
