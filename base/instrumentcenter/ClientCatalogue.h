#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/instrumentcenter/ClientLoad.h"
#include "base/instrumentcenter/store/DBBuilder.h"
#include "base/instrumentcenter/store/Documents.h"

// Funds, bonds and plans: catalogues whose records live in one database each.

namespace mxservice {

/// The keys of records that memory holds by key.
template <class Record>
std::set<std::uint64_t> keysOf(const std::map<std::uint64_t, boost::shared_ptr<Record>>& records) {
    std::set<std::uint64_t> keys;
    for (const auto& [key, record] : records) {
        keys.insert(keys.end(), key);
    }
    return keys;
}

/// Some of the documents of a batch.
class PartOfBatch final : public StoreBatch {
public:
    PartOfBatch(const StoreBatch& whole, std::vector<std::size_t> entries)
        : whole_(whole), entries_(std::move(entries)) {}
    std::size_t size() const override { return entries_.size(); }
    std::string_view key(std::size_t entry) const override { return whole_.key(entries_[entry]); }
    Document value(std::size_t entry) const override { return whole_.value(entries_[entry]); }

private:
    const StoreBatch& whole_;
    const std::vector<std::size_t> entries_;
};

template <class Record>
struct Unwritten {
    std::map<std::uint64_t, boost::shared_ptr<Record>> records;
    std::string reason;
};

/// Opens the database and writes the batch of the records, all in one step, in which its other documents are kept or
/// dropped.
/// Nothing when they are stored; else those that are not: the ones that are too large for a document, or all of them,
/// which may be none, when the write fails.
template <class Record>
std::optional<Unwritten<Record>> saveApart(const std::string& db, const DocumentBatch<Record>& batch,
                                           const std::map<std::uint64_t, boost::shared_ptr<Record>>& records,
                                           Others rest) {
    // Of a database that cannot be opened the write would only say that there is none.
    const bool isOpen = store().open(db);
    const auto save = [&](const StoreBatch& part) {
        return isOpen && (rest == Others::Drop ? store().replace(db, part) : store().write(db, part));
    };
    const bool nothingToDo = rest == Others::Keep && records.empty();
    if (nothingToDo || save(batch)) {
        return std::nullopt;
    }
    Unwritten<Record> unwritten{{}, store().lastFailure()};
    // One record that no document can hold fails the whole batch. It alone stays in memory, so that the others are not
    // kept out of the store with it.
    std::vector<std::size_t> fitting;
    for (std::size_t entry = 0; entry < batch.size(); ++entry) {
        if (isNone(batch.value(entry))) {
            const std::uint64_t key = documentKey(batch.key(entry));
            unwritten.records.emplace(key, records.at(key));
        } else {
            fitting.push_back(entry);
        }
    }
    if (unwritten.records.empty()) {
        unwritten.records = records;
    } else if (!save(PartOfBatch(batch, std::move(fitting)))) {
        unwritten = {records, store().lastFailure()};
    }
    return unwritten;
}

/// Writes a catalogue's records and makes them what memory knows of it: keys, unwritten records, cache. All of it while
/// no other load of the catalogue writes: of two at once the one that writes last has its way in the store and in
/// memory.
template <class Record>
void replaceCatalogue(ClientState& client, const char* name, Others rest,
                      const std::map<std::uint64_t, boost::shared_ptr<Record>>& records,
                      Part<StoredCatalogue<Record>> ClientVersion::*catalogue, RecordCache<Record>& cache) {
    const std::string db = DBBuilder::buildDbName(name);
    StoredCatalogue<Record> fresh;
    fresh.keys = keysOf(records);
    const auto former = client.hold();  // destroyed after the locks, unwritten records of the host's included
    const DocumentBatch batch(records);
    std::optional<std::string> failure;
    {
        const DatabaseWriting writing(client, db);
        if (auto unwritten = saveApart(db, batch, records, rest)) {
            failure = std::move(unwritten->reason);
            fresh.unwritten = std::move(unwritten->records);
            fresh.isBehind = rest == Others::Drop;
        }
        client.publish([&](ClientVersion& version) {
            (version.*catalogue).set(std::move(fresh));
            version.updateDbName(name, db);
        });
        // After the write: a reader that met an old document meanwhile has its copy replaced.
        cache.refresh(records);
    }
    if (failure) {
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, name));
        client.loads.write()->noteFailedWrite(db, *failure);
    }
}

/// The record of a key: cached, else unwritten, else stored.
template <class Record>
boost::shared_ptr<Record> readThrough(const ClientState& client, const char* name, std::uint64_t key,
                                      Part<StoredCatalogue<Record>> ClientVersion::*catalogue,
                                      RecordCache<Record>& cache) {
    if (boost::shared_ptr<Record> cached = cache.find(key)) {
        return cached;
    }
    const std::uint64_t generation = cache.generation();  // before the version, as for instruments
    const auto version = client.hold();
    boost::shared_ptr<Record> record = in(((*version).*catalogue)->unwritten, key);
    if (!record) {
        record = readOwnRecord<Record>(version->getDbName(name), key);
    }
    if (record) {
        cache.insert(key, record, generation);
    }
    return record;
}

}  // namespace mxservice
