#include <bson/bson.h>
#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "platform/bson/BSONObj.h"

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
        .append("text", "12");
    const BSONObj object = builder.obj();
    EXPECT_EQ(object.getIntField("down"), -2);
    EXPECT_EQ(object.getIntField("huge"), std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(object.getLongField("huge"), std::numeric_limits<std::int64_t>::max());
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

TEST(BSONObj, JsonOfBytesThatAreNotUtf8IsStillGiven) {
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
        // An exact heap block, so that a sanitizer sees any byte read outside it.
        std::vector<char> bytes(good.begin(), good.end());
        for (std::uint64_t flips = 1 + random() % 3; flips > 0; --flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        const BSONObj read = BSONObj::fromBytes(bytes.data(), bytes.size());
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
