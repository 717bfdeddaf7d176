#pragma once

#include <boost/make_shared.hpp>

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/record/Records.h"

// What the model answers: texts that stand for records, so that answers can be compared and printed.

namespace mxservice::model {

using Key = std::uint64_t;
using Markets = std::vector<std::string>;

using Instrument = boost::shared_ptr<CInstrumentDetail>;
using Etf = boost::shared_ptr<CETFDetail>;
using Bond = boost::shared_ptr<CBondInfoDetail>;
using TenderBond = boost::shared_ptr<CTenderBondInfoDetail>;
using Counterparty = boost::shared_ptr<CCounterpartyDetail>;
using Plan = boost::shared_ptr<COTCFundPlanInfo>;
using Issuance = boost::shared_ptr<COTCSecuritiesIssuanceInfo>;
using PriceSetting = boost::shared_ptr<COTCStockEnquiryPriceSetting>;

/// Market key to stock key to record.
using Grouped = std::map<Key, std::map<Key, Instrument>>;

/// Every field of a record as one text; "none" for an empty pointer.
std::string image(const IData* record);

template <class Pointer>
std::string imageOf(const Pointer& record) {
    return image(record.get());
}

/// A record of its own with equal fields, components included.
template <class Record>
boost::shared_ptr<Record> clone(const boost::shared_ptr<Record>& record) {
    return record ? boost::make_shared<Record>(*record) : nullptr;
}
Etf clone(const Etf& record);

/// The images that a correct answer may have: one, or several where the order of a hash container, or what a small
/// cache still holds, decides.
using Choice = std::set<std::string>;

template <class Pointer>
Choice only(const Pointer& record) {
    return {imageOf(record)};
}

using ChoiceByText = std::map<std::string, Choice>;
using Images = std::multiset<std::string>;

template <class Map>
std::map<std::string, std::string> imagesOf(const Map& records) {
    std::map<std::string, std::string> images;
    for (const auto& [key, record] : records) {
        images[key] = imageOf(record);
    }
    return images;
}

template <class List>
Images imagesIn(const List& records) {
    Images images;
    for (const auto& record : records) {
        images.insert(imageOf(record));
    }
    return images;
}

}  // namespace mxservice::model
