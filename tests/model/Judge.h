#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <map>
#include <set>
#include <string>

#include "tests/model/Answers.h"

namespace mxservice::model {

inline std::string readable(const std::string& image) {
    return image == "none" ? image : bson::BSONObj::fromBytes(image.data(), image.size()).toJson();
}

/// Compares answers; says what was asked.
class Judge {
public:
    void one(const std::string& question, const IData* answer, const Choice& expected) {
        const std::string given = image(answer);
        if (expected.count(given) == 0) {
            ADD_FAILURE() << question << ": answered " << readable(given) << "\nexpected "
                          << readable(*expected.begin());
        }
    }
    template <class Value>
    void same(const std::string& question, const Value& answer, const Value& expected) {
        EXPECT_TRUE(answer == expected) << question;
    }
    template <class Map>
    void map(const std::string& question, const Map& answer, const ChoiceByText& expected) {
        for (const auto& [key, record] : answer) {
            const auto found = expected.find(key);
            if (found == expected.end()) {
                ADD_FAILURE() << question << ": too much: " << key;
            } else {
                one(question + " at " + key, record.get(), found->second);
            }
        }
        for (const auto& [key, choice] : expected) {
            EXPECT_EQ(answer.count(key), 1U) << question << ": missing: " << key;
        }
    }
    void products(const std::map<std::string, std::list<InstrumentPtr>>& answer,
                  const std::map<std::string, std::multiset<Choice>>& expected) {
        ASSERT_EQ(answer.size(), expected.size()) << "getProductMainInstruments";
        for (const auto& [product, records] : answer) {
            ASSERT_EQ(expected.count(product), 1U) << "getProductMainInstruments " << product;
            std::multiset<Choice> left = expected.at(product);
            for (const InstrumentPtr& record : records) {
                const std::string given = imageOf(record);
                const auto fits = std::find_if(left.begin(), left.end(),
                                               [&](const Choice& choice) { return choice.count(given) != 0; });
                ASSERT_TRUE(fits != left.end()) << "getProductMainInstruments " << product << readable(given);
                left.erase(fits);
            }
            for (const Choice& choice : left) {
                EXPECT_EQ(choice.count("none"), 1U) << "getProductMainInstruments " << product;
            }
        }
    }
};

}  // namespace mxservice::model
