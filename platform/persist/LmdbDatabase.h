#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/persist/DataFile.h"
#include "platform/persist/LmdbEnvironment.h"
#include "platform/persist/StoreEngine.h"

namespace persist {

/// A database in one LMDB environment: entries in its one unnamed tree.
class LmdbDatabase final : public StoreDatabase {
public:
    LmdbDatabase(const std::string& directory, bool readOnly)
        : directory_(directory), readOnly_(readOnly), file_(directory), environment_(directory, file_) {}

    /// Opens and checks the database; to be called once, before anything else. Without `create`, a file that is empty
    /// or not there is no database.
    StoreStatus open(bool create);
    /// Closes it; every later call fails. Waits for calls under way.
    void retire() { environment_.close(); }

    bool readOnly() const { return readOnly_; }
    /// Whether this process is a fork of the one that opened it, and must not touch it.
    bool inherited() const { return environment_.inherited(); }

    bool isCurrent(Look look) const override {
        return environment_.usable() && (look == Look::Now ? file_.isCurrent() : file_.wasCurrent());
    }

    StoreStatus put(const StoreBatch& batch, bool onlyNew, const std::vector<std::string>& erased) override;
    StoreStatus get(std::string_view key, const Visitor& visit) override;
    StoreStatus scan(std::string_view prefix, const Visitor& visit) override;
    StoreStatus replace(const StoreBatch& batch) override;

private:
    StoreStatus create();
    StoreStatus checkPages(const OpenFile& file);
    StoreStatus finishOpening();
    int erase(MDB_txn* transaction, const std::string& name, WriteSize& size);
    template <class Prepare>
    StoreStatus write(const StoreBatch& batch, bool onlyNew, Prepare prepare);

    const std::string directory_;
    const bool readOnly_;
    DataFile file_;
    LmdbEnvironment environment_;
};

}  // namespace persist
