#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fstream>
#include <thread>

#include "tests/LogCapture.h"
#include "tests/TemporaryStore.h"
#include "tests/WatchedThread.h"

namespace {

using bson::BSONObj;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::SizeIs;

namespace fs = std::filesystem;

BSONObj document(const std::string& text) {
    bson::BSONObjBuilder builder;
    builder.append("text", text);
    return builder.obj();
}

class Persist : public testing::Test {
protected:
    static persist::CPersistService& service() { return TemporaryStore::service(); }
    /// Forgets what is open, as a new process would.
    void restart() { service().setRootPath(store_.path()); }
    static std::string textOf(const std::string& db, const std::string& key) {
        return service().readData(db, key).getStringField("text");
    }
    /// Asks until it is so: reads notice a little late what was done to a directory. The end is for a broken store.
    template <class Ask>
    static bool soon(Ask ask) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        bool so = ask();
        while (!so && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
            so = ask();
        }
        return so;
    }
    static bool writeMany(const std::string& db, int count, const std::string& text) {
        std::vector<std::string> keys;
        std::vector<BSONObj> values;
        for (int i = 0; i < count; ++i) {
            keys.push_back(std::to_string(i));
            values.push_back(document(text + std::to_string(i)));
        }
        return service().initDb(db, false) && service().writeDatas(db, keys, values, false);
    }

    TemporaryStore store_;
};

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

TEST_F(Persist, ADirectoryRemovedOrReplacedBehindItsBackIsNoticed) {
    ASSERT_TRUE(writeMany("A", 3, "old"));
    EXPECT_EQ(textOf("A", "1"), "old1");
    fs::remove_all(store_.path("A"));
    EXPECT_TRUE(soon([] { return service().readData("A", "1").isEmpty(); }));
    EXPECT_FALSE(service().writeData("A", "1", document("lost"), false));
    EXPECT_FALSE(fs::exists(store_.path("A")));
    ASSERT_TRUE(writeMany("B", 2, "b"));
    ASSERT_TRUE(writeMany("A", 1, "new"));
    EXPECT_THAT(service().readAllData("A", ".*"), SizeIs(1));

    fs::rename(store_.path("A"), store_.path("C"));
    fs::rename(store_.path("B"), store_.path("A"));
    EXPECT_TRUE(service().writeData("A", "2", document("at once"), false)) << "writes do not go by an earlier look";
    EXPECT_EQ(textOf("A", "1"), "b1") << "nor do reads that come after one";
    EXPECT_EQ(textOf("C", "0"), "new0");
    EXPECT_TRUE(service().readData("B", "1").isEmpty());

    const fs::path moved = store_.path().parent_path() / "moved";
    fs::rename(store_.path(), moved);
    EXPECT_TRUE(soon([] { return service().readData("A", "1").isEmpty(); })) << "the root is gone";
    fs::rename(moved, store_.path());
    EXPECT_EQ(textOf("A", "2"), "at once");
}

TEST_F(Persist, TwoNamesOfOneDirectoryShareOneEnvironment) {
    ASSERT_TRUE(writeMany("A", 1, "a"));
    fs::create_directory_symlink(store_.path("A"), store_.path("B"));
    EXPECT_TRUE(service().initDb("B", false));
    EXPECT_TRUE(service().writeData("B", "2", document("through B"), false));
    EXPECT_EQ(textOf("A", "2"), "through B");
    fs::create_directory_symlink(store_.path(), store_.path("../other"));
    service().setRootPath(store_.path("../other"));
    EXPECT_EQ(textOf("A", "2"), "through B");
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

TEST_F(Persist, GrowthByAnotherProcessIsAdopted) {
    ASSERT_TRUE(writeMany("A", 10, "first"));
    const pid_t child = ::fork();
    if (child == 0) {
        // A fresh service, as of another process: what the parent opened is left alone.
        const auto engine = persist::makeLmdbEngine();
        persist::StoreStatus status;
        const auto database = engine->open(store_.path("A"), persist::StoreEngine::Mode::Create, status);
        const BSONObj big = document(std::string(8U << 20U, 'x'));
        const std::string_view bytes(big.objdata(), static_cast<std::size_t>(big.objsize()));
        ::_exit(database && database->put(ReadyBatch{{"big", std::string(bytes)}}, false, {}).ok() ? 0 : 1);
    }
    int result = 0;
    ASSERT_EQ(::waitpid(child, &result, 0), child);
    ASSERT_EQ(result, 0);
    EXPECT_EQ(textOf("A", "big").size(), 8U << 20U);
    EXPECT_TRUE(service().writeData("A", "11", document("after"), false));
}

/// It reads by itself: pages that it still reads are kept from its parent's writes.
TEST_F(Persist, AForkedChildDoesNotGoOnWithWhatItsParentOpened) {
    constexpr int kDocuments = 2000;
    ASSERT_TRUE(writeMany("A", kDocuments, "old"));
    ASSERT_EQ(textOf("A", "7"), "old7");
    int begun[2];
    int written[2];
    ASSERT_TRUE(::pipe(begun) == 0 && ::pipe(written) == 0);
    const pid_t child = ::fork();
    if (child == 0) {
        int sound = 0;
        service().visitAllData("A", [&](std::string_view key, std::string_view bytes) {
            char byte = '.';
            if (sound == 0 && (::write(begun[1], &byte, 1) != 1 || ::read(written[0], &byte, 1) != 1)) {
                return false;
            }
            const BSONObj read = BSONObj::fromBytes(bytes.data(), bytes.size());
            sound += read.getStringField("text") == "old" + std::string(key) ? 1 : 0;
            return true;
        });
        ::_exit(sound == kDocuments ? 0 : 1);
    }
    ::close(begun[1]);
    char byte = '.';
    EXPECT_EQ(::read(begun[0], &byte, 1), 1);
    for (int round = 0; round < 4; ++round) {
        EXPECT_TRUE(writeMany("A", kDocuments, "new"));
    }
    EXPECT_EQ(::write(written[1], &byte, 1), 1);
    int result = -1;
    ASSERT_EQ(::waitpid(child, &result, 0), child);
    EXPECT_EQ(result, 0);
    for (const int end : {begun[0], written[0], written[1]}) {
        ::close(end);
    }
}

/// Otherwise the pages that it read would be kept for ever, and the file grow with each write.
TEST_F(Persist, WhatAKilledReaderHeldIsUsedAgain) {
    ASSERT_TRUE(writeMany("A", 20, "old"));
    int begun[2];
    ASSERT_EQ(::pipe(begun), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        service().visitAllData("A", [&](std::string_view, std::string_view) {
            const char byte = '.';
            static_cast<void>(::write(begun[1], &byte, 1));
            for (;;) {
                ::pause();
            }
            return false;
        });
        ::_exit(1);
    }
    ::close(begun[1]);
    char byte = '.';
    EXPECT_EQ(::read(begun[0], &byte, 1), 1);
    ::close(begun[0]);
    ::kill(child, SIGKILL);
    ASSERT_EQ(::waitpid(child, nullptr, 0), child);
    for (int round = 0; round < 60; ++round) {
        ASSERT_TRUE(writeMany("A", 20, std::string(2000, 'x')));
    }
    EXPECT_LT(fs::file_size(store_.path("A") / "data.mdb"), 1U << 20U);
}

/// Each takes memory of its own, and of all pages that it wrote.
TEST_F(Persist, FewDatabasesStayOpenForWritingAndNoneAfterMuch) {
    constexpr int kDatabases = 10;
    constexpr int kFew = 4;
    const auto written = [&](int documents) {
        for (int i = 0; i < kDatabases; ++i) {
            const std::string db = "D" + std::to_string(i);
            EXPECT_TRUE(documents == 0 ? service().initDb(db, false) : writeMany(db, documents, "x"));
        }
        // Each has one for reading, and one more while it is open for writing.
        int descriptors = 0;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
            std::error_code gone;  // the iterator's own
            const fs::path file = fs::read_symlink(entry.path(), gone);
            descriptors += file.filename() == "data.mdb" && file.parent_path().parent_path() == store_.path() ? 1 : 0;
        }
        return descriptors - kDatabases;
    };
    EXPECT_EQ(written(0), kFew);
    EXPECT_EQ(written(1), kFew);
    EXPECT_EQ(written(1000), 0);
    for (int i = 0; i < kDatabases; ++i) {
        EXPECT_EQ(textOf("D" + std::to_string(i), "999"), "x999");
    }
}

/// What another process creates, checks or moves aside right now is left alone until that is done.
TEST_F(Persist, OpeningWaitsForAProcessThatCreatesADatabaseOfTheSameRoot) {
    if (!WatchedThread::canBeWatched()) {
        GTEST_SKIP() << "the system does not tell what threads wait for";
    }
    ASSERT_TRUE(writeMany("A", 1, "a"));
    restart();
    const int other = ::open(store_.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    ASSERT_EQ(::flock(other, LOCK_SH), 0);
    EXPECT_EQ(textOf("A", "0"), "a0") << "readers do not wait for each other";
    {
        const WatchedThread creator([] { service().initDb("B", false); });
        EXPECT_TRUE(creator.waitsIn(SYS_flock));
        EXPECT_FALSE(fs::exists(store_.path("B") / "data.mdb"));
        ::flock(other, LOCK_UN);
    }
    EXPECT_TRUE(fs::exists(store_.path("B") / "data.mdb"));
    restart();
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    std::string text;
    {
        const WatchedThread reader([&] { text = textOf("A", "0"); });
        EXPECT_TRUE(reader.waitsIn(SYS_flock));
        ::close(other);
    }
    EXPECT_EQ(text, "a0");
}

/// A pipe in place of the file holds the opening up.
TEST_F(Persist, ADirectoryReplacedWhileItIsOpenedIsNotTakenForWhatItWas) {
    if (!WatchedThread::canBeWatched()) {
        GTEST_SKIP() << "the system does not tell what threads wait for";
    }
    ASSERT_TRUE(writeMany("B", 1, "b"));
    restart();
    fs::create_directory(store_.path("A"));
    ASSERT_EQ(::mkfifo((store_.path("A") / "data.mdb").c_str(), 0600), 0);
    const LogCapture capture;
    bool opened = true;
    {
        const WatchedThread opener([&] { opened = service().initDb("A", false); });
        ASSERT_TRUE(opener.waitsIn(SYS_openat));
        fs::rename(store_.path("A"), store_.path("C"));
        fs::rename(store_.path("B"), store_.path("A"));
        ::close(::open((store_.path("C") / "data.mdb").c_str(), O_WRONLY | O_CLOEXEC));
    }
    EXPECT_FALSE(opened);
    EXPECT_THAT(capture.texts(), ElementsAre(HasSubstr("removed or replaced while it was opened")));
    EXPECT_EQ(textOf("A", "0"), "b0");
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
    const std::vector<std::string> damages{good.substr(0, good.size() / 2), good.substr(0, 100), "not a database",
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

TEST_F(Persist, AFileCutShortWhileItIsOpenIsNoticed) {
    ASSERT_TRUE(writeMany("A", 5000, std::string(200, 'x')));
    persist::StoreStatus status;
    const auto asTheServiceHasIt =
        persist::makeLmdbEngine()->open(store_.path("A"), persist::StoreEngine::Mode::WriteExisting, status);
    ASSERT_TRUE(asTheServiceHasIt);
    fs::resize_file(store_.path("A") / "data.mdb", 8192);
    // Not by reading: until it is noticed, that would reach for pages that are gone.
    EXPECT_TRUE(soon([&] { return !asTheServiceHasIt->isCurrent(persist::StoreDatabase::Look::Lately); }));
    EXPECT_TRUE(service().readData("A", "7").isEmpty());
    EXPECT_TRUE(writeMany("A", 10, "new"));
    EXPECT_EQ(textOf("A", "7"), "new7");
}

/// A second environment of the directory would, when it is closed, take the locks of the first away.
TEST_F(Persist, AHandleOfWhatWasOpenedAnewDoesNotOpenItAgain) {
    const auto engine = persist::makeLmdbEngine();
    persist::StoreStatus status;
    const auto old = engine->open(store_.path("A"), persist::StoreEngine::Mode::Create, status);
    ASSERT_TRUE(old && old->put(ReadyBatch{{"1", "a"}}, false, {}).ok());
    const fs::path file = store_.path("A") / "data.mdb";
    const auto bytes = fs::file_size(file);
    const fs::path copy = store_.path("copy");
    fs::copy_file(file, copy);
    fs::resize_file(file, bytes / 2);
    ASSERT_FALSE(old->isCurrent(persist::StoreDatabase::Look::Now));
    std::ofstream(file, std::ios::binary) << std::ifstream(copy, std::ios::binary).rdbuf();
    const auto fresh = engine->open(store_.path("A"), persist::StoreEngine::Mode::Create, status);
    ASSERT_TRUE(fresh && fresh != old);
    EXPECT_TRUE(old->put(ReadyBatch{{"2", "b"}}, false, {}).failed());
    EXPECT_TRUE(old->get("1", [](auto, auto) { return true; }).failed());
    EXPECT_TRUE(fresh->put(ReadyBatch{{"2", "c"}}, false, {}).ok());
}

TEST_F(Persist, ADocumentThatIsNoneIsNotServed) {
    ASSERT_TRUE(writeMany("A", 1, "a"));
    persist::StoreStatus status;
    service().setRootPath("");
    {
        const auto database =
            persist::makeLmdbEngine()->open(store_.path("A"), persist::StoreEngine::Mode::WriteExisting, status);
        ASSERT_TRUE(database && database->put(ReadyBatch{{"bad", "\x05 garbage"}}, false, {}).ok());
    }
    restart();
    const LogCapture capture;
    EXPECT_TRUE(service().readData("A", "bad").isEmpty());
    EXPECT_THAT(service().readAllData("A", ".*"), ElementsAre(Pair("0", document("a0"))));
    EXPECT_THAT(capture.texts(), SizeIs(2));
}

}  // namespace
