#include "platform/utils/Hash.h"

#include "platform/utils/HashInline.h"

namespace utils {

std::uint64_t hash(const std::string& text) {
    return hashBytes(text);
}

std::string ovStockKey(const std::string& market, const std::string& code) {
    std::string key;
    key.reserve(market.size() + code.size());
    key.append(market).append(code);
    return key;
}

}  // namespace utils
