// Whether a host finds headers and libraries: loads a record into the in-memory center and asks for it.

#include <boost/make_shared.hpp>

#include "base/instrumentcenter/CServerInstrumentCenter.h"

int main() {
    mxservice::CServerInstrumentCenter center("instruments");
    const auto stock = boost::make_shared<mxservice::CInstrumentDetail>();
    stock->market = "SH";
    stock->code = "600000";
    center.initInstruments({"SH"}, {stock});
    return center.getInstrument("SH600000") == stock && center.hasStock("SH600000") ? 0 : 1;
}
