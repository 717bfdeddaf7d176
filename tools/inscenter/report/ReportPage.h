#pragma once

namespace inscenter {

/// The page of a report; its data belong in place of "%DATA%".
extern const char* const kReportPage;

}  // namespace inscenter
