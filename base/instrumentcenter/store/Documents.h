#pragma once

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <boost/shared_ptr.hpp>

#include <string>
#include <string_view>
#include <vector>

#include "base/instrumentcenter/catalogue/Guarded.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/store/ClientLog.h"
#include "platform/bson/BSONObj.h"
#include "platform/persist/CPersistService.h"
#include "platform/record/Records.h"

namespace mxservice {

/// Documents with their keys, in one order; what a batch write takes. All bytes stand in one block.
class DocumentBatch {
public:
    explicit DocumentBatch(std::size_t size) { ends_.reserve(size); }

    /// Adds a record under the decimal text of its key. False for one that is too large for a document: it leaves a
    /// gap, which the store refuses with the whole batch.
    bool add(std::uint64_t key, const IData& record) {
        bytes_ += std::to_string(key);
        const std::size_t keyEnd = bytes_.size();
        const bool fits = record.appendDocument(bytes_);
        ends_.push_back({keyEnd, bytes_.size()});
        return fits;
    }

    void dropLast() {
        ends_.pop_back();
        bytes_.resize(ends_.empty() ? 0 : ends_.back().document);
    }

    /// Valid until the next change.
    std::vector<persist::StoreEntry> documents() const {
        std::vector<persist::StoreEntry> entries;
        entries.reserve(ends_.size());
        const std::string_view all = bytes_;
        std::size_t begin = 0;
        for (const Ends& ends : ends_) {
            entries.push_back({all.substr(begin, ends.key - begin), all.substr(ends.key, ends.document - ends.key)});
            begin = ends.document;
        }
        return entries;
    }

private:
    struct Ends {
        std::size_t key;
        std::size_t document;
    };

    std::string bytes_;
    std::vector<Ends> ends_;
};

/// The store, for callers that hold none of the center's locks.
inline persist::CPersistService& store() {
    assertNoLockHeld();
    return *persist::CPersistService::instance();
}

/// How the bytes of a document become a record of a class: null when they do not.
template <class Record>
using DocumentReader = boost::shared_ptr<Record> (*)(std::string_view bytes);

/// The document tells its class; null for one that is neither this class nor derived from it.
template <class Record>
boost::shared_ptr<Record> recordOf(std::string_view bytes) {
    return boost::dynamic_pointer_cast<Record>(TypeManager::instance()->parse(bytes, nullptr));
}

/// The class is known: fields that the document lacks have their defaults.
template <class Record>
boost::shared_ptr<Record> knownRecordOf(std::string_view bytes) {
    auto record = boost::make_shared<Record>();
    return record->readDocument(bytes, false, nullptr) ? record : nullptr;
}

/// The record stored under the decimal text of a key; null when there is none.
template <class Record>
boost::shared_ptr<Record> readRecord(const std::string& db, std::uint64_t key,
                                     DocumentReader<Record> read = recordOf<Record>) {
    boost::shared_ptr<Record> record;
    if (!db.empty()) {
        store().visitData(db, std::to_string(key), [&](std::string_view, std::string_view bytes) {
            record = read(bytes);
            return false;
        });
    }
    return record;
}

/// Whether a record stands under the key of another, as it may in a damaged file. One that lacks a part of its key says
/// nothing about that: any field may be missing from a document.
inline bool isOfAnother(StockKey key, const CInstrumentDetail& record) {
    return !record.market.empty() && !record.code.empty() &&
           key != stockKey(foldedMarket(record.market), record.code) && key != stockKey(record.market, record.code) &&
           key != stockKey(kEtfInstruments, record.code);
}
inline bool isOfAnother(StockKey key, const CETFDetail& etf) {
    return !etf.market.empty() && !etf.etfCode.empty() && !etf.prCode.empty() && key != etfKey(etf) &&
           key != creationKey(etf);
}
inline bool isOfAnother(StockKey key, const CBondInfoDetail& bond) {
    return !bond.bondCode.empty() && key != bondKey(bond);
}

/// readRecord, but another's record counts as missing.
template <class Record>
boost::shared_ptr<Record> readOwnRecord(const std::string& db, std::uint64_t key,
                                        DocumentReader<Record> read = recordOf<Record>) {
    boost::shared_ptr<Record> record = readRecord(db, key, read);
    if (record && isOfAnother(key, *record)) {
        PM_LOG(utils::kLogError, kClientSource, formatted(kNotItsOwn, db, key));
        record = nullptr;
    }
    return record;
}

/// Every record in a database, in the order of the document keys. What is no such record is left out; nothing when the
/// database cannot be read to its end.
template <class Record>
std::vector<boost::shared_ptr<Record>> readRecords(const std::string& db,
                                                   DocumentReader<Record> read = recordOf<Record>) {
    std::vector<boost::shared_ptr<Record>> records;
    const auto keep = [&](std::string_view, std::string_view bytes) {
        if (boost::shared_ptr<Record> record = read(bytes)) {
            records.push_back(std::move(record));
        }
        return true;
    };
    if (db.empty() || !store().visitAllData(db, keep)) {
        records.clear();
    }
    return records;
}

/// The instruments in a map of sub-documents.
inline std::vector<boost::shared_ptr<CInstrumentDetail>> instrumentsOf(
    const std::map<std::string, bson::BSONObj>& documents) {
    std::vector<boost::shared_ptr<CInstrumentDetail>> records;
    records.reserve(documents.size());
    for (const auto& [key, document] : documents) {
        auto record = boost::make_shared<CInstrumentDetail>();
        if (record->bsonValueFromObj(document, true, nullptr)) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

}  // namespace mxservice
