// Whether a day agrees with itself. The rules are questions to the tables that "sql" asks, so that whoever doubts one
// can ask it himself.

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "tools/inscenter/Verbs.h"

namespace inscenter {
namespace {

constexpr std::size_t kShownFindings = 10;  // of a rule, to people who set no limit

struct Rule {
    const char* name;
    const char* about;
    const char* sql;  ///< answers key, name and what is found
};

constexpr std::array kRules{
    Rule{
        "duplicate-key", "several instruments of one market have one code",
        "select key, min(name) name, count(*) || ' records' finding from instruments group by key having count(*) > 1"},
    Rule{"expired", "a contract has expired and is still listed",
         "select key, name, 'expired on ' || expireDate finding from instruments\n"
         "  where expireDate <> '' and expireDate < today() order by expireDate, key"},
    // By the market that the option names, else by any: of futures options feeds mostly leave it out. Those on an index
    // name their own series there, which is no instrument.
    Rule{"no-underlying", "an option's underlying is not there",
         "select key, name, iif(underlyingCode = '', 'none named', underlyingMarket || underlyingCode || ' is not "
         "there')\n"
         "  finding from instruments o where optionType in (1, 2) and (underlyingCode = '' or market <> 'CFFEX' and\n"
         "  not exists (select 1 from instruments u where u.code = o.underlyingCode\n"
         "    and o.underlyingMarket in ('', u.market, u.filed)))"},
    Rule{"unknown-component", "a basket holds what is no instrument of the day",
         "select fund key, name, key || ' is not there' finding from components c where not exists\n"
         "  (select 1 from instruments i where i.code = c.code and c.market in (i.market, i.filed))"},
    Rule{"main-twice", "a product has several main contracts",
         "select filed || ' ' || productId key, max(productName) name, group_concat(code, ' ') finding\n"
         "  from instruments where mainContractFlag = 1 and productId <> '' group by filed, productId having count(*) "
         "> 1"},
    Rule{"zero-tick", "an instrument has no price step",
         "select key, name, 'priceTick is ' || priceTick finding from instruments where not priceTick > 0"}};

bool isWanted(const Rule& rule, const CheckQuery& query) {
    const auto named = [&](const std::vector<std::string>& rules) {
        return std::find(rules.begin(), rules.end(), rule.name) != rules.end();
    };
    return (query.rules.empty() || named(query.rules)) && !named(query.without);
}

}  // namespace

std::vector<std::string> checkRules() {
    std::vector<std::string> names;
    names.reserve(kRules.size());
    for (const Rule& rule : kRules) {
        names.emplace_back(rule.name);
    }
    return names;
}

void checkDay(Session& session, const Query& query) {
    const bool people = session.output.format() == Format::Table;
    Table counts{{"rule", "found", "what"}, {}};
    Table findings{{"rule", "key", "name", "finding"}, {}};
    std::size_t left = 0;
    for (const Rule& rule : kRules) {
        if (!isWanted(rule, query.check)) {
            continue;
        }
        if (query.check.showSql) {
            session.output.line(fmt::format("-- {}: {}\n{};", rule.name, rule.about, rule.sql));
            continue;
        }
        Table found = session.day.sql->ask(rule.sql);
        counts.rows.push_back(
            {std::string(rule.name), static_cast<std::int64_t>(found.rows.size()), std::string(rule.about)});
        counts.tones.push_back(found.rows.empty() ? Tone::Good : Tone::Bad);
        session.missing = session.missing || !found.rows.empty();
        const std::size_t shown =
            std::min(found.rows.size(), query.limit.value_or(people ? kShownFindings : found.rows.size()));
        left += found.rows.size() - shown;
        for (std::size_t i = 0; i < shown; ++i) {
            found.rows[i].insert(found.rows[i].begin(), std::string(rule.name));
            findings.rows.push_back(std::move(found.rows[i]));
        }
    }
    if (query.check.showSql) {
        return;
    }
    // Programs get one table: of two they could not tell the lines apart.
    if (people) {
        session.output.table(counts, "no rule was asked for");
        session.output.note("");
    }
    session.output.table(findings, "the day agrees with itself");
    if (left > 0) {
        session.output.note(fmt::format("... and {} more; --limit N shows so many of each rule", left));
    }
}

}  // namespace inscenter
