#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "tests/FaultyCalls.h"
#include "tests/FromEnvironment.h"
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

    /// The power goes after the first `count` events; of what was not synced then, some is there, or, at `worst`,
    /// nothing.
    void replay(const std::vector<Event>& events, std::size_t count, bool worst, std::mt19937_64& random) {
        std::set<std::string> lost;  // made, but their names were not on disk
        for (std::size_t i = 0; i < count; ++i) {
            const Event& event = events[i];
            const bool synced = event.onDisk || isSyncedLater(events, i, count);
            if (event.what == Event::What::Make && !synced && (worst || random() % 2 == 0)) {
                lost.insert(event.path);
            } else if (event.what == Event::What::Make) {
                make(event.path);
            } else if (event.what == Event::What::Write && (synced || !worst)) {
                write(event, synced, random);
            }
        }
        const auto isLost = [&](const std::string& path) {
            return std::any_of(lost.begin(), lost.end(),
                               [&](const std::string& gone) { return (path + "/").rfind(gone + "/", 0) == 0; });
        };
        std::erase_if(files_, [&](const auto& file) { return isLost(file.first); });
        std::erase_if(directories_, isLost);
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

class PowerCut : public testing::Test {
protected:
    PowerCut() {
        fs::create_directories(store_.path());
        TemporaryStore::service().setRootPath(rootBeneath(store_.path()));
        faulty::skipSyncs(true);
    }
    ~PowerCut() override { faulty::skipSyncs(false); }

    /// Loads make the root themselves, and the way to it.
    static fs::path rootBeneath(const fs::path& disk) { return disk / "way" / "root"; }

    /// Loads the next day, and cuts the power several times on the way.
    void loadAndCut(int number, int cuts) {
        const Disk before(store_.path());
        faulty::startRecording(store_.path());
        load(center_, number);
        const std::vector<Event> events = faulty::stopRecording();
        ASSERT_GT(events.size(), 4U);
        for (int cut = 0; cut < cuts && !HasFailure(); ++cut) {
            const bool returned = cut % 4 == 0;  // the load had
            const std::size_t count = returned ? events.size() : random_() % events.size();
            SCOPED_TRACE(testing::Message() << "load " << number << ", cut after " << count << " of " << events.size());
            Disk disk = before;
            disk.replay(events, count, cut == 0, random_);
            const TemporaryDirectory after;
            disk.writeTo(store_.path(), after.path());
            const fs::path root = rootBeneath(after.path());
            expectOldOrNew(root, number, returned);
            if (cut % 4 == 1) {
                expectTheDayAfter(root);
            }
        }
    }

    static void expectOldOrNew(const fs::path& root, int number, bool returned) {
        for (const std::string& db : storedDatabases()) {
            const std::optional<StoredLoads> loads = storedLoads(root, db);
            std::set<int> allowed{lastLoadOf(db, number)};
            if (!returned && number > 0) {
                allowed.insert(lastLoadOf(db, number - 1));
            }
            const bool nothing = !loads || loads->documents.empty();
            if (returned || number > 0 || !nothing) {
                EXPECT_EQ(notOneOf(allowed, db, loads.value_or(StoredLoads{})), "");
            }
        }
    }

    /// A new process loads on what is left.
    void expectTheDayAfter(const fs::path& root) {
        TemporaryStore::service().setRootPath(root);
        CClientInstrumentCenter next("test", 10, 10, 10);
        load(next, kLoadsOfACenter);
        for (const std::string& db : storedDatabases()) {
            const auto loads = storedLoads(root, db);
            EXPECT_EQ(notOneOf({kLoadsOfACenter}, db, loads.value_or(StoredLoads{})), "");
        }
        TemporaryStore::service().setRootPath(rootBeneath(store_.path()));
    }

    const unsigned seed_ = seedOfRun();
    std::mt19937_64 random_{seed_};
    TemporaryStore store_;
    CClientInstrumentCenter center_{"test", 10, 10, 10};
};

TEST_F(PowerCut, LeavesTheOldOrTheNewBatchInEachDatabase) {
    SCOPED_TRACE("PM_SEED=" + std::to_string(seed_));
    constexpr int kLoads = 5;
    const int cuts = fromEnvironment("PM_CUTS", 60);
    for (int number = 0; number < kLoads && !HasFailure(); ++number) {
        loadAndCut(number, cuts / kLoads);
    }
}

}  // namespace
}  // namespace mxservice
