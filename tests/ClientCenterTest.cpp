#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/exception.hpp>

#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <array>
#include <atomic>
#include <fstream>
#include <optional>
#include <thread>

#include "system/Path.h"
#include "tests/Barrier.h"
#include "tests/CenterFixture.h"
#include "tests/LogCapture.h"
#include "tests/WatchedThread.h"

// What only the persisted center does.

namespace mxservice {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Eq;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pointee;
using testing::SizeIs;

class ClientCenter : public CenterTest<ClientKind> {
protected:
    static persist::CPersistService& service() { return TemporaryStore::service(); }
    static std::size_t documentsIn(const std::string& db) { return service().readAllData(db, ".*").size(); }
    static std::string keyText(const std::string& market, const std::string& code) {
        return std::to_string(utils::hash(market + code));
    }
};

TEST_F(ClientCenter, StoresDocumentsUnderTheFixedNamesAndKeys) {
    load({"HGT", "SH"}, {instrument("HGT", "00700"), instrument("SH", "600000"), instrument("SHFI", "204001")});
    EXPECT_EQ(service().readData("OvIns_HK", keyText("HK", "00700")).getStringField("market"), "HGT");
    EXPECT_EQ(service().readData("OvIns_SH", "15268337435934448243").getStringField("code"), "600000");
    EXPECT_EQ(service().readData("OvIns_SH", keyText("SH", "204001")).getStringField("market"), "SH");
    EXPECT_EQ(service().readData("OvRawHGT", keyText("HGT", "00700")).getStringField("code"), "00700");
    EXPECT_FALSE(std::filesystem::exists(store_.path("OvIns_HGT")));
    EXPECT_EQ(utils::hash("SH600000"), 15268337435934448243U);
}

TEST_F(ClientCenter, ConnectKeysAnswerARelabelledCopy) {
    load({"HK"}, {instrument("HK", "00700")});
    const InstrumentPtr stored = asked().getInstrument("HK00700");
    const InstrumentPtr relabelled = asked().getInstrument("HGT00700");
    EXPECT_EQ(relabelled->market, "HGT");
    EXPECT_EQ(stored->market, "HK");
    EXPECT_NE(relabelled, stored);
    EXPECT_EQ(asked().getInstrument("SGT", "00700")->market, "SGT");
    EXPECT_EQ(asked().getInstrument("HK00700"), stored) << "served from the cache";
    EXPECT_TRUE(asked().hasHkstock("HGT00700") && asked().hasHkstock("SGT00700") && asked().hasHkstock("HK00700"));
    EXPECT_THAT(keysOf(asked().getInstruments("SGT")), ElementsAre("HK00700"));
}

TEST_F(ClientCenter, ConnectFlagsComeFromTheListings) {
    const auto listing = [](const std::string& market, const std::string& code, int flag) {
        const InstrumentPtr record = instrument(market, code);
        record->connectFlagValue = flag;
        return record;
    };
    const InstrumentPtr set = listing("SGT", "3", 1);
    set->combinedConnectFlags = 7;
    load({"HGT", "SGT"}, {listing("HGT", "1", 3), listing("SGT", "1", 2), listing("SGT", "2", 1), set,
                          listing("HGT", "4", 1), listing("HGT", "4", 2)});
    const auto flags = [&](const std::string& code) {
        return asked().getInstrument("HK" + code)->combinedConnectFlags;
    };
    EXPECT_EQ(flags("1"), 3U | 2U << 2U);
    EXPECT_EQ(flags("2"), 1U << 2U);
    EXPECT_EQ(flags("3"), 7U);
    EXPECT_EQ(flags("4"), 1U) << "the first listing of a market counts";
}

TEST_F(ClientCenter, SubMarketsThatALoadLacksComeFromTheRawDatabases) {
    load({"HK"}, {instrument("HK", "00700"), instrument("HK", "00001")});
    const LogCapture capture;
    load({"HGT", "SGT"}, {instrument("HGT", "00700")});
    EXPECT_THAT(keysOf(asked().getInstruments("HK")), ElementsAre("HGT00700", "HK00001"));
    EXPECT_THAT(capture.texts(), Contains("[clientIns] read from persist market = HK, size = 2"));
    EXPECT_THAT(capture.texts(), Contains("[clientIns] read from persist market = SGT, size = 0"));

    OpenClientCenter next;
    next.initInstruments({"SGT"}, {instrument("SGT", "00002")});
    EXPECT_THAT(keysOf(static_cast<IInstrumentCenter&>(next).getInstruments("HK")),
                ElementsAre("HGT00700", "HK00001", "SGT00002"));
}

TEST_F(ClientCenter, AReplacementHasAllOfTheSubMarketsThatItNames) {
    load({"HGT", "SH", "SHFI"}, {instrument("HGT", "1"), instrument("HGT", "2"), instrument("SH", "3"),
                                 instrument("SHFI", "3"), instrument("SHFI", "4")});
    load({"SGT"}, {instrument("SGT", "5")});
    center().replaceInstruments({"HGT", "HK", "SH", "SHFI"}, {instrument("HK", "1"), instrument("SH", "6")});
    EXPECT_TRUE(center().statistics().failedWrites.empty()) << "nothing to be emptied is no failure";
    EXPECT_EQ(asked().getInstrument("HK1")->market, "HK");
    EXPECT_FALSE(asked().hasCode("HK2") || asked().hasCode("SH3") || asked().hasCode("SH4"));
    EXPECT_TRUE(asked().hasCode("HK5")) << "not named";
    load({"SGT"}, {instrument("SGT", "7")});
    EXPECT_TRUE(asked().hasCode("HK1") && asked().hasCode("HK7") && !asked().hasCode("HK2")) << "nor does a later load";
}

TEST_F(ClientCenter, MergesOnlyWhatConcernsTheLoad) {
    const LogCapture capture;
    load({"SZ"}, {instrument("SZ", "000001")});
    load({"HK"}, {instrument("SZ", "000002")});
    EXPECT_FALSE(std::filesystem::exists(store_.path("OvRawSZ")) || std::filesystem::exists(store_.path("OvRawHK")));
    EXPECT_THAT(capture.texts(), Not(Contains(HasSubstr("read from persist"))));
    load({"SH"}, {instrument("SH", "600000")});
    EXPECT_THAT(capture.texts(), Contains("[clientIns] read from persist market = SHFI, size = 0"));
    EXPECT_EQ(documentsIn("OvRawSH"), 1U);
}

TEST_F(ClientCenter, PlatformCodesAreNotedExceptForContinuousContracts) {
    const auto other = [](const std::string& market, const std::string& code, const std::string& platformCode) {
        const InstrumentPtr record = instrument(market, code);
        record->platformCode = platformCode;
        return record;
    };
    const LogCapture capture;
    load({"CFFEX", "NYSE", "SH", "DCE"},
         {other("CFFEX", "IF1", "IFL8"), other("CFFEX", "IF2", "IF00"), other("CFFEX", "IF3", "IFmain"),
          other("CFFEX", "IF4", "IF2600"), other("CFFEX", "IF5", "L"), other("CFFEX", "IF6", "00"),
          other("NYSE", "BRK.A", "BRKL8"), other("SH", "600000", "other"), other("DCE", "m1", "m2601")});
    EXPECT_EQ(capture.count("[inscenter] continue ins IF1, IFL8"), 1U);
    for (const char* const alias : {"IF1", "IF2", "IF3", "600000"}) {
        EXPECT_EQ(asked().getLumoCode(alias), alias);
    }
    EXPECT_EQ(asked().getLumoCode("IF4"), "IF2600");
    EXPECT_EQ(asked().getLumoCode("IF5"), "L");
    EXPECT_EQ(asked().getLumoCode("IF6"), "00");
    EXPECT_EQ(asked().getLumoCode("BRK.A"), "BRKL8");
    EXPECT_EQ(asked().getLumoCode("m1"), "m2601");
}

TEST_F(ClientCenter, AReloadForgetsKeysAndReplacesCachedRecords) {
    load({"SH"}, {instrument("SH", "1"), instrument("SH", "2")});
    EXPECT_TRUE(asked().getInstrument("SH1") && asked().getInstrument("SH2"));
    const InstrumentPtr changed = instrument("SH", "2");
    changed->name = "changed";
    load({"SH"}, {changed});
    EXPECT_FALSE(asked().hasStock("SH1") || asked().getInstrument("SH1"));
    EXPECT_EQ(asked().getInstrument("SH2"), changed) << "the cached record is replaced by the load's own";
}

TEST_F(ClientCenter, AnEarlierRunsStoreStaysInvisibleUntilItsMarketIsLoaded) {
    load({"SH"}, {instrument("SH", "1")});
    OpenClientCenter next;
    IInstrumentCenter& asked = next;
    EXPECT_FALSE(asked.hasCode("SH1") || asked.getInstrument("SH1"));
    EXPECT_THAT(asked.getInstruments(), IsEmpty());
    EXPECT_EQ(documentsIn("OvIns_SH"), 1U);
    next.clearDatas({"SH"});
    EXPECT_EQ(documentsIn("OvIns_SH"), 1U) << "a market never loaded has no name to drop";
}

TEST_F(ClientCenter, TwoLoadsOfOneMarketAtOnceLeaveCacheAndStoreAlike) {
    constexpr int kPairs = 4000;
    const TemporaryDirectory memory(TemporaryDirectory::inMemory());
    service().setRootPath(sys::textOf(memory.path()));
    Barrier both(2);
    const auto loads = [&](const std::string& who, const auto& afterwards) {
        for (int pair = 0; pair < kPairs; ++pair) {
            const InstrumentPtr record = instrument("SZ", "1");
            record->name = who;
            both.arrive_and_wait();
            load({"SZ"}, {record});
            both.arrive_and_wait();
            afterwards(pair);
            both.arrive_and_wait();
        }
    };
    load({"SZ"}, {instrument("SZ", "1")});
    asked().getInstrument("SZ1");
    std::thread other([&] { loads("other", [](int) {}); });
    int differing = 0;
    loads("one", [&](int) {
        const InstrumentPtr cached = asked().getInstrument("SZ1");
        const InstrumentPtr stored = asked().getInstruments("SZ")["SZ1"];
        differing += !cached || !stored || cached->name != stored->name ? 1 : 0;
    });
    other.join();
    EXPECT_EQ(differing, 0);
}

/// An appender is the host's own code: it may load from within a line.
TEST_F(ClientCenter, NothingIsLoggedWhileADatabaseIsWritten) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "no named operation makes the lines of the store wait";
    }
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    load({"SZ"}, {instrument("SZ", "1")});
    int reloads = 0;
    LogCapture capture;
    capture.onLine([&](const std::string& text) {
        if (text.find("[persist] write failed") == 0 && reloads++ == 0) {
            engine->failWritesOf("");
            load({"SZ"}, {instrument("SZ", "2")});
        }
    });
    engine->failWritesOf("OvIns_SZ");
    load({"SZ"}, {instrument("SZ", "1")});
    EXPECT_EQ(reloads, 1);
    EXPECT_TRUE(asked().getInstrument("SZ1")) << "its load ended last";
    const auto texts = capture.texts();
    const auto at = [&](const char* text) {
        return std::find_if(texts.begin(), texts.end(), [&](const auto& line) { return line.find(text) == 0; }) -
               texts.begin();
    };
    EXPECT_LT(at("[persist] write failed, db = OvIns_SZ, reason = injected"),
              at("[clientIns] save to persist failed, market = SZ"));
}

/// Readers see nothing from the drop on, while the disk keeps the old documents until the new ones are there.
TEST_F(ClientCenter, AReloadDropsForReadersAtOnceAndOnDiskWithTheNewDocuments) {
    if (kNamedPlatformOnly) {
        GTEST_SKIP() << "by the named operations documents are dropped first and written then";
    }
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    load({"SH", "SZ"}, {instrument("SH", "1"), instrument("SH", "2"), instrument("SZ", "1")});
    std::vector<std::string> written;
    engine->onWrite([&](const std::string& db) {
        written.push_back(db);
        if (db == "OvIns_SH" && written.size() > 1) {  // the raw database comes first
            EXPECT_EQ(documentsIn("OvIns_SH"), 2U);
            EXPECT_THAT(asked().getInstruments("SH"), IsEmpty());
            EXPECT_THAT(asked().getInstruments(), IsEmpty()) << "SZ is dropped as well, though nothing replaces it";
        }
    });
    load({"SH", "SZ"}, {instrument("SH", "3")});
    EXPECT_EQ(std::count(written.begin(), written.end(), "OvIns_SH"), 1) << "one step";
    EXPECT_THAT(keysOf(asked().getInstruments()), ElementsAre("SH3"));
    EXPECT_EQ(documentsIn("OvIns_SH"), 1U);
    EXPECT_EQ(documentsIn("OvIns_SZ"), 0U);

    engine->onWrite(
        [&](const std::string& db) { engine->failAt(db == "OvIns_SH" && engine->failed() == 0 ? 0 : -1, false); });
    load({"SH"}, {instrument("SH", "4")});
    engine->onWrite(nullptr);
    EXPECT_EQ(engine->failed(), 1);
    EXPECT_EQ(documentsIn("OvIns_SH"), 0U) << "what could not be replaced is dropped at the end of the load";
    EXPECT_THAT(keysOf(asked().getInstruments("SH")), ElementsAre("SH4"));

    load({"SH"}, {instrument("SH", "5")});
    center().clearDatas({"SH"});
    EXPECT_EQ(documentsIn("OvIns_SH"), 0U) << "outside a load a drop is done at once";
}

TEST_F(ClientCenter, ClearingTheDerivedDatabasesComesBeforeTheirNewContents) {
    const InstrumentPtr contract = instrument("DCE", "m2601");
    contract->productId = "m";
    contract->mainContractFlag = 1;
    load({"DCE"}, {contract});
    load({"DCE", "FUMAIN", "FUPROD"}, {contract});
    EXPECT_THAT(keysOf(asked().getFutureMainInstruments("DCE")), ElementsAre("DCEm2601"));
    EXPECT_THAT(asked().getProductInstruments("m"), SizeIs(1));
    load({"SH", "FUMAIN"}, {instrument("SH", "600000")});
    EXPECT_THAT(asked().getFutureMainInstruments("DCE"), IsEmpty()) << "named and not brought";
}

TEST_F(ClientCenter, ClearPersistRemovesCatalogueDirectoriesOnly) {
    namespace fs = std::filesystem;
    const fs::path root = store_.path() / fs::path(u8"\u4E2D\u6587");
    service().setRootPath(sys::textOf(root));
    load({"SH", "HGT"}, {instrument("SH", "1"), instrument("HGT", "2")});
    std::ofstream(root / "OvIns_x.log") << "a file";
    std::ofstream(root / ".OvIns_SH.cleared") << "a file that has the name to clear under";
    fs::create_directories(root / ".OvIns_HK.cleared" / "left by a clearing that died");
    const TemporaryDirectory outside;
    fs::create_directory(outside.path() / "kept");
#ifdef _WIN32
    service().setRootPath("");  // what is open can not be cleared there
#else
    fs::create_directory_symlink(outside.path(), root / "OvIns_link");
#endif
    asked().clearPersist(sys::textOf(root));
    EXPECT_FALSE(fs::exists(root / "OvIns_SH") || fs::exists(root / "OvIns_HK"));
    EXPECT_TRUE(fs::exists(root / "OvRawHGT") && fs::exists(root / "OvIns_x.log"));
    EXPECT_EQ(fs::file_size(root / ".OvIns_SH.cleared"), 39U) << "plain files are never touched";
    EXPECT_FALSE(fs::exists(root / ".OvIns_HK.cleared"));
    EXPECT_TRUE(fs::exists(outside.path() / "kept")) << "no link is followed out of the root";
    EXPECT_THROW(asked().clearPersist(sys::textOf(root / "nowhere")), boost::filesystem::filesystem_error);
    EXPECT_THROW(asked().clearPersist(std::string("a\0b", 3)), boost::filesystem::filesystem_error);
    service().setRootPath(sys::textOf(root));  // reads would notice by themselves, but not at once
    EXPECT_FALSE(asked().getInstrument("SH1"));
    load({"SH"}, {instrument("SH", "1")});
    EXPECT_TRUE(asked().getInstrument("SH1")) << "the next load begins a fresh database";
}

#ifdef __linux__  // which tells in what order files go
/// Whoever looks on, also after a crash, finds a database or none, and none that lacks a file.
TEST_F(ClientCenter, ClearPersistTakesADatabaseAwayInOneStep) {
    load({"SH"}, {instrument("SH", "1")});
    const int events = ::inotify_init1(IN_CLOEXEC);
    ASSERT_GE(::inotify_add_watch(events, store_.path().c_str(), IN_MOVED_FROM), 0);
    const int inside = ::inotify_add_watch(events, store_.path("OvIns_SH").c_str(), IN_DELETE);
    ASSERT_GE(inside, 0);
    asked().clearPersist(store_.path());
    alignas(inotify_event) std::array<char, 4096> bytes;
    const ssize_t size = ::read(events, bytes.data(), bytes.size());
    ::close(events);
    std::vector<std::string> seen;
    for (std::size_t at = 0; at < static_cast<std::size_t>(size);) {
        const auto& event = *reinterpret_cast<const inotify_event*>(&bytes[at]);
        at += sizeof event + event.len;
        if (event.wd == inside || std::string(event.name) == "OvIns_SH") {
            seen.emplace_back(event.name);
        }
    }
    ASSERT_THAT(seen, Contains("data.mdb"));
    EXPECT_EQ(seen.front(), "OvIns_SH") << "its files went while it still had its name";
}
#endif

TEST_F(ClientCenter, ExchangesOfTheTypesThatOnlyItKnows) {
    EXPECT_THAT(center().getExchanges(OvTraderForeign), ElementsAre("WP", "NYSE", "NASDAQ"));
    EXPECT_THAT(center().getExchanges(OvTraderOtc), ElementsAre("OTC"));
    EXPECT_THAT(center().getExchanges(OvTraderOuterFuture), ElementsAre("WP"));
    EXPECT_THAT(center().getExchanges(OvTraderOption), ElementsAre("SHO", "SZO"));
    load({"WP", "NYSE"}, {instrument("WP", "GC"), instrument("NYSE", "A")});
    EXPECT_THAT(keysOf(asked().getInstruments(OvTraderForeign)), ElementsAre("NYSEA", "WPGC"));
    EXPECT_THAT(asked().getInstruments(OvTraderQuote), SizeIs(2));
}

TEST_F(ClientCenter, FuturesCataloguesAreReadBackFromTheStore) {
    const InstrumentPtr main = instrument("DCE", "m2601");
    main->productId = "m";
    main->mainContractFlag = 1;
    const InstrumentPtr other = instrument("DCE", "m2605");
    other->productId = "m";
    load({"DCE"}, {main, other});
    EXPECT_EQ(*asked().getFutureMainInstruments("DCE")["DCEm2601"], *main);
    EXPECT_THAT(asked().getProductInstruments("m"), SizeIs(2));
    EXPECT_THAT(asked().getProductInstruments("none"), IsEmpty());
    load({"DCE"}, {other});
    EXPECT_THAT(asked().getProductInstruments("m"), SizeIs(1));
    EXPECT_THAT(asked().getFutureMainInstruments("DCE"), IsEmpty());

    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    const LogCapture capture;
    engine->failWritesOf("OvIns_FUMAIN");
    load({"DCE"}, {main});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = FUMAIN"), 1U);
    EXPECT_THAT(keysOf(asked().getFutureMainInstruments("DCE")), ElementsAre("DCEm2601")) << "answered from memory";
    engine->failWritesOf("OvIns_FUPROD");
    load({"DCE"}, {main});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = FUPROD"), 1U);
    EXPECT_THAT(asked().getProductInstruments("m"), ElementsAre(Pointee(Eq(*main)))) << "not an earlier load's";
    load({"SH"}, {instrument("SH", "600000")});
    EXPECT_EQ(capture.count("[clientIns] save to persist failed, market = FUPROD"), 1U) << "nothing to write";

    engine->failWritesOf("");
    load({"DCE"}, {main});
    OpenClientCenter next;
    next.initInstruments({"SH"}, {instrument("SH", "600000")});
    EXPECT_THAT(static_cast<IInstrumentCenter&>(next).getFutureMainInstruments("DCE"), IsEmpty());
    EXPECT_THAT(static_cast<IInstrumentCenter&>(next).getProductInstruments("m"), IsEmpty());
}

TEST_F(ClientCenter, AMarketThatWasNamedAndNeverBroughtIsReported) {
    load({"SZ"}, {});
    const LogCapture capture;
    const std::list<std::string> markets{"SZ"};
    InstrumentMap out;
    asked().getInstruments("SZ");
    asked().getInstruments(out);
    asked().getInstruments(markets);
    asked().getInstruments(markets, out);
    EXPECT_THAT(asked().getInstruments(), IsEmpty()) << "and this one says nothing";
    EXPECT_THAT(capture.texts(),
                ElementsAre("[clientIns] get market SZ db error ",
                            "[clientIns] get market ref " + std::to_string(utils::hash("SZ")) + " db error ",
                            "[clientIns] get marketlist SZ db error ", "[clientIns] get marketlist ref SZ db error "));
    for (const LogCapture::Line& line : capture.lines()) {
        EXPECT_EQ(line.level, utils::kLogError);
    }
    load({"SZ"}, {instrument("SZ", "1")});
    EXPECT_THAT(asked().getInstruments("SZ"), SizeIs(1));
}

TEST_F(ClientCenter, LoadsOfOneFamilyAtOnceLoseNoDocument) {
    load({"HK"}, {instrument("HK", "00700")});
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    bool other = false;
    engine->onWrite([&](const std::string& db) {
        if (db == "OvRawHGT" && !std::exchange(other, true)) {
            load({"SGT"}, {instrument("SGT", "02800")});
        }
    });
    load({"HGT"}, {instrument("HGT", "00005")});
    ASSERT_TRUE(other);
    for (const char* const key : {"HK00005", "HK02800", "HK00700"}) {
        EXPECT_TRUE(asked().hasCode(key) && asked().getInstrument(key)) << key;
    }
}

/// The second load comes to the database when the first one is about to write what takes the old documents away.
TEST_F(ClientCenter, AWriteOfADatabaseWaitsForTheOneUnderWay) {
    if (!WatchedThread::canBeWatched()) {
        GTEST_SKIP() << "the system does not tell what threads wait for";
    }
    load({"HK"}, {instrument("HK", "00700")});
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    {
        std::atomic<bool> met{false};
        std::optional<WatchedThread> other;
        engine->onWrite([&](const std::string& db) {
            if (db == "OvIns_HK" && !met.exchange(true)) {
                other.emplace([&] { load({"SGT"}, {instrument("SGT", "02800")}); });
                EXPECT_TRUE(other->waitsForALock()) << "it has written meanwhile";
            }
        });
        load({"HGT"}, {instrument("HGT", "00005")});
        ASSERT_TRUE(met);
        other.reset();
        engine->onWrite(nullptr);
    }
    for (const char* const code : {"00005", "02800", "00700"}) {
        EXPECT_FALSE(service().readData("OvIns_HK", keyText("HK", code)).isEmpty()) << code;
    }
}

/// Of a market that the load does not name, so that its keys answer all the time.
TEST_F(ClientCenter, AWriteLeavesNoOldRecordInTheCache) {
    const auto day = [&](const std::string& name) {
        Instruments records{instrument("SZ", "cached"), instrument("SZ", "not cached")};
        for (const InstrumentPtr& record : records) {
            record->name = name;
        }
        load({"DCE"}, records);
    };
    const auto nameOf = [&](const std::string& code) { return asked().getInstrument("SZ", code)->name; };
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    day("old");
    EXPECT_EQ(nameOf("cached"), "old");
    engine->onWrite([&](const std::string& db) {
        if (db == "OvIns_SZ") {
            EXPECT_EQ(nameOf("cached"), "new") << "a cached record is replaced ahead of the write";
            EXPECT_EQ(nameOf("not cached"), "old") << "and this one is cached now";
        }
    });
    day("new");
    EXPECT_EQ(nameOf("not cached"), "new");
}

TEST_F(ClientCenter, OuterTablesKeepNamesAndReplaceTheRest) {
    const auto product = [](const std::string& code, int group, const std::string& exchange) {
        const InstrumentPtr record = instrument("WP", code);
        record->productId = code;
        record->productName = "product " + code;
        record->mainContractFlag = 1;
        record->productGroup = group;
        record->listingDate = exchange;
        record->outerMarketName = exchange + " exchange";
        return record;
    };
    const InstrumentPtr plain = product("NO", 1, "CME");
    plain->mainContractFlag = 0;
    load({"WP"}, {product("GC", 1, "CME"), product("ZN", 2, "CBOT"), product("ES", 3, "CME"), plain});
    EXPECT_THAT(asked().getOutterProduct(), SizeIs(3));
    EXPECT_EQ(asked().getOutterProductName("GC"), "product GC");
    EXPECT_EQ(asked().getOutterMarketName("CBOT"), "CBOT exchange");
    EXPECT_TRUE(asked().isCommodityProduct("GC") && asked().isInterestProduct("ZN"));
    EXPECT_FALSE(asked().isCommodityProduct("ES") || asked().isInterestProduct("ES") ||
                 asked().isCommodityProduct("NO"));
    load({"WP"}, {product("ES", 3, "CME")});
    EXPECT_THAT(asked().getOutterProduct(), SizeIs(3)) << "names accumulate";
    EXPECT_THAT(asked().getMarketProductList(), ElementsAre(testing::Pair("CME", ElementsAre("ES"))));
    EXPECT_FALSE(asked().isCommodityProduct("GC"));
    EXPECT_THAT(asked().getOutterMarket(), SizeIs(2));
}

TEST_F(ClientCenter, LoadsLogTheIssuesOfTheDay) {
    const PinnedDay day;
    const InstrumentPtr issue = instrument("SH", "730001");
    issue->listingDate = "20260302";
    const LogCapture capture;
    load({"SH"}, {issue, instrument("SH", "689009")});
    EXPECT_EQ(capture.count("[ipo] stk code:SH730001"), 1U);
    EXPECT_EQ(capture.count("[ipo] cdr code:SH689009"), 1U);
    EXPECT_EQ(capture.lines().front().file, "base/instrumentcenter/CClientInstrumentCenter");
}

}  // namespace
}  // namespace mxservice
