#include "tools/inscenter/CompareTally.h"

namespace inscenter {

Tally::Group Tally::total() const {
    Group sum{"all", 0, 0};
    for (const Group& group : groups_) {
        sum.compared += group.compared;
        sum.different += group.different;
    }
    return sum;
}

void Tally::write(Output& output) const {
    const bool people = output.format() == Format::Table;
    Table table{{"answers", "compared", "different"}, {}};
    std::vector<Group> groups = groups_;
    groups.push_back(total());
    for (const Group& group : groups) {
        table.rows.push_back({group.name, group.compared, group.different});
    }
    if (!people) {
        table.columns.emplace_back("firstDifferences");
        for (auto& row : table.rows) {
            row.emplace_back(std::vector<std::string>());
        }
        table.rows.back().back() = named_;
    }
    output.table(table, "");
    output.note("");
    for (const std::string& text : named_) {
        output.note(text);
    }
    output.note(named_.empty() ? "Both centers give the same answers." : "");
}

}  // namespace inscenter
