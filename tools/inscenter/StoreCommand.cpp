#include "tools/inscenter/StoreCommand.h"

#include <array>
#include <utility>

#include "tools/inscenter/HelpTexts.h"
#include "tools/inscenter/VerbList.h"
#include "tools/inscenter/VerbOptions.h"

namespace inscenter {
namespace {

struct StoreVerbLine {
    const char* name;
    const char* about;
    const char* examples;
    StoreVerb verb;
};

constexpr std::array kStoreVerbs{
    StoreVerbLine{"ls", "The databases of a store: kind, documents, sub-documents, size of the file", "ls db",
                  listStore},
    StoreVerbLine{"dump", "Documents as canonical extended JSON, one a line in the order of the keys",
                  "dump db OvIns_SH --limit 10\ndump db OvIns_FUMAIN --keys-only\ndump db > store.ndjson", dumpStore},
    StoreVerbLine{"verify", "Reads every document and names those that are damaged, of a wrong class or misplaced",
                  "verify db", verifyStore},
    StoreVerbLine{"stat", "Numbers and sizes of the documents of each database, and their classes", "stat db OvIns_SH",
                  measureStore},
    StoreVerbLine{"key", "Which record, field or market a number in a store or a log line is the key of",
                  "key db 15268337435934448243\nkey db 0xd3e40800bbabda73", explainKeys}};

/// One list of words: that the first names the root is known only where --store does not.
void addKeys(CLI::App& app, StoreQuery& query, std::string& store, const std::function<void(StoreVerb)>& chosen) {
    app.add_option("WORDS", query.words, "Directory that holds the databases, unless --store names it; numbers")
        ->required();
    app.callback([&query, &store, chosen] {
        chosen(explainKeys);
        query.root = std::exchange(store, {});
        if (query.words.size() < (query.root.empty() ? 2U : 1U)) {
            throw CLI::RequiredError("NUMBER");
        }
    });
}

}  // namespace

void addStoreCommands(CLI::App& app, StoreQuery& query, std::string& store,
                      const std::function<void(StoreVerb)>& chosen) {
    CLI::App* const commands = app.add_subcommand("store", "Look into a store on disk")->group(verbgroup::kStore);
    commands->require_subcommand(1);
    commands->footer(kStoreFooter);
    for (const StoreVerbLine& verb : kStoreVerbs) {
        CLI::App* const sub = commands->add_subcommand(verb.name, verb.about)->group("Commands");
        sub->footer(exampleLines("inscenter store ", verb.examples) + "\n\n" + kStoreFooter);
        if (verb.verb == explainKeys) {
            addKeys(*sub, query, store, chosen);
            continue;
        }
        sub->callback([chosen, run = verb.verb] { chosen(run); });
        sub->add_option("DIR", query.root, "Directory that holds the databases")->required();
        sub->add_option("DB", query.database, "Name of a database; all by default");
        if (verb.verb == dumpStore) {
            sub->add_flag("--keys-only", query.keysOnly, "Leave the documents out");
            sub->add_option("--prefix", query.prefix,
                            "Only documents whose key, or sub-documents whose field, begins so")
                ->type_name("BEGINNING");
            addLimit(*sub, query.limit);
        }
    }
}

}  // namespace inscenter
