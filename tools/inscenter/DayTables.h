#pragma once

#include "tools/inscenter/Output.h"
#include "tools/inscenter/Verbs.h"

// Answers that are tables, for the verbs and for the report.

namespace inscenter {

/// The markets with the numbers and kinds of their records; a total last, unless there is none.
Table marketTable(Session& session);
/// Main contracts by product.
Table mainTable(Session& session);
Table productTable(Session& session);
Table spreadTable(Session& session);
/// The code sets of the day and the underlyings of stock options.
Table codeTable(Session& session);
Table outerTable(Session& session);

}  // namespace inscenter
