#include "base/instrumentcenter/boundary/Store.h"

namespace mxservice {
namespace {

persist::CPersistService& service() {
    return *persist::CPersistService::instance();
}

/// A batch as the service takes it: all documents at once.
struct WholeBatch {
    explicit WholeBatch(const StoreBatch& batch) {
        for (std::size_t i = 0; i < batch.size() && complete; ++i) {
            keys.emplace_back(batch.key(i));
            values.push_back(batch.value(i));
            complete = !isNone(values.back());  // known before the batch drops or writes anything
        }
    }

    std::vector<std::string> keys;
    std::vector<bson::BSONObj> values;
    bool complete = true;  // every document could be made
};

}  // namespace

bool fill(IData& record, Document document) {
    return record.bsonValueFromObj(document, true, nullptr);
}

boost::shared_ptr<IData> parsed(Document document) {
    return TypeManager::instance()->parse(document, true, nullptr);
}

bool DocumentStore::open(const std::string& db) const {
    return service().initDb(db, false);
}

bool DocumentStore::write(const std::string& db, const StoreBatch& documents) const {
    const WholeBatch batch(documents);
    return batch.complete && service().writeDatas(db, batch.keys, batch.values, false);
}

bool DocumentStore::replace(const std::string& db, const StoreBatch& documents) const {
    const WholeBatch batch(documents);
    if (!batch.complete) {
        return false;
    }
    service().dropAllData(db);  // a crash from here on leaves the database empty until the next load
    return service().writeDatas(db, batch.keys, batch.values, false);
}

bool DocumentStore::change(const std::string& db, const StoreBatch& documents,
                           const std::vector<std::string>& removed) const {
    // What is new first: a crash from there on leaves a document too many, which the next load takes away.
    bool all = write(db, documents);
    for (const std::string& key : removed) {
        all = service().removeData(db, key) && all;
    }
    return all;
}

bool DocumentStore::replaceFields(const std::string& db, const std::vector<StoreField>& fields) const {
    // Field by field: one that fails keeps no other out, and a crash leaves the one it meets without documents.
    bool all = true;
    for (const StoreField& field : fields) {
        const WholeBatch batch(*field.documents);
        all = batch.complete && service().removeData(db, field.name) &&
              service().writeHashDatas(db, batch.keys, batch.values, false, field.name, false) && all;
    }
    return all;
}

void DocumentStore::drop(const std::string& db) const {
    service().dropAllData(db);
}

void DocumentStore::visit(const std::string& db, const std::string& key, const Visitor& visitor) const {
    const bson::BSONObj document = service().readData(db, key);
    if (!document.isEmpty()) {  // which is the service's answer to a miss
        visitor(key, document);
    }
}

bool DocumentStore::visitAll(const std::string& db, const Visitor& visitor) const {
    // A database that cannot be read looks like an empty one.
    for (const auto& [key, document] : service().readAllData(db, ".*")) {
        if (!visitor(key, document)) {
            break;
        }
    }
    return true;
}

std::map<std::string, bson::BSONObj> DocumentStore::readField(const std::string& db, const std::string& field) const {
    std::map<std::string, bson::BSONObj> documents;
    service().readHashDatas(db, documents, field, true);
    return documents;
}

bool DocumentStore::lastSucceeded() const {
    return true;
}

std::string DocumentStore::lastFailure() const {
    return "not told, see the store's log";
}

}  // namespace mxservice
