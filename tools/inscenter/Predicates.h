#pragma once

#include <array>
#include <string>
#include <vector>

#include "base/instrumentcenter/IInstrumentCenter.h"

namespace inscenter {

/// A question of a center about a key text, by its name.
struct Predicate {
    const char* name;
    bool (mxservice::IInstrumentCenter::*ask)(const std::string&);
};

inline constexpr std::array kPredicates{Predicate{"hasCode", &mxservice::IInstrumentCenter::hasCode},
                                        Predicate{"hasStock", &mxservice::IInstrumentCenter::hasStock},
                                        Predicate{"hasFuture", &mxservice::IInstrumentCenter::hasFuture},
                                        Predicate{"hasHkstock", &mxservice::IInstrumentCenter::hasHkstock},
                                        Predicate{"hasSkstock", &mxservice::IInstrumentCenter::hasSkstock},
                                        Predicate{"hasOption", &mxservice::IInstrumentCenter::hasOption},
                                        Predicate{"hasFutureOption", &mxservice::IInstrumentCenter::hasFutureOption},
                                        Predicate{"hasNeeq", &mxservice::IInstrumentCenter::hasNeeq},
                                        Predicate{"hasGold", &mxservice::IInstrumentCenter::hasGold},
                                        Predicate{"hasEtf", &mxservice::IInstrumentCenter::hasEtf},
                                        Predicate{"hasBond", &mxservice::IInstrumentCenter::hasBond},
                                        Predicate{"hasOtc", &mxservice::IInstrumentCenter::hasOtc},
                                        Predicate{"hasIssuance", &mxservice::IInstrumentCenter::hasIssuance},
                                        Predicate{"hasTenderBond", &mxservice::IInstrumentCenter::hasTenderBond},
                                        Predicate{"hasOuterFuture", &mxservice::IInstrumentCenter::hasOuterFuture},
                                        Predicate{"hasOuterStock", &mxservice::IInstrumentCenter::hasOuterStock}};

/// The names of the questions that the center answers with yes for the key, option underlyings included.
std::vector<std::string> truePredicates(mxservice::IInstrumentCenter& center, const std::string& key);

}  // namespace inscenter
