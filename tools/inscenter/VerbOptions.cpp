#include "tools/inscenter/VerbOptions.h"

#include <CLI/CLI.hpp>

#include <vector>

#include "tools/inscenter/Utf8.h"

namespace inscenter {

void addLimit(CLI::App& app, std::optional<std::size_t>& limit) {
    app.add_option("--limit", limit, "No more than so many")->type_name("N")->check(notNegative);
}

CLI::Option* addList(CLI::App& app, const char* name, std::vector<std::string>& list, const char* about) {
    return app.add_option(name, list, about)->delimiter(',')->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

std::string notNegative(const std::string& text) {
    const bool digits = text.find_first_not_of("0123456789") == std::string::npos;
    return digits ? "" : printable(text) + " is no number from 0 up";
}

void addListing(CLI::App& app, SelectionTexts& selection) {
    app.add_option("--where", selection.conditions,
                   "Only records whose FIELD=VALUE; also !=, <, <=, >, >= and ~ (holds the text); all must hold")
        ->type_name("CONDITION")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    app.add_option("--fields", selection.fields, "These fields only, in this order")->type_name("A,B,C");
    app.add_option("--sort", selection.sort, "By this field; -FIELD for descending")->type_name("FIELD");
    addLimit(app, selection.limit);
}

void addExport(CLI::App& app, ExportQuery& query) {
    CLI::Option* const sqlite = app.add_option("--sqlite", query.sqlite, "A database file")->type_name("FILE");
    CLI::Option* const csv =
        app.add_option("--csv", query.csv, "A directory; baskets also flat, in components.csv")->type_name("DIR");
    CLI::Option* const ndjson = app.add_option("--ndjson", query.ndjson, "A directory")->type_name("DIR");
    sqlite->excludes(csv)->excludes(ndjson);
    csv->excludes(ndjson);
    app.add_flag("--zeros", query.zeros, "Numbers that are zero, too; a database always has them");
    app.add_flag("--bom", query.byteOrderMark, "A byte-order mark, by which spreadsheets know UTF-8")->excludes(sqlite);
}

void addRules(CLI::App& app, CheckQuery& query) {
    const auto add = [&app](const char* name, std::vector<std::string>& rules, const char* about) {
        addList(app, name, rules, about)->type_name("RULE")->check(CLI::IsMember(checkRules()).description(""));
    };
    add("--rule", query.rules, "Only this rule; may be repeated");
    add("--no-rule", query.without, "All rules but this; may be repeated");
    app.add_flag("--show-sql", query.showSql, "The rules as statements for sql, instead of what they find");
}

}  // namespace inscenter
