#pragma once

#include <string>
#include <string_view>

#include "platform/record/IData.h"
#include "tools/inscenter/StoreDirectory.h"

namespace inscenter {

/// The key under which a document or sub-document is stored, taken apart.
struct DocumentKey {
    std::string_view field;  ///< empty for a document
    std::string_view key;
    bool isSub = false;

    explicit DocumentKey(std::string_view stored);
};

/// What is wrong with a document that stands in the database under that key: bytes that are no document, a class that
/// does not belong there, or a key that is not the one of its record (docs/persistence.md, "What is stored"). Empty
/// when nothing is. Of databases of unknown kinds only the bytes are checked.
std::string problemOf(const DatabaseDirectory& database, const DocumentKey& key, std::string_view bytes);

/// The record of the document, and its problem as above, for who wants the records: bytes are looked at only as far as
/// it takes to read them. Null where they make none.
boost::shared_ptr<mxservice::IData> recordOf(const DatabaseDirectory& database, const DocumentKey& key,
                                             std::string_view bytes, std::string& problem);

}  // namespace inscenter
