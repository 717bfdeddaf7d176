#pragma once

#include <array>
#include <cstdint>

#include "platform/record/RecordType.h"
#include "platform/record/Records.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {

/// What a verb takes besides the global options.
enum class Arguments : std::uint8_t {
    None,
    Keys,
    Codes,
    Selection,
    Exchange,
    Group,
    Text,
    Page,
    Statements,
    Export,
    Rules
};

/// Whether a verb that takes them asks the records alone, so that no center need be loaded for it.
constexpr bool asksRecords(Arguments arguments) {
    return arguments >= Arguments::Statements;
}

/// A verb that asks a loaded center.
struct VerbLine {
    const char* group;
    const char* name;
    const char* about;
    const char* examples;  ///< a line each, without the tool's name and the snapshot
    Verb verb;
    Arguments arguments;
    const mxservice::RecordType& (*listed)() = nullptr;  ///< the class of the records that the verb lists
};

namespace verbgroup {
constexpr const char* kInstruments = "Instruments";
constexpr const char* kDerived = "Derived from the instruments";
constexpr const char* kOthers = "Other catalogues";
constexpr const char* kStore = "The persisted center";
constexpr const char* kSnapshots = "Snapshots";
}  // namespace verbgroup

/// A verb that lists what the center keeps of a catalogue.
template <SnapshotCatalogue catalogue>
constexpr VerbLine kept(const char* name, const char* about, const char* examples) {
    return {verbgroup::kOthers,
            name,
            about,
            examples,
            listKept<catalogue>,
            Arguments::None,
            []() -> const mxservice::RecordType& { return mxservice::catalogueType(catalogue); }};
}

inline constexpr std::array kVerbs{
    VerbLine{verbgroup::kInstruments, "summary", "Markets, counts, times and memory", "summary\nsummary --format json",
             showSummary, Arguments::None},
    VerbLine{verbgroup::kInstruments, "get", "Instruments by stock key text (market directly followed by code)",
             "get SH600000 HK00700\nget 'DCESPC a2609&m2609' --jsonl", showInstruments, Arguments::Keys},
    VerbLine{verbgroup::kInstruments, "has", "Every predicate that answers true for a key", "has SH600000 HGT00700",
             showPredicates, Arguments::Keys},
    VerbLine{verbgroup::kInstruments, "list", "The instruments of markets, or of a trader type",
             "list --market DCE CZCE --where mainContractFlag=1\n"
             "list --trader-type 2 --sort -listingDate --limit 10\n"
             "list --market SH --where 'name~银行' --where lotSize=100\n"
             "list --market SH --fields code,name --format csv",
             listInstruments, Arguments::Selection, FiledInstrument::table},
    VerbLine{verbgroup::kInstruments, "find",
             "What a code, name, pinyin, initials or ISIN may be, in any market, best first",
             "find 银行\nfind payh --limit 20\nfind 'ping an'\nfind 'spc a26'", findText, Arguments::Text},
    VerbLine{verbgroup::kInstruments, "explain",
             "Every market that a code may mean: what it is there, its keys and hashes",
             "explain 000001\nexplain 00700 HGT00700 --format json", explainCodes, Arguments::Codes},
    VerbLine{verbgroup::kInstruments, "sql",
             "Questions in SQL: every catalogue is a table, and \"components\" has those of all baskets",
             "sql 'select market, count(*) from instruments group by 1'\n"
             "sql --old yesterday 'select key from instruments except select key from old.instruments'\n"
             "sql \"select i.name, c.fund from components c join instruments i using (key)\" --format csv",
             answerSql, Arguments::Statements},
    VerbLine{verbgroup::kInstruments, "check",
             "What is not right within the day, rule by rule; the exit code is 1 where something is found",
             "check\ncheck --rule main-twice --rule duplicate-key --jsonl\ncheck --show-sql", checkDay,
             Arguments::Rules},
    VerbLine{verbgroup::kInstruments, "export",
             "Every catalogue in files: a database, or a directory of CSV or NDJSON that is read as a snapshot again",
             "export --sqlite day.sqlite\nexport --csv out --bom --zeros", exportDay, Arguments::Export},
    VerbLine{verbgroup::kInstruments, "report",
             "One page of the day for a browser: every table, to search and to sort, without a server",
             "report --html day.html\nreport --html day.html --against yesterday", writeReport, Arguments::Page},
    VerbLine{verbgroup::kDerived, "mains", "The main contracts of the futures exchanges",
             "mains --market DCE\nmains --by-product", showMains, Arguments::Exchange,
             mxservice::CInstrumentDetail::table},
    VerbLine{verbgroup::kDerived, "products",
             "Futures products: contracts as listed, and what the center keeps of them", "products --format csv",
             showProducts, Arguments::None},
    VerbLine{verbgroup::kDerived, "spreads", "Legs of the Dalian spreads", "spreads", showSpreads, Arguments::None},
    VerbLine{verbgroup::kDerived, "codes",
             "Today's IPO, CDR and NEEQ inquiry codes, and the underlyings of stock options", "codes --today 20260304",
             showCodes, Arguments::None},
    VerbLine{verbgroup::kDerived, "outer", "Outer futures markets and their products",
             "--center client --store db outer", showOuterMarkets, Arguments::None},
    VerbLine{verbgroup::kOthers, "etf", "ETFs with their baskets, by either of the fund's keys", "etf SH510050",
             showEtf, Arguments::Keys},
    kept<SnapshotCatalogue::Etfs>("etfs", "Every ETF", "etfs\netfs --where 'stocks>40' --fields etfcode,name,stocks"),
    VerbLine{verbgroup::kOthers, "bond", "Interbank bonds by bond code, or by stock key text", "bond 220001", showBond,
             Arguments::Keys},
    kept<SnapshotCatalogue::Bonds>("bonds", "Every interbank bond",
                                   "bonds --where bondType=国债 --sort maturityDate --limit 10"),
    VerbLine{verbgroup::kOthers, "interbank", "Interbank codes of bonds listed in Shanghai or Shenzhen",
             "--center client --store db interbank SH019547", showInterbankCode, Arguments::Keys},
    kept<SnapshotCatalogue::TenderBonds>("tenderbonds", "Every bond on tender", "tenderbonds --sort tenderDate"),
    kept<SnapshotCatalogue::Counterparties>("counterparties", "Every counterparty",
                                            "counterparties --where 'name~基金'"),
    VerbLine{verbgroup::kOthers, "otc", "OTC fund plans", "otc --group 1\notc --where 'riskLevel<=2'", listOtcPlans,
             Arguments::Group, mxservice::COTCFundPlanInfo::table},
    kept<SnapshotCatalogue::Issuances>("issuances", "Every OTC securities issuance", "issuances --sort endDate"),
    kept<SnapshotCatalogue::IssuancePrices>("issuanceprices", "Every price setting of an OTC stock enquiry",
                                            "--center client --store db issuanceprices")};

}  // namespace inscenter
