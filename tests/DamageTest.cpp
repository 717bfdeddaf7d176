#include <bson/bson.h>
#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <random>

#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "system/Path.h"
#include "tests/CenterFixture.h"
#include "tests/ChildProcess.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/SecondaryRecords.h"

// Files and documents of the store are damaged, one damage a time, and a child process uses them.
//
// What is promised whatever the damage: no crash; a record is served under its own key alone (one that has
// lost a part of its key cannot be told from others); it is the record that was
// stored, byte for byte, unless bytes of that very document were hit (there are no checksums, so a digit that changes
// within a text is read as it is); a document that is none any more is not served; the next load makes everything
// right, and sets a database aside that is known to be damaged.

namespace mxservice {
namespace {

namespace fs = std::filesystem;

using Bytes = std::string;
using RecordPtr = boost::shared_ptr<IData>;

const std::vector<std::string> kMarkets{"SH", "SZ", "HGT", "HK", "DCE"};

/// A day whose every record carries `name`; the first market's are so long that their documents fill pages of their
/// own.
struct Day {
    explicit Day(const std::string& name) {
        constexpr int kCodes = 24;
        for (const std::string& market : kMarkets) {
            for (int i = 0; i < kCodes; ++i) {
                const InstrumentPtr record = instrument(market, std::to_string(i));
                record->name = name + std::string(market == "SH" ? 4500 : 3, static_cast<char>('a' + i));
                record->productId = "p" + std::to_string(i % 3);
                record->mainContractFlag = i % 4 == 0 ? 1 : 0;
                instruments.push_back(record);
            }
        }
        for (const std::string code : {"1", "2", "3"}) {
            funds.push_back(etf("SH", "51" + code, "52" + code));
            addComponent(*funds.back(), "SH", code, name);
            const auto listed = bond("24" + code, "01" + code);
            listed->bondName = name;
            bonds["b" + code] = listed;
            plans.push_back(plan("P" + code, 1, name));
        }
    }
    void load(IInstrumentCenter& center) const {
        center.initInstruments(kMarkets, instruments);
        center.initEtfs(funds);
        center.initBonds(bonds);
        center.initOtcInstruments(plans);
    }

    Instruments instruments;
    std::vector<boost::shared_ptr<CETFDetail>> funds;
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
};

/// What the center answers to every question about a day: single records by question, and lists by database.
struct Answers {
    struct Single {
        std::string db;
        StockKey key;
        RecordPtr record;
    };
    std::map<std::string, Single> singles;
    std::map<std::string, std::vector<RecordPtr>> lists;

    template <class Records>
    void addList(const std::string& db, const Records& records) {
        for (const auto& [text, record] : records) {
            lists[db].push_back(record);
        }
    }

    Answers(IInstrumentCenter& center, const Day& day) {
        const auto addInstrument = [&](const std::string& market, const std::string& code) {
            singles["instrument " + market + code] = {"OvIns_" + market, utils::hash(market + code),
                                                      center.getInstrument(utils::hash(market + code))};
        };
        for (const InstrumentPtr& record : day.instruments) {
            addInstrument(record->market == "HGT" ? "HK" : record->market, record->code);
        }
        for (const auto& fund : day.funds) {
            for (const StockKey key : {etfKey(*fund), creationKey(*fund)}) {
                const std::string& code = key == etfKey(*fund) ? fund->etfCode : fund->prCode;
                singles["fund " + code] = {"OvIns_ALLETF", key, center.getEtf("SH", code)};
            }
            addInstrument("ETFINSTS", fund->prCode);
        }
        for (const auto& [name, listed] : day.bonds) {
            singles["bond " + name] = {"OvIns_BANKBOND", bondKey(*listed), center.getBond(bondKey(*listed))};
            addInstrument("BANK", listed->bondCode);
        }
        for (const auto& fundPlan : day.plans) {
            const StockKey key = utils::hash("SOTC" + fundPlan->code);
            singles["plan " + fundPlan->code] = {"OvIns_OTCINS", key, center.getOtcInstrument("SOTC" + fundPlan->code)};
        }
        for (const std::string market : {"SH", "SZ", "HK", "DCE", "ETFINSTS", "BANK"}) {
            addList("OvIns_" + market, center.getInstruments(market));
        }
        addList("OvIns_ALLETF", center.getEtfs());
        addList("OvIns_BANKBOND", center.getBonds());
        addList("OvIns_OTCINS", center.getOtcInstruments());
        addList("OvIns_FUMAIN", center.getFutureMainInstruments("DCE"));
        for (const char* const product : {"p0", "p1", "p2"}) {
            for (const InstrumentPtr& record : center.getProductInstruments(product)) {
                lists["OvIns_FUPROD"].push_back(record);
            }
        }
    }
};

/// Every document of a database by its key, past the service.
std::map<std::string, Bytes> documentsOf(const fs::path& directory) {
    std::map<std::string, Bytes> documents;
    persist::StoreStatus status;
    const auto database =
        persist::makeLmdbEngine()->open(sys::textOf(directory), persist::StoreEngine::Mode::ReadExisting, status);
    if (database) {
        database->scan({}, [&](std::string_view key, std::string_view bytes) {
            documents.emplace(key, bytes);
            return true;
        });
    }
    return documents;
}

Bytes read(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path& file, const Bytes& bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

/// What was done to a store.
struct Harm {
    std::string what;
    std::string db;
    std::set<std::string> hit;   // keys of the documents that may have changed
    std::set<std::string> lost;  // keys of the documents that are none any more
    bool setAside = false;       // the database cannot be taken for a sound one
};

class Vandal {
public:
    Vandal(const fs::path& root, std::uint64_t seed) : root_(root), random_(seed) {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(root)) {
            if (entry.is_directory()) {  // there may be a lock file, too
                names.push_back(sys::textOf(entry.path().filename()));
            }
        }
        std::sort(names.begin(), names.end());
        harm_.db = names[random_() % names.size()];
        documents_ = documentsOf(root_ / harm_.db);
    }

    Harm harm() {
        random_() % 2 == 0 ? harmFile() : harmDocument();
        return harm_;
    }

private:
    static constexpr std::size_t kPage = 4096;

    std::size_t below(std::size_t limit) { return random_() % limit; }

    void harmFile() {
        const fs::path file = root_ / harm_.db / "data.mdb";
        Bytes good = read(file);
        // On Windows the file has the size of its map.
        good.resize((good.find_last_not_of('\0') / kPage + 1) * kPage);
        Bytes bad = good;
        const std::size_t pages = good.size() / kPage;
        const auto overwrite = [&](std::size_t at, const Bytes& bytes) {
            bad.replace(std::min(at, bad.size() - bytes.size()), bytes.size(), bytes);
        };
        switch (below(9)) {
            case 0:
                harm_.what = "cut short";
                bad.resize(below(good.size() / 2));
                harm_.setAside = !bad.empty();
                break;
            case 1:
                harm_.what = "bits flipped";
                for (std::size_t i = 1 + below(8); i > 0; --i) {
                    const std::size_t at = below(bad.size());
                    bad[at] = static_cast<char>(bad[at] ^ (1 << below(8)));
                }
                break;
            case 2:
                harm_.what = "page of zeros";
                overwrite(below(pages) * kPage, Bytes(kPage, '\0'));
                break;
            case 3:
                harm_.what = "pages swapped";
                overwrite(0, good.substr((pages - 1) * kPage) + good.substr(kPage, (pages - 2) * kPage) +
                                 good.substr(0, kPage));
                harm_.setAside = true;
                break;
            case 4:
                harm_.what = "foreign text";
                bad = Bytes(good.size(), '\0').replace(0, 20, "no database of theirs");
                harm_.setAside = true;
                break;
            case 5:
                harm_.what = "file of another database";
                bad = read(root_ / (harm_.db == "OvIns_SZ" ? "OvIns_BANK" : "OvIns_SZ") / "data.mdb");
                break;
            case 6:
                harm_.what = "huge lengths";
                for (std::size_t i = 1 + below(4); i > 0; --i) {
                    overwrite(below(bad.size()) & ~std::size_t{1}, "\xFF\xFF\xFF\x7F");
                }
                break;
            case 7:
                harm_.what = "page copied over another";
                overwrite(below(pages) * kPage, good.substr(below(pages) * kPage, kPage));
                break;
            default:
                harm_.what = "lock file of noise";
                write(root_ / harm_.db / "lock.mdb", good.substr(good.size() / 3));
                break;
        }
        write(file, bad);
        noteHits(good, bad);
    }

    /// A document is hit where bytes changed that it stands on, wherever in the file it was written.
    void noteHits(const Bytes& good, const Bytes& bad) {
        if (harm_.what == "file of another database") {
            return;
        }
        for (const auto& [key, bytes] : documents_) {
            for (std::size_t at = good.find(bytes); at != Bytes::npos; at = good.find(bytes, at + 1)) {
                if (at < bad.size() && bad.compare(at, bytes.size(), bytes) != 0) {
                    harm_.hit.insert(key);
                }
            }
        }
    }

    void harmDocument() {
        auto chosen = documents_.begin();
        std::advance(chosen, static_cast<std::ptrdiff_t>(below(documents_.size())));
        Bytes bad = chosen->second;
        const auto lengthAt = [&](std::size_t at, std::uint32_t length) { std::memcpy(&bad[at], &length, 4); };
        switch (below(8)) {
            case 0:
                harm_.what = "document cut short";
                bad.resize(1 + below(bad.size() - 1));
                break;
            case 1:
                harm_.what = "document cut short, its length made to fit";
                bad.resize(8 + below(bad.size() - 8));
                bad.back() = '\0';
                lengthAt(0, static_cast<std::uint32_t>(bad.size()));
                break;
            case 2:
                harm_.what = "bits of the document flipped";
                for (std::size_t i = 1 + below(3); i > 0; --i) {
                    const std::size_t at = below(bad.size());
                    bad[at] = static_cast<char>(bad[at] ^ (1 << below(8)));
                }
                break;
            case 3:
                harm_.what = "another record's document";
                bad = std::next(chosen) == documents_.end() ? documents_.begin()->second : std::next(chosen)->second;
                break;
            case 4:
                harm_.what = "deep nesting";
                bad = nested(2 + below(5000));
                break;
            case 5:
                harm_.what = "wrong types";
                for (std::size_t i = below(bad.size()), left = 3; i < bad.size() && left > 0; ++i) {
                    if (bad[i] == 0x02 || bad[i] == 0x01 || bad[i] == 0x10) {
                        bad[i] = static_cast<char>(1 + below(0x12));
                        --left;
                    }
                }
                break;
            case 6:
                harm_.what = "GBK bytes";
                bad.replace(below(bad.size() - 4), 4, "\xC6\xD6\xB7\xA2");
                break;
            default:
                harm_.what = "huge length inside";
                lengthAt(below(bad.size() - 4), 0x7FFFFFFFU - static_cast<std::uint32_t>(below(16)));
                break;
        }
        harm_.hit.insert(chosen->first);
        if (!isDocument(bad)) {
            harm_.lost.insert(chosen->first);
        }
        persist::StoreStatus status;
        const auto database = persist::makeLmdbEngine()->open(sys::textOf(root_ / harm_.db),
                                                              persist::StoreEngine::Mode::WriteExisting, status);
        database->put(ReadyBatch{{chosen->first, bad}}, false, {});
    }

    static Bytes nested(std::size_t depth) {
        Bytes document("\5\0\0\0\0", 5);
        for (; depth > 1; --depth) {
            const auto length = static_cast<std::uint32_t>(document.size() + 8);
            document = Bytes(4, '\0') + "\3a" + '\0' + document + '\0';
            std::memcpy(document.data(), &length, 4);
        }
        return document;
    }

    /// libbson says whether bytes are a document; deep nesting is for our own reader to refuse.
    static bool isDocument(const Bytes& bytes) {
        bson_t document;
        bson_iter_t walk;
        if (!bson_init_static(&document, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) ||
            !bson_iter_init(&walk, &document)) {
            return false;
        }
        while (bson_iter_next(&walk)) {
        }
        return walk.err_off == 0;
    }

    const fs::path root_;
    std::mt19937_64 random_;
    std::map<std::string, Bytes> documents_;
    Harm harm_;
};

/// Whether the record has that key, as far as it has one at all.
bool mayHaveKey(const IData& record, StockKey key) {
    if (const auto* const fund = dynamic_cast<const CETFDetail*>(&record)) {
        return key == etfKey(*fund) || key == creationKey(*fund) || fund->market.empty() || fund->etfCode.empty() ||
               fund->prCode.empty();
    }
    if (const auto* const listed = dynamic_cast<const CBondInfoDetail*>(&record)) {
        return key == bondKey(*listed) || listed->bondCode.empty();
    }
    const auto& traded = dynamic_cast<const CInstrumentDetail&>(record);
    const std::string market = traded.market == "HGT" ? "HK" : traded.market;
    return market.empty() || traded.code.empty() || key == utils::hash(market + traded.code) ||
           key == utils::hash("ETFINSTS" + traded.code);
}

/// A known fund whose document is lost answers a record of defaults.
bool isMissing(const RecordPtr& record) {
    return !record || *record == CETFDetail();
}

/// The first promise that the answers of a damaged store break; empty when they keep all.
std::string broken(const Answers& before, const Answers& after, const Harm& harm) {
    const auto strangers = [&](const std::vector<RecordPtr>& records, const std::vector<RecordPtr>& known) {
        return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [&](const RecordPtr& record) {
            return std::none_of(known.begin(), known.end(), [&](const RecordPtr& other) { return *other == *record; });
        }));
    };
    for (const auto& [question, single] : before.singles) {
        const RecordPtr& now = after.singles.at(question).record;
        const std::string key = std::to_string(single.key);
        const bool mayDiffer = harm.db == single.db && harm.hit.count(key) != 0;
        if (isMissing(now)) {
            if (harm.db != single.db) {
                return question + " is missing though its database is sound";
            }
            continue;
        }
        if (!mayHaveKey(*now, single.key)) {
            return question + " answers another's record";
        }
        if (*now != *single.record && !mayDiffer) {
            return question + " answers a record that was never stored";
        }
        if (harm.db == single.db && harm.lost.count(key) != 0) {
            return question + " answers from what is no document";
        }
    }
    for (const auto& [db, records] : before.lists) {
        const auto found = after.lists.find(db);
        const std::size_t now = found == after.lists.end() ? 0 : found->second.size();
        if (harm.db != db && now != records.size()) {
            return "the list of " + db + " has changed though it is sound";
        }
        if (now > 0 && strangers(found->second, records) > (harm.db == db ? harm.hit.size() : 0) &&
            harm.what != "file of another database") {
            return "the list of " + db + " holds records that were never stored";
        }
    }
    return {};
}

/// The first promise broken by a load after the damage.
std::string brokenByLoad(IInstrumentCenter& center, const fs::path& root, const Harm& harm) {
    const Day day("new");
    const LogCapture capture;
    day.load(center);
    for (const LogCapture::Line& line : capture.lines()) {
        if (line.text.find("save to persist failed") != std::string::npos) {
            return line.text;
        }
    }
    const Answers answers(center, day);
    for (const auto& [question, single] : answers.singles) {
        if (isMissing(single.record)) {
            return question + " is missing after a load";
        }
    }
    const auto listed = answers.lists.find("OvIns_SZ");
    if (listed == answers.lists.end() || listed->second.size() != 24) {
        return "a list is not whole after a load";
    }
    if (harm.setAside && !fs::exists(root / (harm.db + ".damaged-1"))) {
        return "the damaged database was not set aside";
    }
    return {};
}

class Damage : public testing::Test {
protected:
    TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
};

TEST_F(Damage, IsNeverServedNorCrashesTheHostAndIsHealedByALoad) {
    const std::uint64_t seed = seedOfRun();
    const std::uint64_t mutants = fromEnvironment<std::uint64_t>("PM_MUTANTS", 100);
    const fs::path pristine = directory_.path() / "pristine";
    const fs::path root = directory_.path() / "store";
    persist::CPersistService& service = TemporaryStore::service();
    const Day day("old");
    for (std::uint64_t i = 0; i < mutants && !HasFailure(); ++i) {
        service.setRootPath(sys::textOf(pristine));
        OpenClientCenter center(1);
        day.load(center);
        const Answers before(center, day);
        service.setRootPath("");
        fs::remove_all(root);
        fs::copy(pristine, root, fs::copy_options::recursive);
        const Harm harm = Vandal(root, seed + i).harm();
        SCOPED_TRACE("PM_SEED=" + std::to_string(seed + i) + " PM_MUTANTS=1: " + harm.db + ", " + harm.what);
        EXPECT_EQ(inChild([&] {
                      service.setRootPath(sys::textOf(root));
                      std::string problem = broken(before, Answers(center, day), harm);
                      problem = problem.empty() ? brokenByLoad(center, root, harm) : problem;
                      service.setRootPath("");
                      return problem;
                  }),
                  0);
    }
}

}  // namespace
}  // namespace mxservice
