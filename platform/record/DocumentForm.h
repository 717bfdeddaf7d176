#pragma once

#include <cstddef>
#include <string>

#include "platform/record/RecordType.h"

namespace mxservice {

/// Fills `record` from the bytes of one document in a single pass, checking every byte before it is followed. Fields
/// are expected in the order of the table and found there without a search; others are looked up by name. False when
/// the bytes are damaged: `*error`, if given, says where, and the record is then of no use.
bool readDocument(IData& record, const char* data, std::size_t size, bool resetMissing, std::string* error);

/// The class that a document shows by its telltale key, or null.
const RecordType* classOfDocument(const char* data, std::size_t size);

}  // namespace mxservice
