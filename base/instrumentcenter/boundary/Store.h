#pragma once

#include <boost/shared_ptr.hpp>

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "platform/bson/BSONObj.h"
#include "platform/persist/CPersistService.h"
#include "platform/record/Records.h"

namespace mxservice {

#ifdef PM_NAMED_PLATFORM_ONLY

/// A document on its way to the store, or as it came from there.
using Document = bson::BSONObj;
/// Whether it stands for one that could not be made.
inline bool isNone(const Document& document) {
    return document.isEmpty();
}
/// Whether both are known to have the same bytes, which no named operation tells.
inline bool areSame(const Document& /*left*/, const Document& /*right*/) {
    return false;
}

/// Documents to be written.
class StoreBatch {
public:
    virtual ~StoreBatch() = default;
    virtual std::size_t size() const = 0;
    virtual std::string_view key(std::size_t entry) const = 0;
    virtual Document value(std::size_t entry) const = 0;
};
/// A field and the documents by key beneath it.
struct StoreField {
    std::string name;
    const StoreBatch* documents = nullptr;
};

/// Makes the document of one record, in the form that the platform has for its class.
template <class Record>
class DocumentMaker {
public:
    explicit DocumentMaker(const Record& record) : record_(&record) {}
    const Record& record() const { return *record_; }
    /// None for a record that is too large for a document.
    Document make(std::string& /*bytes*/) const {
        bson::BSONObjBuilder builder;
        if constexpr (std::is_same_v<Record, CInstrumentDetail>) {
            record_->appendElements_v2(builder);
        } else if constexpr (std::is_same_v<Record, CBondInfoDetail>) {
            record_->appendElements(builder);
        } else {
            return record_->toBsonWithBson();
        }
        return builder.obj();
    }

private:
    const Record* record_;
};

#else

/// A document on its way to the store, or as it lies there: the bytes, valid until the next one, not checked yet.
using Document = std::string_view;
/// Whether it stands for one that could not be made.
inline bool isNone(Document document) {
    return document.empty();
}
/// Whether both have the same bytes.
inline bool areSame(Document left, Document right) {
    return left == right;
}

/// Documents to be written, each made when the store takes it.
using persist::StoreBatch;
/// A field and the documents by key beneath it.
using StoreField = persist::CPersistService::Field;

/// Makes the document of one record.
template <class Record>
class DocumentMaker {
public:
    explicit DocumentMaker(const Record& record) : record_(&record), type_(&record.recordType()) {}
    const Record& record() const { return *record_; }
    /// None for a record that is too large for a document. It may lie in `bytes`.
    Document make(std::string& bytes) const {
        bytes.clear();
        return type_->appendDocument(*record_, bytes) ? bytes : Document();
    }

private:
    const Record* record_;
    const RecordType* type_;  // asked for beforehand: the store takes documents with its locks held
};

#endif

/// Fills a record from a document of its class; fields that the document lacks stay as they are. False when it is
/// damaged.
bool fill(IData& record, Document document);
/// The record of a document that tells its class; null when it tells none or is damaged.
boost::shared_ptr<IData> parsed(Document document);

/// What the persisted center asks of the store. A failure is logged by the store.
class DocumentStore {
public:
    /// Given a key and a document; answers whether to go on. Must not call the store again.
    using Visitor = std::function<bool(std::string_view key, Document document)>;

    /// Opens or creates a database before it is written to.
    bool open(const std::string& db) const;
    /// Puts documents beside those that are there.
    bool write(const std::string& db, const StoreBatch& documents) const;
    /// Puts documents in the place of all that are there.
    bool replace(const std::string& db, const StoreBatch& documents) const;
    /// Removes the documents of these keys, which need not be there, and puts others.
    bool change(const std::string& db, const StoreBatch& documents, const std::vector<std::string>& removed) const;
    /// Replaces what is beneath each of the fields.
    bool replaceFields(const std::string& db, const std::vector<StoreField>& fields) const;
    /// Removes every document.
    void drop(const std::string& db) const;

    void visit(const std::string& db, const std::string& key, const Visitor& visitor) const;
    /// False when the database cannot be read to its end.
    bool visitAll(const std::string& db, const Visitor& visitor) const;
    /// The documents beneath a field by their keys.
    std::map<std::string, bson::BSONObj> readField(const std::string& db, const std::string& field) const;

    /// Whether the calling thread's last call did what it was asked to. Named operations do not tell: there it is true.
    bool lastSucceeded() const;
    /// Why the calling thread's last call failed.
    std::string lastFailure() const;
};

}  // namespace mxservice
