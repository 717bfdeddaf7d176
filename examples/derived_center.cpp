// A host's own center: the in-memory one, which also knows the baskets that the host's desks have made up. Nobody who
// asks through the interface sees a difference. docs/guide/deriving.md says what may be overridden and what follows.

#include <boost/make_shared.hpp>

#include <iostream>
#include <list>
#include <map>
#include <string>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/CenterBase.h"
#include "platform/utils/Hash.h"

using mxservice::CInstrumentDetail;
using Record = boost::shared_ptr<CInstrumentDetail>;

namespace {

constexpr const char* kMarket = "DESK";

/// Baskets are handed in at construction and never change, so asking for them takes no lock.
class DeskCenter final : public mxservice::CenterBase<mxservice::CServerInstrumentCenter> {
public:
    DeskCenter(const std::string& strandName, const std::list<Record>& baskets) : CenterBase(strandName) {
        for (const Record& basket : baskets) {
            byText_[basket->getKey()] = basket;
            byKey_[utils::hash(basket->getKey())] = basket;
        }
    }

    // An override hides the other forms of its name: these bring them back.
    using CenterBase::getInstrument;
    using CenterBase::getInstruments;

    // The other two forms come down to this one, and getProductId with them.
    Record getInstrument(mxservice::uint64 key) override {
        const auto found = byKey_.find(key);
        return found != byKey_.end() ? found->second : CenterBase::getInstrument(key);
    }

    bool hasCode(const std::string& code) override { return byText_.count(code) != 0 || CenterBase::hasCode(code); }

    // The form that appends to a list follows, because this center's own asks this one. The other lists do not.
    std::map<std::string, Record> getInstruments(const std::string& market) override {
        return market == kMarket ? byText_ : CenterBase::getInstruments(market);
    }

private:
    std::map<std::string, Record> byText_;
    std::map<mxservice::uint64, Record> byKey_;
};

Record record(const std::string& market, const std::string& code, const std::string& name) {
    auto made = boost::make_shared<CInstrumentDetail>();
    made->market = market;
    made->code = code;
    made->name = name;
    return made;
}

void ask(mxservice::IInstrumentCenter& center) {
    for (const char* key : {"DESKB1", "SH600000", "SH600001"}) {
        const Record found = center.getInstrument(key);
        std::cout << key << (center.hasCode(key) ? " is known: " : " is unknown") << (found ? found->name : "") << '\n';
    }
    std::list<Record> listed;
    center.getInstruments(kMarket, listed);
    std::cout << listed.size() << " listed by " << kMarket << '\n';
}

}  // namespace

int main() {
    // Owned as what it is: no destructor is virtual, and `delete` of an IInstrumentCenter does not compile.
    DeskCenter center("instruments", {record("DESK", "B1", "Basket")});
    center.initInstruments({"SH"}, {record("SH", "600000", "Bank stock")});
    ask(center);
}
