#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <set>
#include <thread>

#include "tests/ChangesFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/model/Answers.h"
#include "tests/model/RecordMaker.h"

// Changes of single records, in both centers.

namespace mxservice {
namespace {

using testing::ElementsAre;

template <class Kind>
class Changes : public CenterTest<Kind> {};
TYPED_TEST_SUITE(Changes, BothCenterKinds);

/// What a center answers about everything that changes reach.
struct AllAnswers {
    std::map<std::string, std::string> answers;

    explicit AllAnswers(IInstrumentCenter& center) {
        for (const std::string& market : model::kMarkets) {
            put("list " + market, model::imagesOf(center.getInstruments(market)));
            put("mains " + market, model::imagesOf(center.getFutureMainInstruments(market)));
            for (const std::string& code : model::kCodes) {
                askKey(center, market + code);
                put("underlying " + market + code, center.isStkOptionUndlCode(market, code));
            }
        }
        put("everything", model::imagesOf(center.getInstruments()));
        for (const auto& [product, mains] : center.getProductMainInstruments()) {
            if (!mains.empty()) {
                put("product " + product, model::imagesIn(mains));
            }
        }
        put("cross product", center.getDceCrossProduct());
        put("cross period", center.getDceCrossPeriod());
        put("issues", center.getStockIpoCodes());
        put("receipts", center.getStockCdrCodes());
        put("inquiries", center.getNeeqInquiryCodes());
    }

private:
    template <class Value>
    void put(const std::string& question, const Value& answer) {
        answers[question] = testing::PrintToString(answer);
    }
    void askKey(IInstrumentCenter& center, const std::string& text) {
        put("get " + text, model::imageOf(center.getInstrument(utils::hash(text))));
        put("has " + text, std::vector<bool>{center.hasCode(text), center.hasStock(text), center.hasFuture(text),
                                             center.hasSkstock(text), center.hasOption(text), center.hasNeeq(text)});
    }
};

/// A listing by folded key text, as a host would keep it beside the center.
using Listing = std::map<std::string, InstrumentPtr>;

Instruments recordsOf(const Listing& listing) {
    Instruments records;
    for (const auto& [key, record] : listing) {
        records.push_back(model::clone(record));
    }
    return records;
}

/// What the persisted center alone derives, told from the listing.
void expectStoredCatalogues(IInstrumentCenter& center, const Listing& listing) {
    std::map<std::string, model::Images> contracts;
    std::map<std::string, std::set<std::string>> outer;
    for (const auto& [key, record] : listing) {
        if (record->market == "DCE" || record->market == "CZCE") {
            contracts[record->productId].insert(model::imageOf(record));
        }
        if (record->market == "WP" && record->mainContractFlag == 1) {
            outer[record->listingDate].insert(record->productId);
        }
    }
    for (const std::string market : {"DCE", "CZCE"}) {
        for (int i = 0; i < 3; ++i) {
            const std::string product = market + "p" + std::to_string(i);
            EXPECT_EQ(model::imagesIn(center.getProductInstruments(product)), contracts[product]) << product;
        }
    }
    EXPECT_EQ(center.getMarketProductList(), outer);
}

/// After any changes a center answers as one that is given the changed listings whole.
TYPED_TEST(Changes, LeaveACenterAsIfItsMarketsHadBeenReplaced) {
    const unsigned seed = seedOfRun();
    const int rounds = static_cast<int>(fromEnvironment("PM_ROUNDS", 60));
    SCOPED_TRACE(seed);
    model::Maker maker(seed);
    const PinnedDay day;
    const auto fresh = [&] {
        InstrumentPtr record = maker.instrument(maker.oneOf(kChangedMarkets)).real;
        // Set by the host: what the center sets itself is not told by a listing alone.
        record->combinedConnectFlags = folded(record->market) == "HK" ? 7 : 0;
        return record;
    };
    const auto keyOf = [](const CInstrumentDetail& record) {
        return folded(utils::ovStockKey(record.market, record.code));
    };
    Listing listing;
    for (int i = 0; i < 150; ++i) {
        const InstrumentPtr record = fresh();
        listing[keyOf(*record)] = record;
    }
    this->load(kChangedMarkets, recordsOf(listing));
    for (int round = 0; round < rounds && !testing::Test::HasFailure(); ++round) {
        SCOPED_TRACE(round);
        std::vector<std::string> removed;
        for (std::size_t i = maker.below(8); i > 0; --i) {
            removed.push_back(maker.oneOf(kChangedMarkets) + maker.oneOf(model::kCodes));
            listing.erase(folded(removed.back()));
        }
        // Grouping decides among upserts of one key, so each key is brought once.
        Listing upserts;
        for (std::size_t i = maker.below(5); i > 0; --i) {
            const InstrumentPtr record = fresh();
            upserts[keyOf(*record)] = record;
        }
        for (const auto& [key, record] : upserts) {
            listing[key] = record;
        }
        const std::uint64_t before = this->center().version();
        this->center().applyChanges(recordsOf(upserts), removed);
        EXPECT_TRUE(upserts.empty() || this->center().version() > before);

        CServerInstrumentCenter whole("judge");
        whole.initInstruments(kChangedMarkets, recordsOf(listing));
        const AllAnswers expected(whole);
        EXPECT_EQ(AllAnswers(this->asked()).answers, expected.answers);
        if (std::is_same_v<TypeParam, ClientKind>) {
            expectStoredCatalogues(this->asked(), listing);
        }
    }
}

/// A key that is removed or put stays so when Hong Kong is completed from the parts kept of earlier loads.
TYPED_TEST(Changes, OutliveTheLoadOfAnotherConnectMarket) {
    for (const std::string market : {"HGT", "SGT", "HK"}) {
        this->load({market}, {instrument(market, "1"), instrument(market, "2"), instrument("HK", "9")});
    }
    this->center().applyChanges({instrument("SGT", "3"), instrument("SGT", "2")}, {"HGT1", "HK9", "HK404"});
    const auto codes = [&] {
        std::set<std::string> found;
        for (const auto& [text, record] : this->asked().getInstruments("HK")) {
            found.insert(record->code);
        }
        return found;
    };
    EXPECT_THAT(codes(), ElementsAre("2", "3"));
    this->load({"HGT"}, {instrument("HGT", "2")});
    EXPECT_THAT(codes(), ElementsAre("2", "3"));
}

/// The correction of one listing says nothing about the other connect market.
TYPED_TEST(Changes, KeepTheOtherConnectListing) {
    const auto listed = [](const std::string& market) {
        InstrumentPtr record = instrument(market, "1");
        record->connectFlagValue = 1;
        return record;
    };
    this->load({"HGT", "SGT", "HK"}, {listed("HGT"), listed("SGT"), instrument("HK", "1")});
    IInstrumentCenter& center = this->asked();
    const std::uint32_t both = center.getInstrument("HK1")->combinedConnectFlags;
    EXPECT_EQ(both, 5U);
    for (const std::string market : {"HGT", "SGT", "HK"}) {
        this->center().applyChanges({listed(market)}, {});
        EXPECT_EQ(center.getInstrument(utils::hash("HK1"))->market, market);
        EXPECT_EQ(center.getInstrument("HK1")->combinedConnectFlags, both) << market;
    }
}

TYPED_TEST(Changes, OfNothingMakeNoVersion) {
    this->load({"SH"}, {instrument("SH", "1")});
    const std::uint64_t version = this->center().version();
    this->center().applyChanges({}, {});
    this->center().applyChanges({nullptr}, {"SH2", ""});
    EXPECT_EQ(this->center().version(), version);
    this->center().applyChanges({instrument("SH", "1")}, {"SH1"});
    EXPECT_TRUE(this->asked().hasCode("SH1")) << "what is brought stays, though it is removed as well";
}

class ClientChanges : public CenterTest<ClientKind> {};

/// What an earlier process left is not the market's, whose first records come with a change.
TEST_F(ClientChanges, OfAMarketNeverLoadedAreAllThatItHas) {
    {
        OpenClientCenter earlier;
        earlier.initInstruments({"SH"}, {instrument("SH", "yesterday")});
    }
    center().applyChanges({instrument("SH", "1")}, {"SHyesterday"});
    EXPECT_THAT(keysOf(asked().getInstruments("SH")), ElementsAre("SH1"));
    EXPECT_THAT(keysOf(asked().getInstruments()), ElementsAre("SH1"));
}

/// Refused by the store, a change is served from memory with the rest of its market, and so are those that follow,
/// until a load can write the market.
TEST_F(ClientChanges, ThatTheStoreRefusesAreServedFromMemory) {
    const auto engine = std::make_shared<FailingEngine>();
    TemporaryStore::service().setEngine(engine);
    load({"SZ", "SHFE"},
         {instrument("SZ", "1"), instrument("SZ", "2"), instrument("SZ", "3"), instrument("SHFE", "a")});
    engine->failWritesOf("OvIns_SZ");
    const InstrumentPtr main = instrument("SHFE", "b");
    main->mainContractFlag = 1;
    center().applyChanges({instrument("SZ", "4"), main}, {"SZ1"});
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZ2", "SZ3", "SZ4"));
    EXPECT_TRUE(asked().getInstrument("SZ4") && asked().getInstrument("SZ2") && !asked().getInstrument("SZ1"));
    EXPECT_THAT(keysOf(asked().getFutureMainInstruments("SHFE")), ElementsAre("SHFEb"));
    const CenterStatistics statistics = center().statistics();
    ASSERT_EQ(statistics.failedWrites.size(), 1U);
    EXPECT_EQ(statistics.failedWrites.front().database, "OvIns_SZ");
    EXPECT_TRUE(kNamedPlatformOnly || statistics.failedWrites.front().reason == "injected");

    engine->failWritesOf("");
    center().applyChanges({instrument("SZ", "5")}, {"SZ2"});
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZ3", "SZ4", "SZ5"));
    load({"SZ"}, {instrument("SZ", "6")});
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZ6"));
}

InstrumentPtr contract(const std::string& code, int main) {
    InstrumentPtr record = instrument("SHFE", code);
    record->productId = "cu";
    record->mainContractFlag = main;
    return record;
}

std::vector<std::string> codesOf(const std::list<InstrumentPtr>& records) {
    std::vector<std::string> codes;
    for (const InstrumentPtr& record : records) {
        codes.push_back(record->code);
    }
    return codes;
}

/// Whichever call of the store fails once: what the change has nothing to do with stays in every derived catalogue, and
/// the failure is told.
TEST_F(ClientChanges, LoseNothingElseWhereOneCallOfTheStoreFails) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "no named operation tells that a read has failed";
    }
    const auto engine = std::make_shared<FailingEngine>();
    TemporaryStore::service().setEngine(engine);
    for (int call = 0;; ++call) {
        SCOPED_TRACE(call);
        engine->failNever();
        OpenClientCenter fresh(1);  // no cache to speak of: records come from the store
        fresh.initInstruments({"SHFE", "DCE"}, {contract("1", 1), contract("2", 0), contract("3", 0),
                                                instrument("DCE", "SP a&b"), instrument("DCE", "c")});
        engine->failAt(call, false);
        const int failedBefore = engine->failed();
        fresh.applyChanges({contract("9", 1), instrument("DCE", "SP c&d")}, {"DCEc"});
        const bool hasFailed = engine->failed() > failedBefore;
        engine->failNever();
        EXPECT_THAT(keysOf(fresh.getFutureMainInstruments("SHFE")), testing::Contains("SHFE1"));
        EXPECT_THAT(codesOf(fresh.getProductMainInstruments()["cu"]), testing::IsSupersetOf({"1", "9"}));
        EXPECT_THAT(codesOf(fresh.getProductInstruments("cu")), testing::IsSupersetOf({"1", "2", "3"}));
        EXPECT_THAT(fresh.getDceCrossPeriod(), testing::Contains(testing::Pair("a", "b")));
        EXPECT_THAT(keysOf(fresh.getInstruments("SHFE")), ElementsAre("SHFE1", "SHFE2", "SHFE3", "SHFE9"));
        if (!hasFailed) {
            EXPECT_GT(call, 6);
            break;
        }
    }
}

/// Changes at once, and a load while a change writes the main contracts: each market's derived catalogues are of what
/// it lists in the end.
TEST_F(ClientChanges, AtOnceLeaveDerivedCataloguesOfWhatIsListed) {
    const auto engine = std::make_shared<FailingEngine>();
    TemporaryStore::service().setEngine(engine);
    load({"SHFE"}, {contract("0", 1)});
    std::vector<std::thread> threads;
    for (int thread = 1; thread <= 2; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < 20; ++i) {
                center().applyChanges({contract(std::to_string(100 * thread + i), 1)}, {});
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(asked().getFutureMainInstruments("SHFE").size(), 41U);
    EXPECT_EQ(asked().getProductMainInstruments()["cu"].size(), 41U);
    EXPECT_EQ(asked().getProductInstruments("cu").size(), 41U);

    std::thread reload;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_FUMAIN" && !reload.joinable()) {
            reload = std::thread([this] { load({"SHFE"}, {contract("5", 0)}); });
        }
    });
    center().applyChanges({contract("7", 1)}, {});
    reload.join();
    std::set<std::string> mains;
    for (const auto& [text, record] : asked().getInstruments("SHFE")) {
        if (record->mainContractFlag == 1) {
            mains.insert(text);
        }
    }
    std::set<std::string> answered;
    for (const auto& [text, record] : asked().getFutureMainInstruments("SHFE")) {
        answered.insert(text);
    }
    EXPECT_EQ(answered, mains);
    engine->onWrite(nullptr);
}

/// Another process, or this one after a crash, finds the documents of the whole change.
TEST_F(ClientChanges, AreInTheStore) {
    load({"DCE"}, {instrument("DCE", "1"), instrument("DCE", "2")});
    center().applyChanges({instrument("DCE", "3")}, {"DCE1"});
    std::set<std::string> codes;
    for (const auto& [key, document] : TemporaryStore::service().readAllData("OvIns_DCE", ".*")) {
        codes.insert(document.getStringField("code"));
    }
    EXPECT_THAT(codes, ElementsAre("2", "3"));
}

}  // namespace
}  // namespace mxservice
