#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/CenterFixture.h"
#include "tests/LogCapture.h"

// What the store refused: served from memory, by the persisted center.

namespace mxservice {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

class ClientUnwritten : public CenterTest<ClientKind> {
protected:
    static persist::CPersistService& service() { return TemporaryStore::service(); }
    static std::string keyText(const std::string& market, const std::string& code) {
        return std::to_string(utils::hash(market + code));
    }
};

TEST_F(ClientUnwritten, AMarketWhoseWriteFailsIsServedFromMemory) {
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    engine->failWritesOf("OvIns_CFFEX");
    const InstrumentPtr main = instrument("CFFEX", "IF2603");
    main->mainContractFlag = 1;
    const LogCapture capture;
    load({"CFFEX", "SZ"}, {main, instrument("SZ", "000001")});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = CFFEX"), 1U);
    EXPECT_EQ(capture.count("[clientIns] update db, market=CFFEX, db=OvIns_CFFEX, hash=" +
                            std::to_string(utils::hash("CFFEX"))),
              1U);
    EXPECT_TRUE(asked().hasFuture("CFFEXIF2603"));
    EXPECT_EQ(asked().getInstrument("CFFEXIF2603"), main);
    EXPECT_THAT(keysOf(asked().getInstruments("CFFEX")), ElementsAre("CFFEXIF2603"));
    EXPECT_THAT(keysOf(asked().getInstruments()), ElementsAre("CFFEXIF2603", "SZ000001"));
    InstrumentMap cached;
    EXPECT_TRUE(center().getCachedDatas(utils::hash("CFFEX"), cached));
    EXPECT_FALSE(center().getCachedDatas(utils::hash("SZ"), cached));
    EXPECT_THAT(cached, SizeIs(1));
    EXPECT_THAT(asked().getFutureMainInstruments("CFFEX"), IsEmpty())
        << "the derived catalogues of that load do not see the market's records";

    engine->failWritesOf("");
    const InstrumentPtr newer = instrument("CFFEX", "IF2603");
    newer->name = "newer";
    load({"CFFEX"}, {newer, instrument("CFFEX", "IF2606")});
    EXPECT_EQ(asked().getInstrument("CFFEXIF2603")->name, "newer") << "the next load heals";
    EXPECT_EQ(asked().getInstruments("CFFEX")["CFFEXIF2603"]->name, "newer");
    EXPECT_THAT(asked().getInstruments("CFFEX"), SizeIs(2));
    EXPECT_TRUE(center().getCachedDatas(utils::hash("CFFEX"), cached)) << "the unwritten batch is kept";
}

/// A replacement that the store refuses is answered from memory, whole; and while one is written, the former listing
/// stays to be seen.
TEST_F(ClientUnwritten, AReplacementThatIsNotWrittenIsServedFromMemoryAlone) {
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    load({"SZ"}, {instrument("SZ", "gone"), instrument("SZ", "both")});
    const InstrumentPtr today = instrument("SZ", "both");
    today->name = "today";
    engine->failWritesOf("OvIns_SZ");
    center().replaceInstruments({"SZ"}, {today, instrument("SZ", "new")});
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZboth", "SZnew"));
    EXPECT_EQ(asked().getInstrument("SZboth")->name, "today");
    EXPECT_FALSE(asked().getInstrument("SZgone"));
    EXPECT_EQ(center().statistics().markets.front().unwritten, 2U);

    engine->failWritesOf("");
    bool looked = false;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_SZ") {
            looked = true;
            EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZboth", "SZnew"));
        }
    });
    center().replaceInstruments({"SZ"}, {instrument("SZ", "new")});
    EXPECT_TRUE(looked);
    engine->onWrite(nullptr);
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZnew"));
    EXPECT_THAT(keysOf(asked().getInstruments()), ElementsAre("SZnew"));
}

TEST_F(ClientUnwritten, RecordsOfAFormerDayDoNotComeBack) {
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    engine->failWritesOf("OvIns_SZ");
    load({"SZ"}, {instrument("SZ", "yesterday"), instrument("SZ", "both")});
    engine->failWritesOf("");
    const InstrumentPtr today = instrument("SZ", "both");
    today->name = "today";
    load({"SZ"}, {today});
    EXPECT_THAT(keysOf(asked().getInstruments("SZ")), ElementsAre("SZboth"));

    bool looked = false;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_SZ") {
            looked = true;
            EXPECT_THAT(asked().getInstruments("SZ"), IsEmpty()) << "while a later load replaces the market";
        }
    });
    load({"SZ"}, {today});
    EXPECT_TRUE(looked);
    engine->onWrite(nullptr);

    service().removeData("OvIns_SZ", keyText("SZ", "both"));
    EXPECT_EQ(asked().getInstruments("SZ")["SZboth"]->name, "name of SZboth")
        << "of a key that the market has and its database lost the unwritten record is better than none";
    load({"SZ"}, {});
    EXPECT_THAT(asked().getInstruments("SZ"), IsEmpty()) << "after an empty load";
    EXPECT_THAT(asked().getInstruments(), IsEmpty());
    InstrumentMap kept;
    EXPECT_TRUE(center().getCachedDatas(utils::hash("SZ"), kept)) << "kept all the same";

    engine->failWritesOf("OvIns_SZ");
    load({"SZ"}, {today});
    load({"SZ"}, {});
    EXPECT_THAT(asked().getInstruments("SZ"), IsEmpty()) << "the newest batch is that of the empty load";
}

TEST_F(ClientUnwritten, RecordsAreExchangedAndAnswerFirst) {
    std::map<std::uint64_t, InstrumentPtr> first{{1, instrument("SH", "1")}};
    std::map<std::uint64_t, InstrumentPtr> second{{2, instrument("SH", "2")}, {3, nullptr}};
    center().cacheFailedDatas(utils::hash("SH"), first);
    EXPECT_THAT(first, IsEmpty());
    center().cacheFailedDatas(utils::hash("SH"), second);
    EXPECT_THAT(second, SizeIs(1)) << "what was unwritten before comes back";
    InstrumentMap out;
    EXPECT_TRUE(center().getCachedDatas(utils::hash("SH"), out));
    EXPECT_THAT(keysOf(out), ElementsAre("SH2"));
}

/// One market whose main contracts cannot be written does not keep those of the others out.
TEST_F(ClientUnwritten, MainContractsThatCannotBeWrittenTogetherAreWrittenMarketByMarket) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "no named operation writes several fields together";
    }
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    for (const int failures : {2, 1}) {
        int writes = 0;
        engine->onWrite([&](const std::string& db) {
            const bool fails = db == "OvIns_FUMAIN" && ++writes <= failures;
            engine->failAt(fails ? 0 : -1, false);
        });
        Instruments mains{instrument("CFFEX", "IF2603"), instrument("DCE", "m2601")};
        for (const InstrumentPtr& main : mains) {
            main->mainContractFlag = 1;
        }
        const LogCapture capture;
        load({"CFFEX", "DCE"}, mains);
        EXPECT_EQ(writes, 3) << "both, then each";
        const int unwritten = failures - 1;
        EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = FUMAIN"),
                  static_cast<std::size_t>(unwritten));
        int written = 0;
        for (const InstrumentPtr& main : mains) {
            const std::string& market = main->market;
            EXPECT_THAT(keysOf(asked().getFutureMainInstruments(market)), ElementsAre(market + main->code));
            std::map<std::string, bson::BSONObj> documents;
            const std::string field = std::to_string(utils::hash(market));
            written += service().readHashDatas("OvIns_FUMAIN", documents, field, true) ? 1 : 0;
        }
        EXPECT_EQ(written, 2 - unwritten);
    }
}

}  // namespace
}  // namespace mxservice
