// Stands in for the units whose libraries are not built for Windows here, so that tests of what needs none of them can
// be linked: lines are not logged, documents cannot be built, no market trades futures options.

#include <cstdlib>

#include "platform/bson/BSONObj.h"
#include "platform/utils/LogLine.h"
#include "platform/utils/MarketRules.h"

namespace utils {

bool logReaches(int /*level*/) {
    return false;
}

void logLine(int /*level*/, const std::string& /*text*/, const char* /*file*/, const char* /*function*/,
             int /*line*/) noexcept {}

bool isFutureOptionMarket(const std::string& /*market*/) {
    return false;
}

}  // namespace utils

namespace bson {

struct BSONObjBuilder::State {};

BSONObjBuilder::BSONObjBuilder() {
    std::abort();
}
BSONObjBuilder::~BSONObjBuilder() = default;

BSONObjBuilder& BSONObjBuilder::append(std::string_view /*name*/, const std::string& /*value*/) {
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(std::string_view /*name*/, std::int32_t /*value*/) {
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(std::string_view /*name*/, std::int64_t /*value*/) {
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(std::string_view /*name*/, double /*value*/) {
    return *this;
}
BSONObjBuilder& BSONObjBuilder::append(std::string_view /*name*/, const std::vector<BSONObj>& /*values*/) {
    return *this;
}

BSONObj BSONObjBuilder::obj() {
    std::abort();
}

}  // namespace bson
