// A process beside that of a test, which mostly kills it: STORE_WRITER ROOT VERB [NUMBER].

#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <string>

#include "system/Path.h"
#include "tests/StoredDay.h"

namespace {

/// Tells the test to go on.
bool tell() {
    return std::fputc('.', stdout) != EOF && std::fflush(stdout) == 0;
}

/// Waits to be killed.
[[noreturn]] void stay() {
    std::promise<void>().get_future().wait();
    std::abort();
}

persist::CPersistService& service() {
    return *persist::CPersistService::instance();
}

bson::BSONObj document(const std::string& text) {
    bson::BSONObjBuilder builder;
    builder.append("text", text);
    return builder.obj();
}

/// A day after the other.
int load(int number) {
    mxservice::CClientInstrumentCenter center("writer", 10, 10, 10);
    for (; tell(); ++number) {
        mxservice::load(center, number);
    }
    return 1;
}

/// Clears the store over and over.
int clear(const std::string& root) {
    mxservice::CClientInstrumentCenter center("writer", 10, 10, 10);
    while (tell()) {
        center.clearPersist(root);
    }
    return 1;
}

/// Writes so much that the file grows, and keeps it open.
int grow() {
    if (service().writeData("A", "big", document(std::string(std::size_t{5} << 20U, 'x')), false) && tell()) {
        stay();
    }
    return 1;
}

/// Stays within a read.
int read() {
    service().visitAllData("A", [](std::string_view, std::string_view) {
        tell();
        stay();
        return false;
    });
    return 1;
}

/// Writes documents of its own, one by one.
int fill(int number) {
    bool written = service().initDb("A", false);
    for (int i = 0; i < 100; ++i) {
        written = written && service().writeData("A", std::to_string(number * 1000 + i), document("x"), false);
    }
    return written ? 0 : 1;
}

/// One day.
int day(int number) {
    mxservice::CClientInstrumentCenter center("writer", 10, 10, 10);
    mxservice::load(center, number);
    return center.statistics().failedWrites.empty() ? 0 : 1;
}

/// Whether the store holds that day.
int check(const std::string& root, int number) {
    int result = 0;
    for (const std::string& db : mxservice::storedDatabases()) {
        const auto loads = mxservice::storedLoads(sys::pathOf(root), db);
        const std::string problem = mxservice::notOneOf({number}, db, loads.value_or(mxservice::StoredLoads{}));
        if (!problem.empty()) {
            std::cerr << problem << '\n';
            result = 1;
        }
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        return 2;
    }
    const std::string root = argv[1];
    const std::string verb = argv[2];
    const int number = argc > 3 ? std::stoi(argv[3]) : 0;
    service().setRootPath(root);
    return verb == "load"    ? load(number)
           : verb == "clear" ? clear(root)
           : verb == "grow"  ? grow()
           : verb == "read"  ? read()
           : verb == "fill"  ? fill(number)
           : verb == "day"   ? day(number)
           : verb == "check" ? check(root, number)
                             : 2;
}
