#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <simdjson.h>

#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/CenterFixture.h"
#include "tests/SecondaryRecords.h"
#include "tests/ToolFixture.h"

// What the tool shows of a store on disk.

namespace {

namespace fs = std::filesystem;
using mxservice::instrument;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using tooltest::linesOf;
using tooltest::Result;
using tooltest::run;

/// The members of every line, by name; texts without their quotation marks.
std::vector<std::map<std::string, std::string>> objectsOf(const std::string& json) {
    std::vector<std::map<std::string, std::string>> objects;
    simdjson::dom::parser parser;
    for (const std::string& line : linesOf(json)) {
        simdjson::dom::object object;
        EXPECT_EQ(parser.parse(line).get(object), simdjson::SUCCESS) << line;
        auto& members = objects.emplace_back();
        for (const auto& [name, value] : object) {
            members[std::string(name)] =
                value.is_string() ? std::string(value.get_string().value()) : simdjson::minify(value);
        }
    }
    return objects;
}

std::string bytesOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void overwrite(const fs::path& file, std::size_t at, const std::string& bytes) {
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(at));
    stream << bytes;
    ASSERT_TRUE(stream.good());
}

std::string keyOf(const std::string& text) {
    return std::to_string(utils::hash(text));
}

/// A store as a persisted center has left it; nothing of it is open.
class StoreVerbTest : public ::testing::Test {
protected:
    StoreVerbTest() {
        mxservice::OpenClientCenter center;
        auto future = instrument("DCE", "a2705");
        future->mainContractFlag = 1;
        auto later = instrument("DCE", "a2709");
        future->productId = later->productId = "a";
        center.initInstruments({"SH", "HGT", "DCE"}, {instrument("SH", "600000"), instrument("SH", "600001"),
                                                      instrument("HGT", "00700"), future, later});
        center.initEtfs({mxservice::etf("SH", "510050", "510051")});
        center.initBonds({{"220001", mxservice::bond("220001")}});
        center.initOtcInstruments({mxservice::plan("P1", 1)});
        close();
    }

    static void close() { TemporaryStore::service().setRootPath(""); }

    Result ask(const std::string& verb, const std::vector<std::string>& arguments = {}) const {
        std::vector<std::string> all{"store", verb, store_.path().string()};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run(all);
    }

    fs::path dataOf(const std::string& db) const { return store_.path(db) / "data.mdb"; }

    /// Makes a document of the record's market and code alone; the bytes behind them stay.
    void endEarly(const std::string& db, const std::string& code) const {
        const std::string head = std::string("\2market\0\3\0\0\0SH\0\2code\0\7\0\0\0", 25) + code + '\0';
        const std::size_t at = bytesOf(dataOf(db)).find(head);
        ASSERT_NE(at, std::string::npos);
        overwrite(dataOf(db), at - 4, std::string(1, static_cast<char>(4 + head.size() + 1)) + std::string(3, '\0'));
        overwrite(dataOf(db), at + head.size(), std::string(1, '\0'));
    }

    /// Puts documents of a center's making where they do not belong.
    void put(const std::string& db, const std::string& key, const mxservice::IData& record,
             const std::string& field = {}) const {
        auto& service = TemporaryStore::service();
        service.setRootPath(store_.path().string());
        const bson::BSONObj document = record.toBsonWithBson();
        EXPECT_TRUE(field.empty() ? service.writeData(db, key, document, false)
                                  : service.writeHashDatas(db, {key}, {document}, false, field, false));
        close();
    }

    /// Every file but the lock files, with its bytes.
    std::map<std::string, std::string> files() const {
        std::map<std::string, std::string> bytesByName;
        for (const auto& entry : fs::recursive_directory_iterator(store_.path())) {
            const bool counts = entry.is_regular_file() && entry.path().filename() != "lock.mdb";
            bytesByName[entry.path().string()] = counts ? bytesOf(entry.path()) : std::string();
        }
        return bytesByName;
    }

    TemporaryStore store_;
};

TEST_F(StoreVerbTest, ListsAndMeasuresWhatACenterWrote) {
    fs::rename(store_.path("OvRawHGT"), store_.path("OvRawHGT.damaged-1"));
    fs::create_directory(store_.path("notes"));
    fs::create_directory(store_.path("OvIns_NEW"));  // as a load that was killed in its first moment leaves it
    std::ofstream(dataOf("OvIns_NEW")).close();
    const Result listed = ask("ls", {"--format", "json"});
    EXPECT_EQ(listed.code, 0) << listed.err;
    std::vector<std::string> databases;
    for (auto& row : objectsOf(listed.out)) {
        databases.push_back(row["database"] + ' ' + row["kind"] + ' ' + row["documents"] + ' ' + row["subDocuments"]);
        const fs::path data = dataOf(row["database"]);
        EXPECT_EQ(row["fileBytes"], fs::exists(data) ? std::to_string(fs::file_size(data)) : "null") << data;
    }
    EXPECT_THAT(
        databases,
        ElementsAre("OvIns_ALLETF catalogue 2 0", "OvIns_BANK catalogue 1 0", "OvIns_BANKBOND catalogue 1 0",
                    "OvIns_DCE catalogue 2 0", "OvIns_ETFINSTS catalogue 1 0", "OvIns_FUMAIN catalogue 0 1",
                    "OvIns_FUPROD catalogue 0 2", "OvIns_HK catalogue 1 0", "OvIns_NEW catalogue null null",
                    "OvIns_OTCINS catalogue 1 0", "OvIns_SH catalogue 2 0",
                    "OvRawHGT.damaged-1 damaged, set aside null null", "OvRawSH raw 2 0", "notes unknown null null"));
    EXPECT_EQ(ask("verify").code, 0);

    const auto rows = objectsOf(ask("stat", {"OvIns_DCE", "--format", "json"}).out);
    ASSERT_THAT(rows, SizeIs(1));
    std::map<std::string, std::string> measured = rows.front();
    EXPECT_EQ(measured["classes"], R"(["CInstrumentDetail 2"])");
    const double bytes = std::stod(measured["bytes"]);
    EXPECT_EQ(std::stod(measured["minBytes"]) + std::stod(measured["maxBytes"]), bytes) << "of two documents";
    EXPECT_EQ(std::stod(measured["averageBytes"]), bytes / 2);
    EXPECT_THAT(linesOf(ask("stat", {"--format", "csv"}).out), SizeIs(1 + databases.size()));
}

TEST_F(StoreVerbTest, DumpsDocumentsAsOneJsonObjectALine) {
    const auto documents = objectsOf(ask("dump", {"OvIns_SH"}).out);
    ASSERT_THAT(documents, SizeIs(2));
    for (const auto& object : documents) {
        EXPECT_THAT(object, SizeIs(2));
        const std::string code = object.at("key") == keyOf("SH600000") ? "600000" : "600001";
        EXPECT_EQ(object.at("key"), keyOf("SH" + code));
        EXPECT_THAT(object.at("document"), AllOf(HasSubstr("\"code\":\"" + code + '"'),
                                                 HasSubstr(R"("strikePrice":{"$numberDouble":"0.0"})")));
    }
    const auto mains = objectsOf(ask("dump", {"OvIns_FUMAIN"}).out);
    ASSERT_THAT(mains, SizeIs(1));
    EXPECT_EQ(mains[0].at("field"), keyOf("DCE"));
    EXPECT_EQ(mains[0].at("key"), keyOf("DCEa2705"));

    const std::string first = documents[0].at("key");
    const std::string firstKey = R"({"key":")" + first + "\"}\n";
    EXPECT_EQ(ask("dump", {"OvIns_SH", "--keys-only", "--limit", "1"}).out, firstKey);
    EXPECT_EQ(ask("dump", {"OvIns_SH", "--keys-only", "--prefix", first}).out, firstKey);
    EXPECT_EQ(ask("dump", {"OvIns_SH", "--limit", "0"}).out, "");
    EXPECT_THAT(objectsOf(ask("dump", {"OvIns_FUPROD", "--prefix", keyOf("a")}).out), SizeIs(2));
    EXPECT_THAT(linesOf(ask("dump", {"OvIns_FUPROD", "--format", "csv", "--keys-only"}).out),
                ElementsAre("key,field\r", HasSubstr("," + keyOf("a")), HasSubstr("," + keyOf("a"))));
}

TEST_F(StoreVerbTest, DumpsEveryDatabaseWithItsName) {
    fs::rename(store_.path("OvRawHGT"), store_.path("OvRawHGT.damaged-1"));
    fs::create_directory(store_.path("OvIns_NEW"));
    const Result all = ask("dump");
    EXPECT_EQ(all.code, 0) << all.err;
    EXPECT_EQ(all.err, "");
    std::string lines;
    std::string rows = "database,key,field,document\r\n";
    for (auto& database : objectsOf(ask("ls", {"--format", "json"}).out)) {
        const std::string name = database["database"];
        if (database["documents"] == "null") {
            continue;  // set aside, or not written yet
        }
        for (const std::string& line : linesOf(ask("dump", {name}).out)) {
            lines += R"({"database":")" + name + "\"," + line.substr(1) + "\n";
        }
        const auto ofOne = linesOf(ask("dump", {name, "--format", "csv"}).out);
        for (std::size_t i = 1; i < ofOne.size(); ++i) {
            rows += name + ',' + ofOne[i] + "\n";
        }
    }
    EXPECT_THAT(linesOf(lines), SizeIs(16));
    EXPECT_EQ(all.out, lines);
    EXPECT_EQ(ask("dump", {"--format", "csv"}).out, rows);
    EXPECT_THAT(linesOf(ask("dump", {"--keys-only", "--format", "csv"}).out)[0], "database,key,field\r");
    const auto first = objectsOf(ask("dump", {"--limit", "3", "--keys-only"}).out);
    ASSERT_THAT(first, SizeIs(3)) << "of all together";
    EXPECT_EQ(first[2].at("database"), "OvIns_BANK");
}

TEST_F(StoreVerbTest, VerifyNamesEveryBadDocument) {
    const Result good = ask("verify");
    EXPECT_EQ(good.code, 0) << good.out << good.err;
    EXPECT_THAT(good.out, StartsWith("every document is good\n17 documents in 12 databases read, 0 bad\n"));

    const std::size_t code = bytesOf(dataOf("OvIns_SH")).find("600001");
    overwrite(dataOf("OvIns_SH"), code, "600009");
    endEarly("OvRawSH", "600001");
    const std::size_t type = bytesOf(dataOf("OvRawSH")).find("name of SH600000");
    overwrite(dataOf("OvRawSH"), type - 4, std::string(4, '\x7f'));  // the text's length
    put("OvIns_HK", keyOf("HK1"), *mxservice::bond("1"));
    put("OvIns_HK", keyOf("HK2"), *instrument("SZ", "2"));
    put("OvIns_ALLETF", keyOf("SH510052"), *mxservice::etf("SH", "510050", "510051"));
    put("OvIns_ETFINSTS", keyOf("SH510051"), *instrument("SH", "510051"));
    put("OvIns_DCE", keyOf("DCEa2705"), *instrument("DCE", "a2705"), keyOf("DCE"));
    put("OvIns_FUMAIN", keyOf("DCEa2705"), *instrument("DCE", "a2705"), keyOf("SHFE"));
    put("OvIns_FUMAIN", keyOf("DCEa2705"), *instrument("DCE", "a2705"));

    const Result bad = ask("verify", {"--format", "json"});
    EXPECT_EQ(bad.code, 2);
    std::map<std::string, std::string> problems;  // by database, field and key
    for (auto& row : objectsOf(bad.out)) {
        problems[row["database"] + ' ' + row["field"] + ' ' + row["key"]] = row["problem"];
    }
    const auto expect = [&problems](const std::string& place, const std::string& problem) {
        EXPECT_THAT(problems[place], HasSubstr(problem)) << place;
    };
    const std::string future = keyOf("DCEa2705");
    expect("OvIns_SH  " + keyOf("SH600001"), "the key should be " + keyOf("SH600009") + " of SH600009");
    expect("OvRawSH  " + keyOf("SH600000"), "no document: ");
    expect("OvRawSH  " + keyOf("SH600001"), "bytes, of which the document takes 37");
    expect("OvIns_HK  " + keyOf("HK1"), "is a CBondInfoDetail, not a CInstrumentDetail");
    expect("OvIns_HK  " + keyOf("HK2"), "of market SZ");
    expect("OvIns_ALLETF  " + keyOf("SH510052"), "of SH510050 or " + keyOf("SH510051") + " of SH510051");
    expect("OvIns_ETFINSTS  " + keyOf("SH510051"), "of ETFINSTS510051");
    expect("OvIns_DCE " + keyOf("DCE") + ' ' + future, "sub-documents do not belong");
    expect("OvIns_FUMAIN " + keyOf("SHFE") + ' ' + future, "the field should be " + keyOf("DCE"));
    expect("OvIns_FUMAIN  " + future, "only sub-documents belong");
    EXPECT_THAT(problems, SizeIs(10));

    // Who asks the store for its records is told the same, and gets the others.
    const Result asked = run({"--store", store_.path().string(), "list", "--market", "SH", "HK", "--fields", "code"});
    EXPECT_EQ(asked.code, 3);
    EXPECT_THAT(asked.out, AllOf(HasSubstr("600000"), HasSubstr("00700"), Not(HasSubstr("600009"))));
    EXPECT_THAT(asked.err, AllOf(HasSubstr("OvIns_SH: document " + keyOf("SH600001") + ": the key should be"),
                                 HasSubstr("OvIns_HK: document " + keyOf("HK1") + ": the document is a")));
    EXPECT_EQ(run({"--store", store_.path().string(), "get", "SH600001"}).code, 1);
    EXPECT_EQ(run({"--store", store_.path().string(), "get", "SH600000"}).code, 0);

    EXPECT_EQ(ask("verify", {"OvIns_DCE"}).code, 2);
    EXPECT_EQ(ask("verify", {"OvIns_OTCINS"}).code, 0);
    const Result dumped = ask("dump", {"OvRawSH"});
    EXPECT_EQ(dumped.code, 2);
    EXPECT_THAT(objectsOf(dumped.out), SizeIs(2));
    EXPECT_THAT(dumped.out, HasSubstr(R"("problem":")"));
}

TEST_F(StoreVerbTest, ADamagedFileIsReportedAndLeftAlone) {
    constexpr std::size_t kPageBytes = 4096;
    overwrite(dataOf("OvIns_SH"), 2 * kPageBytes, std::string(64, '\xff'));  // behind the two meta pages
    fs::resize_file(dataOf("OvIns_DCE"), kPageBytes);
    const auto before = files();
    for (const char* const verb : {"ls", "verify", "stat", "dump"}) {
        for (const std::string db : {"OvIns_SH", "OvIns_DCE"}) {
            const Result result = ask(verb, {db});
            EXPECT_EQ(result.code, 2) << verb;
            EXPECT_THAT(result.err, StartsWith("inscenter: " + db + ": damaged: ")) << verb;
        }
    }
    const Result all = ask("ls", {"--format", "csv"});
    EXPECT_EQ(all.code, 2);
    EXPECT_THAT(all.out, AllOf(HasSubstr("\nOvIns_SH,catalogue,,,"), HasSubstr("\nOvIns_HK,catalogue,1,0,")));
    EXPECT_THAT(ask("verify").out, HasSubstr("every document that could be read is good"));
    const Result dumped = ask("dump");
    EXPECT_EQ(dumped.code, 2);
    EXPECT_THAT(dumped.out, AllOf(HasSubstr(R"("database":"OvIns_BANK")"), HasSubstr(R"("database":"OvIns_HK")")));
    const Result asked = run({"--store", store_.path().string(), "list", "--market", "HK"});
    EXPECT_EQ(asked.code, 3);
    EXPECT_THAT(asked.err, AllOf(HasSubstr("OvIns_SH: damaged: "), HasSubstr("OvIns_DCE: damaged: ")));
    EXPECT_EQ(files(), before);
}

TEST_F(StoreVerbTest, AStoreOfAnotherVersionOrHalfDeletedSaysSo) {
    for (const std::size_t page : {std::size_t{0}, std::size_t{1}}) {
        overwrite(dataOf("OvIns_SH"), page * 4096 + 16 + 4, std::string("\x63\0\0\0", 4));  // the format's version
    }
    fs::remove(dataOf("OvIns_HK"));
    const Result half =
        run({"--store", store_.path().string(), "list", "--market", "SH", "HK", "DCE", "--fields", "code"});
    EXPECT_EQ(half.code, 3);
    EXPECT_THAT(half.out, HasSubstr("a2705"));
    EXPECT_THAT(half.err,
                AllOf(HasSubstr("OvIns_SH: "), HasSubstr("version"), HasSubstr("OvIns_HK: has lost its data.mdb")));
    const TemporaryDirectory other;
    fs::copy(store_.path("OvIns_DCE"), other.path() / "accounts", fs::copy_options::recursive);
    EXPECT_THAT(run({"--store", other.path().string(), "get", "DCEa2705"}).err,
                HasSubstr("no instrument in this store"));
}

TEST_F(StoreVerbTest, KeysLeadBackToTheirRecords) {
    const std::string hex = fmt::format("0x{:x}", utils::hash("SH600000"));
    const auto rows = objectsOf(ask("key", {hex, keyOf("DCE"), keyOf("BANK220001"), "--jsonl"}).out);
    std::vector<std::string> found;
    for (auto row : rows) {
        found.push_back(row["database"] + ' ' + row["what"] + ' ' + row["key"]);
    }
    EXPECT_THAT(found,
                testing::UnorderedElementsAre("OvIns_SH document SH600000", "OvRawSH document SH600000",
                                              "OvIns_DCE market null", "OvIns_FUMAIN field DCEa2705",
                                              "OvIns_BANKBOND document 220001", "OvIns_BANK document BANK220001"));
    const Result none = run({"--store", store_.path().string(), "store", "key", "17"});
    EXPECT_EQ(none.code, 1);
    EXPECT_THAT(none.err, HasSubstr("17: no key in this store"));
    for (const char* const word : {"", "x", "0x", "-1", "18446744073709551616"}) {
        EXPECT_EQ(ask("key", {word}).code, 2) << word;
    }
}

TEST_F(StoreVerbTest, WhatIsNoStoreIsRefused) {
    const TemporaryDirectory other;
    const std::string empty = (other.path() / "empty").string();
    fs::create_directory(empty);
    std::ofstream(other.path() / "file") << "text";
    const std::map<std::string, std::string> reasons{
        {store_.path("missing").string(), "cannot be read: No such file"},
        {(other.path() / "file").string(), "cannot be read: Not a directory"},
        {other.path().string(), "is no store"},
        {store_.path("OvIns_SH").string(), "is a single database"}};
    for (const auto& [root, reason] : reasons) {
        for (const char* const verb : {"ls", "dump", "verify", "stat"}) {
            const Result result = run({"store", verb, root});
            EXPECT_EQ(result.code, 2) << verb << ' ' << root;
            EXPECT_THAT(result.err, AllOf(StartsWith("inscenter: " + root + ": "), HasSubstr(reason)));
            EXPECT_EQ(result.out, "");
        }
    }
    for (const std::string name : {"../store", "..", ".", "/", "OvIns_SH/", "OvIns_SH/data.mdb", "OvIns_XX"}) {
        for (const char* const verb : {"ls", "dump", "verify", "stat"}) {
            EXPECT_EQ(ask(verb, {name}).code, 2) << verb << ' ' << name;
        }
    }
    for (const char* const verb : {"ls", "dump", "verify", "stat"}) {
        const Result nothing = run({"store", verb, empty});
        EXPECT_EQ(nothing.code, 0);
        EXPECT_EQ(nothing.out, "no databases: the store is empty\n");
    }
    EXPECT_TRUE(fs::is_empty(empty));

    EXPECT_EQ(run({"store"}).code, 2);
    EXPECT_EQ(ask("frob").code, 2);
    EXPECT_EQ(ask("ls", {"--data", PM_SAMPLES}).code, 2);
    for (const char* const verb : {"ls", "dump", "verify", "stat"}) {
        EXPECT_THAT(run({"store", verb, "--help"}).out,
                    AllOf(HasSubstr("Examples:\n  inscenter store "), HasSubstr("lock.mdb")));
    }
}

}  // namespace
