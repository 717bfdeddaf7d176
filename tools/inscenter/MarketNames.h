#pragma once

#include <array>
#include <string>
#include <string_view>

#include "snapshot/RecordText.h"

namespace inscenter {

/// The market under which the centers file the instruments that stand for the creation of funds.
constexpr const char* kEtfInstruments = "ETFINSTS";
using mxservice::kFiledField;

struct MarketName {
    const char* market;
    const char* name;
};

/// The markets that the tool has a name for.
inline constexpr std::array kMarketNames{MarketName{"SH", "Shanghai Stock Exchange"},
                                         MarketName{"SZ", "Shenzhen Stock Exchange"},
                                         MarketName{"BJ", "Beijing Stock Exchange"},
                                         MarketName{"SHFI", "Shanghai Stock Exchange, special listings"},
                                         MarketName{"HK", "Hong Kong"},
                                         MarketName{"HGT", "Hong Kong, through Shanghai"},
                                         MarketName{"SGT", "Hong Kong, through Shenzhen"},
                                         MarketName{"SHO", "Shanghai stock options"},
                                         MarketName{"SZO", "Shenzhen stock options"},
                                         MarketName{"CFFEX", "China Financial Futures Exchange"},
                                         MarketName{"SHFE", "Shanghai Futures Exchange"},
                                         MarketName{"DCE", "Dalian Commodity Exchange"},
                                         MarketName{"CZCE", "Zhengzhou Commodity Exchange"},
                                         MarketName{"INE", "Shanghai International Energy Exchange"},
                                         MarketName{"GFEX", "Guangzhou Futures Exchange"},
                                         MarketName{"NEEQ", "NEEQ board"},
                                         MarketName{"SHGE", "Shanghai Gold Exchange"},
                                         MarketName{"BANK", "Interbank bonds"},
                                         MarketName{"ETFINSTS", "ETF creation and redemption codes"},
                                         MarketName{"WP", "Outer futures"},
                                         MarketName{"NYSE", "New York Stock Exchange"},
                                         MarketName{"NASDAQ", "NASDAQ"},
                                         MarketName{"OTC", "OTC fund plans"},
                                         MarketName{"SOTC", "OTC"}};

/// How people call the market; empty when the tool has no name for it.
std::string marketName(std::string_view market);

/// The market under which a center files records of this one: "HK" for the connect markets, "SH" for "SHFI".
std::string filedMarket(std::string_view market);

}  // namespace inscenter
