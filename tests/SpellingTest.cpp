#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ToolFixture.h"
#include "tools/inscenter/Spelling.h"

// Names as they are typed where nobody has a Chinese keyboard. Only where the tool is built with ICU.

namespace {

using inscenter::Spelling;
using ::testing::ElementsAre;
using ::testing::Pair;
using tooltest::linesOf;

TEST(Spelling, ReadsLettersAsNamesDo) {
    Spelling spelling;
    const auto spelled = [&](const char* name) {
        const inscenter::Spelled both = spelling.of(name);
        return both.pinyin + "|" + both.initials;
    };
    EXPECT_EQ(spelled("平安银行"), "ping an yin hang|payh");
    EXPECT_EQ(spelled("长城 成长"), "chang cheng cheng zhang|cccz");
    EXPECT_EQ(spelled("*ST重庆Ａ7号"), "*st chong qing a7 hao|*stcqa7h");
    EXPECT_EQ(spelled("CF 绿地"), "cf lu di|cfld");
    EXPECT_EQ(spelled("ABC 1"), "|");
    EXPECT_EQ(spelled("\xE5\xB9"), "|");
    Spelling other;
    other.of("出");
    EXPECT_THAT(other.readings(), ElementsAre(Pair("出", "chu"), Pair("出行", "chu xing")));
}

class SpelledNames : public tooltest::ToolTest {
protected:
    std::vector<std::string> found(const std::string& text) {
        std::vector<std::string> codes;
        for (const std::string& line : linesOf(ask({"find", text, "--format", "csv"}).out)) {
            const std::size_t begin = line.find(',') + 1;
            codes.push_back(line.substr(begin, line.find(',', begin) - begin));
        }
        codes.erase(codes.begin());
        return codes;
    }
};

TEST_F(SpelledNames, AreFoundAfterCodesAndNamesAndTheBestFirst) {
    write("instruments.ndjson", R"-({"market":"SH","code":"1","name":"大平安","spellName":"DPA"}
{"market":"SH","code":"2","name":"平安银行"}
{"market":"SH","code":"3","name":"平庵","spellName":"PAN"}
{"market":"NYSE","code":"PING","name":"Ace"}
{"market":"NYSE","code":"X","name":"Ping An"}
{"market":"NYSE","code":"Y","name":"Biotech of Ping An"}
{"market":"NYSE","code":"Z","name":"Shipping","isin":"US0PA"}
{"market":"SZ","code":"4","name":"绿能","productName":"Ping An note"}
{"market":"SZ","code":"5","name":"宁V50"}
)-");
    EXPECT_THAT(found("ping an"), ElementsAre("X", "3", "2", "4", "Y", "1"));
    EXPECT_THAT(found("pingan"), found("ping an"));
    EXPECT_THAT(found("ping"), ElementsAre("PING", "X", "2", "3", "4", "Y", "1", "I1",
                                           "Z"));  // 凭 in the issuance's name is a syllable, too
    EXPECT_THAT(found("PAYH"), ElementsAre("2"));
    EXPECT_THAT(found("pa"), ElementsAre("2", "3", "1"));
    EXPECT_THAT(found("pan"), ElementsAre("3"));  // the initials that a record brings, not those of its name
    EXPECT_THAT(found("us0p"), ElementsAre("Z"));
    EXPECT_THAT(found("lvneng"), ElementsAre("4"));
    EXPECT_THAT(found("ningv"), ElementsAre("5"));       // a v of the name's own
    EXPECT_THAT(found("angan"), ElementsAre());          // across syllables is no name that anybody types
    EXPECT_THAT(found("an biotech"), ElementsAre("Y"));  // both words, in whichever order
}

}  // namespace
