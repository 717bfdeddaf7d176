#include <bson/bson.h>
#include <gtest/gtest.h>

#ifdef _WIN32
#include <windows.h>
#else
#include <sys/mman.h>
#endif

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/bson/BSONObj.h"
#include "platform/record/Records.h"

namespace bson {
namespace {

BSONObj sample() {
    BSONObjBuilder inner;
    inner.append("deep", "text");
    const BSONObj document = inner.obj();
    BSONObjBuilder builder;
    builder.append("text", std::string("a\0b", 3))
        .append("int", std::int32_t{-7})
        .append("long", std::int64_t{1} << 40)
        .append("double", 2.9)
        .append("bool", true)
        .append("doc", document)
        .append("list", std::vector<BSONObj>{document, BSONObj(), document});
    return builder.obj();
}

/// A document nested `depth` deep, the outermost counted.
BSONObj nested(int depth) {
    BSONObj document;
    for (int i = 1; i < depth; ++i) {
        BSONObjBuilder builder;
        builder.append("d", document);
        document = builder.obj();
    }
    return document;
}

TEST(BSONObj, ReadsBackWhatTheBuilderWrote) {
    const BSONObj object = sample();
    EXPECT_EQ(object.getStringField("text"), std::string("a\0b", 3));
    EXPECT_EQ(object.getIntField("int"), -7);
    EXPECT_EQ(object.getLongField("long"), std::int64_t{1} << 40);
    EXPECT_EQ(object.getDoubleField("double"), 2.9);
    EXPECT_TRUE(object.getBoolField("bool"));
    EXPECT_EQ(object.getObjectField("doc").getStringField("deep"), "text");
    ASSERT_EQ(object.getArrayField("list").size(), 3U);
    EXPECT_TRUE(object.getArrayField("list")[1].isEmpty());
    EXPECT_TRUE(object.hasField("doc"));
    EXPECT_FALSE(object.hasField("deep"));
    EXPECT_EQ(BSONObj::fromBytes(object.objdata(), static_cast<std::size_t>(object.objsize())), object);
    EXPECT_NE(object.toJson().find("\"deep\" : \"text\""), std::string::npos) << object.toJson();
}

TEST(BSONObj, ConvertsNumbersAndAnswersMissesWithDefaults) {
    BSONObjBuilder builder;
    builder.append("down", -2.9)
        .append("huge", 1e300)
        .append("nan", std::numeric_limits<double>::quiet_NaN())
        .append("long", std::numeric_limits<std::int64_t>::min())
        .append("text", "12")
        .append("too large by one", 0x1p63)
        .append("largest", std::nextafter(0x1p63, 0))
        .append("smallest", -0x1p63);
    const BSONObj object = builder.obj();
    EXPECT_EQ(object.getIntField("down"), -2);
    EXPECT_EQ(object.getIntField("huge"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(object.getLongField("huge"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(object.getLongField("too large by one"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(object.getLongField("largest"), std::numeric_limits<std::int64_t>::max() - 1023);
    EXPECT_EQ(object.getLongField("smallest"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(object.getIntField("nan"), 0);
    EXPECT_EQ(object.getIntField("long"), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(object.getIntField("text"), 0);
    EXPECT_EQ(object.getStringField("long"), "");
    EXPECT_TRUE(object.getObjectField("text").isEmpty());
    EXPECT_TRUE(object.getArrayField("none").empty());
}

TEST(BSONObjBuilder, NullTextsAndNamesAreEmptyOnes) {
    BSONObjBuilder builder;
    builder.append(std::string_view(), std::int32_t{1}).append("text", static_cast<const char*>(nullptr));
    const BSONObj object = builder.obj();
    EXPECT_EQ(object.getIntField(""), 1);
    EXPECT_TRUE(object.hasField("text"));
}

TEST(BSONObj, SubdocumentOutlivesItsParent) {
    BSONObj inner;
    { inner = sample().getObjectField("doc"); }
    EXPECT_EQ(inner.getStringField("deep"), "text");
}

TEST(BSONObj, BytesThatAreNoDocumentAreRefusedWithAReason) {
    const BSONObj object = sample();
    const std::string good(object.objdata(), static_cast<std::size_t>(object.objsize()));
    for (std::size_t size = 0; size < good.size(); ++size) {
        std::string error;
        EXPECT_TRUE(BSONObj::fromBytes(good.data(), size, &error).isEmpty()) << size;
        EXPECT_FALSE(error.empty()) << size;
    }
    std::string error;
    EXPECT_TRUE(BSONObj::fromBytes(nullptr, 0, &error).isEmpty());
    EXPECT_FALSE(error.empty());
}

TEST(BSONObj, DepthAndSizeAreLimited) {
    const BSONObj deepest = nested(kMaxDocumentDepth);
    EXPECT_FALSE(deepest.isEmpty());
    BSONObjBuilder deeper;
    deeper.append("d", deepest);
    EXPECT_TRUE(deeper.obj().isEmpty());

    // The same document put together by hand must be refused on reading, too.
    std::string bytes(deepest.objdata(), static_cast<std::size_t>(deepest.objsize()));
    bytes = std::string("\x03") + "d" + std::string(1, '\0') + bytes + std::string(1, '\0');
    const auto size = static_cast<std::int32_t>(bytes.size() + sizeof(std::int32_t));
    bytes.insert(0, reinterpret_cast<const char*>(&size), sizeof size);
    std::string error;
    EXPECT_TRUE(BSONObj::fromBytes(bytes.data(), bytes.size(), &error).isEmpty());
    EXPECT_NE(error.find("too deep"), std::string::npos) << error;

    BSONObjBuilder large;
    large.append("text", std::string(kMaxDocumentBytes - 1000, 'x'));
    EXPECT_TRUE(large.ok());
    large.append("more", std::string(2000, 'x'));
    EXPECT_TRUE(large.obj().isEmpty());
    EXPECT_TRUE(large.ok()) << "the builder starts anew";
}

TEST(BSONObj, JsonOfWhatTheLibraryRefusesIsStillGiven) {
    BSONObjBuilder builder;
    builder.append("name", "\xC6\xBD\xB0\xB2").append("code", "000001");
    const std::string json = builder.obj().toJson();
    EXPECT_NE(json.find("000001"), std::string::npos) << json;

    // Forms that only other programs write: a symbol, code and a pattern with its options.
    const std::string elements(
        "\x0Es\0\2\0\0\0\xC6\0\x0D"
        "c\0\2\0\0\0\xBD\0\x0Bp\0\xB0\0\xB2\0",
        25);
    const std::string foreign = std::string("\x1E\0\0\0", 4) + elements + '\0';
    const BSONObj read = BSONObj::fromBytes(foreign.data(), foreign.size());
    EXPECT_EQ(read.fieldNames().size(), 3U);
    EXPECT_NE(read.toJson().find("$symbol"), std::string::npos) << read.toJson();

    // Bytes of the oldest kind that repeat another length than theirs.
    const std::string old("\x12\0\0\0\x05o\0\5\0\0\0\2\x09\0\0\0x", 17);
    EXPECT_NE(BSONObj::fromBytes((old + '\0').data(), old.size() + 1).toJson().find("$binary"), std::string::npos);
}

/// Bytes, no more than a page of them, with a page behind that nobody may touch, so that reading on ends the process.
class BytesAtTheEdge {
public:
    explicit BytesAtTheEdge(const std::string& bytes) : size_(bytes.size()) {
#ifdef _WIN32
        DWORD before = 0;
        begin_ = static_cast<char*>(::VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
        ::VirtualProtect(begin_ + kPage, kPage, PAGE_NOACCESS, &before);
#else
        begin_ =
            static_cast<char*>(::mmap(nullptr, 2 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        ::mprotect(begin_ + kPage, kPage, PROT_NONE);
#endif
        bytes.copy(begin_ + kPage - size_, size_);
    }
    ~BytesAtTheEdge() {
#ifdef _WIN32
        ::VirtualFree(begin_, 0, MEM_RELEASE);
#else
        ::munmap(begin_, 2 * kPage);
#endif
    }
    BytesAtTheEdge(const BytesAtTheEdge&) = delete;
    BytesAtTheEdge& operator=(const BytesAtTheEdge&) = delete;

    std::string_view view() const {
        return {begin_ + kPage - size_, size_};
    }

private:
    static constexpr std::size_t kPage = 64 * 1024;  // of any system, or some of them

    const std::size_t size_;
    char* begin_ = nullptr;
};

bool isSound(std::string_view bytes) {
    return !BSONObj::fromBytes(bytes.data(), bytes.size()).isEmpty();
}

/// A document of so many bytes of elements, which need not be whole.
std::string wrapped(const std::string& elements) {
    const auto size = static_cast<std::int32_t>(elements.size() + sizeof(std::int32_t) + 1);
    return std::string(reinterpret_cast<const char*>(&size), sizeof size) + elements + '\0';
}

/// The last element ends at any of its bytes: whoever reads the document does not read on.
TEST(Documents, AreNotReadBeyondTheirEnd) {
    const std::string name("n\0", 2);
    const std::vector<std::string> contents{"\x01" + name + "12345678",
                                            "\x02" + name + std::string("\3\0\0\0ab\0", 7),
                                            "\x03" + name + wrapped("\x0A" + name),
                                            "\x05" + name + std::string("\2\0\0\0\0ab", 7),
                                            "\x07" + name + "123456789012",
                                            "\x08" + name + "\1",
                                            "\x0B" + name + std::string("a\0i\0", 4),
                                            "\x10" + name + "1234",
                                            "\x13" + name + "1234567890123456"};
    for (const std::string& content : contents) {
        for (std::size_t size = 1; size <= content.size(); ++size) {
            const BytesAtTheEdge document(wrapped(content.substr(0, size)));
            EXPECT_EQ(isSound(document.view()), size == content.size()) << int{content[0]} << ", " << size << " bytes";
        }
    }
    mxservice::CInstrumentDetail record;
    record.market = "SH";
    record.statusString = "a text after what tells the class";
    std::string bytes;
    ASSERT_TRUE(record.appendDocument(bytes));
    const std::string content = bytes.substr(sizeof(std::int32_t), bytes.size() - sizeof(std::int32_t) - 1);
    int sound = 0;
    for (std::size_t size = 1; size <= content.size(); ++size) {
        const BytesAtTheEdge document(wrapped(content.substr(0, size)));
        const bool isRecord = mxservice::TypeManager::instance()->parse(document.view(), nullptr) != nullptr;
        EXPECT_TRUE(!isRecord || isSound(document.view())) << size << " bytes";
        sound += isRecord ? 1 : 0;
    }
    EXPECT_GT(sound, 20) << "where fields end";
}

/// Whether libbson walks to the end of the document and of everything nested in it.
bool libraryWalks(bson_iter_t iterator) {
    while (bson_iter_next(&iterator)) {
        bson_iter_t child;
        const bool nested = BSON_ITER_HOLDS_DOCUMENT(&iterator) || BSON_ITER_HOLDS_ARRAY(&iterator);
        if (nested && (!bson_iter_recurse(&iterator, &child) || !libraryWalks(child))) {
            return false;
        }
    }
    return iterator.err_off == 0;
}

bool libraryAccepts(const std::string& bytes) {
    bson_t document;
    bson_iter_t iterator;
    return bson_init_static(&document, reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()) &&
           bson_iter_init(&iterator, &document) && libraryWalks(iterator);
}

TEST(BSONObj, DamagedDocumentsAreNeverFollowedAndWhatIsAcceptedTheLibraryAcceptsToo) {
    const BSONObj object = sample();
    const std::string good(object.objdata(), static_cast<std::size_t>(object.objsize()));
    const unsigned seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937_64 random(seed);
    int accepted = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string damaged = good;
        for (std::uint64_t flips = 1 + random() % 3; flips > 0; --flips) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        const BytesAtTheEdge bytes(damaged);
        const BSONObj read = BSONObj::fromBytes(bytes.view().data(), bytes.view().size());
        if (!read.isEmpty()) {
            ++accepted;
            const std::string kept(read.objdata(), static_cast<std::size_t>(read.objsize()));
            ASSERT_TRUE(libraryAccepts(kept));
            read.toJson();
            read.getArrayField("list");
        }
    }
    EXPECT_GT(accepted, 0) << "flips inside texts and numbers must pass";
}

}  // namespace
}  // namespace bson
