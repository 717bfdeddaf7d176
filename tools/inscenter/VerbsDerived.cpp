// What the centers derive from the instruments: main contracts, products, spreads, code sets, outer markets.

#include <fmt/format.h>

#include <algorithm>
#include <list>
#include <map>
#include <set>

#include "base/instrumentcenter/vocabulary/Markets.h"
#include "tools/inscenter/DayTables.h"
#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

using boost::shared_ptr;
using mxservice::CInstrumentDetail;

std::vector<std::string> keysOf(const std::list<shared_ptr<CInstrumentDetail>>& records) {
    std::vector<std::string> keys;
    for (const auto& record : records) {
        keys.push_back(record->getKey());
    }
    std::sort(keys.begin(), keys.end());  // the centers keep them by hash, which says nothing to people
    return keys;
}

/// A futures product as the loaded records show it.
struct Product {
    std::string market;
    std::string name;
    std::int64_t listed = 0;
};

/// The interface lists no products and names the market of none: the records do.
std::map<std::string, Product> listedProducts(Session& session) {
    std::map<std::string, Product> products;
    for (const auto& [key, record] : session.center.getInstruments(mxservice::OvTraderFuture)) {
        if (record->productId.empty()) {
            continue;  // spreads of some exchanges belong to none
        }
        Product& product = products[record->productId];
        product.market = record->market;
        // A record without a name takes none away.
        product.name = record->productName.empty() ? product.name : record->productName;
        ++product.listed;
    }
    return products;
}

void addCodes(Session& session, const char* set, const std::set<std::string>& codes, Table& table) {
    for (const std::string& code : codes) {
        const auto record = session.center.getInstrument(code);
        table.rows.push_back({std::string(set), code, record ? record->name : std::string()});
    }
}

/// The center answers for a code that it is asked, but cannot list the underlyings: every loaded code is asked.
void addUnderlyings(Session& session, Table& table) {
    for (const char* const market : {mxservice::market::kShanghai, mxservice::market::kShenzhen}) {
        std::list<shared_ptr<CInstrumentDetail>> records;
        session.center.getInstruments(market, records);
        for (const auto& record : records) {
            if (session.center.isStkOptionUndlCode(market, record->code)) {
                table.rows.push_back({std::string("underlying"), record->getKey(), record->name});
            }
        }
    }
}

std::string groupOf(Session& session, const std::string& product) {
    if (session.center.isCommodityProduct(product)) {
        return "commodity";
    }
    return session.center.isInterestProduct(product) ? "interest rate" : "";
}

}  // namespace

Table mainTable(Session& session) {
    Table table{{"productId", "mainContracts"}, {}};
    for (const auto& [product, records] : session.center.getProductMainInstruments()) {
        table.rows.push_back({product, keysOf(records)});
    }
    return table;
}

void showMains(Session& session, const Query& query) {
    if (query.byProduct) {
        session.output.table(mainTable(session), "no main contracts");
        return;
    }
    std::vector<std::string> markets = session.knownMarkets(query.markets);
    // Of names that nobody knows has been said what there is to say.
    const std::string nothing =
        markets.empty() ? "" : fmt::format("no main contracts of market {}", fmt::join(markets, ", "));
    if (query.markets.empty()) {
        markets.assign(mxservice::market::kFutures.begin(), mxservice::market::kFutures.end());
    }
    std::vector<RecordPtr> mains;
    for (const std::string& market : markets) {
        const std::vector<RecordPtr> found = valuesOf(session.center.getFutureMainInstruments(market));
        mains.insert(mains.end(), found.begin(), found.end());
    }
    session.list(std::move(mains), query, query.markets.empty() ? "no main contracts" : nothing);
}

Table productTable(Session& session) {
    const auto mains = session.center.getProductMainInstruments();
    Table table{{"productId", "market", "name", "listed", "mainContracts", "contracts", "keptName"}, {}};
    for (const auto& [id, product] : listedProducts(session)) {
        const auto found = mains.find(id);
        const auto count = found == mains.end() ? 0 : static_cast<std::int64_t>(found->second.size());
        const auto contracts = static_cast<std::int64_t>(session.center.getProductInstruments(id).size());
        table.rows.push_back(
            {id, product.market, product.name, product.listed, count, contracts, session.center.getProductName(id)});
    }
    return table;
}

void showProducts(Session& session, const Query& /*query*/) {
    session.output.table(productTable(session), "no futures products");
    session.output.note(session.kind == CenterKind::Server
                            ? "The in-memory center keeps no contract lists and no names of products."
                            : "The persisted center keeps no names of products.");
}

Table spreadTable(Session& session) {
    Table table{{"kind", "firstLeg", "secondLeg"}, {}};
    for (const auto& [first, second] : session.center.getDceCrossProduct()) {
        table.rows.push_back({std::string("inter-commodity"), first, second});
    }
    for (const auto& [first, second] : session.center.getDceCrossPeriod()) {
        table.rows.push_back({std::string("inter-period"), first, second});
    }
    return table;
}

void showSpreads(Session& session, const Query& /*query*/) {
    session.output.table(spreadTable(session), "no spreads");
}

Table codeTable(Session& session) {
    Table table{{"set", "code", "name"}, {}};
    addCodes(session, "ipo", session.center.getStockIpoCodes(), table);
    addCodes(session, "cdr", session.center.getStockCdrCodes(), table);
    addCodes(session, "neeq", session.center.getNeeqInquiryCodes(), table);
    addUnderlyings(session, table);
    return table;
}

void showCodes(Session& session, const Query& /*query*/) {
    session.output.table(codeTable(session), "no codes in any of the sets");
}

Table outerTable(Session& session) {
    Table table{{"market", "marketName", "productId", "productName", "group"}, {}};
    for (const auto& [market, products] : session.center.getMarketProductList()) {
        // A product of two markets has a line for each, with the one name that the center keeps.
        for (const std::string& product : products) {
            table.rows.push_back({market, session.center.getOutterMarketName(market), product,
                                  session.center.getOutterProductName(product), groupOf(session, product)});
        }
    }
    return table;
}

void showOuterMarkets(Session& session, const Query& /*query*/) {
    session.output.table(outerTable(session), "no outer markets");
    if (session.kind == CenterKind::Server) {
        session.output.note("The in-memory center keeps no outer-market tables.");
    }
}

}  // namespace inscenter
