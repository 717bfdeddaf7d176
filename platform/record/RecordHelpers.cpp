#include "platform/record/RecordHelpers.h"

#include "platform/record/Records.h"
#include "platform/utils/Hash.h"
#include "platform/utils/MarketRules.h"

namespace mxservice {
namespace {

constexpr int kCommodityGroup = 1;
constexpr int kInterestGroup = 2;
constexpr int kCall = 1;
constexpr int kPut = 2;

}  // namespace

std::string CInstrumentDetail::getKey() const {
    return utils::ovStockKey(market, code);
}

std::string CETFDetail::getKey() const {
    return utils::ovStockKey(market, etfCode);  // by the code that is traded; creation has another one
}

bool CFtOptionDataHelper::isFtOptionInstrument(const boost::shared_ptr<CInstrumentDetail>& record) {
    // By the market, too: options on stocks are calls and puts as well.
    return record && (record->optionType == kCall || record->optionType == kPut) &&
           utils::isFutureOptionMarket(record->market);
}

bool COutterFutureHelper::isCommdityGroup(const boost::shared_ptr<CInstrumentDetail>& record) {
    return record && record->productGroup == kCommodityGroup;
}

bool COutterFutureHelper::isInterestGroup(const boost::shared_ptr<CInstrumentDetail>& record) {
    return record && record->productGroup == kInterestGroup;
}

bool isIssueAdditionalStock(const boost::shared_ptr<CInstrumentDetail>& record) {
    return record && record->additionalIssueFlag == 1;
}

bool isSpecifiedValue(const std::string& text, int index, char value) {
    return index >= 0 && static_cast<std::size_t>(index) < text.size() &&
           text[static_cast<std::size_t>(index)] == value;
}

}  // namespace mxservice
