#pragma once

#include "platform/record/RecordType.h"

namespace inscenter {

/// What the field of a class of records says, in a few words for people; empty where nobody wrote it down.
const char* meaningOf(const mxservice::RecordType& type, const mxservice::Field& field);

}  // namespace inscenter
