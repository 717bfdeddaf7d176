#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <string>
#include <vector>

#include "platform/record/Records.h"

namespace bench {

using InstrumentPtr = boost::shared_ptr<mxservice::CInstrumentDetail>;
using Records = std::vector<InstrumentPtr>;

/// The market whose list is asked for; it holds about three in a hundred instruments, half of them connect listings.
constexpr const char* kListedMarket = "HK";

/// The markets of a day, as a load names them.
extern const std::vector<std::string> kLoadedMarkets;

/// `count` instruments with distinct keys, market by market as a day's snapshot comes, each with the fields that a
/// real one carries, so that it takes the memory of a real one. `count` is at most a few millions: codes of some
/// markets have five or six digits.
Records makeMarketDay(std::size_t count);

/// The key text under which a center files the record: connect listings are filed under "HK".
std::string filedKeyText(const mxservice::CInstrumentDetail& record);

/// The same text as a connect market's client writes it; `filed` begins with "HK".
std::string connectKeyText(const std::string& filed, bool shanghai);

}  // namespace bench
