#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "ToolFixture.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/record/Records.h"
#include "tools/inscenter/CommandLine.h"
#include "tools/inscenter/FieldMeanings.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/RecordText.h"
#include "tools/inscenter/VerbList.h"

// What is installed beside the tool, against what its command line takes.

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

const std::string kInstalled = PM_TOOL_INSTALL;

std::string outputOf(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text;
    std::array<char, 4096> buffer{};
    for (std::size_t count = 0; pipe && (count = fread(buffer.data(), 1, buffer.size(), pipe.get())) > 0;) {
        text.append(buffer.data(), count);
    }
    return text;
}

/// What bash offers for the last of the words.
std::vector<std::string> offered(const std::string& words) {
    return tooltest::linesOf(outputOf("bash -c '. " + kInstalled + "/inscenter.bash; COMP_WORDS=(inscenter " + words +
                                      "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _inscenter inscenter; "
                                      "printf \"%s\\n\" \"${COMPREPLY[@]}\"'"));
}

std::vector<std::string> sorted(std::vector<std::string> texts) {
    std::sort(texts.begin(), texts.end());
    texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
    return texts;
}

TEST(ToolDocuments, CompletionOffersEveryVerbAndOption) {
    std::vector<std::string> verbs;
    std::vector<std::string> storeVerbs;
    std::vector<std::string> feedVerbs;
    std::vector<std::string> global;
    for (const inscenter::VerbHelp& verb : inscenter::describeVerbs()) {
        if (verb.name.empty()) {
            global = verb.options;
        } else if (verb.name.starts_with("store ")) {
            storeVerbs.push_back(verb.name.substr(6));
        } else if (verb.name.starts_with("feed ")) {
            feedVerbs.push_back(verb.name.substr(5));
        } else {
            verbs.push_back(verb.name);
        }
        std::vector<std::string> options = verb.options;
        options.insert(options.end(), global.begin(), global.end());
        EXPECT_EQ(sorted(offered(verb.name + " --")), sorted(options)) << verb.name;
    }
    verbs.emplace_back("help");
    EXPECT_THAT(offered("\"\""), UnorderedElementsAreArray(verbs));
    EXPECT_THAT(offered("help \"\""), UnorderedElementsAreArray(verbs));
    EXPECT_THAT(offered("--data day --format csv \"\""), UnorderedElementsAreArray(verbs));
    EXPECT_THAT(offered("store \"\""), UnorderedElementsAreArray(storeVerbs));
    EXPECT_THAT(offered("feed \"\""), UnorderedElementsAreArray(feedVerbs));
}

TEST(ToolDocuments, CompletionOffersMarketsAndTheFieldsOfWhatIsListed) {
    std::vector<std::string> markets;
    for (const inscenter::MarketName& known : inscenter::kMarketNames) {
        markets.emplace_back(known.market);
    }
    EXPECT_EQ(offered("list --market \"\""), markets);
    EXPECT_THAT(offered("list --jsonl --market SH S"), Contains("SZ"));
    EXPECT_THAT(offered("mains --market \"\""), ElementsAreArray(mxservice::market::kFutures));
    for (const inscenter::VerbLine& verb : inscenter::kVerbs) {
        if (verb.listed != nullptr) {
            const std::string words = std::string(verb.name) + " --where \"\"";
            EXPECT_EQ(offered(words), inscenter::fieldNames(verb.listed())) << verb.name;
        }
    }
    EXPECT_THAT(offered("list --market SH --fields code,isi"), ElementsAre("code,isin"));
    EXPECT_THAT(offered("bonds --sort -maturityD"), ElementsAre("-maturityDate"));
}

TEST(ToolDocuments, EveryFieldHasAMeaning) {
    for (const mxservice::RecordType* const type : mxservice::TypeManager::instance()->types()) {
        for (const mxservice::Field& field : type->fields()) {
            EXPECT_STRNE(inscenter::meaningOf(*type, field), "") << type->name() << " " << field.name();
        }
    }
    const mxservice::RecordType& fund = mxservice::CETFDetail::table();
    EXPECT_STREQ(inscenter::meaningOf(fund, *fund.find("exchid")), "market of the fund");
    const mxservice::RecordType& instrument = mxservice::CInstrumentDetail::table();
    EXPECT_STREQ(inscenter::meaningOf(instrument, *instrument.find("issueState")),
                 "as delivered; -1 belongs to a Shenzhen issue of today");
}

TEST(ToolDocuments, ManualNamesEveryVerbAndOptionAndNoOther) {
    std::ifstream file(kInstalled + "/inscenter.1");
    std::string manual{std::istreambuf_iterator<char>(file), {}};
    manual = std::regex_replace(manual, std::regex(R"(\\f[BIR])"), "");
    manual = std::regex_replace(manual, std::regex(R"(\\-)"), "-");
    const std::string commands = manual.substr(manual.find(".SH COMMANDS"));
    std::vector<std::string> known;
    for (const inscenter::VerbHelp& verb : inscenter::describeVerbs()) {
        const std::regex word(R"((^|\n)\.B[IR]?[^\n]*[ "])" + verb.name + R"(([ ",\n]))");
        if (verb.name != "store") {
            EXPECT_TRUE(std::regex_search(commands, word)) << verb.name;
        }
        for (const std::string& option : verb.options) {
            EXPECT_THAT(manual, HasSubstr(option)) << verb.name;
            known.push_back(option);
        }
    }
    const std::regex option("--[a-z][a-z-]*");
    for (std::sregex_iterator found(manual.begin(), manual.end(), option), end; found != end; ++found) {
        EXPECT_NE(std::find(known.begin(), known.end(), found->str()), known.end()) << found->str();
    }
}

}  // namespace
