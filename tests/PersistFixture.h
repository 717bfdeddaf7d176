#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "tests/TemporaryStore.h"

namespace persisttest {

using bson::BSONObj;

inline BSONObj document(const std::string& text) {
    bson::BSONObjBuilder builder;
    builder.append("text", text);
    return builder.obj();
}

class Persist : public testing::Test {
protected:
    static persist::CPersistService& service() { return TemporaryStore::service(); }
    /// Forgets what is open, as a new process would.
    void restart() { service().setRootPath(store_.path().string()); }
    static std::string textOf(const std::string& db, const std::string& key) {
        return service().readData(db, key).getStringField("text");
    }
    /// Asks until it is so: reads notice a little late what was done to a directory. The end is for a broken store.
    template <class Ask>
    static bool soon(Ask ask) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        bool so = ask();
        while (!so && std::chrono::steady_clock::now() < end) {
            std::this_thread::yield();
            so = ask();
        }
        return so;
    }
    static bool writeMany(const std::string& db, int count, const std::string& text) {
        std::vector<std::string> keys;
        std::vector<BSONObj> values;
        for (int i = 0; i < count; ++i) {
            keys.push_back(std::to_string(i));
            values.push_back(document(text + std::to_string(i)));
        }
        return service().initDb(db, false) && service().writeDatas(db, keys, values, false);
    }

    TemporaryStore store_;
};

}  // namespace persisttest
