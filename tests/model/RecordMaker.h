#pragma once

#include <deque>
#include <string>
#include <vector>

#include "tests/RandomRecords.h"
#include "tests/model/Answers.h"

namespace mxservice::model {

// What records are made of: few values, so that everything meets everything.

// Differs from "SH" in case alone. Not where file systems ignore case: the market that comes second is not stored
// there.
#ifdef _WIN32
constexpr const char* kLower = "si";
#else
constexpr const char* kLower = "sh";
#endif
inline const std::vector<std::string> kMarkets{
    "SH",   "SZ", "BJ",   "HK",     "HGT", "SGT", "SHFI", "SHO",  "SZO",  "DCE",  "CZCE", "INE",   "NEEQ",    "SHGE",
    "BANK", "WP", "NYSE", "NASDAQ", "S",   "",    "a/b",  "SOTC", kLower, "SHFE", "GFEX", "CFFEX", "ETFINSTS"};
// Some collide on purpose: "S" and "H1" have the key text of "SH" and "1".
inline const std::vector<std::string> kCodes{
    "1",      "2",        "3",         "H1",        "00700",  "600000", "730001", "689009",   "301999",
    "370001", "SP a1&a2", "SPC a1&b1", "SP",        "SPCX",   "SP a&",  "",       "SP a&b&c", std::string("x\0y", 3),
    "732001", "920001",   "\xC6\xBD",  "SPC a b&c", "795001", "SP  a&b"};
inline const std::vector<std::string> kDays{"20260302", "20260301", "", "LME", "CBOT"};
inline const std::vector<std::string> kStates{"", "0", "NNNNNNN1", "NNNNNNN0", "NNNNNNNN", "NNNNNNN"};
inline const std::vector<std::string> kPlatformCodes{"mL8", "L8", "ml8", "m00", "100", "00", "main", "amain", "x", ""};
inline const std::vector<int> kTraderTypes{0,      1,       2,       4,       8,        16,   32,    64,
                                           128,    256,     512,     1024,    2048,     4096, 16384, 65536,
                                           810495, 1048576, 2097152, 8388608, 16777216, -1,   3,     2146762751};

/// A record of the host and the model's own copy of it. Handing a twin in twice is handing the same record in twice.
template <class Record>
struct Twin {
    boost::shared_ptr<Record> real;
    boost::shared_ptr<Record> mine;
};

template <class Record>
std::vector<boost::shared_ptr<Record>> reals(const std::vector<Twin<Record>>& twins) {
    std::vector<boost::shared_ptr<Record>> records;
    for (const Twin<Record>& twin : twins) {
        records.push_back(twin.real);
    }
    return records;
}

template <class Record>
std::vector<boost::shared_ptr<Record>> mines(const std::vector<Twin<Record>>& twins) {
    std::vector<boost::shared_ptr<Record>> records;
    for (const Twin<Record>& twin : twins) {
        records.push_back(twin.mine);
    }
    return records;
}

/// Makes the records.
class Maker {
public:
    explicit Maker(unsigned seed) : random_(seed) {}

    std::size_t below(std::size_t limit) { return static_cast<std::size_t>(random_.number() % limit); }
    bool chance(std::size_t in) { return below(in) == 0; }
    template <class Value>
    const Value& oneOf(const std::vector<Value>& values) {
        return values[below(values.size())];
    }

    Twin<CInstrumentDetail> instrument(const std::string& market) {
        const auto record = random_.make<CInstrumentDetail>();
        record->market = market;
        record->code = oneOf(kCodes);
        record->platformCode = chance(2) ? record->code : oneOf(kPlatformCodes);
        // Products of their own for each exchange, as the exchanges have them.
        record->productId = market == "SHO" || market == "SZO"
                                ? oneOf(std::vector<std::string>{"E(1)", "E(600000)x", "E", "E()", "(3", ")2("})
                                : market + "p" + std::to_string(below(3));
        record->listingDate = oneOf(kDays);
        record->statusString = oneOf(kStates);
        record->mainContractFlag = static_cast<int>(below(3));
        record->issueState = static_cast<int>(below(3)) - 1;
        record->securityClass = 4 + static_cast<int>(below(2));
        record->additionalIssueFlag = chance(5) ? 1 : 0;
        record->optionType = static_cast<int>(below(4));
        record->productGroup = static_cast<int>(below(4));
        record->connectFlagValue = static_cast<int>(below(5)) - 1;
        record->combinedConnectFlags = chance(5) ? 7 : 0;
        return remember({record, clone(record)});
    }

    Twin<CETFDetail> etf(bool componentsMayLackNames) {
        const auto record = random_.make<CETFDetail>();
        record->market = oneOf(std::vector<std::string>{"SH", "SZ", "S"});
        record->etfCode = oneOf(kCodes);
        record->prCode = oneOf(kCodes);
        if (chance(3)) {
            record->components.clear();
        }
        ComponentMap basket;
        for (const auto& [code, component] : record->components) {
            component->market = oneOf(kMarkets);
            component->code = oneOf(kCodes);
            component->name = componentsMayLackNames && chance(2) ? "" : "part";
            basket[component->code] = component;
        }
        record->components = basket;
        return {record, clone(record)};
    }

    template <class Record>
    Twin<Record> coded(std::string Record::*code) {
        const auto record = random_.make<Record>();
        (*record).*code = oneOf(kCodes);
        return {record, clone(record)};
    }

    Twin<CBondInfoDetail> bond() {
        const auto record = random_.make<CBondInfoDetail>();
        record->bondCode = oneOf(kCodes);
        record->shanghaiCode = chance(2) ? "" : oneOf(kCodes);
        record->shenzhenCode = chance(2) ? "" : oneOf(kCodes);
        return {record, clone(record)};
    }

    Twin<COTCFundPlanInfo> plan() {
        const auto record = random_.make<COTCFundPlanInfo>();
        record->market = oneOf(std::vector<std::string>{"SOTC", "OTC", "S"});
        record->code = oneOf(kCodes);
        record->planType = static_cast<int>(below(4)) - 1;
        return {record, clone(record)};
    }

    Twin<CInstrumentDetail> earlier() { return oneOf(std::vector(recent_.begin(), recent_.end())); }
    bool hasEarlier() const { return !recent_.empty(); }

    std::string keyText() {
        const std::string code = oneOf(kCodes);
        switch (below(12)) {
            case 0:
                return code;
            case 1:
                return "X" + oneOf(kMarkets) + code;
            case 2:
                return "ETFINSTS" + code;
            default:
                return oneOf(kMarkets) + code;
        }
    }

private:
    Twin<CInstrumentDetail> remember(Twin<CInstrumentDetail> twin) {
        recent_.push_back(twin);
        if (recent_.size() > 60) {
            recent_.pop_front();
        }
        return twin;
    }

    RandomRecords random_;
    std::deque<Twin<CInstrumentDetail>> recent_;
};

}  // namespace mxservice::model
