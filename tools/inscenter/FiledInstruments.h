#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/IInstrumentCenter.h"
#include "platform/record/Records.h"
#include "tools/inscenter/Center.h"

// Lists of instruments in which none hides another. The centers' lists over several markets hold one record a key text;
// a Shenzhen fund and the instrument of its creation have the same one, but are filed under two markets. So everything
// here is asked for market by market.

namespace inscenter {

/// An instrument and the market under which a center files it. That market and the code are the key by which the center
/// finds it; its own market may be another: that of a connect listing, or a fund's.
struct Filed {
    std::string market;
    boost::shared_ptr<mxservice::CInstrumentDetail> record;
};

/// The same as a record of its own, with that market as its last field, "filed".
class FiledInstrument : public mxservice::CInstrumentDetail {
public:
    static const mxservice::RecordType& table();
    const mxservice::RecordType& recordType() const override { return table(); }
    boost::shared_ptr<mxservice::IData> copy() const override;

    FiledInstrument() = default;
    explicit FiledInstrument(const Filed& instrument)
        : CInstrumentDetail(*instrument.record), filed(instrument.market) {}

    std::string filed;
};

/// The markets under which instruments may be filed on a day whose records name these: in the order of the records, the
/// pseudo-markets of funds and interbank bonds last.
std::vector<std::string> filedMarkets(const std::vector<std::pair<std::string, std::size_t>>& named);

/// The names by which such a day may be asked for markets: those that the tool knows, then others of the records.
std::vector<std::string> askedMarkets(const std::vector<std::pair<std::string, std::size_t>>& named);

/// The instruments of the markets, one market after the other, each in the order of the key texts. A market that is
/// named twice, also by a name that is folded onto it, is there once.
std::vector<Filed> instrumentsOf(mxservice::IInstrumentCenter& center, const std::vector<std::string>& markets);

/// The trader types there are, by their values.
const std::vector<int>& traderTypes();

/// The instruments of a trader type; where it stands for everything, those of `markets`.
std::vector<Filed> instrumentsOf(mxservice::IInstrumentCenter& center, CenterKind kind, mxservice::EOvTraderType type,
                                 const std::vector<std::string>& markets);

}  // namespace inscenter
