#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "feed/DayFile.h"
#include "feed/Operations.h"
#include "feed/Zstd.h"
#include "tests/FeedFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/RandomRecords.h"
#include "tests/SecondaryRecords.h"

namespace mxservice::feed {
namespace {

template <class Record>
std::vector<boost::shared_ptr<Record>> some(RandomRecords& random, int count) {
    std::vector<boost::shared_ptr<Record>> records;
    for (int i = 0; i < count; ++i) {
        records.push_back(random.make<Record>());
    }
    return records;
}

template <class Record>
std::map<std::string, boost::shared_ptr<Record>> someByKey(RandomRecords& random, int count) {
    std::map<std::string, boost::shared_ptr<Record>> records;
    for (int i = 0; i < count; ++i) {
        records["key " + std::to_string(i)] = random.make<Record>();  // not the record's own key
    }
    return records;
}

/// Every load twice, every field filled.
Day fullDay(unsigned seed) {
    RandomRecords random(seed);
    Day day;
    for (const char* const market : {"HGT", "SH"}) {
        day.initInstruments({market, "SZ"}, some<CInstrumentDetail>(random, 5));
        day.initEtfs(some<CETFDetail>(random, 3));
        day.initBonds(someByKey<CBondInfoDetail>(random, 3));
        day.initTenderBondInfos(someByKey<CTenderBondInfoDetail>(random, 3));
        day.initCounterpartys(someByKey<CCounterpartyDetail>(random, 3));
        day.initOtcInstruments(some<COTCFundPlanInfo>(random, 3));
        day.initIssuanceInfos(some<COTCSecuritiesIssuanceInfo>(random, 3));
        day.initIssuancePriceInfos(someByKey<COTCStockEnquiryPriceSetting>(random, 3));
    }
    return day;
}

void expectEqual(const Day& left, const Day& right) {
    ASSERT_EQ(left.calls().size(), right.calls().size());
    for (std::size_t i = 0; i < left.calls().size(); ++i) {
        const Day::Call& a = left.calls()[i];
        const Day::Call& b = right.calls()[i];
        EXPECT_EQ(a.catalogue, b.catalogue);
        EXPECT_EQ(a.markets, b.markets);
        EXPECT_EQ(a.keys, b.keys);
        ASSERT_EQ(a.records.size(), b.records.size());
        for (std::size_t k = 0; k < a.records.size(); ++k) {
            EXPECT_EQ(*a.records[k], *b.records[k]) << "load " << i << ", record " << k;
        }
    }
}

TEST(FeedCodec, DayComesBackAsItWasHandedIn) {
    Book packed;
    Book unpacked;
    const Day day = fullDay(1);
    expectEqual(unpackDay(packDay(day, packed), kRoom, unpacked), day);
    EXPECT_EQ(packed.digest(), unpacked.digest());
    EXPECT_TRUE(unpacked.hasMarket("HGT"));

    Day::Call lacking = day.calls()[2];
    lacking.keys.pop_back();
    EXPECT_THROW(Day().add(lacking), std::invalid_argument);

    // A book that was kept follows a change to where one that was not arrives, too.
    RandomRecords random(2);
    const Change change{some<CInstrumentDetail>(random, 3),
                        {static_cast<const CInstrumentDetail&>(*day.calls()[0].records[1]).getKey(), "nothing"}};
    const std::string bytes = packChange(change, packed);
    const Change back = unpackChange(bytes, kRoom, unpacked);
    EXPECT_EQ(back.removedKeys, change.removedKeys);
    ASSERT_EQ(back.upserts.size(), change.upserts.size());
    EXPECT_EQ(*back.upserts[2], *change.upserts[2]);
    EXPECT_EQ(packed.digest(), unpacked.digest());
}

TEST(FeedCodec, ALoadOfManyRecordsComesInSeveralFrames) {
    constexpr int kRecords = 20000;
    Instruments instruments;
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    for (int i = 0; i < kRecords; ++i) {
        instruments.push_back(instrument(i % 2 == 0 ? "SH" : "SZ", std::to_string(i)));
        bonds["key " + std::to_string(i)] = bond(std::to_string(i));
    }
    Day day;
    day.initInstruments({"SH", "SZ"}, instruments);
    day.initBonds(bonds);
    Book packed;
    Book unpacked;
    const std::string bytes = packDay(day, packed);
    const Day back = unpackDay(bytes, kRoom, unpacked);
    expectEqual(back, day);
    EXPECT_EQ(packed.digest(), unpacked.digest());
    EXPECT_EQ(unpacked.size(), 2U * kRecords);
    EXPECT_TRUE(unpacked.hasMarket("SZ"));

    const std::vector<std::string_view> frames = framesOf(bytes);
    ASSERT_EQ(frames.size(), 6U);
    const auto unpackFrames = [&](std::initializer_list<std::size_t> chosen) {
        std::string some;
        for (const std::size_t frame : chosen) {
            some += frames[frame];
        }
        unpackDay(some, kRoom, unpacked);
    };
    EXPECT_THROW(unpackFrames({0, 1, 2, 3, 4}), BadBytes) << "breaks off between two frames";
    EXPECT_THROW(unpackFrames({1, 2, 3, 4, 5}), BadBytes) << "records without their load";
    EXPECT_THROW(unpackFrames({0, 4, 5}), BadBytes) << "bonds among instruments";
    EXPECT_THROW(unpackFrames({5, 0, 5}), BadBytes) << "an end in the middle";
    EXPECT_THROW(unpackFrames({}), BadBytes);
    unpackFrames({0, 1, 3, 4, 5});
    EXPECT_NE(packed.digest(), unpacked.digest()) << "the digest tells of a frame that is missing within";
    // What all frames take together is bounded, not each of them.
    EXPECT_THROW(unpackDay(bytes, std::uint64_t{kRecords} * sizeof(CInstrumentDetail), unpacked), BadBytes);
}

TEST(FeedCodec, MinusZeroAndNotANumberKeepTheirBits) {
    auto record = instrument("SH", "1");
    record->priceTick = -0.0;
    record->strikePrice = std::numeric_limits<double>::quiet_NaN();
    Book book;
    Day day;
    day.initInstruments({"SH"}, {record});
    const Day back = unpackDay(packDay(day, book), kRoom, book);
    const auto& read = static_cast<const CInstrumentDetail&>(*back.calls()[0].records[0]);
    EXPECT_TRUE(std::signbit(read.priceTick));
    EXPECT_TRUE(std::isnan(read.strikePrice));
}

TEST(FeedCodec, FieldsThatOneSideLacksArePassedOver) {
    // As a sender of another version writes: a field more in front, one of another kind, most of ours missing.
    std::string table;
    appendNumber(table, 3);
    for (const auto& [kind, name] : std::vector<std::pair<FieldKind, const char*>>{
             {FieldKind::Int64, "unknown"}, {FieldKind::Text, "lotSize"}, {FieldKind::Text, "code"}}) {
        table += static_cast<char>(kind);
        appendText(table, name);
    }
    ByteReader tableReader(table);
    const FieldNames names(CInstrumentDetail::table(), tableReader);
    std::string bytes = "\x07";
    appendNumber(bytes, 300);
    appendText(bytes, "many");
    appendText(bytes, "600000");
    CInstrumentDetail record;
    readRecord(bytes, names, {}, record);
    EXPECT_EQ(record.code, "600000");
    EXPECT_EQ(record.lotSize, 0);
    EXPECT_THROW(readRecord(bytes + '\0', names, {}, record), BadBytes);
}

TEST(FeedCodec, DamageAndExcessAreRefused) {
    Book book;
    const std::string packed = packDay(fullDay(3), book);
    std::mt19937 random(4);
    for (int i = 0; i < 300; ++i) {
        SCOPED_TRACE(i);
        std::string damaged = packed;
        damaged[random() % damaged.size()] ^= static_cast<char>(1U << random() % 8);
        Book other;
        // A bit of the frame's head may say nothing: then the bytes are the same.
        try {
            unpackDay(damaged, kRoom, other);
            EXPECT_EQ(other.digest(), book.digest());
        } catch (const BadBytes&) {
        }
        EXPECT_THROW(unpackDay(packed.substr(0, random() % packed.size()), kRoom, other), BadBytes);
    }
    EXPECT_THROW(unpackDay(packed + packed, kRoom, book), BadBytes);
    EXPECT_THROW(unpackDay(packed, 1000, book), BadBytes);

    // A million records that take two bytes each, packed to nearly nothing.
    Packer bomb;
    bomb.plain() = 'T';
    appendText(bomb.plain(), CInstrumentDetail::table().name());
    appendNumber(bomb.plain(), 0);
    bomb.plain() += 'U';
    appendNumber(bomb.plain(), 1000000);
    bomb.plain().append(1000000, '\0');
    bomb.plain() += 'E';
    EXPECT_THROW(unpackChange(bomb.finish(), 100U << 20U, book), BadBytes);

    // Components of components, as deep as there are bytes.
    std::string table;
    appendNumber(table, 1);
    table += static_cast<char>(FieldKind::Components);
    appendText(table, "inner");
    ByteReader reader(table);
    EXPECT_THROW(FieldNames(CETFComponentStockInfo::table(), reader), BadBytes);
}

TEST(FeedBook, DigestIsThatOfTheContent) {
    std::mt19937 random(seedOfRun());
    Book book;
    std::map<std::uint64_t, std::string> model;
    for (int i = 0; i < 3000; ++i) {
        const std::uint64_t key = random() % 100;
        if (random() % 3 == 0) {
            book.remove(key);
            model.erase(key);
        } else {
            const std::string bytes = std::to_string(random() % 10);
            book.put(key, bytes);
            model[key] = bytes;
        }
    }
    Book fresh;  // in another order
    for (auto at = model.rbegin(); at != model.rend(); ++at) {
        fresh.add(at->first, Book::hashOf(at->first, at->second));
    }
    EXPECT_EQ(book.digest(), fresh.digest());
    EXPECT_EQ(Digest::of(book.digest().text()), book.digest());
    // Bytes that change places are another state, and so is a record twice.
    Book swapped;
    swapped.add(1, Book::hashOf(1, "b"));
    swapped.add(2, Book::hashOf(2, "a"));
    Book plain;
    plain.add(1, Book::hashOf(1, "a"));
    plain.add(2, Book::hashOf(2, "b"));
    EXPECT_NE(plain.digest(), swapped.digest());
    const Digest once = plain.digest();
    plain.add(1, Book::hashOf(1, "a"));
    EXPECT_NE(plain.digest(), once);
}

class FeedFile : public testing::Test {
protected:
    Entry entry(std::uint64_t revision, Book& book) const {
        Entry entry;
        entry.head.isDay = revision == 1;
        entry.head.tradingDay = "20260302";
        entry.head.epoch = entry.head.token = "0123456789abcdef";
        entry.head.revision = revision;
        entry.head.base = revision == 1 ? 0 : 1;
        entry.sequence = revision;
        entry.packed = revision == 1 ? packDay(fullDay(5), book)
                                     : packChange({{instrument("SH", std::to_string(revision))}, {}}, book);
        entry.head.digest = book.digest();
        entry.headers = headersOf(entry.head);
        return entry;
    }
    std::string bytes() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }
    void put(const std::string& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }

    TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
    const std::string path_ = (directory_.path() / "day").string();
};

TEST_F(FeedFile, WhereverItBreaksOffWhatIsBeforeCanBeUsed) {
    Book book;
    {
        DayFile file(path_);
        EXPECT_TRUE(file.read().empty());
        const Entry day = entry(1, book);
        file.append(day);  // to nothing
        file.write({day});
        file.append(entry(2, book));
    }
    {
        DayFile goesOn(path_);
        ASSERT_EQ(goesOn.read().size(), 2U);
        goesOn.append(entry(3, book));
    }
    const std::string whole = bytes();
    const auto entries = DayFile(path_).read();
    ASSERT_EQ(entries.size(), 3U);
    EXPECT_EQ(entries.back().head.digest, book.digest());
    std::size_t before = 0;
    for (std::size_t size = 0; size < whole.size(); size += 1 + size / 40) {
        put(whole.substr(0, size));
        DayFile file(path_);
        const std::size_t left = file.read().size();
        EXPECT_GE(left, before);
        EXPECT_LT(left, 3U);
        before = left;
        if (left > 0) {
            file.append(entries.back());
            EXPECT_EQ(DayFile(path_).read().size(), left + 1) << "what comes next is kept, cut off at " << size;
        }
    }
    for (std::size_t at = 0; at < whole.size(); at += 97) {
        std::string damaged = whole;
        damaged[at] = static_cast<char>(damaged[at] ^ 0x20);
        put(damaged);
        EXPECT_LT(DayFile(path_).read().size(), 3U) << at;
    }
}

TEST_F(FeedFile, ThatCannotBeWrittenIsNone) {
    Book book;
    DayFile nowhere((directory_.path() / "missing" / "day").string());
    nowhere.write({entry(1, book)});
    nowhere.append(entry(2, book));
    EXPECT_TRUE(nowhere.read().empty());
}

}  // namespace
}  // namespace mxservice::feed
