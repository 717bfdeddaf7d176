#include "tools/inscenter/Generate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "FromEnvironment.h"
#include "platform/utils/MarketRules.h"

namespace {

using inscenter::GenerateOptions;
using inscenter::runGenerate;
using ::testing::HasSubstr;
using Records = std::vector<std::string>;
using Codes = std::set<std::string>;

constexpr const char* kDate = "20260302";

const std::vector<std::string> kFiles{"instruments.ndjson", "etfs.ndjson",           "bonds.ndjson",
                                      "tenderbonds.ndjson", "counterparties.ndjson", "otcfundplans.ndjson",
                                      "issuances.ndjson",   "issuanceprices.ndjson"};

/// The value of a key, as it stands in a line that the generator wrote, without quotes; empty when it is not there.
std::string valueOf(const std::string& line, const std::string& key) {
    const std::string start = '"' + key + "\":";
    std::size_t from = line.find(start);
    if (from == std::string::npos) {
        return "";
    }
    from += start.size();
    if (line[from] != '"') {
        return line.substr(from, line.find_first_of(",}", from) - from);
    }
    return line.substr(from + 1, line.find('"', from + 1) - from - 1);
}

double numberOf(const std::string& line, const std::string& key) {
    const std::string text = valueOf(line, key);
    return text.empty() ? 0 : std::stod(text);
}

class GenerateTest : public ::testing::Test {
protected:
    ~GenerateTest() override { std::filesystem::remove_all(root_); }

    std::string generate(std::size_t size, std::uint64_t seed = 1, const std::string& date = kDate) {
        const std::string directory = root_ / std::to_string(directories_++);
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(runGenerate({size, seed, date, directory}, out, err), 0) << err.str();
        return directory;
    }

    static std::string bytes(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    static Records records(const std::filesystem::path& file) {
        std::ifstream stream(file);
        Records lines;
        for (std::string line; std::getline(stream, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    const std::filesystem::path root_ =
        std::filesystem::path(::testing::TempDir()) / ("generate-" + std::to_string(getpid()));
    int directories_ = 0;
};

std::map<std::string, Codes> codesByMarket(const Records& instruments) {
    std::map<std::string, Codes> codes;
    for (const std::string& line : instruments) {
        codes[valueOf(line, "market")].insert(valueOf(line, "code"));
    }
    return codes;
}

Codes common(const Codes& left, const Codes& right) {
    Codes both;
    std::set_intersection(left.begin(), left.end(), right.begin(), right.end(), std::inserter(both, both.end()));
    return both;
}

TEST_F(GenerateTest, SameSeedAndDateGiveTheSameBytes) {
    const std::filesystem::path first = generate(600);
    const std::filesystem::path again = generate(600);
    const std::filesystem::path otherSeed = generate(600, 2);
    const std::filesystem::path otherDay = generate(600, 1, "20260303");
    for (const std::string& file : kFiles) {
        EXPECT_EQ(bytes(first / file), bytes(again / file)) << file;
        EXPECT_NE(bytes(first / file), bytes(otherSeed / file)) << file;
    }
    EXPECT_NE(bytes(first / kFiles[0]), bytes(otherDay / kFiles[0]));
}

TEST_F(GenerateTest, SizeIsMetWithDifferentKeys) {
    // None, too few for every market, a small day, and more than an ordinary day has codes for.
    for (const std::size_t size : {0U, 7U, 300U, 1'000U, kSanitized ? 5'000U : 150'000U}) {
        const std::filesystem::path directory = generate(size);
        const Records instruments = records(directory / "instruments.ndjson");
        EXPECT_EQ(instruments.size(), size);
        std::size_t keys = 0;
        for (const auto& [market, codes] : codesByMarket(instruments)) {
            EXPECT_FALSE(market.empty());
            keys += codes.size();
        }
        EXPECT_EQ(keys, size) << "a market has a code twice";
    }
}

TEST_F(GenerateTest, EveryMarketAndCatalogueIsThere) {
    for (const std::size_t size : {600U, 20'000U}) {
        const std::filesystem::path directory = generate(size);
        const auto codes = codesByMarket(records(directory / "instruments.ndjson"));
        for (const char* market :
             {"SH",   "SZ",  "BJ",   "HK",  "HGT",  "SGT",  "SHFI", "NEEQ", "SHO",    "SZO", "CFFEX",
              "SHFE", "DCE", "CZCE", "INE", "GFEX", "SHGE", "WP",   "NYSE", "NASDAQ", "SOTC"}) {
            EXPECT_TRUE(codes.count(market)) << market << " at " << size;
        }
        const std::map<std::string, std::string> keyByFile{
            {"etfs.ndjson", "etfcode"},       {"bonds.ndjson", "bondCode"},    {"tenderbonds.ndjson", "code"},
            {"counterparties.ndjson", "id"},  {"otcfundplans.ndjson", "code"}, {"issuances.ndjson", "code"},
            {"issuanceprices.ndjson", "code"}};
        for (const auto& [file, key] : keyByFile) {
            const Records lines = records(directory / file);
            Codes keys;
            for (const std::string& line : lines) {
                keys.insert(valueOf(line, key));
            }
            EXPECT_FALSE(lines.empty()) << file;
            EXPECT_EQ(keys.size(), lines.size()) << file << " at " << size;
        }
    }
}

TEST_F(GenerateTest, RecordsReferToListedOnes) {
    const std::filesystem::path directory = generate(2'000);
    const Records instruments = records(directory / "instruments.ndjson");
    auto codes = codesByMarket(instruments);
    // Connect listings: in one market, in both, with and without a plain record; bonds with and without a twin.
    const Codes both = common(codes["HGT"], codes["SGT"]);
    EXPECT_FALSE(both.empty());
    EXPECT_LT(both.size(), std::min(codes["HGT"].size(), codes["SGT"].size()));
    const std::size_t plainToo = common(codes["HGT"], codes["HK"]).size();
    EXPECT_GT(plainToo, codes["HGT"].size() / 2);
    EXPECT_LT(plainToo, codes["HGT"].size());
    const std::size_t twins = common(codes["SHFI"], codes["SH"]).size();
    EXPECT_GT(twins, 0U);
    EXPECT_LT(twins, codes["SHFI"].size());

    std::size_t underlyings = 0;
    for (const std::string& line : instruments) {
        // Options, and convertible bonds. Options on indexes name a series of the index, which is no instrument.
        const std::string market = valueOf(line, "underlyingMarket");
        if (!market.empty() && market != "CFFEX") {
            EXPECT_TRUE(codes[market].count(valueOf(line, "underlyingCode"))) << line;
            ++underlyings;
        }
    }
    EXPECT_GT(underlyings, 100U);
    std::size_t listedBonds = 0;
    for (const std::string& line : records(directory / "bonds.ndjson")) {
        const std::string shanghai = valueOf(line, "shanghaiCode");
        const std::string shenzhen = valueOf(line, "shenzhenCode");
        EXPECT_TRUE(shanghai.empty() || codes["SH"].count(shanghai)) << line;
        EXPECT_TRUE(shenzhen.empty() || codes["SZ"].count(shenzhen)) << line;
        listedBonds += shanghai.empty() && shenzhen.empty() ? 0U : 1U;
    }
    EXPECT_GT(listedBonds, 0U);
    std::size_t nameless = 0;
    for (const std::string& line : records(directory / "etfs.ndjson")) {
        const std::string market = valueOf(line, "exchid");
        EXPECT_TRUE(codes[market].count(valueOf(line, "etfcode"))) << line;
        EXPECT_EQ(market == "SZ", valueOf(line, "etfcode") == valueOf(line, "prcode")) << line;
        std::size_t components = 0;
        for (std::size_t at = line.find("{\"market\""); at != std::string::npos;
             at = line.find("{\"market\"", at + 1)) {
            const std::string component = line.substr(at, line.find('}', at) + 1 - at);
            EXPECT_TRUE(codes[valueOf(component, "market")].count(valueOf(component, "code"))) << component;
            nameless += valueOf(component, "name").empty() ? 1U : 0U;
            ++components;
        }
        EXPECT_GE(components, 10U) << line;
    }
    EXPECT_GT(nameless, 0U);
}

TEST_F(GenerateTest, MarketRulesAcceptTodaysIssues) {
    using Predicate = std::function<bool(const std::string&, const std::string&)>;
    const std::map<std::string, Predicate> shanghaiIssues{{"share", utils::isShanghaiStockIPO},
                                                          {"bond", utils::isShanghaiLoanIPO},
                                                          {"convertible", utils::isShanghaiLoanCbbScbIPO},
                                                          {"growth share", utils::isShanghaiSubscriptionTechBoard}};
    const std::map<std::string, Predicate> others{{"receipt", utils::isShanghaiCDR},
                                                  {"receipt's number", utils::isShanghaiCDRDistribution},
                                                  {"receipt's subscription", utils::isShanghaiCDRSubscribe},
                                                  {"receipt's placement", utils::isShanghaiCDRAllotmen}};
    std::map<std::string, int> found;
    for (const std::string& line : records(generate(600) + "/instruments.ndjson")) {
        const std::string market = valueOf(line, "market");
        const std::string code = valueOf(line, "code");
        const bool isToday = valueOf(line, "listingDate") == kDate;
        const bool isAdditional = numberOf(line, "additionalIssueFlag") == 1;
        bool accepted = false;
        for (const auto& [kind, predicate] : shanghaiIssues) {
            if (predicate(market, code)) {
                EXPECT_TRUE(isToday) << line;
                accepted = true;
                ++found[isAdditional ? "additional" : kind];
            }
        }
        for (const auto& [kind, predicate] : others) {
            accepted = accepted || predicate(market, code);
            found[kind] += predicate(market, code) ? 1 : 0;
        }
        if (market == "SH") {
            EXPECT_EQ(accepted, isToday || code.substr(0, 3) == "689") << line;
        }
        if (market == "SZ" && numberOf(line, "issueState") == -1) {
            EXPECT_TRUE(isToday) << line;
            EXPECT_NE(utils::isShenzhenStockA(market, code), utils::isShenzhenLoanCbbScbIPO(market, code)) << line;
            ++found[isAdditional ? "SZ additional" : utils::isShenzhenStockA(market, code) ? "SZ A" : "SZ convertible"];
        }
        const std::string status = valueOf(line, "statusString");
        if (market == "SZ" && status.size() > 7 && (status[7] == '0' || status[7] == '1')) {
            ++found[std::string("SZ status ") + status[7]];
        }
        if (numberOf(line, "securityClass") == 5) {
            ++found[market + " class 5"];
        }
    }
    for (const char* kind : {"share", "bond", "convertible", "growth share", "receipt", "receipt's number",
                             "receipt's subscription", "receipt's placement", "additional", "SZ A", "SZ convertible",
                             "SZ additional", "SZ status 0", "SZ status 1", "BJ class 5", "NEEQ class 5"}) {
        EXPECT_GT(found[kind], 0) << kind;
    }
}

TEST_F(GenerateTest, PricesStayWithinTheirLimits) {
    std::size_t limited = 0;
    std::size_t mainBoard = 0;
    for (const std::string& line : records(generate(5'000) + "/instruments.ndjson")) {
        const double upper = numberOf(line, "upperLimitPrice");
        if (upper == 0) {
            continue;
        }
        ++limited;
        const double close = numberOf(line, "preClosePrice");
        EXPECT_LT(numberOf(line, "lowerLimitPrice"), upper) << line;
        EXPECT_LE(close, upper) << line;
        // Shares of the main boards move ten per cent, rounded to a cent.
        const std::string start = valueOf(line, "market") + valueOf(line, "code").substr(0, 2);
        if ((start == "SH60" || start == "SZ00") && valueOf(line, "name").find("ST") == std::string::npos) {
            ++mainBoard;
            EXPECT_NEAR(upper, close * 1.1, 0.0051) << line;
            EXPECT_NEAR(numberOf(line, "lowerLimitPrice"), close * 0.9, 0.0051) << line;
        }
    }
    EXPECT_GT(limited, 1'000U);
    EXPECT_GT(mainBoard, 100U);
}

TEST_F(GenerateTest, EveryFutureProductHasAMainContract) {
    std::map<std::string, int> mains;
    std::map<std::string, int> aliases;
    for (const std::string& line : records(generate(20'000) + "/instruments.ndjson")) {
        const std::string market = valueOf(line, "market");
        const bool isContract = utils::isFutureMarket(market) && numberOf(line, "optionType") == 0;
        if (!isContract || valueOf(line, "code").find('&') != std::string::npos) {
            continue;
        }
        mains[market + valueOf(line, "productId")] += static_cast<int>(numberOf(line, "mainContractFlag"));
        const std::string platformCode = valueOf(line, "platformCode");
        if (platformCode != valueOf(line, "code")) {
            for (const char* ending : {"L8", "00", "main"}) {
                aliases[ending] += platformCode.ends_with(ending) ? 1 : 0;
            }
        }
    }
    EXPECT_GT(mains.size(), 60U);
    for (const auto& [product, count] : mains) {
        EXPECT_TRUE(count == 1 || count == 2) << product << " has " << count;
    }
    for (const char* ending : {"L8", "00", "main"}) {
        EXPECT_GT(aliases[ending], 5) << ending;
    }
}

TEST_F(GenerateTest, WhatCannotBeWrittenIsSaid) {
    std::filesystem::create_directories(root_);
    const std::string blocked = root_ / "file";
    std::ofstream(blocked) << "in the way";
    const std::filesystem::path full = root_ / "full";
    std::filesystem::create_directories(full);
    std::filesystem::create_symlink("/dev/full", full / "instruments.ndjson");
    const std::vector<std::pair<GenerateOptions, std::string>> cases{
        {{600, 1, kDate, blocked}, blocked},           {{600, 1, kDate, "/dev/null/day"}, "/dev/null"},
        {{600, 1, kDate, full}, "instruments.ndjson"}, {{600, 1, "20260230", root_}, "20260230"},
        {{600, 1, "today", root_}, "today"},           {{static_cast<std::size_t>(-1), 1, kDate, root_}, "at most"}};
    for (const auto& [options, words] : cases) {
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(runGenerate(options, out, err), 2) << words;
        EXPECT_THAT(err.str(), HasSubstr(words));
    }
}

}  // namespace
