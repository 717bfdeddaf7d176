// New issues of the trading day, under the codes that docs/market-rules.md lists, and depositary receipts.

#include "tools/inscenter/generate/CodeSeries.h"
#include "tools/inscenter/generate/RecordParts.h"
#include "tools/inscenter/generate/Segments.h"

namespace inscenter::generate {
namespace {

using mxservice::CInstrumentDetail;

constexpr Tick kCent{1, 2};

enum class Issue : std::uint8_t { Share, Convertible, Bond, Additional, Receipt, ReceiptNumber, FirstDay };

/// The code of an issue: a prefix, and the last digits of the code that it is about.
struct IssueKind {
    const char* prefix;
    const char* pattern;
    Issue issue;
};

constexpr IssueKind kShanghai[] = {
    {"730", "600###", Issue::Share},
    {"780", "601###", Issue::Share},
    {"787", "688###", Issue::Share},
    {"732", "603###", Issue::Share},
    {"707", "605###", Issue::Share},
    {"733", "600###", Issue::Convertible},
    {"754", "603###", Issue::Convertible},
    {"783", "601###", Issue::Convertible},
    {"713", "605###", Issue::Convertible},
    {"718", "688###", Issue::Convertible},
    {"", "689###", Issue::Receipt},
    {"730", "600###", Issue::Additional},
    {"795", "689###", Issue::Share},
    {"796", "689###", Issue::ReceiptNumber},
    {"7869", "689###", Issue::ReceiptNumber},
    {"", "7510##", Issue::Bond},
    {"", "7519##", Issue::Bond},
    {"732", "603###", Issue::Additional},
};
constexpr IssueKind kShenzhen[] = {
    {"", "301###", Issue::Share},    {"", "0013##", Issue::Share},         {"37", "300###", Issue::Convertible},
    {"", "0010##", Issue::Receipt},  {"07", "002###", Issue::Convertible}, {"37", "300###", Issue::Additional},
    {"", "300###", Issue::Share},    {"", "002###", Issue::Share},         {"37", "301###", Issue::Convertible},
    {"", "0011##", Issue::Receipt},  {"07", "000###", Issue::Convertible}, {"07", "002###", Issue::Additional},
    {"", "302###", Issue::FirstDay}, {"", "003###", Issue::Share},
};

/// The name that the platform shows for the issue.
Name issueName(Issue issue, const Company& company) {
    const Name& brand = company.brand;
    switch (issue) {
        case Issue::Share:
            return {brand.text + "申购", brand.spell + "SG", company.full.english};
        case Issue::Convertible:
            return {brand.text + "发债", brand.spell + "FZ", brand.english + " Convertible"};
        case Issue::Bond:
            return {brand.text + "分销", brand.spell + "FX", brand.english + " Bond"};
        case Issue::Additional:
            return {brand.text + "增发", brand.spell + "ZF", company.full.english};
        case Issue::Receipt:
            return {brand.text + "ＣＤＲ", brand.spell + "CDR", brand.english + " CDR"};
        case Issue::ReceiptNumber:
            return {brand.text + "配号", brand.spell + "PH", brand.english + " CDR"};
        case Issue::FirstDay:
            return {"N" + brand.text, "N" + brand.spell, company.full.english};
    }
    return {};
}

void writeIssue(const MarketDay& day, std::string_view market, const IssueKind& kind, const std::string& code,
                Dice& dice, RecordFile& file) {
    const bool isDebt = kind.issue == Issue::Convertible || kind.issue == Issue::Bond;
    const bool isReceipt = kind.issue == Issue::Receipt;
    const Company company = inventCompany(dice);
    CInstrumentDetail record = startRecord(day, market, code);
    setName(record, issueName(kind.issue, company));
    record.industry = company.industry;
    record.listingDate = isReceipt ? day.after(-dice.between(200, 1'500)) : day.today();
    record.issuePrice = isDebt ? 100 : kCent.price(dice.between(300, 9'000));
    record.preClosePrice = record.issuePrice;
    record.priceTick = kCent.price(1);
    record.pricePrecision = kCent.decimals;
    record.faceValue = isDebt ? 100 : 1;
    record.additionalIssueFlag = kind.issue == Issue::Additional ? 1 : 0;
    setOrderSizes(record, market == "SH" && isDebt ? 10 : 500, 1'000'000);
    setShares(record, dice);
    if (market == "SZ") {
        record.issueState = kind.issue == Issue::FirstDay || isReceipt ? 0 : -1;
        record.statusString = isReceipt ? (code[3] == '0' ? "E110NN01" : "E110NN00") : "E110NN0N";
    }
    file.write(record);
}

template <std::size_t N>
void writeKinds(const MarketDay& day, Segment segment, std::string_view market, const IssueKind (&kinds)[N],
                RecordFile& file) {
    const Seed seed = day.seed("issue").child(market);
    for (std::size_t i = 0; i < day.count(segment); ++i) {
        const IssueKind& kind = kinds[i % N];
        const CodeSeries series{kind.pattern};
        // A new share must not be listed yet; one with a convertible bond or an additional issue must be, and does not
        // have both at the same time.
        const bool isUnlisted = kind.issue == Issue::Share || kind.issue == Issue::FirstDay;
        const std::size_t number = i / N * 2 + (kind.issue == Issue::Additional ? 1 : 0);
        std::string about = isUnlisted ? series.fromEnd(number, day.salt()) : series.at(number, day.salt());
        const std::string_view prefix = kind.prefix;
        Dice dice = seed.dice(i);
        writeIssue(day, market, kind, about.replace(0, prefix.size(), prefix), dice, file);
    }
}

}  // namespace

void writeIssues(const MarketDay& day, RecordFile& file) {
    writeKinds(day, Segment::ShIssues, "SH", kShanghai, file);
    writeKinds(day, Segment::SzIssues, "SZ", kShenzhen, file);

    static const CodeSeries kBeijing{"920###"};
    for (std::size_t i = 0; i < day.count(Segment::BjIssues); ++i) {
        Dice dice = day.seed("BJ issue").dice(i);
        const Company company = inventCompany(dice);
        CInstrumentDetail record = startRecord(day, "BJ", kBeijing.fromEnd(i, day.salt()));
        setName(record, issueName(Issue::Share, company));
        record.industry = company.industry;
        record.listingDate = day.today();
        record.securityClass = 5;
        record.issuePrice = kCent.price(dice.between(400, 4'000));
        record.preClosePrice = record.issuePrice;
        record.priceTick = kCent.price(1);
        record.pricePrecision = kCent.decimals;
        setOrderSizes(record, 100, 1'000'000);
        setShares(record, dice);
        file.write(record);
    }
}

}  // namespace inscenter::generate
