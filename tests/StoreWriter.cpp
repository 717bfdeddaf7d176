// A process for the kill test: reloads a day into the store of the given directory until it is killed, and says on
// standard output when the first load is under way.

#include <boost/make_shared.hpp>

#include <unistd.h>

#include "tests/StoredDay.h"

int main(int argc, char** argv) {
    if (argc != 2) {
        return 2;
    }
    persist::CPersistService::instance()->setRootPath(argv[1]);
    mxservice::CClientInstrumentCenter center("writer", 10, 10, 10);
    for (int generation = 1;; ++generation) {
        if (::write(STDOUT_FILENO, ".", 1) != 1) {
            return 1;
        }
        mxservice::load(center, generation);
    }
}
