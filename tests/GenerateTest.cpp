#include "tools/inscenter/Generate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/pointer_cast.hpp>

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
#include "TemporaryStore.h"
#include "platform/record/Records.h"
#include "platform/utils/MarketRules.h"
#include "tools/marketday/MarketDay.h"

// Invented days, and their files.

namespace {

using inscenter::GenerateOptions;
using mxservice::CBondInfoDetail;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using ::testing::HasSubstr;
using ::testing::ThrowsMessage;
using Codes = std::set<std::string>;

constexpr const char* kDate = "20260302";

template <class Record>
std::vector<boost::shared_ptr<Record>> recordsOf(const marketday::MarketDay& day, const std::string& catalogue) {
    std::vector<boost::shared_ptr<Record>> records;
    day.visit(catalogue, [&](const boost::shared_ptr<mxservice::IData>& record) {
        records.push_back(boost::dynamic_pointer_cast<Record>(record));
    });
    return records;
}

std::vector<boost::shared_ptr<CInstrumentDetail>> instrumentsOf(std::size_t size) {
    return recordsOf<CInstrumentDetail>(marketday::MarketDay(size, 1, kDate), "instruments");
}

std::map<std::string, Codes> codesByMarket(const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    std::map<std::string, Codes> codes;
    for (const auto& record : instruments) {
        codes[record->market].insert(record->code);
    }
    return codes;
}

Codes common(const Codes& left, const Codes& right) {
    Codes both;
    std::set_intersection(left.begin(), left.end(), right.begin(), right.end(), std::inserter(both, both.end()));
    return both;
}

TEST(MarketDayTest, SizeIsMetWithDifferentKeys) {
    // None, too few for every market, a small day, and more than there are codes of some kinds for.
    for (const std::size_t size : {0U, 7U, 300U, 1'000U, kSanitized ? 5'000U : 450'000U}) {
        const marketday::MarketDay day(size, 1, kDate);
        for (const std::string& catalogue : marketday::MarketDay::catalogues()) {
            const auto records = recordsOf<mxservice::IData>(day, catalogue);
            Codes keys;
            for (const auto& record : records) {
                keys.insert(record->getKey());
            }
            EXPECT_EQ(keys.size(), records.size()) << catalogue << " at " << size;
            EXPECT_TRUE(size < 300 || !records.empty()) << catalogue;
            EXPECT_TRUE(catalogue != "instruments" || records.size() == size) << size;
        }
    }
}

TEST(MarketDayTest, EveryMarketIsThere) {
    for (const std::size_t size : {450U, 20'000U}) {
        const auto codes = codesByMarket(instrumentsOf(size));
        for (const char* market :
             {"SH",   "SZ",  "BJ",   "HK",  "HGT",  "SGT",  "SHFI", "NEEQ", "SHO",    "SZO", "CFFEX",
              "SHFE", "DCE", "CZCE", "INE", "GFEX", "SHGE", "WP",   "NYSE", "NASDAQ", "SOTC"}) {
            EXPECT_TRUE(codes.count(market)) << market << " at " << size;
        }
    }
}

TEST(MarketDayTest, RecordsReferToListedOnes) {
    const marketday::MarketDay day(2'000, 1, kDate);
    const auto instruments = recordsOf<CInstrumentDetail>(day, "instruments");
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
    for (const auto& record : instruments) {
        // Options, and convertible bonds. Options on indexes name a series of the index, which is no instrument.
        if (!record->underlyingMarket.empty() && record->underlyingMarket != "CFFEX") {
            EXPECT_TRUE(codes[record->underlyingMarket].count(record->underlyingCode)) << *record;
            ++underlyings;
        }
    }
    EXPECT_GT(underlyings, 100U);
    std::size_t listedBonds = 0;
    for (const auto& bond : recordsOf<CBondInfoDetail>(day, "bonds")) {
        EXPECT_TRUE(bond->shanghaiCode.empty() || codes["SH"].count(bond->shanghaiCode)) << *bond;
        EXPECT_TRUE(bond->shenzhenCode.empty() || codes["SZ"].count(bond->shenzhenCode)) << *bond;
        listedBonds += bond->shanghaiCode.empty() && bond->shenzhenCode.empty() ? 0U : 1U;
    }
    EXPECT_GT(listedBonds, 0U);
    std::size_t nameless = 0;
    for (const auto& etf : recordsOf<CETFDetail>(day, "etfs")) {
        EXPECT_TRUE(codes[etf->market].count(etf->etfCode)) << *etf;
        EXPECT_EQ(etf->market == "SZ", etf->etfCode == etf->prCode) << *etf;
        EXPECT_GE(etf->components.size(), 10U) << *etf;
        for (const auto& [code, component] : etf->components) {
            EXPECT_TRUE(codes[component->market].count(code)) << *component;
            nameless += component->name.empty() ? 1U : 0U;
        }
    }
    EXPECT_GT(nameless, 0U);
}

TEST(MarketDayTest, MarketRulesAcceptTodaysIssues) {
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
    for (const auto& record : instrumentsOf(600)) {
        const std::string& market = record->market;
        const std::string& code = record->code;
        const bool isToday = record->listingDate == kDate;
        const bool isAdditional = record->additionalIssueFlag == 1;
        bool accepted = false;
        for (const auto& [kind, predicate] : shanghaiIssues) {
            if (predicate(market, code)) {
                EXPECT_TRUE(isToday) << *record;
                accepted = true;
                ++found[isAdditional ? "additional" : kind];
            }
        }
        for (const auto& [kind, predicate] : others) {
            accepted = accepted || predicate(market, code);
            found[kind] += predicate(market, code) ? 1 : 0;
        }
        if (market == "SH") {
            EXPECT_EQ(accepted, isToday || code.substr(0, 3) == "689") << *record;
        }
        if (market == "SZ" && record->issueState == -1) {
            EXPECT_TRUE(isToday) << *record;
            EXPECT_NE(utils::isShenzhenStockA(market, code), utils::isShenzhenLoanCbbScbIPO(market, code)) << *record;
            ++found[isAdditional ? "SZ additional" : utils::isShenzhenStockA(market, code) ? "SZ A" : "SZ convertible"];
        }
        const std::string& status = record->statusString;
        if (market == "SZ" && status.size() > 7 && (status[7] == '0' || status[7] == '1')) {
            ++found[std::string("SZ status ") + status[7]];
        }
        if (record->securityClass == 5) {
            ++found[market + " class 5"];
        }
    }
    for (const char* kind : {"share", "bond", "convertible", "growth share", "receipt", "receipt's number",
                             "receipt's subscription", "receipt's placement", "additional", "SZ A", "SZ convertible",
                             "SZ additional", "SZ status 0", "SZ status 1", "BJ class 5", "NEEQ class 5"}) {
        EXPECT_GT(found[kind], 0) << kind;
    }
}

TEST(MarketDayTest, PricesStayWithinTheirLimits) {
    std::size_t limited = 0;
    std::size_t mainBoard = 0;
    for (const auto& record : instrumentsOf(5'000)) {
        const double upper = record->upperLimitPrice;
        if (upper == 0) {
            continue;
        }
        ++limited;
        const double close = record->preClosePrice;
        EXPECT_LT(record->lowerLimitPrice, upper) << *record;
        EXPECT_LE(close, upper) << *record;
        // Shares of the main boards move ten per cent, rounded to a cent.
        const std::string start = record->market + record->code.substr(0, 2);
        if ((start == "SH60" || start == "SZ00") && record->name.find("ST") == std::string::npos) {
            ++mainBoard;
            EXPECT_NEAR(upper, close * 1.1, 0.0051) << *record;
            EXPECT_NEAR(record->lowerLimitPrice, close * 0.9, 0.0051) << *record;
        }
    }
    EXPECT_GT(limited, 1'000U);
    EXPECT_GT(mainBoard, 100U);
}

TEST(MarketDayTest, EveryFutureProductHasAMainContract) {
    std::map<std::string, int> mains;
    std::map<std::string, int> aliases;
    for (const auto& record : instrumentsOf(20'000)) {
        if (!utils::isFutureMarket(record->market) || record->optionType != 0 ||
            record->code.find('&') != std::string::npos) {
            continue;
        }
        mains[record->market + record->productId] += record->mainContractFlag;
        for (const char* ending : {"L8", "00", "main"}) {
            const bool isAlias = record->platformCode != record->code && record->platformCode.ends_with(ending);
            aliases[ending] += isAlias ? 1 : 0;
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

class GenerateTest : public ::testing::Test {
protected:
    /// What the files of a day hold, by their names.
    std::map<std::string, std::string> generate(std::uint64_t seed, const std::string& date) {
        std::ostringstream out;
        inscenter::generate({600, seed, date, root_.string()}, out);
        const auto files = filesIn(root_);
        for (const auto& [file, bytes] : files) {
            EXPECT_THAT(out.str(), HasSubstr(file + ": "));
        }
        return files;
    }

    static std::map<std::string, std::string> filesIn(const std::filesystem::path& directory) {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(directory)) {
            std::ifstream stream(entry.path(), std::ios::binary);
            files[entry.path().filename().string()] = {std::istreambuf_iterator<char>(stream), {}};
        }
        return files;
    }

    const TemporaryDirectory directory_;
    const std::filesystem::path root_ = directory_.path() / "day";
};

TEST_F(GenerateTest, SameSeedAndDateGiveTheSameBytes) {
    const auto first = generate(1, kDate);
    EXPECT_EQ(first.size(), 8U);
    // The samples were written elsewhere.
    auto samples = filesIn(PM_SAMPLES);
    samples.erase("README.md");
    EXPECT_TRUE(first == samples) << "write samples/ anew, as its README says";
    const auto otherSeed = generate(2, kDate);
    for (const auto& [file, bytes] : first) {
        EXPECT_EQ(bytes.back(), '\n') << file;
        EXPECT_NE(bytes, otherSeed.at(file)) << file;
    }
    EXPECT_NE(first.at("instruments.ndjson"), generate(1, "20260303").at("instruments.ndjson"));
}

TEST_F(GenerateTest, WhatCannotBeWrittenIsSaid) {
    std::filesystem::create_directories(root_);
    const std::string blocked = (root_ / "file").string();
    std::ofstream(blocked) << "in the way";
    const std::filesystem::path full = root_ / "full";
    std::filesystem::create_directories(full);
    std::filesystem::create_directories(full / "bonds.ndjson");
    if (std::filesystem::exists("/dev/full")) {
        std::filesystem::create_symlink("/dev/full", full / "instruments.ndjson");
    }
    const std::string root = root_.string();
    const std::vector<std::pair<GenerateOptions, std::string>> cases{
        {{600, 1, kDate, blocked}, blocked},
        {{600, 1, kDate, blocked + "/day"}, blocked},
        {{600, 1, kDate, full.string()}, std::filesystem::exists("/dev/full") ? "instruments.ndjson" : "bonds.ndjson"},
        {{600, 1, "20260230", root}, "20260230"},
        {{600, 1, "today", root}, "today"},
        {{static_cast<std::size_t>(-1), 1, kDate, root}, "at most"}};
    for (const auto& [options, words] : cases) {
        std::ostringstream out;
        const auto generated = [&, &wanted = options] { inscenter::generate(wanted, out); };
        EXPECT_THAT(generated, ThrowsMessage<std::exception>(HasSubstr(words)));
    }
}

}  // namespace
