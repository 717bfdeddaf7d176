#include "tools/inscenter/StoreSnapshot.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/persist/CPersistService.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/DocumentCheck.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/StoreDirectory.h"
#include "tools/inscenter/StoreReader.h"
#include "tools/inscenter/System.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

/// The catalogue whose records the database holds. Derived databases and raw ones repeat what others hold.
std::optional<SnapshotCatalogue> catalogueOf(const DatabaseDirectory& directory) {
    if (directory.kind != DirectoryKind::Catalogue) {
        return std::nullopt;
    }
    for (const char* const derived : {"FUMAIN", "FUPROD", "ETFINSTS", mxservice::market::kInterbank}) {
        if (directory.market == derived) {
            return std::nullopt;
        }
    }
    return directory.market == "ALLETF"     ? SnapshotCatalogue::Etfs
           : directory.market == "BANKBOND" ? SnapshotCatalogue::Bonds
           : directory.market == "OTCINS"   ? SnapshotCatalogue::OtcPlans
                                            : SnapshotCatalogue::Instruments;
}

/// A store of its own, gone with the object; the process's own is back then.
class ScratchStore {
public:
    ScratchStore() { persist::CPersistService::instance()->setRootPath(root_); }
    ~ScratchStore() {
        // First, so that nothing is open of what is removed. A process that is killed before leaves the directory among
        // the temporary files.
        persist::CPersistService::instance()->setRootPath(before_);
        std::error_code ignored;
        std::filesystem::remove_all(pathOf(root_), ignored);
    }
    ScratchStore(const ScratchStore&) = delete;
    ScratchStore& operator=(const ScratchStore&) = delete;

    static void close() { persist::CPersistService::instance()->setRootPath(""); }
    const std::string& root() const { return root_; }

private:
    const std::string before_ = persist::CPersistService::instance()->rootPath();
    const std::string root_ = makeTemporaryDirectory();
};

/// A center goes on after a failed write; a comparison with half a store would name what is not gone.
void expectWhole(const Snapshot& loaded, const Snapshot& stored, const std::string& root) {
    const auto filed = [](const Snapshot& snapshot) {
        std::set<std::string> markets;
        for (const auto& [market, count] : marketsOf(snapshot)) {
            markets.insert(filedMarket(market));
        }
        return markets;
    };
    // By market and catalogue and not by number: of listings that are merged fewer come back than were loaded.
    const bool whole = filed(loaded) == filed(stored) && loaded.etfs.empty() == stored.etfs.empty() &&
                       loaded.bonds.empty() == stored.bonds.empty() &&
                       loaded.otcPlans.empty() == stored.otcPlans.empty();
    if (!whole) {
        throw UnreadableInput(root + ": the snapshot could not be stored there; is the disk full?");
    }
}

}  // namespace

std::size_t readStoredSnapshot(const std::string& root, Snapshot& snapshot, Console& console) {
    StoreReader reader(console);
    std::size_t skipped = 0;
    for (const DatabaseDirectory& directory : directoriesOf(root)) {
        const std::optional<SnapshotCatalogue> catalogue = catalogueOf(directory);
        const auto database = catalogue ? reader.open(directory) : nullptr;
        if (!database) {
            continue;
        }
        console.begin("reading " + directory.name, 0);
        reader.scan(directory, *database, {}, [&](std::string_view stored, std::string_view bytes) {
            const std::string problem = problemOf(directory, DocumentKey(stored), bytes);
            if (!problem.empty()) {
                console.message(fmt::format("{}: document {}: {}", directory.name, DocumentKey(stored).key, problem));
                ++skipped;
                return true;
            }
            // Without a problem the document is of the class that the catalogue takes for granted.
            snapshot.add(*catalogue, mxservice::TypeManager::instance()->parse(bytes, nullptr));
            return true;
        });
    }
    console.end();
    return skipped + (reader.failed() ? 1 : 0);  // nobody knows how many documents a lost database had
}

Snapshot storedForm(const Snapshot& snapshot, Console& console) {
    const ScratchStore store;
    {
        const auto center = makeCenter(CenterKind::Client);
        load(*center, snapshot.copy(), console);  // which fills in fields; a report loads the originals after this
    }
    ScratchStore::close();
    Snapshot stored;
    readStoredSnapshot(store.root(), stored, console);
    expectWhole(snapshot, stored, store.root());
    return stored;
}

}  // namespace inscenter
