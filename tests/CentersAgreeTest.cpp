#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <list>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "ToolFixture.h"
#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Calendar.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/Predicates.h"
#include "tools/inscenter/RecordText.h"

// Both centers, loaded with one day, are asked everything that they can be asked about it. Apart from what they do
// differently on purpose (docs/architecture.md, "Where the two centers differ"), they must answer alike.

namespace {

using boost::shared_ptr;
using inscenter::Snapshot;
using mxservice::CETFComponentStockInfo;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using mxservice::IInstrumentCenter;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
namespace market = mxservice::market;

template <class Record>
using RecordMap = std::map<std::string, shared_ptr<Record>>;

const std::set<std::string> kHongKongNames{market::kHongKong, market::kShanghaiConnect, market::kShenzhenConnect};

bool isHongKong(const std::string& name) {
    return kHongKongNames.count(name) != 0;
}

/// What a day can be asked for: all that it names, and of each market codes that it does not name.
struct Questions {
    explicit Questions(const Snapshot& day) {
        for (const auto& record : day.instruments) {
            add(record->market, record->code);
            products.insert(record->productId);
            if (isHongKong(record->market) && record->market != market::kHongKong) {
                connectCodes.insert(record->code);
            }
        }
        for (const auto& etf : day.etfs) {
            for (const std::string& code : std::set<std::string>{etf->etfCode, etf->prCode}) {
                add(etf->market, code);
                ++fundsByKey[utils::ovStockKey(etf->market, code)];
            }
            add(inscenter::kEtfInstruments, etf->prCode);
        }
        for (const auto& [code, bond] : day.bonds) {
            add(market::kInterbank, bond->bondCode);
            add(market::kShanghai, bond->shanghaiCode);
            add(market::kShenzhen, bond->shenzhenCode);
        }
        using Catalogue = mxservice::SnapshotCatalogue;
        for (const auto catalogue : {Catalogue::Bonds, Catalogue::TenderBonds, Catalogue::Counterparties,
                                     Catalogue::OtcPlans, Catalogue::Issuances}) {
            for (const auto& record : day.records(catalogue)) {
                texts.insert(record->getKey());
            }
        }
        markets.insert(market::kFutures.begin(), market::kFutures.end());
        for (const std::string& name : std::set<std::string>(markets)) {
            add(name, "?");
            add(name, "");
        }
    }

    std::set<std::string> markets{"", "?", market::kShanghaiSpecial};
    std::set<std::string> products{"?"};
    std::set<std::pair<std::string, std::string>> codes;
    std::set<std::string> texts;  ///< stock key texts, and the keys of other catalogues
    std::set<std::string> connectCodes;
    std::map<std::string, int> fundsByKey;

private:
    void add(const std::string& name, const std::string& code) {
        for (const std::string& each : isHongKong(name) ? kHongKongNames : std::set{name}) {
            markets.insert(each);
            codes.emplace(each, code);
            texts.insert(utils::ovStockKey(each, code));
        }
    }
};

/// Asks an in-memory center that has loaded one day and a persisted one that has loaded another.
class Comparison {
public:
    Comparison(const Snapshot& serverDay, const Snapshot& clientDay) : questions_(serverDay) {
        std::ostringstream unheard;
        inscenter::Console console(unheard, false);
        utils::setToday(inscenter::tradingDayOf(serverDay));
        inscenter::load(*server_, serverDay.copy(), console);
        inscenter::load(*client_, clientDay.copy(), console);
        utils::setToday("");
        askKeys();
        askLists();
        askCatalogues();
    }

    const std::vector<std::string>& differences() const { return differences_; }
    std::size_t asked() const { return asked_; }

private:
    using Center = IInstrumentCenter;

    void askKeys() {
        for (const std::string& text : questions_.texts) {
            ask([&](Center& center) { return center.getInstrument(text); }, "getInstrument", text);
            ask([&](Center& center) { return center.getInstrument(utils::hash(text)); }, "by hash", text);
            ask([&](Center& center) { return center.getBond(text); }, "getBond", text);
            ask([&](Center& center) { return center.getTenderBondInfo(text); }, "getTenderBondInfo", text);
            ask([&](Center& center) { return center.getCounterparty(text); }, "getCounterparty", text);
            ask([&](Center& center) { return center.getOtcInstrument(text); }, "getOtcInstrument", text);
            ask([&](Center& center) { return center.getIssuanceInfo(text); }, "getIssuanceInfo", text);
            for (const inscenter::Predicate& predicate : inscenter::kPredicates) {
                if (predicate.ask != &Center::hasHkstock) {  // the in-memory center has no listing under HGT
                    ask([&](Center& center) { return (center.*predicate.ask)(text); }, predicate.name, text);
                }
            }
        }
        for (const auto& [name, code] : questions_.codes) {
            const std::string text = utils::ovStockKey(name, code);
            ask([&](Center& center) { return center.getInstrument(name, code); }, "of market and code", text);
            ask([&](Center& center) { return center.getProductId(name, code); }, "getProductId", text);
            ask([&](Center& center) { return center.isStkOptionUndlCode(name, code); }, "isStkOptionUndlCode", text);
            if (!isAmbiguousFund(text)) {
                ask([&](Center& center) { return center.getEtf(text); }, "getEtf", text);
                ask([&](Center& center) { return center.getEtf(name, code); }, "getEtf of market and code", text);
            }
        }
    }

    void askLists() {
        for (const std::string& name : questions_.markets) {
            ask([&](Center& center) { return center.getInstruments(name); }, "getInstruments", name);
            ask([&](Center& center) { return center.getFutureMainInstruments(name); }, "main contracts", name);
        }
        // The trader types that both centers answer, and one that neither knows.
        for (const int type : {1, 2, 4, 8, 16, 32, 128, 256, 1024, 4096, 16384, 65536, 1048576, 2097152, 8388608,
                               810495, 2146762751, 3}) {
            const auto traderType = static_cast<mxservice::EOvTraderType>(type);
            ask([&](Center& center) { return center.getInstruments(traderType); }, "of type", std::to_string(type));
        }
        const std::list<std::string> names(questions_.markets.begin(), questions_.markets.end());
        ask([&](Center& center) { return center.getInstruments(names); }, "getInstruments of all markets");
        ask([](Center& center) { return center.getInstruments(); }, "getInstruments");
        const auto mains = [](Center& center) {
            RecordMap<CInstrumentDetail> records;
            for (const auto& [product, contracts] : center.getProductMainInstruments()) {
                for (const auto& record : contracts) {
                    records.emplace(product + ' ' + record->getKey(), record);
                }
            }
            return records;
        };
        ask(mains, "getProductMainInstruments");
        for (const std::string& product : questions_.products) {
            ask([&](Center& center) { return center.getProductName(product); }, "getProductName", product);
        }
    }

    void askCatalogues() {
        ask(&Center::getDceCrossProduct, "getDceCrossProduct");
        ask(&Center::getDceCrossPeriod, "getDceCrossPeriod");
        ask(&Center::getStockIpoCodes, "getStockIpoCodes");
        ask(&Center::getStockCdrCodes, "getStockCdrCodes");
        ask(&Center::getNeeqInquiryCodes, "getNeeqInquiryCodes");
        ask(&Center::getEtfs, "getEtfs");
        ask(&Center::getBonds, "getBonds");
        ask(&Center::getTrenderBondInfos, "getTrenderBondInfos");
        ask(&Center::getCounterpartys, "getCounterpartys");
        ask(&Center::getIssuanceInfos, "getIssuanceInfos");
        ask([](Center& center) { return center.getOtcInstruments(); }, "getOtcInstruments");
    }

    template <class Ask>
    void ask(Ask question, const char* name, const std::string& about = {}) {
        ++asked_;
        const std::string found = difference(std::invoke(question, *server_), std::invoke(question, *client_));
        if (!found.empty()) {
            differences_.push_back(fmt::format("{} {}: {}", name, about, found));
        }
    }

    template <class Value>
    std::string difference(const Value& server, const Value& client) const {
        return server == client ? "" : "not the same";
    }

    template <class Record>
    std::string difference(const shared_ptr<Record>& server, const shared_ptr<Record>& client) const {
        if (!server || !client) {
            return !server == !client ? "" : server ? "server alone" : "client alone";
        }
        const auto alike = boost::static_pointer_cast<Record>(client->copy());
        undoWhatIsOnPurpose(*server, *alike);
        std::string text;
        if (*alike != *server) {
            inscenter::appendJson(text += "server ", *server);
            inscenter::appendJson(text += ", client ", *client);
        }
        return text;
    }

    template <class Record>
    std::string difference(const RecordMap<Record>& server, const RecordMap<Record>& client) const {
        RecordMap<Record> all = server;
        all.insert(client.begin(), client.end());
        const auto valueIn = [](const RecordMap<Record>& records, const std::string& key) {
            const auto found = records.find(key);
            return found == records.end() ? nullptr : found->second;
        };
        std::string text;
        for (const auto& [key, record] : all) {
            const std::string found = difference(valueIn(server, key), valueIn(client, key));
            if (!found.empty() && !isUnsettled(key, *record)) {
                text += fmt::format("\n  {}: {}", key, found);
            }
        }
        return text;
    }

    /// Of two funds with one key the in-memory center keeps the first, the persisted one the last.
    bool isAmbiguousFund(const std::string& key) const {
        const auto found = questions_.fundsByKey.find(key);
        return found != questions_.fundsByKey.end() && found->second > 1;
    }
    static bool isUnsettled(const std::string& /*key*/, const mxservice::IData& /*of*/) { return false; }
    bool isUnsettled(const std::string& key, const CETFDetail& /*of*/) const { return isAmbiguousFund(key); }
    /// A listed fund and the instrument of its creation may have one key, and which a list meets first is not fixed.
    bool isUnsettled(const std::string& key, const CInstrumentDetail& /*of*/) const {
        return questions_.fundsByKey.count(key) != 0;
    }

    static void undoWhatIsOnPurpose(const mxservice::IData& /*server*/, mxservice::IData& /*client*/) {}
    /// The persisted center answers a connect key with its market, has connect flags of its own, and names what stands
    /// for the creation of a fund, and components of funds, after their instruments.
    void undoWhatIsOnPurpose(const CInstrumentDetail& server, CInstrumentDetail& client) const {
        if (isHongKong(server.market)) {
            client.market = server.market;
            if (questions_.connectCodes.count(server.code) != 0) {
                client.combinedConnectFlags = server.combinedConnectFlags;
            }
        }
        if (server.name.empty() && questions_.fundsByKey.count(server.getKey()) != 0) {
            client.name.clear();
        }
    }
    static void undoWhatIsOnPurpose(const CETFDetail& server, CETFDetail& client) {
        for (auto& [code, component] : client.components) {
            const auto found = server.components.find(code);
            if (found != server.components.end() && found->second->name.empty()) {
                component = boost::static_pointer_cast<CETFComponentStockInfo>(component->copy());
                component->name.clear();
            }
        }
    }

    const TemporaryStore store_;
    const std::shared_ptr<Center> server_ = inscenter::makeCenter(inscenter::CenterKind::Server);
    const std::shared_ptr<Center> client_ = inscenter::makeCenter(inscenter::CenterKind::Client);
    const Questions questions_;
    std::vector<std::string> differences_;
    std::size_t asked_ = 0;
};

Snapshot dayIn(const std::string& directory) {
    std::ostringstream unheard;
    inscenter::Console console(unheard, false);
    Snapshot day;
    inscenter::readSnapshot(directory, day, console);
    return day;
}

/// PM_DAY names the directory of a further day.
TEST(CentersAgree, OnEverythingThatADayCanBeAsked) {
    const TemporaryDirectory invented;
    ASSERT_EQ(tooltest::run({"generate", "--size", "3000", "--date", "20260302", invented.path().string()}).code, 0);
    std::vector<std::string> days{PM_SAMPLES, invented.path().string()};
    if (const char* const further = std::getenv("PM_DAY")) {
        days.emplace_back(further);
    }
    for (const std::string& name : days) {
        const Snapshot day = dayIn(name);
        const Comparison comparison(day, day);
        EXPECT_THAT(comparison.differences(), IsEmpty()) << name;
        EXPECT_GT(comparison.asked(), 20 * day.instruments.size());
    }
}

TEST(CentersAgree, NotWhereTheirDaysDiffer) {
    const Snapshot day = dayIn(PM_SAMPLES);
    Snapshot other = day.copy();
    other.instruments.front()->lotSize += 1;
    other.etfs.front()->components.begin()->second->quantity += 1;
    other.bonds.erase(std::prev(other.bonds.end()));
    const Comparison comparison(day, other);
    const std::string bond = day.bonds.rbegin()->first;
    for (const std::string& found : {"getInstrument " + day.instruments.front()->getKey() + ": server {",
                                     "getEtf " + day.etfs.front()->getKey() + ": server {",
                                     "getBonds : \n  " + bond + ": server alone", "hasBond BANK" + bond + ": not"}) {
        EXPECT_THAT(comparison.differences(), Contains(HasSubstr(found)));
    }
}

}  // namespace
