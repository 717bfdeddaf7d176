// Texts as keys, codes and markets of every lookup of both centers. The day is small and known, so each answer is.

#include <boost/make_shared.hpp>

#include <algorithm>
#include <map>
#include <set>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "fuzz/Fuzzing.h"
#include "platform/utils/Utils.h"
#include "tests/SecondaryRecords.h"
#include "tests/TemporaryStore.h"

namespace mxservice {
namespace {

const std::vector<std::string> kMarkets{"SH",  "SZ",   "BJ",   "HGT",  "SGT",  "HK", "DCE",  "CFFEX",
                                        "SHO", "NEEQ", "SHGE", "NYSE", "SOTC", "WP", "SHFI", "NASDAQ"};

bool startsWithConnect(std::string_view text) {
    return text.substr(0, 3) == "HGT" || text.substr(0, 3) == "SGT";
}
std::string folded(const std::string& text) {
    return startsWithConnect(text) ? "HK" + text.substr(3) : text;
}
std::string foldedMarket(const std::string& market) {
    return market == "HGT" || market == "SGT" ? "HK" : market;
}

std::vector<boost::shared_ptr<CInstrumentDetail>> day() {
    std::vector<boost::shared_ptr<CInstrumentDetail>> records;
    for (const std::string& market : kMarkets) {
        for (const std::string& code :
             {std::string("1"), "m" + market, std::string(300, 'L'), std::string("a\0b", 3)}) {
            auto record = boost::make_shared<CInstrumentDetail>();
            record->market = market;
            record->code = code;
            record->platformCode = code + "P";
            record->productId = market == "SHO" ? "o(1)" : "p";
            record->mainContractFlag = 1;
            records.push_back(record);
        }
    }
    return records;
}

template <class Center>
void load(Center& center) {
    center.initInstruments(kMarkets, day());
    const auto fund = etf("SH", "510050", "510051");
    addComponent(*fund, "SH", "1", "");
    center.initEtfs({fund});
    center.initBonds({{"b", bond("240001", "019733", "101733")}});
    center.initCounterpartys({{"CP", counterparty("CP")}});
    center.initOtcInstruments({plan("P1", 1)});
    center.initIssuanceInfos({issuance("I1")});
    center.initIssuancePriceInfos({{"I1", priceSetting("I1")}});
    center.initTenderBondInfos({{"TB1", tenderBond("TB1")}});
}

/// One of the two centers with the stock key texts that its loads filed.
template <class Center>
struct Asked {
    template <class... Arguments>
    explicit Asked(Arguments... arguments) : center(arguments...) {
        load(center);
        for (const auto& record : day()) {
            const std::string market = record->market == "SHFI" ? "SH" : foldedMarket(record->market);
            known.insert(market + record->code);
            markets.insert(market);
        }
        known.insert({"ETFINSTS510051", "BANK240001"});
        markets.insert({"ETFINSTS", "BANK"});
    }

    Center center;
    std::set<std::string> known;
    std::set<std::string> markets;
};

template <class Center>
void askInstruments(Asked<Center>& asked, const std::string& text) {
    IInstrumentCenter& center = asked.center;
    const auto record = center.getInstrument(text);
    require((record != nullptr) == (asked.known.count(folded(text)) == 1), "a record exactly for a known key");
    const bool standsForFund = record && "ETFINSTS" + record->code == text;  // its market is the fund's
    require(!record || standsForFund || folded(record->market + record->code) == folded(text),
            "the record has the key asked for");
    require(center.hasCode(text) == (record != nullptr), "hasCode goes with getInstrument");
    const bool hashed = center.getInstrument(utils::hash(text)) != nullptr;
    require(hashed == (asked.known.count(text) == 1), "a hashed key is not folded");
    int kinds = 0;
    for (const bool is : {center.hasStock(text), center.hasFuture(text), center.hasSkstock(text),
                          center.hasOption(text), center.hasNeeq(text), center.hasGold(text), center.hasBond(text),
                          center.hasOuterFuture(text), center.hasOuterStock(text)}) {
        kinds += is ? 1 : 0;
    }
    require(kinds <= 1 && (kinds == 0 || record), "a key is of one kind and only if it is known");
    require(center.hasFutureOption(text) == center.hasFuture(text), "hasFutureOption answers as hasFuture");
    require(!center.hasHkstock(text) || record, "only a known key is a connect stock");
}

template <class Center>
void askMarket(Asked<Center>& asked, const std::string& market, const std::string& code) {
    IInstrumentCenter& center = asked.center;
    const auto record = center.getInstrument(market, code);
    require((record != nullptr) == (asked.known.count(foldedMarket(market) + code) == 1), "by market and code");
    require(!record || center.getProductId(market, code) == record->productId, "the product of that record");
    const bool isFund = market == "SH" && (code == "510050" || code == "510051");
    require((center.getEtf(market, code) != nullptr) == isFund || market + code == "SH510050" ||
                market + code == "SH510051",
            "a fund by market and code");
    require(!center.isStkOptionUndlCode(market, code) || code == "1", "only what options name underlies them");
}

template <class Center>
void askAsMarket(Asked<Center>& asked, const std::string& text) {
    IInstrumentCenter& center = asked.center;
    const auto records = center.getInstruments(text);
    require(records.empty() == (asked.markets.count(foldedMarket(text)) == 0), "records exactly for a known market");
    for (const auto& [key, record] : records) {
        require(asked.known.count((text == "ETFINSTS" ? text : folded(record->market)) + record->code) == 1,
                "a market lists known keys");
    }
    const bool exchange = text == "DCE" || text == "CFFEX";
    require(center.getFutureMainInstruments(text).empty() != exchange, "main contracts exactly for an exchange");
    std::list<boost::shared_ptr<CInstrumentDetail>> out;
    center.getInstruments(text, out);
    require(out.size() == records.size(), "the list holds as many");
}

template <class Center>
void askOthers(Asked<Center>& asked, const std::string& text) {
    IInstrumentCenter& center = asked.center;
    const bool isFund = text == "SH510050" || text == "SH510051";
    require(center.hasEtf(text) == isFund && (center.getEtf(text) != nullptr) == isFund, "a fund");
    require((center.getBond(text) != nullptr) == (text == "BANK240001"), "a bond");
    require((center.getBond(utils::hash(text)) != nullptr) == (text == "BANK240001"), "a bond by its hash");
    require((center.getCounterparty(text) != nullptr) == (text == "CP"), "a counterparty");
    require(center.hasOtc(text) == (text == "SOTCP1"), "a plan is known");
    require((center.getOtcInstrument(text) != nullptr) == (text == "SOTCP1"), "a plan");
    require(center.hasIssuance(text) == (text == "I1") && (center.getIssuanceInfo(text) != nullptr) == (text == "I1"),
            "an issuance");
    require(!center.getIssuancePriceInfo(text) || text == "I1", "a price setting");
    require(center.hasTenderBond(text) == (center.getTenderBondInfo(text) != nullptr), "a tender bond");
    require(center.getInterbankCode(text).empty() || text == "SH019733" || text == "SZ101733", "an interbank code");
    require(center.getProductInstruments(text).empty() || text == "p", "contracts of a product");
    require(center.getProductName(text).empty(), "no product has a name");
    const std::string platform = center.getLumoCode(text);
    require(platform == text || platform == text + "P", "a platform code");
    center.getOutterProductName(text);
    center.getOutterMarketName(text);
    center.isCommodityProduct(text);
    center.isInterestProduct(text);
}

template <class Center>
void ask(Asked<Center>& asked, const std::string& text) {
    askInstruments(asked, text);
    askAsMarket(asked, text);
    askOthers(asked, text);
    constexpr std::size_t kSplits = 9;
    for (std::size_t at = 0; at < std::min(text.size() + 1, kSplits); ++at) {
        askMarket(asked, text.substr(0, at), text.substr(at));
    }
}

}  // namespace
}  // namespace mxservice

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace mxservice;
    static const TemporaryStore store;
    static Asked<CServerInstrumentCenter> server("fuzz");
    static Asked<CClientInstrumentCenter> client("fuzz", 8, 8, 8);
    const std::string text(reinterpret_cast<const char*>(data), size);
    ask(server, text);
    ask(client, text);
    return 0;
}
