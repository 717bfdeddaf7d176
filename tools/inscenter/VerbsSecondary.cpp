// ETFs, bonds, counterparties and the OTC catalogues.

#include <fmt/format.h>

#include <array>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

void listCatalogue(Session& session, const Query& query, SnapshotCatalogue catalogue) {
    constexpr std::array<const char*, kCatalogues> kNothing{"no instruments",  "no ETFs",           "no bonds",
                                                            "no tender bonds", "no counterparties", "no OTC fund plans",
                                                            "no issuances",    "no price settings"};
    session.list(valuesOf(recordsKept(session.center, catalogue)), query,
                 kNothing[static_cast<std::size_t>(catalogue)]);
    if (catalogue == SnapshotCatalogue::IssuancePrices && session.kind == CenterKind::Server) {
        session.output.note("The in-memory center keeps no price settings.");
    }
}

void showEtf(Session& session, const Query& query) {
    std::vector<RecordPtr> funds;
    for (const std::string& key : query.keys) {
        const auto fund = session.center.getEtf(key);
        if (!fund) {
            session.reportMissingKey(key, "not found",
                                     [&](const std::string& other) { return session.center.hasEtf(other); });
            continue;
        }
        // In the other forms all funds are one answer, with one header.
        if (session.output.format() != Format::Table) {
            funds.emplace_back(fund);
            continue;
        }
        session.output.details(mxservice::CETFDetail::table(), {fund});
        session.output.note("");
        session.output.records(mxservice::CETFComponentStockInfo::table(), valuesOf(fund->components), "no components");
    }
    session.output.details(mxservice::CETFDetail::table(), funds);
}

void showBond(Session& session, const Query& query) {
    std::vector<RecordPtr> bonds;
    for (const std::string& key : query.keys) {
        auto bond = session.center.getBond(key);
        if (!bond) {
            // A bond code alone will do: there is only one market that it can stand for.
            bond = session.center.getBond(mxservice::market::kInterbank + key);
        }
        if (bond) {
            bonds.emplace_back(bond);
        } else {
            session.reportMissing(key, "not found");
        }
    }
    session.output.details(mxservice::CBondInfoDetail::table(), bonds);
}

void listOtcPlans(Session& session, const Query& query) {
    if (!query.group) {
        listKept<SnapshotCatalogue::OtcPlans>(session, query);
        return;
    }
    std::vector<boost::shared_ptr<mxservice::COTCFundPlanInfo>> plans;
    session.center.getOtcInstruments(*query.group, plans);
    session.list({plans.begin(), plans.end()}, query, fmt::format("no OTC fund plans of group {}", *query.group));
    if (session.kind == CenterKind::Client) {
        session.output.note("The persisted center does not select plans by group.");
    }
}

void showInterbankCode(Session& session, const Query& query) {
    Table table{{"key", "bondCode"}, {}};
    for (const std::string& key : query.keys) {
        const std::string code = session.center.getInterbankCode(key);
        if (code.empty()) {
            session.reportMissingKey(key, "no interbank code", [&](const std::string& other) {
                return !session.center.getInterbankCode(other).empty();
            });
        } else {
            table.rows.push_back({key, code});
        }
    }
    session.output.table(table, "no interbank codes");
    if (session.kind == CenterKind::Server) {
        session.output.note("The in-memory center keeps no interbank codes.");
    }
}

}  // namespace inscenter
