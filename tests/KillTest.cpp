#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <random>

#include "tests/LogCapture.h"
#include "tests/StoredDay.h"
#include "tests/TemporaryStore.h"

namespace mxservice {
namespace {

/// The writer process, killed with the object.
class Writer {
public:
    explicit Writer(const std::filesystem::path& root) {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addclose(&actions, ends[0]);
        std::string program = PM_STORE_WRITER;
        std::string directory = root;
        char* const arguments[] = {program.data(), directory.data(), nullptr};
        EXPECT_EQ(::posix_spawn(&process_, program.c_str(), &actions, nullptr, arguments, environ), 0);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(ends[1]);
        output_ = ends[0];
    }
    ~Writer() {
        ::kill(process_, SIGKILL);
        int status = 0;
        ::waitpid(process_, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status)) << "the writer ended by itself";
        ::close(output_);
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// Waits until the first load begins.
    void awaitFirstLoad() const {
        char byte = 0;
        EXPECT_EQ(::read(output_, &byte, 1), 1);
    }
    /// Lets it work on for a while; how long is of no importance, only that it differs.
    static void letWork(int microseconds) {
        timespec time{0, microseconds * 1000L};
        ::ppoll(nullptr, 0, &time, nullptr);
    }

private:
    pid_t process_ = 0;
    int output_ = -1;
};

/// Every document of every database reads as a record; the log stays empty.
void verify(const std::filesystem::path& root) {
    if (!std::filesystem::exists(root))
        return;  // killed before the writer came to make it
    auto& service = TemporaryStore::service();
    for (const auto& entry : std::filesystem::directory_iterator(root)) {
        const std::string db = entry.path().filename();
        service.visitAllData(db, [&](std::string_view key, std::string_view bytes) {
            std::string error;
            EXPECT_TRUE(TypeManager::instance()->parse(bytes, &error)) << db << ' ' << key << ": " << error;
            return true;
        });
    }
}

TEST(Kill, AtAnyMomentOfAReloadLeavesAStoreThatOpensVerifiesAndLoads) {
    const char* const wanted = std::getenv("PM_KILLS");
    const int kills = wanted == nullptr ? 200 : std::atoi(wanted);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    TemporaryStore store;
    for (int kill = 0; kill < kills && !testing::Test::HasFailure(); ++kill) {
        SCOPED_TRACE(kill);
        {
            const Writer writer(store.path());
            writer.awaitFirstLoad();
            Writer::letWork(static_cast<int>(random() % 60000));
        }
        const LogCapture capture;
        TemporaryStore::service().setRootPath(store.path());
        verify(store.path());
        CClientInstrumentCenter center("test", 10, 10, 10);
        IInstrumentCenter& asked = center;
        load(center, -1);
        EXPECT_EQ(asked.getInstruments("DCE").size(), static_cast<std::size_t>(kStoredCodes));
        EXPECT_EQ(asked.getInstrument("SZ7")->name, "-1");
        EXPECT_TRUE(asked.getEtf("SH510051") && asked.getBond("BANK240001") && asked.getOtcInstrument("SOTCP1"));
        for (const LogCapture::Line& line : capture.lines()) {
            EXPECT_LT(line.level, utils::kLogError) << line.text;
        }
        TemporaryStore::service().setRootPath("");
    }
}

}  // namespace
}  // namespace mxservice
