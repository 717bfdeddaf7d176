#include "tools/inscenter/DocumentCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/bson/BSONObj.h"
#include "platform/persist/StoreEngine.h"
#include "platform/record/RecordType.h"
#include "platform/record/Records.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/MarketNames.h"

namespace inscenter {
namespace {

using mxservice::CBondInfoDetail;
using mxservice::CETFDetail;
using mxservice::CInstrumentDetail;
using mxservice::IData;
using mxservice::RecordType;
namespace market = mxservice::market;

/// The stock key texts that a record may be stored under.
using KeyTexts = std::vector<std::string>;

const CInstrumentDetail& instrument(const IData& record) {
    return static_cast<const CInstrumentDetail&>(record);
}

KeyTexts ownKey(const IData& record) {
    return {record.getKey()};
}

KeyTexts etfKeys(const IData& record) {
    const auto& etf = static_cast<const CETFDetail&>(record);  // stored twice, under each of its codes
    return {utils::ovStockKey(etf.market, etf.etfCode), utils::ovStockKey(etf.market, etf.prCode)};
}

KeyTexts etfInstrumentKey(const IData& record) {
    // Not by its own market, in which the fund itself may have the code.
    return {utils::ovStockKey(kEtfInstruments, instrument(record).code)};
}

KeyTexts bondKey(const IData& record) {
    return {utils::ovStockKey(market::kInterbank, static_cast<const CBondInfoDetail&>(record).bondCode)};
}

std::string marketField(const IData& record) {
    return instrument(record).market;
}

std::string productField(const IData& record) {
    return instrument(record).productId;
}

/// What the documents of a catalogue database are that is not named after a market.
struct Layout {
    const char* name;
    const RecordType& (*type)();
    KeyTexts (*keys)(const IData&);
    std::string (*field)(const IData&);  // null: documents, not sub-documents
};

constexpr std::array kPseudoMarkets{
    Layout{"FUMAIN", CInstrumentDetail::table, ownKey, marketField},
    Layout{"FUPROD", CInstrumentDetail::table, ownKey, productField},
    Layout{"ALLETF", CETFDetail::table, etfKeys, nullptr},
    Layout{kEtfInstruments, CInstrumentDetail::table, etfInstrumentKey, nullptr},
    Layout{"BANKBOND", CBondInfoDetail::table, bondKey, nullptr},
    Layout{"OTCINS", mxservice::COTCFundPlanInfo::table, ownKey, nullptr},
};
constexpr Layout kMarket{"", CInstrumentDetail::table, ownKey, nullptr};

const Layout& layoutOf(const DatabaseDirectory& database) {
    const auto* const found = std::find_if(kPseudoMarkets.begin(), kPseudoMarkets.end(),
                                           [&](const Layout& layout) { return database.market == layout.name; });
    const bool pseudo = database.kind == DirectoryKind::Catalogue && found != kPseudoMarkets.end();
    return pseudo ? *found : kMarket;
}

bool isConnectMarket(const std::string& name) {
    return name == market::kShanghaiConnect || name == market::kShenzhenConnect;
}

std::string keyOf(const std::string& text) {
    return std::to_string(utils::hash(text));
}

std::string misplaced(std::string_view what, std::string_view stored, const KeyTexts& texts) {
    std::string own;
    for (const std::string& text : texts) {
        own += fmt::format("{}{} of {}", own.empty() ? "" : " or ", keyOf(text), text);
        if (keyOf(text) == stored) {
            return {};
        }
    }
    return fmt::format("the {} should be {}", what, own);
}

/// A market's own databases hold the records of that market: folded in the catalogue, as they came among the raw ones.
std::string wrongMarket(const DatabaseDirectory& database, const CInstrumentDetail& record) {
    // Of folded records connect listings alone keep their market; a load writes "SH" into those of "SHFI".
    const bool folded = database.kind == DirectoryKind::Catalogue && isConnectMarket(record.market);
    const std::string filed = folded ? market::kHongKong : record.market;
    return filed == database.market ? std::string() : fmt::format("the record is of market {}", record.market);
}

std::string wrongPlace(const DatabaseDirectory& database, const DocumentKey& key, const IData& record) {
    const Layout& layout = layoutOf(database);
    if (&record.recordType() != &layout.type()) {
        return fmt::format("the document is a {}, not a {}", record.recordType().name(), layout.type().name());
    }
    if (key.isSub != (layout.field != nullptr)) {
        return key.isSub ? "sub-documents do not belong here" : "only sub-documents belong here";
    }
    if (layout.field != nullptr) {
        const std::string wrong = misplaced("field", key.field, {layout.field(record)});
        return wrong.empty() ? misplaced("key", key.key, layout.keys(record)) : wrong;
    }
    if (&layout != &kMarket) {
        return misplaced("key", key.key, layout.keys(record));
    }
    std::string wrong = wrongMarket(database, instrument(record));
    return wrong.empty() ? misplaced("key", key.key, {utils::ovStockKey(database.market, instrument(record).code)})
                         : wrong;
}

}  // namespace

DocumentKey::DocumentKey(std::string_view stored) : key(stored) {
    const std::size_t separator = stored.find(persist::kFieldSeparator);
    if (separator != std::string_view::npos) {
        field = stored.substr(0, separator);
        key = stored.substr(separator + 1);
        isSub = true;
    }
}

boost::shared_ptr<IData> recordOf(const DatabaseDirectory& database, const DocumentKey& key, std::string_view bytes,
                                  std::string& problem) {
    auto record = mxservice::TypeManager::instance()->parse(bytes, nullptr);
    std::int32_t size = 0;  // of the document, as it says itself: nothing may stand behind it
    std::memcpy(&size, bytes.data(), std::min(bytes.size(), sizeof size));
    problem = record && static_cast<std::size_t>(size) == bytes.size() ? wrongPlace(database, key, *record)
                                                                       : problemOf(database, key, bytes);
    return record;
}

std::string problemOf(const DatabaseDirectory& database, const DocumentKey& key, std::string_view bytes) {
    std::string error;
    const bson::BSONObj document = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
    if (!error.empty()) {
        return "no document: " + error;
    }
    // Whoever reads the document never gets to what stands behind it, so only this check does.
    if (static_cast<std::size_t>(document.objsize()) != bytes.size()) {
        return fmt::format("{} bytes, of which the document takes {}", bytes.size(), document.objsize());
    }
    // What belongs into any other kind is not known here.
    if (database.kind != DirectoryKind::Catalogue && database.kind != DirectoryKind::Raw) {
        return {};
    }
    const auto record = mxservice::TypeManager::instance()->parse(document, true, &error);
    return record ? wrongPlace(database, key, *record) : error;
}

}  // namespace inscenter
