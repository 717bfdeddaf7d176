#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>

#include "tests/CenterFixture.h"
#include "tests/FaultyCalls.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/StoredDay.h"

// The store and what is beneath it fail at one call after the other.

namespace mxservice {
namespace {

namespace fs = std::filesystem;

class Faults : public testing::Test {
protected:
    void SetUp() override { faulty::skipSyncs(true); }
    void TearDown() override {
        faulty::stopFailing();
        faulty::skipSyncs(false);
    }
    static persist::CPersistService& service() { return TemporaryStore::service(); }

    /// Forgets what is open, and what is stored.
    void beginAfresh() {
        service().setRootPath("");
        fs::remove_all(store_.path());
        service().setRootPath(store_.path());
    }

    /// The next call to fail: each one with PM_FAULTS set, some otherwise.
    int after(int call, int atMost) {
        return call + (every_ ? 1 : 1 + static_cast<int>(random_() % static_cast<unsigned>(atMost)));
    }

    /// Every record of the load is found, under its key and in its market's list.
    static void expectAnswers(IInstrumentCenter& center, int number) {
        const std::string name = std::to_string(number);
        const auto codes = static_cast<std::size_t>(codesOf(number));
        for (const char* const market : {"SH", "SZ", "HK", "DCE", "CFFEX"}) {
            for (std::size_t i = 0; i < codes; i += 7) {
                const auto record = center.getInstrument(market, std::to_string(i));
                ASSERT_TRUE(record) << market << i;
                ASSERT_EQ(record->name, name) << market << i;
            }
            const InstrumentMap listed = center.getInstruments(market);
            ASSERT_EQ(listed.size(), codes) << market;
            ASSERT_EQ(listed.begin()->second->name, name) << market;
        }
        ASSERT_TRUE(center.getEtf("SH510050") && center.getEtf("SH510051"));
        ASSERT_EQ(center.getEtf("SH510050")->etfCode, "510050") << "not a record of defaults";
        ASSERT_EQ(center.getEtfs().size(), 1U);
        ASSERT_TRUE(center.getInstrument("ETFINSTS510051") && center.getInstrument("BANK240001"));
        ASSERT_TRUE(center.getBond("BANK240001"));
        ASSERT_EQ(center.getBond("BANK240001")->bondName, name);
        ASSERT_EQ(center.getBonds().size(), 1U);
        ASSERT_TRUE(center.getOtcInstrument("SOTCP1"));
        ASSERT_EQ(center.getOtcInstrument("SOTCP1")->name, name);
        ASSERT_EQ(center.getOtcInstruments().size(), codes);
    }

    /// Asks for what expectAnswers asks for, whatever comes; but of a list, all or nothing.
    static void ask(IInstrumentCenter& center) {
        const auto codes = static_cast<std::size_t>(codesOf(0));
        EXPECT_THAT(center.getInstruments("SZ").size(), testing::AnyOf(0U, codes));
        EXPECT_THAT(center.getOtcInstruments().size(), testing::AnyOf(0U, codes));
        for (const char* const key : {"SH1", "HGT1", "DCE7", "ETFINSTS510051"}) {
            center.getInstrument(key);
        }
        center.getInstruments();
        center.getFutureMainInstruments("DCE");
        center.getProductInstruments("p1");
        center.getProductMainInstruments();
        center.getEtf("SH510050");
        center.getEtfs();
        center.getBond("BANK240001");
        center.getBonds();
        center.getOtcInstrument("SOTCP1");
    }

    void expectStored(int number) const {
        for (const std::string& db : storedDatabases()) {
            const auto loads = storedLoads(store_.path(), db);
            ASSERT_EQ(notOneOf({number}, db, loads.value_or(StoredLoads{})), "");
        }
    }

    /// Has a center's first load fail, and its second, at each call: `arm` says at which and whether every later one
    /// fails as well, `disarm` ends that and says whether a call has failed.
    template <class Arm, class Disarm>
    void failEveryCallOfALoad(int stride, Arm arm, Disarm disarm) {
        for (const bool first : {true, false}) {
            for (const bool forever : {false, true}) {
                bool hit = true;
                for (int call = 0; hit && !HasFatalFailure(); call = after(call, stride)) {
                    SCOPED_TRACE(testing::Message() << "PM_SEED=" << seed_ << (first ? " first" : " second")
                                                    << " load, call " << call << (forever ? " and later" : ""));
                    beginAfresh();
                    OpenClientCenter center(kCapacity);
                    if (!first) {
                        load(center, 0);
                    }
                    const int number = first ? 0 : 2;
                    arm(call, forever);
                    load(center, number);
                    hit = disarm();
                    ASSERT_TRUE(hit || call > 0 || !first) << "nothing has failed";
                    expectAnswers(center, number);
                    load(center, number + 2);
                    expectAnswers(center, number + 2);
                    expectStored(number + 2);
                }
            }
        }
    }

    /// The same for lookups: afterwards they answer again.
    template <class Arm, class Disarm>
    void failEveryCallOfALookup(int stride, Arm arm, Disarm disarm) {
        beginAfresh();
        OpenClientCenter center(0);
        load(center, 0);
        for (const bool forever : {false, true}) {
            bool hit = true;
            for (int call = 0; hit && !HasFatalFailure(); call = after(call, stride)) {
                SCOPED_TRACE(testing::Message() << "PM_SEED=" << seed_ << " call " << call << forever);
                service().setRootPath(store_.path());  // so that databases are opened, too
                arm(call, forever);
                ask(center);
                hit = disarm();
                ASSERT_TRUE(hit || call > 0) << "nothing has failed";
                expectAnswers(center, 0);
            }
        }
    }

    static constexpr int kCapacity = 16;

    TemporaryStore store_;
    const bool every_ = fromEnvironment("PM_FAULTS", 0) != 0;
    const unsigned seed_ = seedOfRun();
    std::mt19937_64 random_{seed_};
};

TEST_F(Faults, OfTheEngineAtAnyCall) {
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    int before = 0;
    const auto arm = [&](int call, bool forever) {
        before = engine->failed();
        engine->failAt(call, forever);
    };
    const auto disarm = [&] {
        engine->failNever();
        return engine->failed() != before;
    };
    failEveryCallOfALoad(16, arm, disarm);
    failEveryCallOfALookup(3, arm, disarm);
}

struct SystemFault {
    const char* name;
    faulty::Kind kind;
    int error;
};

class SystemFaults : public Faults, public testing::WithParamInterface<SystemFault> {};

TEST_P(SystemFaults, AtAnyCall) {
    const auto arm = [](int call, bool forever) { faulty::failAt(GetParam().kind, call, forever, GetParam().error); };
    failEveryCallOfALoad(24, arm, faulty::stopFailing);  // lookups make no such calls
}

/// After some failures the library refuses every further transaction of what is open.
TEST_P(SystemFaults, OfASmallWriteLeaveTheNextAlone) {
    const auto document = [](int number) {
        bson::BSONObjBuilder builder;
        builder.append("number", number);
        return builder.obj();
    };
    const auto number = [] { return service().readData("A", "1").getIntField("number"); };
    ASSERT_TRUE(service().initDb("A", false) && service().writeData("A", "1", document(0), false));
    bool hit = true;
    for (int call = 0; hit; ++call) {
        SCOPED_TRACE(testing::Message() << "call " << call);
        faulty::failAt(GetParam().kind, call, false, GetParam().error);
        const bool written = service().writeData("A", "1", document(2 * call + 1), false);
        hit = faulty::stopFailing();
        EXPECT_EQ(written, !hit);
        EXPECT_EQ(number(), written ? 2 * call + 1 : 2 * call);
        ASSERT_TRUE(service().writeData("A", "1", document(2 * call + 2), false));
        EXPECT_EQ(number(), 2 * call + 2);
    }
}

std::string nameOf(const testing::TestParamInfo<SystemFault>& fault) {
    return fault.param.name;
}

INSTANTIATE_TEST_SUITE_P(Each, SystemFaults,
                         testing::Values(SystemFault{"WriteEIO", faulty::Kind::Write, EIO},
                                         SystemFault{"WriteENOSPC", faulty::Kind::Write, ENOSPC},
                                         SystemFault{"WriteHalf", faulty::Kind::Write, 0},
                                         SystemFault{"SyncEIO", faulty::Kind::Sync, EIO},
                                         SystemFault{"TruncateENOSPC", faulty::Kind::Truncate, ENOSPC}),
                         nameOf);

TEST_F(Faults, OfMemoryBeneathTheServiceAtAnyCall) {
    if (!faulty::memoryCanFail()) {
        GTEST_SKIP() << "memory is the sanitizer's own here";
    }
    const auto engine = std::make_shared<FailingEngine>();
    service().setEngine(engine);
    engine->surround([] { return std::make_shared<faulty::MemoryScope>(); });
    const auto arm = [](int call, bool forever) { faulty::failAt(faulty::Kind::Memory, call, forever, ENOMEM); };
    failEveryCallOfALoad(500, arm, faulty::stopFailing);
    failEveryCallOfALookup(250, arm, faulty::stopFailing);
}

/// Every operation of the service on a database, each as a call that would change or read something there.
class MemoryInTheService : public Faults {
protected:
    struct Operation {
        const char* name;
        std::function<void()> call;
        bool firstAlone = false;  // changes only the first document
        bool empties = false;
    };

    static std::vector<bson::BSONObj> documents(const std::string& text) {
        bson::BSONObjBuilder builder;
        builder.append("text", text);
        return std::vector<bson::BSONObj>(2, builder.obj());
    }

    std::vector<Operation> operations() {
        return {{"initDb, fresh", [&] { service().initDb(freshDb_, false); }},
                {"initDb", [&] { service().initDb(db_, true); }, false, true},
                {"writeData", [&] { service().writeData(db_, keys_[0], new_[0], false); }, true},
                {"writeDatas", [&] { service().writeDatas(db_, keys_, new_, false); }},
                {"writeDatas, refused", [&] { service().writeDatas(db_, keys_, {}, false); }},
                {"writeDocuments", [&] { service().writeDocuments(db_, batch_, false); }},
                {"replaceDocuments", [&] { service().replaceDocuments(db_, batch_); }},
                {"visitData", [&] { service().visitData(db_, keys_[0], visitor_); }},
                {"visitAllData", [&] { service().visitAllData(db_, visitor_); }},
                {"readData", [&] { service().readData(db_, keys_[0]); }},
                {"readAllData", [&] { service().readAllData(db_, ".*"); }},
                {"readAllData, some", [&] { service().readAllData(db_, pattern_); }},
                {"writeHashDatas", [&] { service().writeHashDatas(db_, keys_, new_, false, field_, true); }},
                {"replaceHashDatas", [&] { service().replaceHashDatas(db_, fields_); }},
                {"readHashDatas", [&] { service().readHashDatas(db_, out_, field_, true); }},
                {"removeData", [&] { service().removeData(db_, keys_[0]); }, true},
                {"dropAllData", [&] { service().dropAllData(db_); }, false, true}};
    }

    void fill() {
        service().setRootPath(store_.path());
        ASSERT_TRUE(service().initDb(db_, true) && service().writeDatas(db_, keys_, old_, false) &&
                    service().writeHashDatas(db_, keys_, old_, false, field_, true));
    }

    /// Both documents, and both sub-documents, are old, or new, or where the operation may do that, gone.
    void expectWhole(const Operation& operation) {
        const auto text = [&](const std::map<std::string, bson::BSONObj>& documents, const std::string& key) {
            const auto found = documents.find(key);
            return found == documents.end() ? std::string() : std::string(found->second.getStringField("text"));
        };
        const auto documents = service().readAllData(db_, ".*");
        EXPECT_EQ(text(documents, keys_[1]), operation.firstAlone ? "old" : text(documents, keys_[0]));
        std::map<std::string, bson::BSONObj> beneath;
        service().readHashDatas(db_, beneath, field_, true);
        EXPECT_EQ(text(beneath, keys_[1]), text(beneath, keys_[0]));
        EXPECT_TRUE(operation.empties || documents.count(keys_[1]) == 1);
    }

    // Too long for what strings hold without the heap.
    const std::string db_ = "a database whose name takes memory";
    const std::string freshDb_ = "another database, which is not there yet";
    const std::string field_ = "a field whose name takes memory, too";
    const std::string pattern_ = "key of .*, long enough for the heap";
    const std::vector<std::string> keys_{"key of the first, long enough for the heap",
                                         "key of the second, long enough for the heap"};
    const std::vector<bson::BSONObj> old_ = documents("old");
    const std::vector<bson::BSONObj> new_ = documents("new");
    const ReadyBatch batch_ = [this] {
        ReadyBatch batch{};
        for (std::size_t i = 0; i < keys_.size(); ++i) {
            batch.add(keys_[i], {new_[i].objdata(), static_cast<std::size_t>(new_[i].objsize())});
        }
        return batch;
    }();
    const std::vector<persist::CPersistService::Field> fields_{{field_, &batch_}};
    const persist::CPersistService::Visitor visitor_ = [](std::string_view, std::string_view) { return true; };
    std::map<std::string, bson::BSONObj> out_;
};

/// No call throws, and a call that changes something is done whole or not at all.
TEST_F(MemoryInTheService, AtAnyRequest) {
    if (!faulty::memoryCanFail()) {
        GTEST_SKIP() << "memory is the sanitizer's own here";
    }
    for (const Operation& operation : operations()) {
        for (const bool forever : {false, true}) {
            bool hit = true;
            for (int at = 0; hit && !HasFailure(); ++at) {
                SCOPED_TRACE(testing::Message() << operation.name << ", request " << at << (forever ? " and on" : ""));
                fill();
                if (at % 2 == 0) {
                    service().setRootPath(store_.path());  // so that it is opened, too
                }
                service().initDb("no/name", false);
                const std::string before = persist::CPersistService::lastFailure();
                faulty::failAt(faulty::Kind::Memory, at, forever, ENOMEM);
                {
                    const faulty::MemoryScope scope;
                    EXPECT_NO_THROW(operation.call());
                }
                EXPECT_NE(persist::CPersistService::lastFailure(), before);
                hit = faulty::stopFailing();
                EXPECT_TRUE(hit || at > 0) << "nothing has failed";
                expectWhole(operation);
            }
        }
    }
}

TEST_F(Faults, AnUnfinishedFileIsNoDatabaseYet) {
    fs::create_directories(store_.path("OvIns_SH"));
    std::ofstream(store_.path("OvIns_SH") / "data.mdb");
    const LogCapture capture;
    EXPECT_TRUE(service().readData("OvIns_SH", "1").isEmpty());
    EXPECT_EQ(fs::file_size(store_.path("OvIns_SH") / "data.mdb"), 0U) << "reading creates nothing";
    persist::StoreStatus status;
    EXPECT_FALSE(
        persist::makeLmdbEngine()->open(store_.path("OvIns_SH"), persist::StoreEngine::Mode::ReadExisting, status));
    EXPECT_EQ(status.kind, persist::StoreStatus::Kind::NotFound);
    EXPECT_THAT(capture.texts(), testing::IsEmpty());
    EXPECT_TRUE(service().initDb("OvIns_SH", false));
    EXPECT_FALSE(fs::exists(store_.path("OvIns_SH.damaged-1")));
}

/// Market names that come from outside. Each is served; none reaches out of the root or into another's database.
TEST_F(Faults, OfMarketNames) {
    const std::vector<std::string> markets{"SH",         "sh",       "sH",       "..",       "../x",
                                           "../../../x", "/x",       "a/b",      "a\\b",     std::string("a\0b", 3),
                                           " ",          " SH",      "SH ",      "SH.",      "SH...",
                                           "CON",        "NUL",      "con.",     "aux:x",    std::string(300, 'm'),
                                           "",           "\xFF\xFE", "\xE6\xB2", "lock.mdb", "a\nb",
                                           "~",          "$HOME",    "%1%",      "{}",       std::string(57, 'n'),
                                           "*",          "ALLETF",   "FUMAIN",   "FUPROD",   "OTCINS",
                                           "BANKBOND"};
    // A load that names a catalogue drops it; one that only brings records of such a market must not.
    const auto catalogues = std::find(markets.begin(), markets.end(), "ALLETF");
    for (const bool ignoringCase : {false, true}) {
        SCOPED_TRACE(ignoringCase);
        beginAfresh();
        fs::create_directories(store_.path());
        faulty::ignoreCaseBeneath(ignoringCase ? store_.path() : fs::path());
        OpenClientCenter center;
        IInstrumentCenter& asked = center;
        asked.initEtfs({etf("SH", "510050", "510051")});
        asked.initBonds({{"b", bond("240001")}});
        asked.initOtcInstruments({plan("P1", 1)});
        for (int round = 0; round < 2; ++round) {
            Instruments records;
            for (std::size_t i = 0; i < markets.size(); ++i) {
                records.push_back(instrument(markets[i], "c" + std::to_string(i)));
            }
            asked.initInstruments({markets.begin(), catalogues}, records);
            for (std::size_t i = 0; i < markets.size(); ++i) {
                const auto record = asked.getInstrument(markets[i], "c" + std::to_string(i));
                ASSERT_TRUE(record) << markets[i];
                EXPECT_EQ(record->market, markets[i]);
                EXPECT_THAT(asked.getInstruments(markets[i]), testing::SizeIs(1)) << markets[i];
            }
            EXPECT_THAT(asked.getEtfs(), testing::SizeIs(1)) << "a market of that name is kept out of the catalogue";
            EXPECT_EQ(asked.getEtf("SH510050")->etfCode, "510050");
            EXPECT_THAT(asked.getBonds(), testing::SizeIs(1));
            EXPECT_THAT(asked.getOtcInstruments(), testing::SizeIs(1));
        }
        faulty::ignoreCaseBeneath({});
        EXPECT_THAT(std::vector<fs::path>(fs::directory_iterator(store_.path("..")), {}), testing::SizeIs(1));
        for (const auto& entry : fs::recursive_directory_iterator(store_.path())) {
            const std::string name = fs::relative(entry.path(), store_.path());
            EXPECT_TRUE(name.rfind("Ov", 0) == 0 && std::count(name.begin(), name.end(), '/') <= 1) << name;
        }
        const int alike = static_cast<int>(fs::exists(store_.path("OvIns_SH"))) + fs::exists(store_.path("OvIns_sh")) +
                          fs::exists(store_.path("OvIns_sH"));
        EXPECT_EQ(alike, ignoringCase ? 1 : 3);
    }
}

}  // namespace
}  // namespace mxservice
