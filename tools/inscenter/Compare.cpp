#include "tools/inscenter/Compare.h"

#include <fmt/format.h>

#include <array>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <utility>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/CompareQuestions.h"
#include "tools/inscenter/CompareRecords.h"
#include "tools/inscenter/CompareTally.h"
#include "tools/inscenter/Differences.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/Predicates.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using mxservice::IInstrumentCenter;

template <class Record>
using RecordMap = std::map<std::string, shared_ptr<Record>>;

/// The trader types that both centers answer, and one that neither knows.
constexpr std::array kTraderTypes{1,    2,     4,     8,       16,      32,      128,    256,        1024,
                                  4096, 16384, 65536, 1048576, 2097152, 8388608, 810495, 2146762751, 3};

std::string difference(bool server, bool client) {
    return server == client ? std::string() : fmt::format("server {}, client {}", server, client);
}

std::string difference(const std::string& server, const std::string& client) {
    return server == client ? std::string() : fmt::format("server \"{}\", client \"{}\"", server, client);
}

template <class Values>
std::string difference(const Values& server, const Values& client) {
    return server == client ? std::string()
                            : fmt::format("server {} entries, client {} other ones", server.size(), client.size());
}

template <class Record>
shared_ptr<Record> valueIn(const RecordMap<Record>& records, const std::string& key) {
    const auto found = records.find(key);
    return found == records.end() ? nullptr : found->second;
}

RecordMap<CInstrumentDetail> byKeyText(const std::list<shared_ptr<CInstrumentDetail>>& records) {
    RecordMap<CInstrumentDetail> map;
    for (const auto& record : records) {
        map.emplace(record->getKey(), record);
    }
    return map;
}

/// Asks both centers all questions.
class CenterComparison {
public:
    CenterComparison(IInstrumentCenter& server, IInstrumentCenter& client, const Questions& questions,
                     const RecordComparison& records, Tally& tally)
        : server_(server), client_(client), questions_(questions), records_(records), tally_(tally) {}

    void askAll(Console& console);

private:
    void askInstruments();
    void askPredicates();
    void askLists();
    void askFutures();
    void askCodeSets();
    void askFunds();
    void askBonds();
    void askOtc();

    /// Asks both centers one question and compares the values that they answer.
    template <class Ask, class... Arguments>
    void value(const char* name, Ask ask, const Arguments&... arguments) {
        tally_.add(difference(std::invoke(ask, server_, arguments...), std::invoke(ask, client_, arguments...)),
                   [&] { return question(name, arguments...); });
    }
    /// The same for a record, which the persisted center may have to answer with another market.
    template <class Ask, class... Arguments>
    void record(const char* name, const std::string& relabelled, Ask ask, const Arguments&... arguments) {
        const auto server = std::invoke(ask, server_, arguments...);
        const auto client = std::invoke(ask, client_, arguments...);
        tally_.add(records_.difference(server.get(), client.get(), relabelled),
                   [&] { return question(name, arguments...); });
    }
    /// The same for records by key.
    template <class Ask, class... Arguments>
    void map(const char* name, Ask ask, const Arguments&... arguments) {
        tally_.add(mapDifference(std::invoke(ask, server_, arguments...), std::invoke(ask, client_, arguments...)),
                   [&] { return question(name, arguments...); });
    }

    template <class... Arguments>
    static std::string question(const char* name, const Arguments&... arguments) {
        std::string text;
        ((text += fmt::format("{}{}", text.empty() ? "" : ", ", arguments)), ...);
        return fmt::format("{}({})", name, text);
    }

    template <class Record>
    std::string mapDifference(const RecordMap<Record>& server, const RecordMap<Record>& client);

    template <class Record>
    std::string entryDifference(const std::string& /*key*/, const Record* server, const Record* client) {
        return records_.difference(server, client);
    }
    std::string entryDifference(const std::string& key, const CETFDetail* server, const CETFDetail* client) {
        return questions_.isAmbiguousFund(key) ? std::string() : records_.difference(server, client);
    }
    std::string entryDifference(const std::string& key, const CInstrumentDetail* server,
                                const CInstrumentDetail* client);

    IInstrumentCenter& server_;
    IInstrumentCenter& client_;
    const Questions& questions_;
    const RecordComparison& records_;
    Tally& tally_;
};

template <class Record>
std::string CenterComparison::mapDifference(const RecordMap<Record>& server, const RecordMap<Record>& client) {
    std::set<std::string> keys;
    for (const auto* const records : {&server, &client}) {
        for (const auto& [key, record] : *records) {
            keys.insert(keys.end(), key);
        }
    }
    std::size_t count = 0;
    std::string first;
    for (const std::string& key : keys) {
        const std::string found = entryDifference(key, valueIn(server, key).get(), valueIn(client, key).get());
        if (!found.empty() && ++count == 1) {
            first = fmt::format("{}: {}", key, found);
        }
    }
    return count == 0 ? std::string() : fmt::format("{} of {} entries, first {}", count, keys.size(), first);
}

/// Lists of everything hold one record a key text. A listed fund and the instrument of its creation may have the same,
/// and which of them is met first is not fixed.
std::string CenterComparison::entryDifference(const std::string& key, const CInstrumentDetail* server,
                                              const CInstrumentDetail* client) {
    std::string found = records_.difference(server, client);
    if (found.empty() || server == nullptr || questions_.fundsByKey.count(key) == 0) {
        return found;
    }
    for (const std::string& other : {key, utils::ovStockKey(kEtfInstruments, server->code)}) {
        const auto candidate = server_.getInstrument(other);
        if (candidate && records_.difference(candidate.get(), client).empty()) {
            return {};
        }
    }
    return found;
}

void CenterComparison::askAll(Console& console) {
    struct Step {
        const char* group;
        void (CenterComparison::*ask)();
    };
    constexpr std::array kSteps{Step{"single instruments", &CenterComparison::askInstruments},
                                Step{"predicates of keys", &CenterComparison::askPredicates},
                                Step{"lists of instruments", &CenterComparison::askLists},
                                Step{"futures", &CenterComparison::askFutures},
                                Step{"code sets", &CenterComparison::askCodeSets},
                                Step{"ETFs", &CenterComparison::askFunds},
                                Step{"bonds and counterparties", &CenterComparison::askBonds},
                                Step{"OTC", &CenterComparison::askOtc}};
    for (const Step& step : kSteps) {
        console.begin(fmt::format("comparing {}", step.group), 0);
        tally_.begin(step.group);
        (this->*step.ask)();
    }
    console.end();
}

void CenterComparison::askInstruments() {
    const auto byText = [](IInstrumentCenter& center, const std::string& key) { return center.getInstrument(key); };
    const auto byHash = [](IInstrumentCenter& center, std::uint64_t key) { return center.getInstrument(key); };
    const auto byCode = [](IInstrumentCenter& center, const std::string& market, const std::string& code) {
        return center.getInstrument(market, code);
    };
    for (const std::string& text : questions_.texts) {
        record("getInstrument", connectPrefix(text), byText, text);
        record("getInstrument", "", byHash, utils::hash(text));
    }
    for (const auto& [market, code] : questions_.codes) {
        const std::string connect = connectPrefix(market);
        record("getInstrument", connect == market ? connect : "", byCode, market, code);
    }
}

void CenterComparison::askPredicates() {
    for (const std::string& text : questions_.texts) {
        for (const Predicate& predicate : kPredicates) {
            if (predicate.ask != &IInstrumentCenter::hasHkstock) {
                value(predicate.name, predicate.ask, text);
            }
        }
    }
}

void CenterComparison::askLists() {
    const auto ofMarket = [](IInstrumentCenter& center, const std::string& market) {
        return center.getInstruments(market);
    };
    const auto ofType = [](IInstrumentCenter& center, int type) {
        return center.getInstruments(static_cast<mxservice::EOvTraderType>(type));
    };
    for (const std::string& market : questions_.markets) {
        map("getInstruments of market", ofMarket, market);
    }
    for (const int type : kTraderTypes) {
        map("getInstruments of trader type", ofType, type);
    }
    const std::list<std::string> markets(questions_.markets.begin(), questions_.markets.end());
    map("getInstruments of all markets", [&](IInstrumentCenter& center) { return center.getInstruments(markets); });
    map("getInstruments", [](IInstrumentCenter& center) { return center.getInstruments(); });
}

void CenterComparison::askFutures() {
    for (const std::string& market : questions_.markets) {
        map("getFutureMainInstruments", &IInstrumentCenter::getFutureMainInstruments, market);
    }
    auto server = server_.getProductMainInstruments();
    auto client = client_.getProductMainInstruments();
    for (const std::string& product : questions_.products) {
        tally_.add(mapDifference(byKeyText(server[product]), byKeyText(client[product])),
                   [&] { return question("getProductMainInstruments", product); });
        value("getProductName", &IInstrumentCenter::getProductName, product);
    }
    for (const auto& [market, code] : questions_.codes) {
        value("getProductId", &IInstrumentCenter::getProductId, market, code);
    }
    value("getDceCrossProduct", &IInstrumentCenter::getDceCrossProduct);
    value("getDceCrossPeriod", &IInstrumentCenter::getDceCrossPeriod);
}

void CenterComparison::askCodeSets() {
    value("getStockIpoCodes", &IInstrumentCenter::getStockIpoCodes);
    value("getStockCdrCodes", &IInstrumentCenter::getStockCdrCodes);
    value("getNeeqInquiryCodes", &IInstrumentCenter::getNeeqInquiryCodes);
    for (const auto& [market, code] : questions_.codes) {
        value("isStkOptionUndlCode", &IInstrumentCenter::isStkOptionUndlCode, market, code);
    }
}

void CenterComparison::askFunds() {
    const auto byText = [](IInstrumentCenter& center, const std::string& key) { return center.getEtf(key); };
    const auto byCode = [](IInstrumentCenter& center, const std::string& market, const std::string& code) {
        return center.getEtf(market, code);
    };
    for (const std::string& text : questions_.texts) {
        if (!questions_.isAmbiguousFund(text)) {
            record("getEtf", "", byText, text);
        }
    }
    for (const auto& [market, code] : questions_.codes) {
        if (!questions_.isAmbiguousFund(utils::ovStockKey(market, code))) {
            record("getEtf", "", byCode, market, code);
        }
    }
    map("getEtfs", &IInstrumentCenter::getEtfs);
}

void CenterComparison::askBonds() {
    const auto byText = [](IInstrumentCenter& center, const std::string& key) { return center.getBond(key); };
    for (const std::string& text : questions_.texts) {
        record("getBond", "", byText, text);
        record("getTenderBondInfo", "", &IInstrumentCenter::getTenderBondInfo, text);
        record("getCounterparty", "", &IInstrumentCenter::getCounterparty, text);
    }
    map("getBonds", &IInstrumentCenter::getBonds);
    map("getTrenderBondInfos", &IInstrumentCenter::getTrenderBondInfos);
    map("getCounterpartys", &IInstrumentCenter::getCounterpartys);
}

void CenterComparison::askOtc() {
    for (const std::string& text : questions_.texts) {
        record("getOtcInstrument", "", &IInstrumentCenter::getOtcInstrument, text);
        record("getIssuanceInfo", "", &IInstrumentCenter::getIssuanceInfo, text);
    }
    map("getOtcInstruments", [](IInstrumentCenter& center) { return center.getOtcInstruments(); });
    map("getIssuanceInfos", &IInstrumentCenter::getIssuanceInfos);
}

}  // namespace

bool compareCenters(const BothCenters& both, const Snapshot& snapshot, Output& output, Console& console) {
    const Questions questions(snapshot);
    const RecordComparison records(snapshot);
    Tally tally;
    CenterComparison(*both.server, *both.client, questions, records, tally).askAll(console);
    tally.write(output);
    for (const Difference& difference : kDeliberateDifferences) {
        output.note(fmt::format("differs on purpose: {}", difference.text));
    }
    return tally.different() == 0;
}

}  // namespace inscenter
