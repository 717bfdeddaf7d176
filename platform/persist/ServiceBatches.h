#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/bson/BSONObj.h"
#include "platform/persist/StoreEngine.h"

// What the service hands to its engine.

namespace persist {

/// Keys and documents that the caller has in two lists of one length. An empty document stands for one that could not
/// be built.
class ObjectBatch final : public StoreBatch {
public:
    ObjectBatch(const std::vector<std::string>& keys, const std::vector<bson::BSONObj>& objects)
        : keys_(keys), objects_(objects) {}
    std::size_t size() const override { return keys_.size(); }
    std::string_view key(std::size_t entry) const override { return keys_[entry]; }
    std::string_view value(std::size_t entry) const override {
        const bson::BSONObj& object = objects_[entry];
        return {object.objdata(), static_cast<std::size_t>(object.objsize())};
    }

private:
    const std::vector<std::string>& keys_;
    const std::vector<bson::BSONObj>& objects_;
};

/// A batch of documents, of which those that hold nothing count as not made: that is what a builder hands out which
/// failed, and a record without a field would be read as one of defaults.
class CheckedBatch final : public StoreBatch {
public:
    explicit CheckedBatch(const StoreBatch& batch) : batch_(batch) {}
    std::size_t size() const override { return batch_.size(); }
    std::string_view key(std::size_t entry) const override { return batch_.key(entry); }
    std::string_view value(std::size_t entry) const override {
        constexpr std::size_t kEmptyDocumentBytes = 5;
        const std::string_view document = batch_.value(entry);
        return document.size() <= kEmptyDocumentBytes ? std::string_view() : document;
    }

private:
    const StoreBatch& batch_;
};

/// Nothing at all.
class EmptyBatch final : public StoreBatch {
public:
    std::size_t size() const override { return 0; }
    std::string_view key(std::size_t /*entry*/) const override { return {}; }
    std::string_view value(std::size_t /*entry*/) const override { return {}; }
};

}  // namespace persist
