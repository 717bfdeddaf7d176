#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "tests/FaultyCalls.h"
#include "tests/StoredDay.h"
#include "tests/TemporaryStore.h"

// What a power cut leaves of a load: everything up to some call, less any part of what had not been synced by then.

namespace mxservice {
namespace {

namespace fs = std::filesystem;
using faulty::Event;

constexpr std::size_t kSectorBytes = 512;

/// The files and directories beneath a root, by path, as the disk would hold them.
class Disk {
public:
    explicit Disk(const fs::path& root) {
        for (const auto& entry : fs::recursive_directory_iterator(root)) {
            if (entry.is_directory()) {
                directories_.insert(entry.path());
            } else if (entry.path().filename() == "data.mdb") {
                std::ifstream in(entry.path(), std::ios::binary);
                files_[entry.path()].assign(std::istreambuf_iterator<char>(in), {});
            }
        }
    }

    /// The power goes after the first `count` events.
    void replay(const std::vector<Event>& events, std::size_t count, std::mt19937_64& random) {
        std::set<std::string> lost;  // made, but their names were not on disk
        for (std::size_t i = 0; i < count; ++i) {
            const Event& event = events[i];
            const bool synced = event.onDisk || isSyncedLater(events, i, count);
            if (event.what == Event::What::Make && !synced && random() % 2 == 0) {
                lost.insert(event.path);
            } else if (event.what == Event::What::Make) {
                make(event.path);
            } else if (event.what == Event::What::Write) {
                write(event, synced, random);
            }
        }
        std::erase_if(files_, [&](const auto& file) {
            return lost.count(file.first) != 0 || lost.count(fs::path(file.first).parent_path()) != 0;
        });
        for (const std::string& directory : lost) {
            directories_.erase(directory);
        }
    }

    void writeTo(const fs::path& from, const fs::path& to) const {
        fs::create_directories(to);
        for (const std::string& directory : directories_) {
            fs::create_directories(to / fs::relative(directory, from));
        }
        for (const auto& [path, bytes] : files_) {
            std::ofstream(to / fs::relative(path, from), std::ios::binary) << bytes;
        }
    }

private:
    /// Whether a sync of the file, or of the directory that the new name is in, came after.
    static bool isSyncedLater(const std::vector<Event>& events, std::size_t index, std::size_t count) {
        const Event& event = events[index];
        const std::string synced =
            event.what == Event::What::Make ? fs::path(event.path).parent_path() : fs::path(event.path);
        return std::any_of(events.begin() + static_cast<std::ptrdiff_t>(index),
                           events.begin() + static_cast<std::ptrdiff_t>(count),
                           [&](const Event& later) { return later.what == Event::What::Sync && later.path == synced; });
    }

    void make(const std::string& path) {
        if (fs::path(path).filename() == "data.mdb") {
            files_[path];
        } else if (fs::path(path).filename() != "lock.mdb") {
            directories_.insert(path);
        }
    }

    /// Of what was not synced, all is there, or nothing, or some sectors.
    void write(const Event& event, bool synced, std::mt19937_64& random) {
        if (fs::path(event.path).filename() != "data.mdb") {
            return;
        }
        const std::uint64_t luck = synced ? 0 : random() % 3;
        std::string& file = files_[event.path];
        for (std::size_t at = 0; at < event.bytes.size() && luck != 1; at += kSectorBytes) {
            const std::string sector = event.bytes.substr(at, kSectorBytes);
            if (luck == 0 || random() % 2 == 0) {
                file.resize(std::max(file.size(), event.offset + at + sector.size()));
                file.replace(event.offset + at, sector.size(), sector);
            }
        }
    }

    std::map<std::string, std::string> files_;
    std::set<std::string> directories_;
};

TEST(PowerCut, LeavesTheOldOrTheNewBatchInEachDatabase) {
    const char* const cutsWanted = std::getenv("PM_CUTS");
    const char* const seedWanted = std::getenv("PM_SEED");
    const int cuts = cutsWanted == nullptr ? 120 : std::atoi(cutsWanted);
    const unsigned seed = seedWanted == nullptr ? std::random_device()() : static_cast<unsigned>(std::atoi(seedWanted));
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed));
    std::mt19937_64 random(seed);
    constexpr int kLoads = 5;
    TemporaryStore store;
    fs::create_directories(store.path());
    faulty::skipSyncs(true);
    CClientInstrumentCenter center("test", 10, 10, 10);
    for (int number = 0; number < kLoads; ++number) {
        const Disk before(store.path());
        faulty::startRecording(store.path());
        load(center, number);
        const std::vector<Event> events = faulty::stopRecording();
        ASSERT_GT(events.size(), 4U);
        for (int cut = 0; cut < cuts / kLoads && !testing::Test::HasFailure(); ++cut) {
            const std::size_t count = cut == 0 ? events.size() : random() % (events.size() + 1);
            SCOPED_TRACE(testing::Message() << "load " << number << ", cut after " << count << " of " << events.size());
            Disk disk = before;
            disk.replay(events, count, random);
            const TemporaryDirectory after;
            disk.writeTo(store.path(), after.path());
            for (const std::string& db : storedDatabases()) {
                const std::optional<StoredLoads> loads = storedLoads(after.path(), db);
                std::set<int> allowed{lastLoadOf(db, number)};
                if (count < events.size() && number > 0) {
                    allowed.insert(lastLoadOf(db, number - 1));
                }
                const bool nothing = !loads || loads->documents.empty();
                if (count == events.size() || number > 0 || !nothing) {
                    EXPECT_EQ(notOneOf(allowed, db, loads.value_or(StoredLoads{})), "");
                }
            }
            if (cut % 4 == 1) {  // and the day after
                TemporaryStore::service().setRootPath(after.path());
                CClientInstrumentCenter next("test", 10, 10, 10);
                load(next, kLoadsOfACenter);
                for (const std::string& db : storedDatabases()) {
                    const auto loads = storedLoads(after.path(), db);
                    EXPECT_EQ(notOneOf({kLoadsOfACenter}, db, loads.value_or(StoredLoads{})), "");
                }
            }
            TemporaryStore::service().setRootPath(store.path());
        }
    }
    faulty::skipSyncs(false);
}

}  // namespace
}  // namespace mxservice
