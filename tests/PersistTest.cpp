#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <thread>

#include "tests/LogCapture.h"
#include "tests/PersistFixture.h"

namespace {

using namespace persisttest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

namespace fs = std::filesystem;

TEST_F(Persist, DocumentsSurviveARestart) {
    ASSERT_TRUE(service().initDb("A", false));
    ASSERT_TRUE(service().writeDatas("A", {"2", "10", "2"}, {document("old"), document("b"), document("a")}, false));
    ASSERT_TRUE(service().writeData("A", "10", document("kept out"), true));
    ASSERT_TRUE(service().writeData("A", "3", document("c"), false));
    restart();
    EXPECT_EQ(textOf("A", "2"), "a") << "of two documents with one key the later counts";
    EXPECT_EQ(textOf("A", "10"), "b");
    EXPECT_THAT(service().readAllData("A", ".*"),
                ElementsAre(Pair("10", document("b")), Pair("2", document("a")), Pair("3", document("c"))));
    EXPECT_THAT(service().readAllData("A", "1.|3"), SizeIs(2));
    EXPECT_THAT(service().readAllData("A", "("), SizeIs(0)) << "a bad pattern finds nothing";
    EXPECT_TRUE(service().removeData("A", "2"));
    EXPECT_TRUE(service().removeData("A", "2"));
    EXPECT_TRUE(service().readData("A", "2").isEmpty());
    service().dropAllData("A");
    EXPECT_THAT(service().readAllData("A", ".*"), SizeIs(0));
}

/// Into an empty database entries go by the order of their keys, which must be the library's for any bytes.
TEST_F(Persist, RootsAndNamesBeyondAsciiAreFoundAgain) {
    const fs::path root = store_.path() / fs::path(u8"\u884C\u60C5");
    const std::u8string name = u8"\u5408\u7EA6";
    const std::string db(name.begin(), name.end());
    const std::u8string text = root.u8string();
    service().setRootPath({text.begin(), text.end()});
    ASSERT_TRUE(writeMany(db, 2, "x"));
    EXPECT_TRUE(fs::exists(root / fs::path(name) / "data.mdb"));
    service().setRootPath("");
    service().setRootPath({text.begin(), text.end()});
    EXPECT_EQ(textOf(db, "1"), "x1");
}

TEST_F(Persist, KeysOfAnyBytesAreStored) {
    const std::string longer("a beginning of more than eight bytes");
    const std::vector<std::string> keys{"\xFF",  "\x7F",          "\x80",          "A",   "\xE6\xB2\xAA", "A\x80",
                                        "A\x7F", longer + "\x80", longer + "\x7F", longer};
    ASSERT_TRUE(service().initDb("A", false));
    ASSERT_TRUE(service().writeDatas("A", keys, std::vector<BSONObj>(keys.size(), document("x")), false));
    for (const std::string& key : keys) {
        EXPECT_EQ(textOf("A", key), "x") << key;
    }
}

TEST_F(Persist, SubDocumentsStandBesideDocuments) {
    ASSERT_TRUE(service().initDb("A", false));
    ASSERT_TRUE(service().writeHashDatas("A", {"1", "2"}, {document("a"), document("b")}, false, "f", false));
    ASSERT_TRUE(service().writeHashDatas("A", {"1"}, {document("x")}, false, "ff", false));
    ASSERT_TRUE(service().writeData("A", "f", document("plain"), false));
    std::map<std::string, BSONObj> out{{"mine", document("m")}};
    EXPECT_TRUE(service().readHashDatas("A", out, "f", false));
    EXPECT_THAT(out, ElementsAre(Pair("1", document("a")), Pair("2", document("b")), Pair("mine", document("m"))));
    EXPECT_THAT(service().readAllData("A", ".*"), ElementsAre(Pair("f", document("plain"))));

    ASSERT_TRUE(service().writeHashDatas("A", {"3"}, {document("c")}, false, "f", true));
    EXPECT_TRUE(service().readHashDatas("A", out, "f", true));
    EXPECT_THAT(out, ElementsAre(Pair("3", document("c"))));
    ASSERT_TRUE(service().removeData("A", "f"));
    EXPECT_FALSE(service().readHashDatas("A", out, "f", true));
    EXPECT_TRUE(service().readHashDatas("A", out, "ff", true));
    EXPECT_FALSE(service().writeHashDatas("A", {std::string("a\0b", 3)}, {document("c")}, false, "f", false));
}

TEST_F(Persist, ABadBatchIsRefusedWhole) {
    ASSERT_TRUE(writeMany("A", 3, "old"));
    const std::vector<BSONObj> two{document("x"), document("y")};
    const LogCapture capture;
    EXPECT_FALSE(service().writeDatas("A", {"0"}, two, false));
    EXPECT_FALSE(service().writeDatas("A", {"0", ""}, two, false));
    EXPECT_FALSE(service().writeDatas("A", {"0", std::string(512, 'k')}, two, false));
    EXPECT_FALSE(service().writeDatas("A", {"0", std::string("a\0b", 3)}, two, false));
    EXPECT_FALSE(service().writeDatas("A", {"0", "1"}, {document("x"), BSONObj()}, false));
    EXPECT_THAT(capture.texts(), SizeIs(5)) << "one line a failure";
    EXPECT_EQ(textOf("A", "0"), "old0");
    EXPECT_TRUE(service().writeData("A", std::string(511, 'k'), document("long"), false));
}

TEST_F(Persist, UnsafeNamesNeverReachTheDisk) {
    const LogCapture capture;
    for (const std::string& name :
         {std::string(),        std::string("."),     std::string(".."),    std::string(".hidden"),
          std::string("a/b"),   std::string("../up"), std::string("a\\b"),  std::string("a\0b", 3),
          std::string("a..b"),  std::string("a\nb"),  std::string(65, 'n'), std::string("a:b"),
          std::string("a?"),    std::string("a*"),    std::string("a|b"),   std::string("<a>"),
          std::string("\"a\""), std::string("a."),    std::string("a "),    std::string("nul"),
          std::string("Con"),   std::string("aux.1"), std::string("COM1"),  std::string("lpt9 .x")}) {
        EXPECT_FALSE(service().initDb(name, false)) << name;
        EXPECT_FALSE(service().writeData(name, "1", document("x"), false)) << name;
        EXPECT_TRUE(service().readData(name, "1").isEmpty()) << name;
        service().dropAllData(name);
    }
    EXPECT_FALSE(fs::exists(store_.path()));
    EXPECT_THAT(capture.texts(), testing::Each(HasSubstr("not a safe database name")));
    for (const std::string& name : {std::string(64, 'n'), std::string("console"), std::string("a.nul"),
                                    std::string("COM"), std::string("COM10"), std::string("a b")}) {
        EXPECT_TRUE(service().initDb(name, false)) << name;
    }
}

TEST_F(Persist, WithoutADatabaseReadsFindNothingAndCreateNothing) {
    const LogCapture capture;
    EXPECT_TRUE(service().readData("A", "1").isEmpty());
    EXPECT_THAT(service().readAllData("A", ".*"), SizeIs(0));
    service().dropAllData("A");
    EXPECT_FALSE(service().writeData("A", "1", document("x"), false));
    EXPECT_FALSE(fs::exists(store_.path("A")));
    EXPECT_THAT(capture.texts(), SizeIs(0));
    service().setRootPath("");
    EXPECT_FALSE(service().initDb("A", false));
    EXPECT_THAT(capture.texts(), ElementsAre(HasSubstr("no root path is set")));
}

TEST_F(Persist, TheMapGrowsWhileReadersAreAtWork) {
    ASSERT_TRUE(writeMany("A", 100, "first"));
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&] {
            while (!done.load()) {
                wrong += textOf("A", "7").find("first") != 0 ? 1 : 0;
                wrong += service().readAllData("A", ".*").size() < 100 ? 1 : 0;
            }
        });
    }
    constexpr std::size_t kDocumentBytes = 200 * 1024;
    for (int i = 0; i < 60; ++i) {
        ASSERT_TRUE(service().writeData("A", "big" + std::to_string(i),
                                        document(std::string(kDocumentBytes, static_cast<char>('a' + i % 26))), false));
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
    restart();
    EXPECT_EQ(textOf("A", "big59").size(), kDocumentBytes);
}

TEST_F(Persist, AHundredDatabasesAndFiveHundredReadersWork) {
    constexpr int kDatabases = 100;
    constexpr int kThreads = 500;
    for (int i = 0; i < kDatabases; ++i) {
        ASSERT_TRUE(writeMany("D" + std::to_string(i), 2, "x"));
    }
    std::atomic<int> read{0};
    std::atomic<int> inside{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&, i] {
            // All of them inside a read transaction of one database at once.
            service().visitAllData("D0", [&](std::string_view, std::string_view) {
                ++inside;
                while (inside.load() < kThreads) {
                    std::this_thread::yield();
                }
                return false;
            });
            read += textOf("D" + std::to_string(i % kDatabases), "1") == "x1" ? 1 : 0;
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(inside, kThreads);
    EXPECT_EQ(read, kThreads);
}

class PersistDamage : public Persist {
protected:
    void SetUp() override {
        ASSERT_TRUE(writeMany("A", 500, "a"));
        service().setRootPath("");
    }
    fs::path file() const { return store_.path("A") / "data.mdb"; }
    std::string bytes() const {
        std::ifstream in(file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    void replaceBytes(const std::string& all) const { std::ofstream(file(), std::ios::binary) << all; }
};

TEST_F(PersistDamage, IsSetAsideByTheNextInit) {
    const std::string good = bytes();
    const std::vector<std::string> damages{good.substr(0, 4096 * 4), good.substr(0, 100), "not a database",
                                           std::string(good.size(), '\0'),
                                           std::string(good).replace(4096 * 3, 4096, 4096, '\xFF')};
    for (std::size_t i = 0; i < damages.size(); ++i) {
        replaceBytes(damages[i]);
        restart();
        const LogCapture capture;
        EXPECT_TRUE(service().readData("A", "7").isEmpty());
        EXPECT_THAT(capture.texts(), ElementsAre(HasSubstr("read failed, db = A")));
        ASSERT_TRUE(writeMany("A", 1, "fresh"));
        EXPECT_EQ(textOf("A", "0"), "fresh0");
        EXPECT_TRUE(fs::exists(store_.path("A.damaged-" + std::to_string(i + 1)))) << i;
        service().setRootPath("");
    }
}

TEST_F(Persist, ADocumentThatIsNoneIsNotServed) {
    ASSERT_TRUE(writeMany("A", 1, "a"));
    persist::StoreStatus status;
    service().setRootPath("");
    {
        const auto database = persist::makeLmdbEngine()->open(store_.path("A").string(),
                                                              persist::StoreEngine::Mode::WriteExisting, status);
        ASSERT_TRUE(database && database->put(ReadyBatch{{"bad", "\x05 garbage"}}, false, {}).ok());
    }
    restart();
    const LogCapture capture;
    EXPECT_TRUE(service().readData("A", "bad").isEmpty());
    EXPECT_THAT(service().readAllData("A", ".*"), ElementsAre(Pair("0", document("a0"))));
    EXPECT_THAT(capture.texts(), SizeIs(2));
}

}  // namespace
