#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <sstream>
#include <type_traits>
#include <vector>

#include "platform/record/Records.h"
#include "tests/RandomRecords.h"

namespace mxservice {
namespace {

class EveryClass : public testing::TestWithParam<const RecordType*> {
protected:
    const unsigned seed_ = std::random_device()();
    RandomRecords records_{seed_};
};

INSTANTIATE_TEST_SUITE_P(Records, EveryClass, testing::ValuesIn(TypeManager::instance()->types()),
                         [](const auto& param) { return param.param->name(); });

/// A member left out of its table would be lost on every way through the store.
TEST_P(EveryClass, TableCoversEveryMember) {
    const RecordType& type = *GetParam();
    std::vector<Field> fields = type.fields();
    std::sort(fields.begin(), fields.end(), [](const Field& a, const Field& b) { return a.offset() < b.offset(); });
    constexpr std::size_t kLargestPadding = 7;
    std::size_t end = sizeof(void*);
    std::set<std::string> names;
    for (const Field& field : fields) {
        EXPECT_GE(field.offset(), end) << field.name() << " overlaps";
        EXPECT_LE(field.offset(), end + kLargestPadding) << "a member before " << field.name() << " is not listed";
        end = field.offset() + field.size();
        EXPECT_TRUE(names.insert(field.name()).second) << field.name() << " twice";
    }
    EXPECT_LE(type.recordSize(), end + kLargestPadding) << "a last member is not listed";
    EXPECT_LE(fields.size(), 128U);
}

TEST_P(EveryClass, SurvivesItsDocument) {
    SCOPED_TRACE(seed_);
    for (int round = 0; round < 20; ++round) {
        const boost::shared_ptr<IData> record = records_.fill(GetParam()->make());
        const bson::BSONObj document = record->toBsonWithBson();

        const boost::shared_ptr<IData> read = GetParam()->make();
        ASSERT_TRUE(read->bsonValueFromObj(document, true, nullptr));
        EXPECT_EQ(*read, *record) << *read << '\n' << *record;

        std::string error;
        const boost::shared_ptr<IData> parsed = TypeManager::instance()->parse(document, true, &error);
        ASSERT_TRUE(parsed) << error;
        EXPECT_EQ(&parsed->recordType(), GetParam());
        EXPECT_EQ(*parsed, *record);
        EXPECT_EQ(parsed->toBsonWithBson(), document);

        std::string bytes = "before";
        ASSERT_TRUE(record->appendDocument(bytes));
        ASSERT_EQ(bytes.substr(6), std::string(document.objdata(), static_cast<std::size_t>(document.objsize())))
            << "the fast encoder and libbson agree byte for byte";
    }
}

/// Records are read from bytes that nobody has checked before.
TEST_P(EveryClass, DamagedBytesAreReadAsTheCheckedDocumentOrRefused) {
    SCOPED_TRACE(seed_);
    std::string good;
    ASSERT_TRUE(records_.fill(GetParam()->make())->appendDocument(good));
    std::mt19937_64 random(seed_);
    for (int round = 0; round < 2000; ++round) {
        // An exact heap block, so that a sanitizer sees any byte read outside it.
        std::vector<char> bytes(good.begin(), good.end());
        bytes.resize(random() % 4 == 0 ? random() % bytes.size() : bytes.size());
        for (std::uint64_t flips = bytes.empty() ? 0 : 1 + random() % 3; flips > 0; --flips) {
            bytes[random() % bytes.size()] = static_cast<char>(random());
        }
        std::string error;
        const bson::BSONObj document = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
        const boost::shared_ptr<IData> read = GetParam()->make();
        const bool accepted = read->readDocument({bytes.data(), bytes.size()}, true, nullptr);
        if (error.empty()) {
            const boost::shared_ptr<IData> checked = GetParam()->make();
            ASSERT_TRUE(checked->bsonValueFromObj(document, true, nullptr));
            ASSERT_TRUE(accepted);
            ASSERT_EQ(*read, *checked);
        } else if (bytes.size() < good.size()) {
            ASSERT_FALSE(accepted) << error;
        }
    }
}

TEST_P(EveryClass, EqualityAndCopySeeEveryField) {
    SCOPED_TRACE(seed_);
    const boost::shared_ptr<IData> record = records_.fill(GetParam()->make());
    const boost::shared_ptr<IData> copy = record->copy();
    ASSERT_EQ(*copy, *record);
    EXPECT_NE(copy, record);
    for (const Field& field : GetParam()->fields()) {
        const boost::shared_ptr<IData> changed = record->copy();
        field.reset(*changed);
        const bool wasDefault = field.isDefault(*record);
        EXPECT_EQ(*changed == *record, wasDefault) << field.name();
    }
}

TEST_P(EveryClass, FieldsInAnyOrderAndUnknownOnesAreReadToo) {
    const boost::shared_ptr<IData> record = records_.fill(GetParam()->make());
    const bson::BSONObj document = record->toBsonWithBson();
    // The same fields behind one unknown field and from the last to the first: every one is found by its name.
    const auto& fields = GetParam()->fields();
    bson::BSONObjBuilder builder;
    builder.append("unknownField", "x");
    for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
        mxservice::visitField(*field, *record, [&](const auto& member) {
            using Member = std::decay_t<decltype(member)>;
            if constexpr (std::is_same_v<Member, std::string>) {
                builder.append(field->name(), document.getStringField(field->name()));
            } else if constexpr (std::is_integral_v<Member>) {
                builder.append(field->name(), document.getLongField(field->name()));
            } else if constexpr (std::is_floating_point_v<Member>) {
                builder.append(field->name(), document.getDoubleField(field->name()));
            } else {
                builder.append(field->name(), document.getArrayField(field->name()));
            }
        });
    }
    const boost::shared_ptr<IData> read = GetParam()->make();
    ASSERT_TRUE(read->bsonValueFromObj(builder.obj(), false, nullptr));
    EXPECT_EQ(*read, *record);
}

TEST(Records, MissingFieldsAreResetOnlyWhenAsked) {
    CInstrumentDetail record;
    record.name = "old";
    record.lotSize = 100;
    bson::BSONObjBuilder builder;
    builder.append("market", "SH").append("code", "600000").append("lotSize", "not a number");
    const bson::BSONObj document = builder.obj();
    ASSERT_TRUE(record.bsonValueFromObj(document, false, nullptr));
    EXPECT_EQ(record.name, "old");
    EXPECT_EQ(record.lotSize, 100);
    EXPECT_EQ(record.getKey(), "SH600000");
    ASSERT_TRUE(record.bsonValueFromObj(document, true, nullptr));
    EXPECT_EQ(record.name, "");
    EXPECT_EQ(record.lotSize, 0);
}

TEST(Records, HandMadeDocumentsFindTheirClass) {
    const auto parse = [](const bson::BSONObj& object) {
        return TypeManager::instance()->parse(object, true, nullptr);
    };
    bson::BSONObjBuilder builder;
    const auto instrument = parse(builder.append("code", "600000").append("market", "SH").obj());
    ASSERT_TRUE(instrument);
    EXPECT_EQ(instrument->recordType().name(), "CInstrumentDetail");
    EXPECT_FALSE(parse(builder.append("code", "600000").obj()));
    EXPECT_FALSE(parse(bson::BSONObj()));
}

TEST(Records, EtfDocumentHasTheGivenKeysInTheGivenOrder) {
    const std::vector<std::string> keys{"type",
                                        "exchid",
                                        "etfcode",
                                        "prcode",
                                        "name",
                                        "cashbalance",
                                        "maxcashratio",
                                        "reportunit",
                                        "navpercu",
                                        "nav",
                                        "ecc",
                                        "needpublish",
                                        "enablecreation",
                                        "enableredemption",
                                        "creationlimit",
                                        "redemptionlimit",
                                        "tradingday",
                                        "pretradingday",
                                        "stocks"};
    EXPECT_EQ(CETFDetail().toBsonWithBson().fieldNames(), keys);
}

TEST(Records, PrintingNamesTheFieldsThatAreSet) {
    CInstrumentDetail record;
    record.market = "SH";
    record.code = "600000";
    record.priceTick = 0.01;
    std::ostringstream out;
    out << record;
    EXPECT_EQ(out.str(), "CInstrumentDetail{market=SH, code=600000, priceTick=0.01}");
}

}  // namespace
}  // namespace mxservice
