// A process for the tests that kill one. With a first number: loads day after day into the store of the given
// directory until it is killed, and writes a byte to standard output before each load. Without: clears that store over
// and over.

#include <unistd.h>

#include <cstdlib>

#include "tests/StoredDay.h"

int main(int argc, char** argv) {
    if (argc < 2) {
        return 2;
    }
    persist::CPersistService::instance()->setRootPath(argv[1]);
    mxservice::CClientInstrumentCenter center("writer", 10, 10, 10);
    for (int number = argc > 2 ? std::atoi(argv[2]) : 0;; ++number) {
        if (::write(STDOUT_FILENO, ".", 1) != 1) {
            return 1;
        }
        if (argc > 2) {
            mxservice::load(center, number);
        } else {
            center.clearPersist(argv[1]);
        }
    }
}
