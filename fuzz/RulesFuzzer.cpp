// Market rules files. A second parser and a pattern say which files are to be accepted and what their rules answer; a
// file that is refused leaves the rules as they were.

#include <simdjson.h>

#include <algorithm>
#include <array>
#include <regex>
#include <stdexcept>
#include <vector>

#include "fuzz/Fuzzing.h"
#include "platform/utils/MarketRuleSet.h"
#include "platform/utils/MarketRules.h"

namespace {

using Predicate = bool (*)(const std::string&, const std::string&);

#define PM_FUNCTION(name) &utils::name,
constexpr std::array kPredicates{PM_MARKET_PREDICATES(PM_FUNCTION)};
#undef PM_FUNCTION

struct Range {
    std::string market;
    std::string from;
    std::string to;
    bool longer;

    bool accepts(const std::string& ofMarket, const std::string& code) const {
        const std::string head = code.substr(0, from.size());
        return ofMarket == market && (longer ? head == from : code.size() == from.size() && from <= code && code <= to);
    }
};

/// The ranges of each predicate.
using Rules = std::array<std::vector<Range>, utils::kMarketPredicateNames.size()>;

bool readRange(std::string_view text, Range& range) {
    static const std::regex form(R"(([!-)+,.-9;-~]+):([!-)+,.-9;-~]+)(?:(\*)|-([!-)+,.-9;-~]+)))");
    std::cmatch match;
    if (!std::regex_match(text.data(), text.data() + text.size(), match, form)) {
        return false;
    }
    range = {match[1], match[2], match[3].matched ? match[2] : match[4], match[3].matched};
    return range.from.size() == range.to.size() && range.from <= range.to;
}

/// What the file says; false when it must be refused.
bool readRules(std::string_view text, Rules& rules) {
    simdjson::dom::parser parser;
    simdjson::dom::object object;
    if (parser.parse(simdjson::padded_string(text)).get_object().get(object) != simdjson::SUCCESS) {
        return false;
    }
    std::array<bool, utils::kMarketPredicateNames.size()> named{};
    for (const auto& [key, value] : object) {
        const auto& names = utils::kMarketPredicateNames;
        const auto index = static_cast<std::size_t>(std::find(names.begin(), names.end(), key) - names.begin());
        simdjson::dom::array list;
        if (index == names.size() || named[index] || value.get_array().get(list) != simdjson::SUCCESS) {
            return false;
        }
        named[index] = true;
        for (const simdjson::dom::element item : list) {
            std::string_view range;
            rules[index].emplace_back();
            if (item.get_string().get(range) != simdjson::SUCCESS || !readRange(range, rules[index].back())) {
                return false;
            }
        }
    }
    return true;
}

/// Asks the rules in force at and around the ends of every range, under every predicate.
void compare(const Rules& rules) {
    for (const auto& ranges : rules) {
        for (const Range& range : ranges) {
            const std::string shorter = range.from.substr(0, range.from.size() - 1);
            for (const std::string& code :
                 {range.from, range.to, range.from + '0', range.to + '~', shorter, shorter + '!', std::string()}) {
                for (std::size_t i = 0; i < rules.size(); ++i) {
                    const bool expected = std::any_of(rules[i].begin(), rules[i].end(), [&](const Range& other) {
                        return other.accepts(range.market, code);
                    });
                    require(kPredicates[i](range.market, code) == expected, "the rules answer what the file says");
                }
            }
        }
    }
}

std::string written(const Rules& rules) {
    std::string text = "{";
    for (std::size_t i = 0; i < rules.size(); ++i) {
        text += std::string(i == 0 ? "" : ",") + '"' + std::string(utils::kMarketPredicateNames[i]) + "\":[";
        const char* separator = "";
        for (const Range& range : rules[i]) {
            std::string escaped = range.market + ':' + range.from + (range.longer ? "*" : '-' + range.to);
            for (std::size_t at = escaped.find_first_of("\"\\"); at != std::string::npos;
                 at = escaped.find_first_of("\"\\", at + 2)) {
                escaped.insert(at, 1, '\\');
            }
            text += separator + ('"' + escaped + '"');
            separator = ",";
        }
        text += ']';
    }
    return text + '}';
}

/// Why the file was refused; empty when its rules are in force.
std::string load(const MemoryFile& file) {
    try {
        utils::CMarketRules::load(file.path());
        return {};
    } catch (const std::runtime_error& refusal) {
        return refusal.what();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const MemoryFile file;
    static bool former = false;  // the rules in force are those of kFormer
    constexpr const char* kFormer = R"({"isShanghaiCDR": ["former:7*"]})";
    if (!former) {
        file.fill(kFormer);
        require(load(file).empty(), "a good file is accepted");
    }
    const std::string_view text(reinterpret_cast<const char*>(data), size);
    Rules rules;
    const bool good = readRules(text, rules);
    file.fill(text);
    const std::string refusal = load(file);
    former = !refusal.empty();
    if (former) {
        require(!good, "a file that says what it must is accepted");
        require(refusal.find(file.path()) != std::string::npos, "a refusal names the file");
        require(utils::isShanghaiCDR("former", "77") && !utils::isShanghaiCDR("former", "8"),
                "a refused file leaves the rules as they were");
        return 0;
    }
    require(good, "a file that does not is refused");
    compare(rules);
    file.fill(written(rules));
    require(load(file).empty(), "what was written is accepted");
    compare(rules);
    return 0;
}
