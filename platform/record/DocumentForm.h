#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <type_traits>

#include "platform/record/RecordType.h"

namespace mxservice {

/// The number as which a document holds a member: BSON knows none of 8 bits, and of 32 only those with a sign; 64 bits
/// hold every value of the others.
template <class Number>
using Stored = std::conditional_t<std::is_same_v<Number, std::int8_t>, std::int32_t,
                                  std::conditional_t<std::is_same_v<Number, std::uint32_t>, std::int64_t, Number>>;

/// Fills `record` from the bytes of one document in a single pass, checking every byte before it is followed. Fields
/// are expected in the order of the table and found there without a search; others are looked up by name. False when
/// the bytes are damaged: `*error`, if given, says where, and the record is then of no use.
bool readDocument(IData& record, const char* data, std::size_t size, bool resetMissing, std::string* error);

/// The class that a document shows by its telltale key, or null.
const RecordType* classOfDocument(const char* data, std::size_t size);

}  // namespace mxservice
