#pragma once

#include <lmdb.h>

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

/// One LMDB environment in a directory of its own, made where it is missing, with nothing around it. A library call
/// that fails ends the program.
class BareStore {
public:
    /// `flags` are LMDB's, say for another durability than its default.
    explicit BareStore(const std::filesystem::path& directory, unsigned flags = 0);
    ~BareStore();
    BareStore(const BareStore&) = delete;
    BareStore& operator=(const BareStore&) = delete;

    /// One transaction that puts what `next` hands out until it answers false; with `ascending`, the keys come in order
    /// and are appended without a search.
    using Next = std::function<bool(std::string_view& key, std::string_view& value)>;
    void write(bool ascending, const Next& next);

    /// Visits every entry in the order of the keys.
    using Visitor = std::function<void(std::string_view key, std::string_view value)>;
    void visitAll(const Visitor& visit) const;

    /// Reads the entries of single keys; each read sees the newest state. For one thread.
    class Reader {
    public:
        explicit Reader(const BareStore& store);
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        /// What `use` answers to the bytes of the entry, which must be there.
        template <class Use>
        auto read(std::string_view key, const Use& use) {
            renew();
            const auto answer = use(get(key));
            mdb_txn_reset(transaction_);
            return answer;
        }

    private:
        void renew();
        std::string_view get(std::string_view key);

        const BareStore& store_;
        MDB_txn* transaction_ = nullptr;
    };

private:
    MDB_env* environment_ = nullptr;
    MDB_dbi tree_ = 0;
};

/// Bytes of the data files beneath a directory of databases.
double dataBytes(const std::filesystem::path& root);

}  // namespace bench
