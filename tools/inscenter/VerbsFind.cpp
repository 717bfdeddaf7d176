// Looking for a record by whatever somebody has of it in hand.

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/InstrumentKind.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/SoughtText.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

using mxservice::CCounterpartyDetail;
using mxservice::CInstrumentDetail;
using mxservice::IInstrumentCenter;

/// A record of any catalogue.
struct Found {
    int rank;
    Filed instrument;  ///< without a record where it is of a catalogue without markets, and only its name
    RecordPtr record;
    const char* kind;  ///< of all but instruments
};

/// Collects what fits.
class Search {
public:
    explicit Search(std::string_view text) : sought_(text) {}

    void lookAt(const Filed& instrument, const char* kind = nullptr) {
        const CInstrumentDetail& record = *instrument.record;
        keep({record.market,
              instrument.market,
              {record.code, record.platformCode, record.isin},
              record.name,
              record.spellName,
              {record.englishName, record.productName}},
             instrument, instrument.record, kind);
    }

    /// A catalogue whose keys are codes without a market. `otherName` answers a further name of a record.
    template <class Map, class OtherName>
    void lookAt(const Map& records, const char* catalogue, const char* kind, OtherName otherName) {
        for (const auto& [key, record] : records) {
            const std::string code = record->getKey();
            keep({catalogue, catalogue, {code}, record->name, {}, {otherName(*record)}}, {catalogue, nullptr}, record,
                 kind);
        }
    }

    /// The best first, alike ones as lists have them: market by market.
    std::vector<Found> finish() && {
        std::stable_sort(found_.begin(), found_.end(),
                         [](const Found& left, const Found& right) { return left.rank < right.rank; });
        return std::move(found_);
    }

private:
    void keep(const FindTexts& texts, const Filed& instrument, const RecordPtr& record, const char* kind) {
        if (const auto rank = sought_.rankOf(texts, spelling_)) {
            found_.push_back({*rank, instrument, record, kind});
        }
    }

    const SoughtText sought_;
    Spelling spelling_;
    std::vector<Found> found_;
};

/// Looks at everything that has a code and a name. Funds and interbank bonds are found as the instruments that stand
/// for them.
std::vector<Found> search(Session& session, std::string_view text) {
    IInstrumentCenter& center = session.center;
    Search search(text);
    for (const Filed& instrument : instrumentsOf(center, filedMarkets(session.day.markets))) {
        search.lookAt(instrument);
    }
    for (const auto& [key, plan] : center.getOtcInstruments()) {
        search.lookAt({plan->market, plan}, "fund plan");
    }
    const auto none = [](const auto&) { return std::string_view(); };
    search.lookAt(center.getTrenderBondInfos(), "tenderbonds", "tender bond", none);
    search.lookAt(center.getCounterpartys(), "counterparties", "counterparty",
                  [](const CCounterpartyDetail& record) { return std::string_view(record.shortName); });
    search.lookAt(center.getIssuanceInfos(), "issuances", "issuance", none);
    return std::move(search).finish();
}

std::vector<Cell> rowOf(IInstrumentCenter& center, const Found& found) {
    const auto given = [](const std::string& text) { return text.empty() ? Cell() : Cell(text); };
    const CInstrumentDetail* const record = found.instrument.record.get();
    const std::string kind = found.kind != nullptr ? found.kind : instrumentKind(center, found.instrument);
    if (record == nullptr) {
        const mxservice::Field* const name = found.record->recordType().find("name");
        return {found.instrument.market, found.record->getKey(), cellOf(*name, *found.record), kind, {}, {}, {},
                found.instrument.market};
    }
    return {record->market,
            record->code,
            record->name,
            kind,
            given(record->productId),
            given(record->listingDate),
            given(record->expireDate),
            found.instrument.market};
}

}  // namespace

void findText(Session& session, const Query& query) {
    const std::vector<Found> found = search(session, query.text);
    if (found.empty()) {
        session.reportMissing(query.text, "no code begins so, and no name, pinyin or initials hold it");
    }
    Table table{{"market", "code", "name", "kind", "product", "listed", "expires", kFiledField}, {}};
    const std::size_t shown = std::min(found.size(), query.limit.value_or(found.size()));
    bool elsewhere = session.output.format() != Format::Table;
    for (std::size_t i = 0; i < shown; ++i) {
        table.rows.push_back(rowOf(session.center, found[i]));
        elsewhere = elsewhere || table.rows.back().front() != table.rows.back().back();
    }
    if (!elsewhere) {  // people need no column that repeats another
        table.columns.pop_back();
        for (auto& row : table.rows) {
            row.pop_back();
        }
    }
    if (!table.rows.empty() || session.output.format() != Format::Table) {
        session.output.table(table, "");
    }
    if (shown < found.size()) {
        session.output.note(fmt::format("... and {} more", found.size() - shown));
    }
}

}  // namespace inscenter
