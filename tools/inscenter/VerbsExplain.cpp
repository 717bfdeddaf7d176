// What a code may mean.

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <set>
#include <string_view>

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
