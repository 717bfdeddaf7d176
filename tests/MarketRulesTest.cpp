#include "platform/utils/MarketRules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "system/Path.h"
#include "tests/Barrier.h"
#include "tests/TemporaryStore.h"

namespace {

using utils::CMarketRules;
using Names = std::set<std::string>;
using Predicate = bool (*)(const std::string&, const std::string&);

const std::map<std::string, Predicate> kPredicateByName{
    {"isShanghaiStockIPO", utils::isShanghaiStockIPO},
    {"isShanghaiLoanIPO", utils::isShanghaiLoanIPO},
    {"isShanghaiLoanCbbScbIPO", utils::isShanghaiLoanCbbScbIPO},
    {"isShanghaiSubscriptionTechBoard", utils::isShanghaiSubscriptionTechBoard},
    {"isShanghaiInnovate", utils::isShanghaiInnovate},
    {"isShanghaiInnovateDistribution", utils::isShanghaiInnovateDistribution},
    {"isShanghaiInnovateSubscribe", utils::isShanghaiInnovateSubscribe},
    {"isShanghaiInnovateAllotmen", utils::isShanghaiInnovateAllotmen},
    {"isShanghaiCDR", utils::isShanghaiCDR},
    {"isShanghaiCDRDistribution", utils::isShanghaiCDRDistribution},
    {"isShanghaiCDRSubscribe", utils::isShanghaiCDRSubscribe},
    {"isShanghaiCDRAllotmen", utils::isShanghaiCDRAllotmen},
    {"isShenzhenStockA", utils::isShenzhenStockA},
    {"isShenzhenLoanCbbScbIPO", utils::isShenzhenLoanCbbScbIPO},
};

/// The names of all predicates that accept the code.
Names namesOf(const std::string& market, const std::string& code) {
    Names names;
    for (const auto& [name, predicate] : kPredicateByName) {
        if (predicate(market, code)) {
            names.insert(name);
        }
    }
    return names;
}

using CodesByMarket = std::map<std::string, std::vector<std::string>>;

/// Every code is accepted by the predicates of these names and by no other.
void expectNames(const CodesByMarket& codesByMarket, const Names& names) {
    for (const auto& [market, codes] : codesByMarket) {
        for (const std::string& code : codes) {
            EXPECT_EQ(namesOf(market, code), names) << market << code;
        }
    }
}

/// The file is refused with a message that has all of these parts. The rules stay, which know of "HK" 00700 alone.
void expectRefused(const std::string& file, const std::vector<std::string>& parts) {
    try {
        CMarketRules::load(file);
        ADD_FAILURE() << "accepted";
    } catch (const std::runtime_error& error) {
        for (const std::string& part : parts) {
            EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << part << " in " << error.what();
        }
        EXPECT_NE(std::string(error.what()).find('"' + file + '"'), std::string::npos) << error.what();
    }
    EXPECT_EQ(namesOf("HK", "00700"), Names{"isShanghaiCDR"});
    EXPECT_EQ(namesOf("SH", "600000"), Names{});
}

class MarketRulesTest : public ::testing::Test {
protected:
    ~MarketRulesTest() override { CMarketRules::reset(); }

    std::string write(const std::string& text, const std::filesystem::path& name = "rules.json") const {
        const std::filesystem::path file = directory_.path() / name;
        std::ofstream(file, std::ios::binary) << text;
        return sys::textOf(file);
    }

    void load(const std::string& text) const { CMarketRules::load(write(text)); }

    const TemporaryDirectory directory_;
};

TEST_F(MarketRulesTest, BuiltInRangesAreThePublishedSegments) {
    // Written down from the exchanges' tables that docs/market-rules.md names, not from the rules.
    const struct {
        std::string market, first, last;
        Names names;
    } kSegments[] = {
        {"SH", "689000", "689999", {"isShanghaiCDR"}},            // 689009
        {"SH", "707000", "707999", {"isShanghaiStockIPO"}},       // 605499 was subscribed under 707499
        {"SH", "713000", "713999", {"isShanghaiLoanCbbScbIPO"}},  // 713117 of 605117
        {"SH", "718000", "718999", {"isShanghaiLoanCbbScbIPO"}},  // 718599 of 688599
        {"SH", "730000", "730999", {"isShanghaiStockIPO"}},       // 730958 of 600958
        {"SH", "732000", "732999", {"isShanghaiStockIPO"}},       // 732259 of 603259
        {"SH", "733000", "733999", {"isShanghaiLoanCbbScbIPO"}},  // 733531 of 600531
        {"SH", "751000", "751799", {"isShanghaiLoanIPO"}},
        {"SH", "751850", "751999", {"isShanghaiLoanIPO"}},
        {"SH", "754000", "754999", {"isShanghaiLoanCbbScbIPO"}},  // 754979 of 603979
        {"SH", "759000", "759099", {"isShanghaiLoanCbbScbIPO"}},
        {"SH", "780000", "780999", {"isShanghaiStockIPO"}},       // 780988 of 601988
        {"SH", "783000", "783999", {"isShanghaiLoanCbbScbIPO"}},  // 783998 of 601998
        {"SH", "786900", "786999", {"isShanghaiCDRAllotmen"}},
        {"SH", "787000", "787999", {"isShanghaiSubscriptionTechBoard"}},  // 787001 of 688001
        {"SH", "795000", "795999", {"isShanghaiCDRSubscribe", "isShanghaiSubscriptionTechBoard"}},
        {"SH", "796000", "796999", {"isShanghaiCDRDistribution"}},
        {"SZ", "000000", "000999", {"isShenzhenStockA"}},
        {"SZ", "001200", "004999", {"isShenzhenStockA"}},
        {"SZ", "070000", "074999", {"isShenzhenLoanCbbScbIPO"}},  // 072475 of 002475
        {"SZ", "300000", "309799", {"isShenzhenStockA"}},
        {"SZ", "370000", "379999", {"isShenzhenLoanCbbScbIPO"}},  // 370378 of 300378
    };
    for (const std::string market : {"SH", "SZ"}) {
        std::set<int> codes;
        for (int code = 0; code < 1'000'000; code += 50) {  // no segment is narrower
            codes.insert(code);
        }
        for (const auto& segment : kSegments) {
            const int first = std::stoi(segment.first);
            const int last = std::stoi(segment.last);
            codes.insert({std::max(first - 1, 0), first, last, last + 1});
        }
        for (const int number : codes) {
            const std::string code = std::to_string(1'000'000 + number).substr(1);
            Names names;
            for (const auto& segment : kSegments) {
                if (segment.market == market && segment.first <= code && code <= segment.last) {
                    names = segment.names;
                }
            }
            EXPECT_EQ(namesOf(market, code), names) << market << code;
        }
    }
}

TEST_F(MarketRulesTest, BuiltInRulesHoldForTheirMarketAndSixDigits) {
    expectNames({{"BJ", {"730958", "787001", "689009", "000001", "920002"}},
                 {"HK", {"00700", "000001"}},
                 {"sh", {"730958", "689009"}},
                 {"", {"730958", ""}},
                 {"SH", {"", "7", "73095", "7309580", "68900", "6890090"}}},
                {});
}

TEST_F(MarketRulesTest, FileReplacesAllRulesUntilReset) {
    for (const auto& [name, predicate] : kPredicateByName) {
        load("{\"" + name + "\": [\"SH:600000-600999\"]}");
        EXPECT_EQ(namesOf("SH", "600000"), Names{name});
        EXPECT_EQ(namesOf("SH", "730958"), Names{});
        EXPECT_EQ(namesOf("SZ", "000001"), Names{});
    }
    CMarketRules::load(write("{}", u8"\u89C4\u5219.json"));
    EXPECT_EQ(namesOf("SH", "600000"), Names{});
    CMarketRules::reset();
    EXPECT_EQ(namesOf("SH", "730958"), Names{"isShanghaiStockIPO"});
    EXPECT_EQ(namesOf("SH", "600000"), Names{});
}

TEST_F(MarketRulesTest, RangesBoundAndPrefixesOpen) {
    load(
        "\n {\"isShanghaiStockIPO\" : [ \"SH:730000-730999\", \"SH:73\\u0032*\", \"SZ:A5-B2\", \"SHO:9*\"],\r\n"
        "  \"isShanghaiCDR\": [] }\n\n");
    expectNames({{"SH", {"730000", "730500", "730999", "732", "732000", "7329999"}},
                 {"SZ", {"A5", "AZ", "Az", "B0", "B2"}},
                 {"SHO", {"9", "90000001"}}},
                {"isShanghaiStockIPO"});
    expectNames({{"SH", {"729999", "731000", "73050", "7305000", "73", "733000", "A5", "9", ""}},
                 {"SZ", {"A4", "B3", "A", "A55", "a5", "730000"}},
                 {"SHO", {"8", ""}},
                 {"S", {"730000"}}},
                {});
}

TEST_F(MarketRulesTest, BadFileIsRefusedWithItsPlaceAndTheRulesStay) {
    const std::string kKey = "\"isShanghaiStockIPO\"";
    const auto withRange = [&](const std::string& range) { return "{" + kKey + ": [\n\"SH:6*\",\n" + range + "]}"; };
    const struct {
        std::string text;
        std::vector<std::string> parts;
    } kCases[] = {
        {"", {"not valid JSON"}},
        {"[]", {"line 1", "one JSON object"}},
        {"\n\n\"x\"", {"line 3", "one JSON object"}},
        {"{\n" + kKey + ": []\n", {"line 2", "closing brace"}},
        {"{" + kKey + ": []}\ngarbage", {"line 2", "closing brace"}},
        {"{" + kKey + ": []}\n{}", {"line 2", "more text after"}},
        {"{" + kKey + ": [\"SH:6*\"", {"closing brace"}},
        {"{" + kKey + ": [\"SH:6*}", {"not valid JSON"}},
        {"{\n" + kKey + ": [\"SH:6*\" \"SH:7*\"]}", {"line 2", "key " + kKey, "not valid JSON"}},
        {"{" + kKey + ": [],}", {"line 1", "not valid JSON"}},
        {"{" + kKey + ": [\"SH:\xff*\"]}", {"not valid JSON", "UTF-8"}},
        {"{\n\"isShanghaiStockIpo\": []}", {"line 2", "\"isShanghaiStockIpo\" is no market-rule predicate"}},
        {"{\"isFutureMarket\": [\"SH:6*\"]}", {"\"isFutureMarket\" is no market-rule predicate"}},
        {"{" + kKey + ": [],\n" + kKey + ": []}", {"line 2", "key " + kKey, "twice"}},
        {"{" + kKey + ": \"SH:6*\"}", {"key " + kKey, "list of ranges"}},
        {"{" + kKey + ": {}}", {"key " + kKey, "list of ranges"}},
        {"{" + kKey + ": null}", {"key " + kKey, "list of ranges"}},
        {withRange("7"), {"line 3", "key " + kKey, "must be a string"}},
        {withRange("[\"SH:6*\"]"), {"line 3", "key " + kKey, "must be a string"}},
        {withRange("\"SH:1-22\""), {"line 3", "key " + kKey, "\"SH:1-22\"", "differ in length"}},
        {withRange("\"SH:21-12\""), {"line 3", "key " + kKey, "\"SH:21-12\"", "greater than TO"}},
        {withRange("\"\\u0007:1-2\""), {"line 3", "\"?:1-2\"", "neither MARKET:FROM-TO nor MARKET:PREFIX*"}},
    };

    load("{\"isShanghaiCDR\": [\"HK:00700-00700\"]}");
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.text);
        expectRefused(write(c.text), c.parts);
    }
    for (const char* range : {"",         "SH",      "SH:",      "SH:*",   "SH:6",  ":6*",         "SH:6**",
                              "SH:*6",    "SH:6*7",  "SH:-1",    "SH:1-",  "SH:-",  "SH:1-2-3",    "SH:1-2*",
                              "SH:6:1-2", "SH: 1-2", "SH:1 - 2", "S H:6*", "SH;6*", "SH:\xc3\xa9*"}) {
        SCOPED_TRACE(range);
        expectRefused(write(withRange('"' + std::string(range) + '"')), {"line 3", "neither MARKET:FROM-TO nor"});
    }
    expectRefused(sys::textOf(directory_.path() / "missing.json"), {"cannot be read", "No such file"});
    expectRefused(sys::textOf(directory_.path()), {"is a directory"});
#ifndef _WIN32  // where no file is endless
    expectRefused("/dev/zero", {"not a regular file"});
#endif
    EXPECT_THROW(CMarketRules::load(write("{}") + std::string("\0.json", 6)), std::runtime_error);
    EXPECT_THROW(CMarketRules::load("\xFF.json"), std::runtime_error);
    expectRefused("", {"cannot be read"});
}

TEST_F(MarketRulesTest, FixedMarketsIgnoreTheRules) {
    load("{}");
    for (const char* market : {"CFFEX", "SHFE", "DCE", "CZCE", "INE", "GFEX"}) {
        EXPECT_TRUE(utils::isFutureMarket(market) && utils::isFutureOptionMarket(market)) << market;
        EXPECT_FALSE(utils::isForeignMarket(market)) << market;
    }
    for (const char* market : {"WP", "NYSE", "NASDAQ"}) {
        EXPECT_TRUE(utils::isForeignMarket(market)) << market;
    }
    for (const char* market : {"", "SH", "shfe", "DCE ", "HK", "wp", "NYSE2"}) {
        EXPECT_FALSE(utils::isFutureMarket(market) || utils::isFutureOptionMarket(market)) << market;
        EXPECT_FALSE(utils::isForeignMarket(market)) << market;
    }
}

TEST_F(MarketRulesTest, ThreadsAskWhileRulesAreReplaced) {
    // Both files accept 1 and 3; only the odd one accepts 2. A torn or freed set would lose 1 or 3.
    const std::string even = write(R"({"isShanghaiCDR": ["X:1*", "X:3*"]})", "even.json");
    const std::string odd = write(R"({"isShanghaiCDR": ["X:1-3"]})", "odd.json");
    const std::string bad = write(R"({"isShanghaiCDR": ["X:1"]})", "bad.json");
    CMarketRules::load(even);
    constexpr int kRounds = 300;
    constexpr int kAskers = 3;
    Barrier replaced(kAskers + 1);
    Barrier answered(kAskers + 1);
    std::atomic<int> wrong{0};
    const auto ask = [&] {
        for (int round = 0; round < kRounds; ++round) {
            for (int call = 0; call < 50; ++call) {  // while the set changes
                wrong += utils::isShanghaiCDR("X", "1") && utils::isShanghaiCDR("X", "3") ? 0 : 1;
            }
            replaced.arrive_and_wait();
            wrong += utils::isShanghaiCDR("X", "2") == (round % 2 == 1) ? 0 : 1;
            answered.arrive_and_wait();
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < kAskers; ++i) {
        threads.emplace_back(ask);
    }
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < 4; ++i) {
            CMarketRules::load((round + i) % 2 == 0 ? odd : even);  // the fourth is the round's own
        }
        EXPECT_THROW(CMarketRules::load(bad), std::runtime_error);
        replaced.arrive_and_wait();
        answered.arrive_and_wait();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
