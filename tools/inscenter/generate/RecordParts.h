#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/record/Records.h"
#include "tools/inscenter/generate/MarketDay.h"
#include "tools/inscenter/generate/Names.h"

namespace inscenter::generate {

/// units / 10^decimals. Amounts are counted in integers and divided once: the nearest double, the same everywhere.
double decimal(std::int64_t units, int decimals);

/// A price step: 0.005 is {5, 3}.
struct Tick {
    std::int32_t units = 1;
    std::int32_t decimals = 2;

    double price(std::int64_t ticks) const { return decimal(ticks * units, decimals); }
};

/// A record with what every kind has: keys, day, currency, status.
mxservice::CInstrumentDetail startRecord(const MarketDay& day, std::string_view market, std::string code);

void setName(mxservice::CInstrumentDetail& record, const Name& name);

/// Step, previous close, and limits that far above and below it; 0: the market has none. The lower limit is one step
/// at least.
void setPriceBand(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t ticks, std::int64_t bandTicks);

/// The same with limits in thousandths of the close, rounded to the step.
void setPrices(mxservice::CInstrumentDetail& record, const Tick& tick, std::int64_t preCloseTicks, int limitPerMille);

/// Order sizes of a market whose orders come in multiples of `lot`, up to `most` units.
void setOrderSizes(mxservice::CInstrumentDetail& record, std::int32_t lot, std::int32_t most);

/// Shares in issue, and the part of them that trades.
void setShares(mxservice::CInstrumentDetail& record, Dice& dice);

/// The company behind a stock's number within its market: the same wherever the stock is named.
Company stockCompany(const MarketDay& day, std::string_view market, std::size_t index);

/// Code and name of the stocks and funds that baskets and options refer to.
struct Listing {
    std::string code;
    Name name;
};
Listing shanghaiStock(const MarketDay& day, std::size_t index);
Listing shenzhenStock(const MarketDay& day, std::size_t index);
Listing shanghaiFund(const MarketDay& day, std::size_t index);
Listing shenzhenFund(const MarketDay& day, std::size_t index);
/// Previous close of a fund, in steps of 0.001.
std::int64_t fundCloseTicks(const MarketDay& day, std::string_view market, std::size_t index);

/// Codes and names of listed bonds, which interbank bonds refer to.
std::string shanghaiBondCode(const MarketDay& day, std::size_t index);
std::string shenzhenBondCode(const MarketDay& day, std::size_t index);
Name bondName(const MarketDay& day, std::string_view market, std::size_t index);

}  // namespace inscenter::generate
