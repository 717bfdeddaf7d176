#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/persist/CPersistService.h"
#include "platform/persist/StoreEngine.h"

/// A directory of its own, gone with the object.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::filesystem::path& parent = std::filesystem::temp_directory_path()) {
        std::random_device random;
        do {
            path_ = parent / ("pmtest-" + std::to_string(random()));
        } while (!std::filesystem::create_directory(path_));
    }
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& path() const { return path_; }

    /// A place that needs no disk, where there is one: for tests that flush often and do not ask for durability.
    static std::filesystem::path inMemory() {
        const std::filesystem::path memory = "/dev/shm";
        return std::filesystem::is_directory(memory) ? memory : std::filesystem::temp_directory_path();
    }

private:
    std::filesystem::path path_;
};

/// The process's store in a directory of its own, for as long as the object lives.
class TemporaryStore {
public:
    TemporaryStore() { service().setRootPath(path().string()); }
    ~TemporaryStore() {
        service().setEngine(nullptr);
        service().setRootPath("");
    }
    TemporaryStore(const TemporaryStore&) = delete;
    TemporaryStore& operator=(const TemporaryStore&) = delete;

    static persist::CPersistService& service() { return *persist::CPersistService::instance(); }
    std::filesystem::path path() const { return directory_.path() / "store"; }
    std::filesystem::path path(const std::string& db) const { return path() / db; }

private:
    TemporaryDirectory directory_;
};

/// Entries that are ready.
class ReadyBatch : public persist::StoreBatch {
public:
    ReadyBatch(std::initializer_list<std::pair<std::string, std::string>> entries) : entries_(entries) {}
    void add(std::string key, std::string value) { entries_.emplace_back(std::move(key), std::move(value)); }
    std::size_t size() const override { return entries_.size(); }
    std::string_view key(std::size_t entry) const override { return entries_[entry].first; }
    std::string_view value(std::size_t entry) const override { return entries_[entry].second; }

private:
    std::vector<std::pair<std::string, std::string>> entries_;
};

/// The real engine, failing on demand: every call whose database name `fails` accepts, or the n-th call.
class FailingEngine : public persist::StoreEngine, public std::enable_shared_from_this<FailingEngine> {
public:
    /// Counts down; the call that reaches zero fails, with `forever` every later one, too. Negative: none.
    void failAt(int call, bool forever) {
        forever_ = forever;
        left_ = call;
    }
    void failNever() { failAt(kNever, false); }
    /// Fails every changing call on the databases of this name, without counting.
    void failWritesOf(const std::string& db) { broken_ = db; }
    /// What this gives is kept for the length of each call of the real engine.
    void surround(std::function<std::shared_ptr<void>()> scope) { scope_ = std::move(scope); }
    /// Called with the database's name ahead of every changing call.
    void onWrite(std::function<void(const std::string& db)> call) { onWrite_ = std::move(call); }
    int calls() const { return calls_; }
    /// How many calls failAt has failed.
    int failed() const { return failed_; }

    std::shared_ptr<persist::StoreDatabase> open(const std::string& directory, Mode mode,
                                                 persist::StoreStatus& status) override {
        if (fails()) {
            status = persist::StoreStatus::failure("injected");
            return nullptr;
        }
        const std::shared_ptr<void> scope = enter();
        std::shared_ptr<persist::StoreDatabase> real = real_->open(directory, mode, status);
        const std::string name = std::filesystem::path(directory).filename().string();
        return real ? std::make_shared<Database>(shared_from_this(), std::move(real), name) : nullptr;
    }

private:
    bool fails() {
        ++calls_;
        const int left = left_--;
        const bool failing = left == 0 || (left < 0 && forever_ && left > kNever);
        failed_ += failing ? 1 : 0;
        return failing;
    }
    std::shared_ptr<void> enter() const { return scope_ ? scope_() : nullptr; }
    bool writeFails(const std::string& db) {
        if (onWrite_) {
            onWrite_(db);
        }
        return fails() || db == broken_;
    }

    class Database : public persist::StoreDatabase {
    public:
        Database(std::shared_ptr<FailingEngine> engine, std::shared_ptr<persist::StoreDatabase> real, std::string name)
            : engine_(std::move(engine)), real_(std::move(real)), name_(std::move(name)) {}

        persist::StoreStatus put(const persist::StoreBatch& batch, bool onlyNew,
                                 const std::vector<std::string>& erased) override {
            const std::shared_ptr<void> scope = engine_->enter();
            return engine_->writeFails(name_) ? injected() : real_->put(batch, onlyNew, erased);
        }
        persist::StoreStatus get(std::string_view key, const Visitor& visit) override {
            const std::shared_ptr<void> scope = engine_->enter();
            return engine_->fails() ? injected() : real_->get(key, visit);
        }
        persist::StoreStatus scan(std::string_view prefix, const Visitor& visit) override {
            const std::shared_ptr<void> scope = engine_->enter();
            return engine_->fails() ? injected() : real_->scan(prefix, visit);
        }
        persist::StoreStatus replace(const persist::StoreBatch& batch) override {
            const std::shared_ptr<void> scope = engine_->enter();
            return engine_->writeFails(name_) ? injected() : real_->replace(batch);
        }
        bool isCurrent(Look look) const override { return real_->isCurrent(look); }

    private:
        static persist::StoreStatus injected() { return persist::StoreStatus::failure("injected"); }

        std::shared_ptr<FailingEngine> engine_;
        std::shared_ptr<persist::StoreDatabase> real_;
        std::string name_;
    };

    static constexpr int kNever = -1000000;

    std::shared_ptr<persist::StoreEngine> real_ = persist::makeLmdbEngine();
    std::string broken_;
    std::function<void(const std::string& db)> onWrite_;
    std::function<std::shared_ptr<void>()> scope_;
    std::atomic<int> calls_{0};
    std::atomic<int> failed_{0};
    std::atomic<int> left_{kNever};
    bool forever_ = false;
};
