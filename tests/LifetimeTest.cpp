#include <gtest/gtest.h>

#ifndef _WIN32
#include <sys/wait.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "platform/utils/LogCenter.h"
#include "tests/CenterFixture.h"

// What hosts do around the centers: end with threads still asking, fork and execute another program, keep several
// centers.

namespace mxservice {
namespace {

// Nothing forks on Windows; and when a process ends whose threads are at work, Wine itself waits at times for a lock
// that one of them held.
#ifndef _WIN32

Instruments someRecords() {
    Instruments records;
    for (int i = 0; i < 200; ++i) {
        records.push_back(instrument("SZ", std::to_string(i)));
    }
    return records;
}

/// Threads that ask until the process ends.
void keepAsking(IInstrumentCenter& center, int threads) {
    for (int i = 0; i < threads; ++i) {
        std::thread([&center, i] {
            for (unsigned round = static_cast<unsigned>(i);; ++round) {
                center.getInstrument("SZ" + std::to_string(round % 250));
                center.getInstruments("SZ");
                center.hasStock("SZ1");
            }
        }).detach();
    }
}

/// Never destroyed, as a host keeps a center that detached threads may ask.
template <class Center>
Center& leaked(Center* center) {
    static Center* kept = nullptr;
    kept = center;
    return *kept;
}

TEST(LifetimeDeathTest, AProcessMayExitWhileThreadsAskAndLoad) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    const TemporaryDirectory directory;
    EXPECT_EXIT(
        {
            persist::CPersistService::instance()->setRootPath((directory.path() / "store").string());
            auto& client = leaked(new OpenClientCenter(8));
            auto& server = leaked(new OpenServerCenter);
            client.initInstruments({"SZ"}, someRecords());
            server.initInstruments({"SZ"}, someRecords());
            utils::CLogCenter::setLogEnabled(true);
            keepAsking(client, 2);
            keepAsking(server, 2);
            std::thread([&] {
                while (true) {
                    server.initInstruments({"SZ"}, someRecords());
                }
            }).detach();
            std::this_thread::yield();
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Lifetime, AForkedChildMayExecuteAnotherProgram) {
    TemporaryStore store;
    OpenClientCenter center;
    center.initInstruments({"SZ"}, someRecords());
    std::atomic<bool> stop{false};
    std::thread asker([&] {
        for (unsigned round = 0; !stop; ++round) {
            center.getInstrument("SZ" + std::to_string(round % 200));
        }
    });
    // The program sees whether it has inherited a file of the store.
    const std::string script = "! ls -l /proc/self/fd | grep -qF '" + store.path().string() + "'";
    for (int i = 0; i < 5; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::execl("/bin/sh", "sh", "-c", script.c_str(), nullptr);
            ::_exit(127);
        }
        int status = -1;
        EXPECT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0) << "exit status of the program, or a file handed down";
    }
    stop = true;
    asker.join();
    center.initInstruments({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "new")});
    EXPECT_TRUE(center.getInstrument("SZnew"));
}
#endif

TEST(Lifetime, CentersOfOneProcessKnowTheirOwnKeysAndShareTheStore) {
    const TemporaryStore store;
    OpenServerCenter server;
    OpenClientCenter first;
    OpenClientCenter second;
    first.initInstruments({"SZ"}, {instrument("SZ", "1")});
    EXPECT_FALSE(second.hasCode("SZ1") || server.hasCode("SZ1"));
    second.initInstruments({"SZ"}, {instrument("SZ", "1"), instrument("SZ", "2")});
    EXPECT_FALSE(first.hasCode("SZ2")) << "another center's load is not announced";
    EXPECT_EQ(first.getInstruments("SZ").size(), 2U) << "its documents are read at once";
}

}  // namespace
}  // namespace mxservice
