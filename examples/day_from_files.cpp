// A host whose days lie in files: reads one, says what could not be used, loads it into both centers and asks them.
//
//     day_from_files DIR STORE [KEY]

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "platform/persist/CPersistService.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"

namespace {

void print(const std::vector<mxservice::SnapshotIssue>& issues) {
    for (const mxservice::SnapshotIssue& issue : issues) {
        std::cout << issue.file;
        if (issue.line != 0) {
            std::cout << ':' << issue.line;
        }
        std::cout << ": " << issue.field << (issue.field.empty() ? "" : ": ") << issue.reason << '\n';
    }
}

void ask(const char* who, mxservice::IInstrumentCenter& center, const std::string& key) {
    const auto record = center.getInstrument(key);
    std::string line = "unknown";
    if (record) {
        line.clear();
        mxservice::appendJson(line, *record);
    }
    std::cout << who << ", " << key << ": " << line << '\n';
}

int run(const std::string& directory, const std::string& store, const std::string& key) {
    const mxservice::Snapshot day = mxservice::Snapshot::read(directory);
    print(day.issues);
    std::cout << day.instruments.size() << " instruments, " << day.etfs.size() << " ETFs, skipped: " << day.skippedLines
              << " lines, " << day.skippedFiles << " files\n";

    mxservice::CServerInstrumentCenter server("instruments");
    // A load fills in fields of its records, so each center gets records of its own.
    day.copy().loadInto(server);

    persist::CPersistService::instance()->setRootPath(store);
    mxservice::CClientInstrumentCenter client("instruments", 100, 100, 100);
    day.copy().loadInto(client);

    ask("in memory", server, key);
    ask("persisted", client, key);

    // Later the day comes again. What it does not name any more is gone then, and no reader sees a gap.
    server.replaceInstruments(day.markets(), day.instruments);
    return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: day_from_files DIR STORE [KEY]\n";
        return EXIT_FAILURE;
    }
    try {
        return run(argv[1], argv[2], argc > 3 ? argv[3] : "SH600000");
    } catch (const std::exception& failure) {  // nothing of the directory could be read
        std::cerr << failure.what() << '\n';
        return EXIT_FAILURE;
    }
}
