// What asks the records of the day and no center: SQL, and the day in other files.

#include <iostream>
#include <iterator>

#include "tools/inscenter/Verbs.h"

namespace inscenter {

void answerSql(Session& session, const Query& query) {
    const bool given = query.text != "-";
    const std::string statements =
        given ? query.text : std::string(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    try {
        session.day.sql->answer(statements, session.output);
    } catch (const SqlError& wrong) {
        session.console.message(wrong.what());
        if (!wrong.line.empty()) {
            session.console.point(wrong.line, wrong.at);
        }
        session.failed = true;
    }
}

void exportDay(Session& session, const Query& query) {
    const ExportQuery& to = query.exported;
    if (!to.sqlite.empty()) {
        session.day.sql->save(to.sqlite);
    } else {
        mxservice::SnapshotWriteOptions options;
        options.format = to.csv.empty() ? mxservice::SnapshotFormat::Ndjson : mxservice::SnapshotFormat::Csv;
        options.zeros = to.zeros;
        options.byteOrderMark = to.byteOrderMark;
        options.components = true;
        session.day.records->write(to.csv.empty() ? to.ndjson : to.csv, options);
    }
    Table table{{"catalogue", "records"}, {}};
    for (const SnapshotCatalogue catalogue : kEveryCatalogue) {
        table.rows.push_back({std::string(catalogueName(catalogue)),
                              static_cast<std::int64_t>(session.day.records->records(catalogue).size())});
    }
    session.output.table(table, "");
}

}  // namespace inscenter
