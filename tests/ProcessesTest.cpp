#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/ChildProgram.h"
#include "tests/PersistFixture.h"

// Several processes on one root.

namespace {

using namespace persisttest;

class Processes : public Persist {
protected:
    std::unique_ptr<ChildProgram> other(const std::string& verb, int number = 0) const {
        return std::make_unique<ChildProgram>(
            std::vector<std::string>{PM_STORE_WRITER, store_.path().string(), verb, std::to_string(number)});
    }
    std::uintmax_t fileBytes() const { return std::filesystem::file_size(store_.path("A") / "data.mdb"); }
};

/// The other one keeps more of the file mapped than this one would grow it to.
TEST_F(Processes, GrowthByAnotherIsAdoptedWhileItIsAtWork) {
    constexpr std::size_t kBig = std::size_t{5} << 20U;
    ASSERT_TRUE(writeMany("A", 10, "first"));
    const auto growing = other("grow");
    ASSERT_TRUE(growing->read());
    EXPECT_TRUE(service().writeData("A", "11", document("after"), false));
    EXPECT_EQ(textOf("A", "big").size(), kBig);
    EXPECT_TRUE(service().writeData("A", "12", document(std::string(std::size_t{3} << 20U, 'x')), false));
    EXPECT_TRUE(growing->kill());
    restart();
    EXPECT_EQ(textOf("A", "big").size(), kBig);
    EXPECT_EQ(textOf("A", "11"), "after");
}

/// Otherwise the pages that it read would be kept for ever, and the file grow with each write.
TEST_F(Processes, WhatAKilledReaderHeldIsUsedAgain) {
    ASSERT_TRUE(writeMany("A", 20, "old"));
    const auto reader = other("read");
    ASSERT_TRUE(reader->read());
    ASSERT_TRUE(reader->kill());
    for (int round = 0; round < 60; ++round) {
        ASSERT_TRUE(writeMany("A", 20, std::string(2000, 'x')));
    }
    EXPECT_LE(fileBytes(), 1U << 20U);
}

TEST_F(Processes, CreateAndFillOneDatabaseTogether) {
    constexpr int kOthers = 3;
    std::vector<std::unique_ptr<ChildProgram>> others;
    for (int i = 0; i < kOthers; ++i) {
        others.push_back(other("fill", i));
    }
    EXPECT_TRUE(service().initDb("A", false));
    for (int i = 0; i < 100; ++i) {
        EXPECT_TRUE(service().writeData("A", "own" + std::to_string(i), document("x"), false));
    }
    for (const auto& program : others) {
        EXPECT_EQ(program->wait(), 0);
    }
    EXPECT_EQ(service().readAllData("A", ".*").size(), 100U * (kOthers + 1));
}

}  // namespace
