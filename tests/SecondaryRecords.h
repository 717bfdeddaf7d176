#pragma once

#include <boost/make_shared.hpp>

#include <string>

#include "platform/record/Records.h"

namespace mxservice {

inline boost::shared_ptr<CETFDetail> etf(const std::string& market, const std::string& etfCode,
                                         const std::string& prCode) {
    auto record = boost::make_shared<CETFDetail>();
    record->market = market;
    record->etfCode = etfCode;
    record->prCode = prCode;
    record->name = "fund " + etfCode;
    return record;
}

inline void addComponent(CETFDetail& fund, const std::string& market, const std::string& code,
                         const std::string& name) {
    auto component = boost::make_shared<CETFComponentStockInfo>();
    component->market = market;
    component->code = code;
    component->name = name;
    fund.components[code] = component;
}

inline boost::shared_ptr<CBondInfoDetail> bond(const std::string& code, const std::string& shanghai = {},
                                               const std::string& shenzhen = {}) {
    auto record = boost::make_shared<CBondInfoDetail>();
    record->bondCode = code;
    record->bondName = "bond " + code;
    record->shanghaiCode = shanghai;
    record->shenzhenCode = shenzhen;
    return record;
}

inline boost::shared_ptr<CTenderBondInfoDetail> tenderBond(const std::string& code) {
    auto record = boost::make_shared<CTenderBondInfoDetail>();
    record->code = code;
    return record;
}

inline boost::shared_ptr<CCounterpartyDetail> counterparty(const std::string& id, bool removed = false) {
    auto record = boost::make_shared<CCounterpartyDetail>();
    record->id = id;
    record->removed = removed ? 1 : 0;
    return record;
}

inline boost::shared_ptr<COTCFundPlanInfo> plan(const std::string& code, int group, const std::string& name = {}) {
    auto record = boost::make_shared<COTCFundPlanInfo>();
    record->market = "SOTC";
    record->code = code;
    record->name = name;
    record->planType = group;
    return record;
}

inline boost::shared_ptr<COTCSecuritiesIssuanceInfo> issuance(const std::string& code, const std::string& name = {}) {
    auto record = boost::make_shared<COTCSecuritiesIssuanceInfo>();
    record->code = code;
    record->name = name;
    return record;
}

inline boost::shared_ptr<COTCStockEnquiryPriceSetting> priceSetting(const std::string& code, double price = 0) {
    auto record = boost::make_shared<COTCStockEnquiryPriceSetting>();
    record->code = code;
    record->enquiryPrice = price;
    return record;
}

}  // namespace mxservice
