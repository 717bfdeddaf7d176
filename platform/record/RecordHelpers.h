#pragma once

#include <boost/shared_ptr.hpp>

#include <string>

#include "platform/Export.h"

namespace mxservice {

class CInstrumentDetail;

/// Questions that a record answers about itself. All safe from any thread; an empty pointer answers false.
class PM_PLATFORM_API CFtOptionDataHelper {
public:
    /// A futures option: a record of one of the six futures exchanges with optionType 1 or 2.
    static bool isFtOptionInstrument(const boost::shared_ptr<CInstrumentDetail>& record);
};

/// The product group of an outer futures record.
class PM_PLATFORM_API COutterFutureHelper {
public:
    /// productGroup is 1, commodity.
    static bool isCommdityGroup(const boost::shared_ptr<CInstrumentDetail>& record);
    /// productGroup is 2, interest rate.
    static bool isInterestGroup(const boost::shared_ptr<CInstrumentDetail>& record);
};

/// An additional issue of a listed stock: additionalIssueFlag is 1.
PM_PLATFORM_API bool isIssueAdditionalStock(const boost::shared_ptr<CInstrumentDetail>& record);

/// Whether the character at `index` (from 0) is `value`; false where the text is too short or the index negative.
PM_PLATFORM_API bool isSpecifiedValue(const std::string& text, int index, char value);

}  // namespace mxservice
