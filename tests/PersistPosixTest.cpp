#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <fstream>

#include "tests/LogCapture.h"
#include "tests/PersistFixture.h"
#include "tests/WatchedThread.h"

// The store where processes are forked, directories linked, and files removed and cut short while they are open.

namespace {

using namespace persisttest;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

namespace fs = std::filesystem;

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

}  // namespace
