#include "tools/inscenter/Predicates.h"

namespace inscenter {

std::vector<std::string> truePredicates(mxservice::IInstrumentCenter& center, const std::string& key) {
    std::vector<std::string> names;
    for (const Predicate& predicate : kPredicates) {
        if ((center.*predicate.ask)(key)) {
            names.emplace_back(predicate.name);
        }
    }
    const auto record = center.getInstrument(key);
    // Asked by market and code, which a key text does not tell apart.
    if (record && center.isStkOptionUndlCode(record->market, record->code)) {
        names.emplace_back("isStkOptionUndlCode");
    }
    return names;
}

}  // namespace inscenter
