#include "base/instrumentcenter/boundary/Store.h"

namespace mxservice {
namespace {

persist::CPersistService& service() {
    return *persist::CPersistService::instance();
}

}  // namespace

bool fill(IData& record, Document document) {
    // Straight from the store's page, without a check beforehand: what is read is checked as it is read.
    return record.readDocument(document, false, nullptr);
}

boost::shared_ptr<IData> parsed(Document document) {
    return TypeManager::instance()->parse(document, nullptr);
}

bool DocumentStore::open(const std::string& db) const {
    // Not emptied: what is replaced goes with the write that replaces it, so a crash before leaves the former
    // documents.
    return service().initDb(db, false);
}

bool DocumentStore::write(const std::string& db, const StoreBatch& documents) const {
    return service().writeDocuments(db, documents, false);
}

bool DocumentStore::replace(const std::string& db, const StoreBatch& documents) const {
    return service().replaceDocuments(db, documents);  // one transaction: a crash leaves the old ones or the new
}

bool DocumentStore::change(const std::string& db, const StoreBatch& documents,
                           const std::vector<std::string>& removed) const {
    return service().changeDocuments(db, documents, removed);
}

bool DocumentStore::replaceFields(const std::string& db, const std::vector<StoreField>& fields) const {
    return service().replaceHashDatas(db, fields);
}

void DocumentStore::drop(const std::string& db) const {
    service().dropAllData(db);
}

void DocumentStore::visit(const std::string& db, const std::string& key, const Visitor& visitor) const {
    service().visitData(db, key, visitor);
}

bool DocumentStore::visitAll(const std::string& db, const Visitor& visitor) const {
    return service().visitAllData(db, visitor);
}

std::map<std::string, bson::BSONObj> DocumentStore::readField(const std::string& db, const std::string& field) const {
    std::map<std::string, bson::BSONObj> documents;
    service().readHashDatas(db, documents, field, true);
    return documents;
}

bool DocumentStore::lastSucceeded() const {
    return persist::CPersistService::lastFailure().empty();
}

std::string DocumentStore::lastFailure() const {
    return persist::CPersistService::lastFailure();
}

}  // namespace mxservice
