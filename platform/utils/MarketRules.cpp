#include "platform/utils/MarketRules.h"

#include <simdjson.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "platform/utils/MarketRuleSet.h"
#include "system/Path.h"
#include "system/ThreadObject.h"

namespace utils {

namespace {

using RuleSetPtr = std::shared_ptr<const MarketRuleSet>;

// The rules in force. Every thread keeps the set it used last and takes the lock only when the generation has moved
// on: asking costs one load of a value that hardly ever changes, where a reader-writer lock would cost two writes to a
// line that all loading threads share. At most one replaced set stays behind per thread.
struct RulesInForce {
    std::mutex mutex;
    RuleSetPtr rules = std::make_shared<const MarketRuleSet>(builtInMarketRules());  // guarded by mutex
};

// Written under RulesInForce::mutex, together with the rules. Never 0, which marks a thread that keeps no set.
constinit std::atomic<std::uint64_t> generationInForce{1};

RulesInForce& rulesInForce() {
    static RulesInForce* const inForce = new RulesInForce;  // never destroyed: threads may ask until the process ends
    return *inForce;
}

struct ThreadView {
    std::uint64_t generation = 0;
    const MarketRuleSet* rules = nullptr;
    bool ended = false;  // the thread's owner of the set is destroyed already
};

#ifndef _WIN32
constinit thread_local ThreadView viewOfThread;

// Keeps alive what the view points to. Apart from it, so that the view needs no construction on the way to it and can
// be asked while the thread's objects are destroyed.
struct ThreadOwner {
    RuleSetPtr rules;
    ~ThreadOwner() { viewOfThread = {0, nullptr, true}; }
};

ThreadView& threadView() {
    return viewOfThread;
}
#else
// In one: a plain variable of the thread is gone before the owner's end.
struct ThreadOwner {
    RuleSetPtr rules;
    ThreadView view;
};

ThreadView& threadView() {
    return sys::ofThread<ThreadOwner>().view;
}
#endif

RuleSetPtr takeUpRules() {
    RulesInForce& inForce = rulesInForce();
    std::unique_lock lock(inForce.mutex);
    RuleSetPtr rules = inForce.rules;
    const std::uint64_t generation = generationInForce.load(std::memory_order_relaxed);
    lock.unlock();  // before the thread's former set goes, which may be the last of its kind and takes a while
    if (!threadView().ended) {
        sys::ofThread<ThreadOwner>().rules = rules;
        threadView() = {generation, rules.get(), false};
    }
    return rules;
}

bool accepts(MarketPredicate predicate, const std::string& market, const std::string& code) {
    const ThreadView& view = threadView();
    if (view.generation == generationInForce.load(std::memory_order_acquire)) {
        return view.rules->accepts(predicate, market, code);
    }
    return takeUpRules()->accepts(predicate, market, code);
}

void publish(MarketRuleSet newRules) {
    RuleSetPtr rules = std::make_shared<const MarketRuleSet>(std::move(newRules));
    RulesInForce& inForce = rulesInForce();
    // Swapped: the former set, if nobody else has it, is destroyed after the lock.
    const std::lock_guard lock(inForce.mutex);
    inForce.rules.swap(rules);
    generationInForce.fetch_add(1, std::memory_order_release);
}

// A name or code within a range: printable ASCII without the characters that the form of a range uses.
bool isWord(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(),
                                        [](char c) { return c > ' ' && c <= '~' && c != ':' && c != '-' && c != '*'; });
}

std::string shown(std::string_view text) {
    std::string result = '"' + std::string(text) + '"';
    for (char& c : result) {  // no control character reaches a log
        if (static_cast<unsigned char>(c) < ' ' || c == 0x7f) {
            c = '?';
        }
    }
    return result;
}

std::string readWhole(const std::string& file) {
    if (!sys::isPath(file)) {
        throw std::runtime_error("has a name that is malformed UTF-8, or holds a NUL");
    }
    const std::filesystem::path path = sys::pathOf(file);
    std::error_code error;
    const auto status = std::filesystem::status(path, error);
    // Told apart before reading: a directory opens like a file, and a pipe may never end.
    if (std::filesystem::exists(status) && !std::filesystem::is_regular_file(status)) {
        const bool directory = std::filesystem::is_directory(status);
        throw std::runtime_error(directory ? "is a directory" : "is not a regular file");
    }
    errno = 0;  // streams keep no reason of their own
    std::ifstream in(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in.is_open() || in.bad()) {
        const int reason = errno != 0 ? errno : EIO;
        throw std::runtime_error("cannot be read: " + std::generic_category().message(reason));
    }
    return text;
}

// One reading of a rules file, of which the text stays for the line numbers of messages.
class RulesFile {
public:
    explicit RulesFile(const std::string& path) : path_(path) {
        try {
            text_ = simdjson::padded_string(readWhole(path));
        } catch (const std::runtime_error& error) {
            fail(nullptr, {}, error.what());
        }
    }

    MarketRuleSet rules() {
        using namespace simdjson;
        ondemand::parser parser;
        ondemand::document document;
        if (const error_code error = parser.iterate(text_).get(document); error != SUCCESS) {
            failJson(nullptr, {}, error);
        }
        ondemand::object object;
        const std::string_view text(text_.data(), text_.size());
        constexpr const char* kBlank = " \t\r\n";
        if (const error_code error = document.get_object().get(object); error == INCORRECT_TYPE) {
            fail(text.data() + text.find_first_not_of(kBlank), {}, "must hold one JSON object");
        } else if (error == INCOMPLETE_ARRAY_OR_OBJECT) {
            fail(text.data() + text.find_last_not_of(kBlank), {}, "must end with the closing brace of its JSON object");
        } else if (error != SUCCESS) {
            failJson(nullptr, {}, error);
        }
        // Read as it goes, so a fault further on is met after what stands before it; the rules in force are touched
        // only by a file that was read to its end.
        for (auto member : object) {
            ondemand::field field;
            if (const error_code error = std::move(member).get(field); error != SUCCESS) {
                failJson(placeOf(document), {}, error);
            }
            readPredicate(document, field);
        }
        // The library stops at the closing brace; a second object behind it would go unread.
        if (const char* rest = placeOf(document); rest != nullptr) {
            fail(rest, {}, "has more text after its JSON object");
        }
        return std::move(rules_);
    }

private:
    void readPredicate(simdjson::ondemand::document& document, simdjson::ondemand::field& field) {
        using namespace simdjson;
        const char* const place = field.key().raw();
        std::string_view key;
        if (const error_code error = field.unescaped_key().get(key); error != SUCCESS) {
            failJson(place, {}, error);
        }
        const auto name = std::find(kMarketPredicateNames.begin(), kMarketPredicateNames.end(), key);
        if (name == kMarketPredicateNames.end()) {
            fail(place, {}, shown(key) + " is no market-rule predicate");
        }
        const auto index = static_cast<std::size_t>(name - kMarketPredicateNames.begin());
        // A parser of JSON would let the last one count; whoever wrote it twice wants to know which.
        if (named_[index]) {
            fail(place, key, "is given twice");
        }
        named_.set(index);
        ondemand::array list;
        if (const error_code error = field.value().get_array().get(list); error == INCORRECT_TYPE) {
            fail(place, key, "must be a list of ranges");
        } else if (error != SUCCESS) {
            failJson(place, key, error);
        }
        for (auto element : list) {
            ondemand::value value;
            // The move is needed on processors where the library has a faster implementation.
            // NOLINTNEXTLINE(performance-move-const-arg)
            if (const error_code error = std::move(element).get(value); error != SUCCESS) {
                failJson(placeOf(document), key, error);
            }
            readRange(value, key, static_cast<MarketPredicate>(index));
        }
    }

    void readRange(simdjson::ondemand::value& value, std::string_view key, MarketPredicate predicate) {
        using namespace simdjson;
        const char* const place = value.raw_json_token().data();
        std::string_view text;
        if (const error_code error = value.get_string().get(text); error == INCORRECT_TYPE) {
            fail(place, key, "every range must be a string");
        } else if (error != SUCCESS) {
            failJson(place, key, error);
        }
        try {
            rules_.add(predicate, parseCodeRange(text));
        } catch (const std::invalid_argument& error) {
            fail(place, key, error.what());
        }
    }

    // Where reading stands, null at the end of the text.
    static const char* placeOf(simdjson::ondemand::document& document) {
        const char* place = nullptr;
        return document.current_location().get(place) == simdjson::SUCCESS ? place : nullptr;
    }

    [[noreturn]] void failJson(const char* place, std::string_view key, simdjson::error_code error) const {
        fail(place, key, std::string("is not valid JSON: ") + simdjson::error_message(error));
    }

    // `place` points into the text, null when the fault has no place in it.
    [[noreturn]] void fail(const char* place, std::string_view key, const std::string& reason) const {
        std::string message = "market rules file " + shown(path_);
        if (place != nullptr) {
            message += ", line " + std::to_string(1 + std::count(text_.data(), place, '\n'));
        }
        if (!key.empty()) {
            message += ", key " + shown(key);
        }
        throw std::runtime_error(message + ": " + reason);
    }

    const std::string path_;
    simdjson::padded_string text_;
    std::bitset<kMarketPredicateNames.size()> named_;
    MarketRuleSet rules_;
};

}  // namespace

CodeRange parseCodeRange(std::string_view text) {
    const std::size_t colon = std::min(text.find(':'), text.size());
    const std::string market(text.substr(0, colon));
    const std::string codes(text.substr(std::min(colon + 1, text.size())));
    const std::size_t end = std::min(codes.find_first_of("-*"), codes.size());
    const std::string from = codes.substr(0, end);
    const std::string rest = codes.substr(end);
    if (!isWord(market) || !isWord(from) ||
        (rest != "*" && (rest.empty() || rest[0] != '-' || !isWord(rest.substr(1))))) {
        throw std::invalid_argument("range " + shown(text) + " is neither MARKET:FROM-TO nor MARKET:PREFIX*");
    }
    if (rest == "*") {
        return {market, from, from, true};
    }
    const std::string to = rest.substr(1);
    // Codes are compared as texts, and of texts of two lengths nobody expects what lies between.
    if (from.size() != to.size()) {
        throw std::invalid_argument("range " + shown(text) + ": FROM and TO differ in length");
    }
    if (from > to) {
        throw std::invalid_argument("range " + shown(text) + ": FROM is greater than TO");
    }
    return {market, from, to, false};
}

void MarketRuleSet::add(MarketPredicate predicate, CodeRange range) {
    // By the first byte most codes are told apart from a rule without a look at its ranges.
    Rules& rules = rules_[static_cast<std::size_t>(predicate)];
    const auto last = static_cast<unsigned char>(range.to.front());
    for (std::size_t byte = static_cast<unsigned char>(range.from.front()); byte <= last; ++byte) {
        rules.firstBytes.set(byte);
    }
    rules.ranges.push_back(std::move(range));
}

#define PM_DEFINE_PREDICATE(name)                                   \
    bool name(const std::string& market, const std::string& code) { \
        return accepts(MarketPredicate::name, market, code);        \
    }
PM_MARKET_PREDICATES(PM_DEFINE_PREDICATE)
#undef PM_DEFINE_PREDICATE

bool isFutureMarket(const std::string& market) {
    static constexpr std::string_view kExchanges[] = {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"};
    return std::find(std::begin(kExchanges), std::end(kExchanges), market) != std::end(kExchanges);
}

// Options on futures are listed by the same exchanges under the same market.
bool isFutureOptionMarket(const std::string& market) {
    return isFutureMarket(market);
}

bool isForeignMarket(const std::string& market) {
    return market == "WP" || market == "NYSE" || market == "NASDAQ";
}

void CMarketRules::load(const std::string& jsonFile) {
    publish(RulesFile(jsonFile).rules());
}

void CMarketRules::reset() {
    publish(builtInMarketRules());
}

}  // namespace utils
