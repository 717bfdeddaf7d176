#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <string>
#include <vector>

#include "platform/record/Records.h"

namespace bench {

using InstrumentPtr = boost::shared_ptr<mxservice::CInstrumentDetail>;
using Records = std::vector<InstrumentPtr>;

/// The market whose list is asked for; of 300,000 instruments it holds 3,900, a third of them connect listings.
constexpr const char* kListedMarket = "HK";

/// The markets of a day, as a load names them.
extern const std::vector<std::string> kLoadedMarkets;

/// `count` invented instruments (tools/marketday), market by market as a day's snapshot comes, each with the fields
/// that an exchange's file fills, so that it takes the memory of a real one. Unlike a real day's, all have keys of
/// their own, so that what is measured for each record is that of one record wherever it is kept.
Records makeMarketDay(std::size_t count);

/// The 800 ETFs of an ordinary day, with 10 to 300 components each.
std::vector<boost::shared_ptr<mxservice::CETFDetail>> makeEtfs();

/// The market under which a center files the record: connect listings are filed under "HK".
const std::string& filedMarket(const mxservice::CInstrumentDetail& record);

/// The key text under which a center files it.
std::string filedKeyText(const mxservice::CInstrumentDetail& record);

/// The same text as a connect market's client writes it; `filed` begins with "HK".
std::string connectKeyText(const std::string& filed, bool shanghai);

}  // namespace bench
