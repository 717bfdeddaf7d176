#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.h"
#include "platform/bson/BSONObj.h"
#include "platform/persist/RootStatus.h"
#include "platform/persist/StoreEngine.h"
#include "platform/utils/Singleton.h"

namespace persist {

/// The local document store: databases of documents by text key, each database one directory beneath the root.
///
/// Safe from any thread, and for several processes on one root. A call that changes a database is one transaction: it
/// is done whole, on disk when the call returns, or not at all. No call on a database throws; one that fails answers
/// false or nothing and writes one line to the log, unless memory lacks even for that.
///
/// A database's name becomes its directory's name. Names that are empty or longer than 64 bytes, begin with a dot, or
/// hold a path separator, a control character or ".." are refused before the disk is touched; so is on every system
/// what Windows cannot have: one of <>:"|?*, a dot or blank at the end, a device's name ("nul", "com1") with or without
/// an extension. Nothing outside the root is ever created or removed. Where the file system takes two names for one,
/// because it ignores case, the database that was there first keeps its directory, and the other cannot be created.
///
/// A directory that is removed or replaced while the service has it open is noticed, by writes at once and by reads
/// within 10 ms: reads find nothing, writes fail, and the next initDb begins a fresh database. A damaged database is
/// never read; the next initDb moves it aside (the directory's name gets ".damaged-1" and so on behind it) and begins
/// afresh.
class PM_PLATFORM_API CPersistService {
public:
    /// The process's store; never null.
    static CPersistService* instance();

    /// Where the databases live; made on demand; a relative path is taken from the working directory of now. Closes
    /// what was open. Until a root is set, every call fails. Answers whether the built-in engine can use it now and
    /// makes nothing for that; it is set in any case, as what is in its way may go. The path is UTF-8 on every system;
    /// one that is malformed on Windows, or holds a NUL anywhere, is unusable for good.
    RootStatus setRootPath(const std::string& directory);
    /// The root as an absolute path; empty until one is set.
    std::string rootPath() const;

    /// Replaces the storage engine and closes what was open; an empty pointer restores the built-in one.
    void setEngine(std::shared_ptr<StoreEngine> engine);

    /// Opens or creates a database before it is written to; with `empty`, removes its documents.
    bool initDb(const std::string& db, bool empty);

    /// Stores documents, the i-th under the i-th key; a document that is there is replaced, or kept with `onlyNew`.
    /// False when the two vectors differ in length, a key is empty, longer than 511 bytes or holds a NUL, or a document
    /// is empty: an empty document stands for one that could not be built.
    bool writeData(const std::string& db, const std::string& key, const bson::BSONObj& value, bool onlyNew);
    /// The same for several documents in one transaction.
    bool writeDatas(const std::string& db, const std::vector<std::string>& keys,
                    const std::vector<bson::BSONObj>& values, bool onlyNew);

    /// The same for documents whose bytes the caller builds himself (IData::appendDocument), one at a time, while the
    /// store is writing. Bytes that hold no more than an empty document are refused.
    bool writeDocuments(const std::string& db, const StoreBatch& documents, bool onlyNew);

    /// Removes every document and sub-document and stores these in their place, in one transaction: whoever reads, also
    /// after a crash, finds what was there before or these, all of them.
    bool replaceDocuments(const std::string& db, const StoreBatch& documents);

    /// Removes the documents of the keys `removed`, which need not be there, and stores these, in one transaction.
    bool changeDocuments(const std::string& db, const StoreBatch& documents, const std::vector<std::string>& removed);

    /// Given the key and the bytes of a document, which are valid only during the call and not yet checked; answers
    /// whether to go on. Must not call the service again.
    using Visitor = std::function<bool(std::string_view key, std::string_view bytes)>;

    /// Visits one document straight from the store's page, without a copy; false when there is none.
    bool visitData(const std::string& db, const std::string& key, const Visitor& visit);
    /// Visits every document in the order of the keys, in one sweep and one state of the database; sub-documents are
    /// left out. False when the database cannot be read or does not exist.
    bool visitAllData(const std::string& db, const Visitor& visit);

    /// The document of that key; the empty document when there is none.
    bson::BSONObj readData(const std::string& db, const std::string& key);

    /// Every document whose whole key matches the regular expression (ECMAScript). Sub-documents are left out.
    std::map<std::string, bson::BSONObj> readAllData(const std::string& db, const std::string& pattern);

    /// Sub-documents: documents by key beneath one field of the database. Writing with `replace` first removes what the
    /// field holds. Reading adds to `out`, or empties it first with `replace`; false when the field holds nothing.
    bool writeHashDatas(const std::string& db, const std::vector<std::string>& keys,
                        const std::vector<bson::BSONObj>& values, bool onlyNew, const std::string& field, bool replace);
    /// A field with its sub-documents.
    struct Field {
        std::string name;                       ///< any text without a NUL
        const StoreBatch* documents = nullptr;  ///< by key beneath the field; the caller's, for the call; null: none
    };
    /// Replaces the sub-documents of several fields in one transaction.
    bool replaceHashDatas(const std::string& db, const std::vector<Field>& fields);
    /// Reads the sub-documents of a field.
    bool readHashDatas(const std::string& db, std::map<std::string, bson::BSONObj>& out, const std::string& field,
                       bool replace);

    /// Removes the document of that key and the sub-documents of that field. True also when there was nothing.
    bool removeData(const std::string& db, const std::string& key);

    /// Removes every document and sub-document; nothing for a database that does not exist.
    void dropAllData(const std::string& db);

    /// Why the calling thread's last call on a database did not do what it was asked to, as its line in the log says;
    /// empty when it did. Valid until the thread's next call.
    static const std::string& lastFailure();

    CPersistService(const CPersistService&) = delete;
    CPersistService& operator=(const CPersistService&) = delete;

private:
    friend class utils::CSingletonT<CPersistService>;
    CPersistService();
    ~CPersistService();

    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace persist

namespace utils {
extern template class CSingletonT<persist::CPersistService>;
}
