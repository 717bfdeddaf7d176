#include "tools/inscenter/StoreSnapshot.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/persist/CPersistService.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/Center.h"
#include "tools/inscenter/DocumentCheck.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/StoreDirectory.h"
#include "tools/inscenter/StoreReader.h"
#include "tools/inscenter/System.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

namespace market = mxservice::market;

constexpr std::size_t kShownDocuments = 20;  // of a database: one that is damaged throughout would fill the screen

/// The catalogue whose records the database holds. Derived databases and raw ones repeat what others hold.
std::optional<SnapshotCatalogue> catalogueOf(const DatabaseDirectory& directory) {
    if (directory.kind != DirectoryKind::Catalogue) {
        return std::nullopt;
    }
    for (const char* const derived : {"FUMAIN", "FUPROD", "ETFINSTS", market::kInterbank}) {
        if (directory.market == derived) {
            return std::nullopt;
        }
    }
    return directory.market == "ALLETF"     ? SnapshotCatalogue::Etfs
           : directory.market == "BANKBOND" ? SnapshotCatalogue::Bonds
           : directory.market == "OTCINS"   ? SnapshotCatalogue::OtcPlans
                                            : SnapshotCatalogue::Instruments;
}

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

/// Takes the documents of one database into a snapshot, and names those that are bad.
class Documents {
public:
    Documents(const DatabaseDirectory& directory, SnapshotCatalogue catalogue, Snapshot& snapshot, Console& console)
        : directory_(directory), catalogue_(catalogue), snapshot_(snapshot), console_(console) {}
    ~Documents() {
        if (skipped_ > kShownDocuments) {
            console_.message(fmt::format("{}: ... and {} more; \"store verify\" names them all", directory_.name,
                                         skipped_ - kShownDocuments));
        }
    }
    Documents(const Documents&) = delete;
    Documents& operator=(const Documents&) = delete;

    /// `once`: not those under another key than the record's own. A fund is stored under each of its two codes.
    bool add(std::string_view stored, std::string_view bytes, bool once = false) {
        std::string problem;
        auto record = recordOf(directory_, DocumentKey(stored), bytes, problem);
        if (problem.empty()) {
            if (once && catalogue_ == SnapshotCatalogue::Etfs &&
                DocumentKey(stored).key != std::to_string(utils::hash(record->getKey()))) {
                return true;
            }
            // Without a problem the document is of the class that the catalogue takes for granted.
            snapshot_.add(catalogue_, std::move(record));
        } else if (++skipped_ <= kShownDocuments) {
            console_.message(fmt::format("{}: document {}: {}", directory_.name, DocumentKey(stored).key, problem));
        }
        return true;
    }

    std::size_t skipped() const { return skipped_; }

private:
    const DatabaseDirectory& directory_;
    const SnapshotCatalogue catalogue_;
    Snapshot& snapshot_;
    Console& console_;
    std::size_t skipped_ = 0;
};

/// The texts whose hashes may be the key of the document that somebody asks for by this key.
std::vector<std::string> keyTexts(const std::string& key, const DatabaseDirectory& directory,
                                  SnapshotCatalogue catalogue) {
    if (catalogue == SnapshotCatalogue::Bonds) {
        return {key, market::kInterbank + key};  // a bond's code alone will do
    }
    if (catalogue != SnapshotCatalogue::Instruments) {
        return {key};
    }
    std::vector<std::string> texts;
    for (const std::string& name :
         {directory.market, std::string(market::kShanghaiConnect), std::string(market::kShenzhenConnect)}) {
        if (key.starts_with(name) && filedMarket(name) == directory.market) {
            texts.push_back(directory.market + key.substr(name.size()));
        }
    }
    return texts;
}

}  // namespace

ScratchStore::ScratchStore()
    : before_(persist::CPersistService::instance()->rootPath()), root_(makeTemporaryDirectory()) {
    persist::CPersistService::instance()->setRootPath(root_);
}

ScratchStore::~ScratchStore() {
    // First, so that nothing is open of what is removed. A process that is killed before leaves the directory among
    // the temporary files.
    persist::CPersistService::instance()->setRootPath(before_);
    std::error_code ignored;
    std::filesystem::remove_all(pathOf(root_), ignored);
}

void ScratchStore::close() {
    persist::CPersistService::instance()->setRootPath("");
}

std::size_t readStoredSnapshot(const std::string& root, Snapshot& snapshot, Console& console) {
    StoreReader reader(console);
    std::size_t skipped = 0;
    for (const DatabaseDirectory& directory : directoriesOf(root)) {
        const std::optional<SnapshotCatalogue> catalogue = catalogueOf(directory);
        const auto database = catalogue ? reader.open(directory) : nullptr;
        if (catalogue && !directory.fileBytes) {
            // A load makes both at once, so somebody has taken the file away.
            console.message(directory.name + ": has lost its data.mdb");
            ++skipped;
        }
        if (!database) {
            continue;
        }
        console.begin("reading " + directory.name, 0);
        Documents documents(directory, *catalogue, snapshot, console);
        reader.scan(directory, *database, {},
                    [&](std::string_view key, std::string_view bytes) { return documents.add(key, bytes, true); });
        skipped += documents.skipped();
    }
    console.end();
    return skipped + (reader.failed() ? 1 : 0);  // nobody knows how many documents a lost database had
}

bool readStoredRecords(const std::string& root, const std::vector<std::string>& keys, Snapshot& snapshot,
                       Console& console) {
    StoreReader reader(console);
    std::size_t skipped = 0;
    std::vector<bool> found(keys.size());
    for (const DatabaseDirectory& directory : directoriesOf(root)) {
        const std::optional<SnapshotCatalogue> catalogue = catalogueOf(directory);
        if (!catalogue) {
            continue;
        }
        std::shared_ptr<persist::StoreDatabase> database;
        Documents documents(directory, *catalogue, snapshot, console);
        for (std::size_t i = 0; i < keys.size(); ++i) {
            for (const std::string& text : keyTexts(keys[i], directory, *catalogue)) {
                database = database ? database : reader.open(directory);
                const auto status = database ? database->get(std::to_string(utils::hash(text)),
                                                             [&](std::string_view key, std::string_view bytes) {
                                                                 return documents.add(key, bytes);
                                                             })
                                             : persist::StoreStatus::notFound();
                found[i] = found[i] || (reader.check(directory, status) && status.ok());
            }
        }
        skipped += documents.skipped();
    }
    return std::find(found.begin(), found.end(), false) == found.end() && skipped == 0 && !reader.failed();
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
