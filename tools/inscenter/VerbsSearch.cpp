// Looking for an instrument whose key is not known.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>
#include <tuple>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "platform/utils/Utils.h"
#include "tools/inscenter/FiledInstruments.h"
#include "tools/inscenter/FoldedText.h"
#include "tools/inscenter/MarketNames.h"
#include "tools/inscenter/NearNames.h"
#include "tools/inscenter/Predicates.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

using mxservice::IInstrumentCenter;

/// Other names for Hong Kong: every key text of "HK" may be said with them, too.
constexpr std::array kConnectMarkets{mxservice::market::kShanghaiConnect, mxservice::market::kShenzhenConnect};

/// Something that a code or name may stand for, in any catalogue.
struct Entry {
    std::string market;  ///< of catalogues without markets their name
    std::string filed;   ///< the market under which a center files it; the same where it files under none
    std::string code;
    std::string name;
    RecordPtr record;
};

template <class Map>
void addEntries(const char* catalogue, const Map& records, std::vector<Entry>& entries) {
    for (const auto& [key, record] : records) {
        entries.push_back({catalogue, catalogue, record->getKey(), record->name, record});
    }
}

/// Everything that has a code and a name. Funds and interbank bonds are found as the instruments that stand for them.
std::vector<Entry> allEntries(Session& session) {
    IInstrumentCenter& center = session.center;
    std::vector<Entry> entries;
    for (const auto& [market, record] : instrumentsOf(center, filedMarkets(session.day.markets))) {
        entries.push_back({record->market, market, record->code, record->name, record});
    }
    for (const auto& [key, plan] : center.getOtcInstruments()) {
        entries.push_back({plan->market, plan->market, plan->code, plan->name, plan});
    }
    addEntries("tenderbonds", center.getTrenderBondInfos(), entries);
    addEntries("counterparties", center.getCounterpartys(), entries);
    addEntries("issuances", center.getIssuanceInfos(), entries);
    return entries;
}

/// How well the entry fits: 0 its whole code or key, 1 its whole name, 2 the beginning of its code or key, 3 the
/// beginning of its name, 4 part of its name. Nothing where it does not. Either of its markets may begin the key.
std::optional<int> rankOf(const Entry& entry, const std::string& wanted) {
    const std::string code = foldedText(entry.code);
    const std::string name = foldedText(entry.name);
    bool begins = code.starts_with(wanted);
    bool whole = code == wanted;
    for (const std::string* const market : {&entry.market, &entry.filed}) {
        // A market's name alone is no beginning of a key: it would find the whole market.
        if (wanted.size() > market->size()) {
            const std::string key = foldedText(*market) + code;
            begins = begins || key.starts_with(wanted);
            whole = whole || key == wanted;
        }
    }
    if (whole) {
        return 0;
    }
    if (name == wanted) {
        return 1;
    }
    if (begins) {
        return 2;
    }
    const std::size_t at = name.find(wanted);
    return at == std::string::npos ? std::nullopt : std::optional<int>(at == 0 ? 3 : 4);
}

/// The numbers in which a key is known, as decimal (as in the store) and hexadecimal.
std::string keyNumbers(std::uint64_t key) {
    return fmt::format("{} (0x{:016x})", key, key);
}

bool isConnect(const std::string& market) {
    return std::find(kConnectMarkets.begin(), kConnectMarkets.end(), market) != kConnectMarkets.end();
}

/// The codes that a text with the market's name may mean: behind it, as in "SH600000", "sh600000" or "SH.600000", or
/// before it, as in "600000.SH".
std::vector<std::string> codesIn(const std::string& text, const std::string& market) {
    std::vector<std::string> codes;
    if (text.size() <= market.size()) {
        return codes;
    }
    const std::size_t rest = text.size() - market.size();
    if (foldedText(text.substr(0, market.size())) == foldedText(market)) {
        codes.push_back(text.substr(market.size()));
        if (std::string_view(" .-_:").find(codes.front().front()) != std::string_view::npos) {
            codes.push_back(codes.front().substr(1));
        }
    }
    if (text[rest - 1] == '.' && foldedText(text.substr(rest)) == foldedText(market)) {
        codes.push_back(text.substr(0, rest - 1));
    }
    return codes;
}

/// What a code means, one meaning a row.
class Meanings {
public:
    explicit Meanings(Session& session) : session_(session), markets_(askedMarkets(session.day.markets)) {}

    /// False when the code means nothing in any market.
    bool add(const std::string& text) {
        const std::size_t before = table_.rows.size();
        for (const std::string& market : markets_) {
            // A code alone is tried as one of Hong Kong already; under its other names it would be there three times.
            if (!isConnect(market)) {
                addCode(market, text);
            }
            for (const std::string& code : codesIn(text, market)) {
                addCode(market, code);
            }
        }
        addOthers(text);
        return table_.rows.size() > before;
    }

    const Table& table() const { return table_; }

private:
    void addCode(const std::string& market, const std::string& code) {
        IInstrumentCenter& center = session_.center;
        const std::string text = utils::ovStockKey(market, code);
        if (!seen_.insert(text).second) {  // two ways to read a text may lead to one key
            return;
        }
        // A text may be the key of another market's record: "SH" and "O10001" against "SHO" and "10001".
        const auto record = center.getInstrument(market, code);
        if (record && record->code == code) {
            addRow(text, market, record->market, code, record->name, truePredicates(center, text));
            return;
        }
        if (const auto fund = center.getEtf(market, code)) {
            addRow(text, market, market, code, fund->name, truePredicates(center, text));
        } else if (const auto plan = center.getOtcInstrument(text)) {
            addRow(text, market, market, code, plan->name, truePredicates(center, text));
        }
    }

    /// Catalogues whose keys are codes without a market.
    void addOthers(const std::string& code) {
        IInstrumentCenter& center = session_.center;
        if (const auto bond = center.getTenderBondInfo(code)) {
            addRow(code, "", "", code, bond->name, truePredicates(center, code));
        }
        if (const auto issuance = center.getIssuanceInfo(code)) {
            addRow(code, "", "", code, issuance->name, truePredicates(center, code));
        }
        if (const auto counterparty = center.getCounterparty(code)) {
            addRow(code, "", "", code, counterparty->name, {"a counterparty"});
        }
    }

    void addRow(const std::string& text, const std::string& market, const std::string& recordMarket,
                const std::string& code, const std::string& name, const std::vector<std::string>& is) {
        const std::string folded = filedMarket(market) + code;
        std::vector<std::string> also;
        if (market == mxservice::market::kHongKong) {
            for (const char* const connect : kConnectMarkets) {
                also.push_back(utils::ovStockKey(connect, code));
            }
        }
        const auto given = [](bool has, const std::string& value) { return has ? Cell(value) : Cell(); };
        const std::string platformCode = session_.center.getLumoCode(code);
        const std::string bondCode = session_.center.getInterbankCode(text);
        table_.rows.push_back({text, name, market, marketName(market)});
        std::vector<Cell>& row = table_.rows.back();
        row.push_back(given(recordMarket != market, recordMarket));
        row.emplace_back(is);
        row.emplace_back(also);
        row.emplace_back(keyNumbers(utils::hash(text)));
        row.push_back(given(folded != text, folded));
        row.push_back(given(folded != text, keyNumbers(utils::hash(folded))));
        row.push_back(given(!market.empty(), keyNumbers(utils::hash(market))));
        row.push_back(given(platformCode != code, platformCode));
        row.push_back(given(!bondCode.empty(), bondCode));
    }

    Session& session_;
    const std::vector<std::string> markets_;
    std::set<std::string> seen_;
    Table table_{{"keyText", "name", "market", "marketName", "recordMarket", "is", "alsoKeyTexts", "key", "foldedText",
                  "foldedKey", "marketKey", "platformCode", "interbankCode"},
                 {}};
};

}  // namespace

void Session::reportMissingKey(const std::string& key, const char* what,
                               const std::function<bool(const std::string&)>& fits) {
    Meanings meanings(*this);
    meanings.add(key);
    std::vector<std::string> meant;
    for (const auto& row : meanings.table().rows) {
        const auto& text = std::get<std::string>(row.front());
        // Only what would answer the question that was asked: a hint must not lead to the next miss.
        if (text != key && fits(text)) {
            meant.push_back(text);
        }
    }
    reportMissing(key, what + didYouMean(std::move(meant)));
}

void findText(Session& session, const Query& query) {
    const std::string wanted = foldedText(query.text);
    using Found = std::tuple<int, Entry>;
    std::vector<Found> found;
    if (!wanted.empty()) {  // a text of blanks folds to nothing, which every name holds
        for (Entry& entry : allEntries(session)) {
            if (const auto rank = rankOf(entry, wanted)) {
                found.emplace_back(*rank, std::move(entry));
            }
        }
    }
    if (found.empty()) {
        session.reportMissing(query.text, "no code begins so, and no name holds it");
    }
    std::stable_sort(found.begin(), found.end(), [](const Found& left, const Found& right) {
        const auto& [rank, entry] = left;
        const auto& [otherRank, other] = right;
        return std::tie(rank, entry.code, entry.market) < std::tie(otherRank, other.code, other.market);
    });
    Table table{{"market", "code", "name", "product", "listed", "expires", kFiledField}, {}};
    const std::size_t shown = std::min(found.size(), query.limit.value_or(found.size()));
    bool elsewhere = session.output.format() != Format::Table;
    for (std::size_t i = 0; i < shown; ++i) {
        const Entry& entry = std::get<Entry>(found[i]);
        const auto* const instrument = dynamic_cast<const mxservice::CInstrumentDetail*>(entry.record.get());
        const auto text = [&](std::string mxservice::CInstrumentDetail::*field) {
            return instrument == nullptr || (instrument->*field).empty() ? Cell() : Cell(instrument->*field);
        };
        table.rows.push_back({entry.market, entry.code, entry.name, text(&mxservice::CInstrumentDetail::productId),
                              text(&mxservice::CInstrumentDetail::listingDate),
                              text(&mxservice::CInstrumentDetail::expireDate), entry.filed});
        elsewhere = elsewhere || entry.filed != entry.market;
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

void explainCodes(Session& session, const Query& query) {
    Meanings meanings(session);
    for (const std::string& code : query.keys) {
        if (!meanings.add(code)) {
            session.reportMissing(code, "means nothing in any market; \"find\" looks for parts of codes and names");
        }
    }
    session.output.blocks(meanings.table());
}

}  // namespace inscenter
