#pragma once

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>
#include <boost/shared_ptr.hpp>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/boundary/Store.h"
#include "base/instrumentcenter/catalogue/Prefetch.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/store/ClientLog.h"

namespace mxservice {

/// Records as documents under the decimal texts of their keys, in the order of those. Each document is built when the
/// store takes it, so the records must outlive the batch and stay as they are until the write has ended.
template <class Record>
class DocumentBatch final : public StoreBatch {
public:
    using Source = std::pair<std::uint64_t, const Record*>;

    explicit DocumentBatch(const std::vector<Source>& records) {
        entries_.reserve(records.size());
        for (const auto& [key, record] : records) {
            Entry& entry = entries_.emplace_back(*record);
            const char* const end = std::to_chars(entry.digits.data(), entry.digits.data() + kMostDigits, key).ptr;
            entry.size = static_cast<std::size_t>(end - entry.digits.data());
        }
        std::sort(entries_.begin(), entries_.end(),
                  [](const Entry& left, const Entry& right) { return left.key() < right.key(); });
    }

    /// None of the records may be null.
    explicit DocumentBatch(const std::map<std::uint64_t, boost::shared_ptr<Record>>& records)
        : DocumentBatch(sourcesOf(records)) {}

    std::size_t size() const override { return entries_.size(); }
    std::string_view key(std::size_t entry) const override { return entries_[entry].key(); }
    /// None for a record that is too large for a document; the store refuses the whole batch then.
    Document value(std::size_t entry) const override {
        if (entry + 1 < entries_.size()) {
            prefetchWhole(entries_[entry + 1].document.record());
        }
        return entries_[entry].document.make(bytes_);
    }

private:
    static constexpr std::size_t kMostDigits = std::numeric_limits<std::uint64_t>::digits10 + 1;
    struct Entry {
        explicit Entry(const Record& record) : document(record) {}

        std::array<char, kMostDigits> digits;
        std::size_t size = 0;
        DocumentMaker<Record> document;
        std::string_view key() const { return {digits.data(), size}; }
    };

    static std::vector<Source> sourcesOf(const std::map<std::uint64_t, boost::shared_ptr<Record>>& records) {
        std::vector<Source> sources;
        sources.reserve(records.size());
        for (const auto& [key, record] : records) {
            sources.emplace_back(key, record.get());
        }
        return sources;
    }

    std::vector<Entry> entries_;
    mutable std::string bytes_;  // of the last document that was asked for
};

/// The store, for callers that hold none of the center's locks.
inline DocumentStore store() {
    assertNoLockHeld();
    return {};
}

/// The key that the text of a document key stands for; 0 for any other text.
inline std::uint64_t documentKey(std::string_view text) {
    std::uint64_t key = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), key);
    return end.ec == std::errc() && end.ptr == text.data() + text.size() ? key : 0;
}

/// How a document becomes a record of a class: null when it does not.
template <class Record>
using DocumentReader = boost::shared_ptr<Record> (*)(Document document);

/// The document tells its class; null for one that is neither this class nor derived from it.
template <class Record>
boost::shared_ptr<Record> recordOf(Document document) {
    return boost::dynamic_pointer_cast<Record>(parsed(document));
}

/// The class is known: fields that the document lacks have their defaults.
template <class Record>
boost::shared_ptr<Record> knownRecordOf(Document document) {
    auto record = boost::make_shared<Record>();
    return fill(*record, document) ? record : nullptr;
}

/// The record stored under the decimal text of a key; null when there is none.
template <class Record>
boost::shared_ptr<Record> readRecord(const std::string& db, std::uint64_t key,
                                     DocumentReader<Record> read = recordOf<Record>) {
    boost::shared_ptr<Record> record;
    if (!db.empty()) {
        store().visit(db, std::to_string(key), [&](std::string_view, Document document) {
            record = read(document);
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
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kNotItsOwn, db, key));
        record = nullptr;
    }
    return record;
}

/// Every record in a database, in the order of the document keys. What is no such record is left out; nothing when the
/// database cannot be read to its end.
/// `wanted`, where given, is called with the document key and the record of each of them, and says which to keep.
template <class Record, class Wanted>
std::vector<boost::shared_ptr<Record>> readRecords(const std::string& db, DocumentReader<Record> read,
                                                   const Wanted& wanted) {
    std::vector<boost::shared_ptr<Record>> records;
    const auto keep = [&](std::string_view key, Document document) {
        boost::shared_ptr<Record> record = read(document);
        if (record && wanted(key, record)) {
            records.push_back(std::move(record));
        }
        return true;
    };
    if (db.empty() || !store().visitAll(db, keep)) {
        records.clear();
    }
    return records;
}

template <class Record>
std::vector<boost::shared_ptr<Record>> readRecords(const std::string& db,
                                                   DocumentReader<Record> read = recordOf<Record>) {
    return readRecords(db, read, [](std::string_view /*key*/, const auto& /*record*/) { return true; });
}

/// The instruments beneath a field of a pseudo-market's database; none while that is not registered.
inline std::vector<boost::shared_ptr<CInstrumentDetail>> readField(const std::string& db, const std::string& field) {
    std::vector<boost::shared_ptr<CInstrumentDetail>> records;
    if (db.empty()) {
        return records;
    }
    for (const auto& [key, document] : store().readField(db, field)) {
        auto record = boost::make_shared<CInstrumentDetail>();
        if (record->bsonValueFromObj(document, true, nullptr)) {
            records.push_back(std::move(record));
        }
    }
    return records;
}

}  // namespace mxservice
