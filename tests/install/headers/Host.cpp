// A host's source as strict compilers see it: how lists are asked for, how centers are owned and derived from. Compiled
// only.

#include <list>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/CenterBase.h"
#include "base/instrumentcenter/InstrumentView.h"

using namespace mxservice;

// Two literals in braces may be a std::string of two pointers or a list of two names. That must never become the
// string.
template <class Asked, class = void>
struct TakesLiterals : std::false_type {};
template <class Asked>
struct TakesLiterals<Asked, std::void_t<decltype(std::declval<Asked&>().getInstruments({"SH", "SZ"}))>>
    : std::true_type {};
static_assert(!TakesLiterals<IInstrumentCenter>::value && !TakesLiterals<CServerInstrumentCenter>::value &&
              !TakesLiterals<CClientInstrumentCenter>::value && !TakesLiterals<const InstrumentView>::value);

using Records = std::map<std::string, boost::shared_ptr<CInstrumentDetail>>;

template <class Asked>
Records askForLists(Asked& asked) {
    const std::list<std::string> kept{"SH", "SZ"};
    Records out = asked.getInstruments(kept);
    out.merge(asked.getInstruments(std::list<std::string>{"SH", "SZ"}));
    out.merge(asked.getInstruments(std::list<std::string>{"SH"}));
    out.merge(asked.getInstruments("SH"));
    out.merge(asked.getInstruments(OvTraderStock));
    out.merge(asked.getInstruments());
    return out;
}

void ask(IInstrumentCenter& center, CServerInstrumentCenter& server, CClientInstrumentCenter& client) {
    const InstrumentView view = server.view();
    Records out = askForLists(view);
    for (IInstrumentCenter* asked : {&center, static_cast<IInstrumentCenter*>(&server)}) {
        out.merge(askForLists(*asked));
    }
    out.merge(askForLists(server));
    out.merge(askForLists(client));
    center.getInstruments({"SH", "SZ"}, out);  // not ambiguous: a string would go with a list of records
    std::list<boost::shared_ptr<CInstrumentDetail>> records;
    center.getInstruments("SH", records);
    server.replaceInstruments({"SH", "SZ"}, {records.begin(), records.end()});
    server.removeMarkets({"SH", "SZ"});
}

class OwnServer final : public CenterBase<CServerInstrumentCenter> {
public:
    using CenterBase::CenterBase;
    bool hasCode(const std::string& code) override {
        return CenterBase::hasCode(code) && !getExchanges(OvTraderStock).empty();
    }
};

/// One from which others derive keeps its destructor protected.
class AnyClient : public CenterBase<CClientInstrumentCenter> {
public:
    using CenterBase::CenterBase;
    void clearMarket(const std::string& market) { clearDatas({market}); }

protected:
    ~AnyClient() = default;
};
class OwnClient final : public AnyClient {
public:
    OwnClient() : AnyClient("clients", 1, 1, 1) {}
};

class OwnInterface : public IInstrumentCenter {
public:
    void issue(const std::string& key) { setStockIpoCodes("SH", {key}); }

protected:
    ~OwnInterface() = default;
};

static_assert(sizeof(OwnServer) == sizeof(CServerInstrumentCenter) &&
              sizeof(CenterBase<CClientInstrumentCenter>) == sizeof(CClientInstrumentCenter));

void own() {
    const auto one = std::make_unique<CServerInstrumentCenter>("one");
    const std::shared_ptr<IInstrumentCenter> shared = std::make_shared<CClientInstrumentCenter>("two", 1, 1, 1);
    const auto own = std::make_unique<OwnServer>("three");
    const std::shared_ptr<IInstrumentCenter> ownShared = std::make_shared<OwnClient>();
    OwnServer* const bare = new OwnServer("four");
    delete bare;
}
