#pragma once

#include <array>
#include <cstdint>

namespace inscenter {

/// What a deliberate difference between the two centers is about.
enum class Subject : std::uint8_t {
    Instruments,
    PlatformCodes,
    Predicates,
    HongKong,
    TraderTypes,
    Mains,
    Products,
    Codes,
    Outer,
    Etfs,
    Bonds,
    TenderBonds,
    Counterparties,
    Plans,
    Issuances,
    Prices
};

struct Difference {
    Subject subject;
    const char* text;
};

/// What the two centers answer differently on purpose; each is part of what the hosts of its kind were promised.
inline constexpr std::array kDeliberateDifferences{
    Difference{Subject::Instruments,
               "platform codes that differ from the code are noted by the persisted center alone"},
    Difference{Subject::Instruments,
               "keys that a reload of their market lacks still answer in memory, and are gone in the persisted center"},
    Difference{Subject::Predicates, "hasHkstock: the in-memory center files no listing under HGT and says no"},
    Difference{Subject::HongKong,
               "combinedConnectFlags of codes that a connect market lists: in memory 1 for HGT, 3 for SGT, 5 for both; "
               "persisted the flag values of both listings"},
    Difference{Subject::HongKong,
               "a record asked for by an HGT or SGT key: the persisted center answers a copy that bears that market"},
    Difference{Subject::HongKong,
               "one of HGT, SGT and HK loaded alone: kept until both connect markets are there in memory, completed "
               "from the store at once in the persisted center"},
    Difference{Subject::TraderTypes, "trader types 64, 512, 2048 and 16777216: the persisted center's alone"},
    Difference{Subject::Products, "contracts by product: the persisted center's alone; product names: in neither"},
    Difference{Subject::Outer, "outer markets, their products and product groups: the persisted center's alone"},
    Difference{Subject::Etfs,
               "names of ETF components that have none, and of the instruments named after them: the "
               "persisted center fills them"},
    Difference{Subject::Etfs,
               "two funds with one key: the in-memory center keeps the first, the persisted one the last"},
    Difference{Subject::Etfs,
               "an exchange-listed fund whose creation code is its own code: full lists hold either of "
               "its two instruments"},
    Difference{Subject::Bonds, "interbank codes of listed bonds: the persisted center's alone"},
    Difference{Subject::TenderBonds, "changes during the day: taken in memory alone"},
    Difference{Subject::Counterparties, "changes during the day: taken by the persisted center alone"},
    Difference{Subject::Plans, "OTC fund plans by group, and their changes during the day: in memory alone"},
    Difference{Subject::Prices,
               "price settings: the persisted center's alone, where operation 3 of a change removes "
               "the issuance of that key instead"}};

}  // namespace inscenter
