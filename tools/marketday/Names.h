#pragma once

#include <string>
#include <string_view>

#include "tools/marketday/Dice.h"

namespace marketday {

/// An invented name in the forms that a record carries.
struct Name {
    std::string text;   ///< as displayed
    std::string spell;  ///< initials for typing ahead
    std::string english;
};

/// A company of the mainland or Hong Kong, and what it does.
struct Company {
    Name full;   ///< four characters, the trade included
    Name brand;  ///< the two characters before the trade
    std::string industry;
};

Company inventCompany(Dice& dice);

/// A fund's theme and its invented manager: "半导体ETF砚序" with the kind "ETF".
Name inventFund(Dice& dice, std::string_view kind);

/// A company of the United States: "Velamont Holdings Inc."
std::string inventUsCompany(Dice& dice);

/// A bond of a province, a city or a company: "25云南07".
Name inventBond(Dice& dice, int yearOfIssue);

}  // namespace marketday
