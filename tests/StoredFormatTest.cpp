#include <gtest/gtest.h>

#include "tests/CenterFixture.h"
#include "tests/LogCapture.h"
#include "tests/RandomRecords.h"
#include "tests/SecondaryRecords.h"

// The stored format is a promise. tests/data/store was written once by DISABLED_WritesTheStore below; every later
// version must read it back. It is never written again: a new format gets a store of its own beside it.

namespace mxservice {
namespace {

const std::filesystem::path kCheckedIn = std::filesystem::path(PM_TEST_DATA) / "store";

/// The records of the checked-in store, the same in every build.
struct StoredRecords {
    StoredRecords() {
        for (unsigned i = 0; i < 3; ++i) {
            instruments.push_back(named(make<CInstrumentDetail>(i), "SH", std::to_string(600000 + i)));
        }
        instruments.push_back(named(make<CInstrumentDetail>(3), "HGT", "00700"));
        instruments.push_back(named(make<CInstrumentDetail>(4), "DCE", "m2605"));
        for (const InstrumentPtr& record : instruments) {
            record->productId = "product";
            record->mainContractFlag = 1;
            record->combinedConnectFlags = 5;
        }
        fund = make<CETFDetail>(5);
        fund->market = "SH";
        fund->etfCode = "510050";
        fund->prCode = "510051";
        bondRecord = make<CBondInfoDetail>(6);
        bondRecord->bondCode = "240001";
        planRecord = make<COTCFundPlanInfo>(7);
        named(planRecord, "SOTC", "P1");
    }

    /// A record with the fields that the first version had; later ones are at their defaults, as the store lacks them.
    template <class Record>
    static boost::shared_ptr<Record> make(unsigned seed) {
        const auto record = RandomRecords(seed).make<Record>();
        trim(*record);
        return record;
    }
    static void trim(IData& record) {
        const std::map<std::string, std::size_t> fieldCounts{{"CInstrumentDetail", 62},
                                                             {"CETFDetail", 19},
                                                             {"CETFComponentStockInfo", 9},
                                                             {"CBondInfoDetail", 20},
                                                             {"COTCFundPlanInfo", 71}};
        const std::vector<Field>& fields = record.recordType().fields();
        for (std::size_t i = fieldCounts.at(record.recordType().name()); i < fields.size(); ++i) {
            fields[i].reset(record);
        }
        if (auto* const fund = dynamic_cast<CETFDetail*>(&record)) {
            for (const auto& [code, component] : fund->components) {
                trim(*component);
            }
        }
    }

    static InstrumentPtr named(const InstrumentPtr& record, const std::string& market, const std::string& code) {
        record->market = market;
        record->code = code;
        record->platformCode = code;
        return record;
    }

    Instruments instruments;
    boost::shared_ptr<CETFDetail> fund;
    boost::shared_ptr<CBondInfoDetail> bondRecord;
    boost::shared_ptr<COTCFundPlanInfo> planRecord;
};

std::string keyOf(const std::string& text) {
    return std::to_string(utils::hash(text));
}

/// The record of a document, or null.
boost::shared_ptr<IData> stored(const std::string& db, const std::string& key) {
    return TypeManager::instance()->parse(TemporaryStore::service().readData(db, key), true, nullptr);
}

TEST(StoredFormat, DISABLED_WritesTheStore) {
    std::filesystem::create_directories(kCheckedIn);
    TemporaryStore::service().setRootPath(kCheckedIn.string());
    const StoredRecords records;
    OpenClientCenter center;
    center.initInstruments({"SH", "HGT", "DCE"}, records.instruments);
    center.initEtfs({records.fund});
    center.initBonds({{"240001", records.bondRecord}});
    center.initOtcInstruments({records.planRecord});
    TemporaryStore::service().setRootPath("");
}

TEST(StoredFormat, OfTheFirstVersionReadsBack) {
    const TemporaryDirectory copy;
    std::filesystem::copy(kCheckedIn, copy.path(), std::filesystem::copy_options::recursive);
    TemporaryStore::service().setRootPath(copy.path().string());
    const LogCapture capture;
    const StoredRecords records;
    const auto expect = [](const std::string& db, const std::string& text, const IData& record) {
        const boost::shared_ptr<IData> read = stored(db, keyOf(text));
        ASSERT_TRUE(read) << db << ' ' << text;
        EXPECT_EQ(*read, record) << db << ' ' << text;
    };
    for (int i = 0; i < 3; ++i) {
        const IData& record = *records.instruments[static_cast<std::size_t>(i)];
        expect("OvIns_SH", "SH" + std::to_string(600000 + i), record);
        expect("OvRawSH", "SH" + std::to_string(600000 + i), record);
    }
    expect("OvIns_HK", "HK00700", *records.instruments[3]);
    expect("OvRawHGT", "HGT00700", *records.instruments[3]);
    expect("OvIns_DCE", "DCEm2605", *records.instruments[4]);
    expect("OvIns_ALLETF", "SH510050", *records.fund);
    expect("OvIns_ALLETF", "SH510051", *records.fund);
    expect("OvIns_BANKBOND", "BANK240001", *records.bondRecord);
    expect("OvIns_OTCINS", "SOTCP1", *records.planRecord);
    EXPECT_TRUE(stored("OvIns_ETFINSTS", keyOf("ETFINSTS510051")));
    EXPECT_TRUE(stored("OvIns_BANK", keyOf("BANK240001")));
    for (const auto& [db, field] : {std::pair("OvIns_FUMAIN", "DCE"), std::pair("OvIns_FUPROD", "product")}) {
        std::map<std::string, bson::BSONObj> documents;
        ASSERT_TRUE(TemporaryStore::service().readHashDatas(db, documents, keyOf(field), true)) << db;
        ASSERT_EQ(documents.count(keyOf("DCEm2605")), 1U) << db;
        CInstrumentDetail record;
        EXPECT_TRUE(record.bsonValueFromObj(documents[keyOf("DCEm2605")], true, nullptr));
        EXPECT_EQ(record, *records.instruments[4]) << db;
    }
    EXPECT_TRUE(capture.texts().empty());
    TemporaryStore::service().setRootPath("");
}

}  // namespace
}  // namespace mxservice
