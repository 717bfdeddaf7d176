#pragma once

#include <bson/bson.h>

#include <string_view>

#include "platform/record/IData.h"

namespace bench {

// Records as documents by libbson's own calls, field by field in the order of the table: what the platform's encoding
// and decoding are measured against.

/// Encodes one record after the other into memory that it keeps.
class BsonEncoder {
public:
    BsonEncoder() { bson_init(&document_); }
    ~BsonEncoder() { bson_destroy(&document_); }
    BsonEncoder(const BsonEncoder&) = delete;
    BsonEncoder& operator=(const BsonEncoder&) = delete;

    /// Valid until the next call. The record holds no basket.
    std::string_view encode(const mxservice::IData& record);

private:
    bson_t document_;
};

/// Fills the record from a document that has its fields in their order; false otherwise.
bool decodeBson(std::string_view bytes, mxservice::IData& record);

}  // namespace bench
