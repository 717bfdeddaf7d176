#pragma once

#include <string>
#include <string_view>

#include "tools/inscenter/RecordText.h"

namespace inscenter {

constexpr const char* kSeeHelp = "Run with --help for more information.\n";

// Their lines are broken where they are shown.

constexpr const char* kAbout =
    "Loads a snapshot of a market day into an instrument center and asks it questions. A snapshot is a directory of "
    "files, one record a line (.ndjson, or .csv with a header line), named by their catalogue: instruments*, etfs*, "
    "bonds*, tenderbonds*, counterparties*, otcfundplans*, issuances*, issuanceprices*.\n";

constexpr const char* kFooter =
    "Exit codes: 0 answered; 1 a key or market was not found, or check or diff --exit-code found something; 2 bad "
    "usage, unreadable input or a store with bad documents; 3 answered, but lines, files or documents were skipped; "
    "4 answered, but the store could not be written (where both hold, 4; where a key was not found, too, 1).\n"
    "\nExamples:\n"
    "  inscenter generate --size 1000 day\n"
    "  inscenter --data day summary\n"
    "  inscenter --data day sql 'select market, count(*) from instruments group by 1'\n"
    "  inscenter --store db get SH600000\n"
    "  inscenter --data day get SH600000 HK00700 --format json\n"
    "  inscenter help list";

constexpr const char* kShellFooter =
    "Also: \"sql\" and statements over several lines, up to a semicolon; \"format FORMAT\" for all further answers; "
    "\"reload\" reads the day again; \"quit\". Behind a line, \"> FILE\" writes its answer to a file and \">> FILE\" "
    "appends it.";

constexpr const char* kStoreFooter =
    "Databases are opened for reading only, also beside a running host, and never changed. The one file that may be "
    "made is the engine's lock.mdb where a database has none; hosts must be able to write to it, so run this as their "
    "user. Unless the file system is read-only, lock.mdb must be writable for this, too.";

/// The examples of a help text: each of the lines behind `begin`.
inline std::string exampleLines(std::string_view begin, std::string_view lines) {
    std::string text = "Examples:";
    for (const std::string& line : partsOf(lines, "\n")) {
        text.append("\n  ").append(begin).append(line);
    }
    return text;
}

}  // namespace inscenter
