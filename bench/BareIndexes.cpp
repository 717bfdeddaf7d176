#include "BareIndexes.h"

#include <array>
#include <cstring>
#include <string_view>

namespace bench {
namespace {

/// The two keys of a record as a center files it. Records come market by market, so a market is hashed once.
class Keyer {
public:
    void take(const mxservice::CInstrumentDetail& record) {
        if (record.market != market_) {
            market_ = record.market;
            filedMarket_ = filedMarket(record);
            marketKey_ = utils::hashBytes(filedMarket_);
        }
        std::memcpy(text_.data(), filedMarket_.data(), filedMarket_.size());
        std::memcpy(text_.data() + filedMarket_.size(), record.code.data(), record.code.size());
        stockKey_ = utils::hashBytes({text_.data(), filedMarket_.size() + record.code.size()});
    }
    std::uint64_t market() const { return marketKey_; }
    std::uint64_t stock() const { return stockKey_; }

private:
    static constexpr std::size_t kLongestText = 256;  // the records of a market day have shorter ones
    std::string market_;
    std::string filedMarket_;
    std::uint64_t marketKey_ = 0;
    std::uint64_t stockKey_ = 0;
    std::array<char, kLongestText> text_;
};

template <class Indexes>
void fillKeyed(Indexes& indexes, const Records& records) {
    indexes.records.reserve(records.size());
    indexes.marketByKey.reserve(records.size());
    Keyer keys;
    for (const InstrumentPtr& record : records) {
        keys.take(*record);
        indexes.records.emplace(keys.stock(), record);
        indexes.marketByKey.emplace(keys.stock(), keys.market());
    }
}

}  // namespace

void fill(BareIndexes& indexes, const Records& records) {
    fillKeyed(indexes, records);
}

void fill(NodeRival& rival, const Records& records) {
    fillKeyed(rival, records);
}

void reload(NodeRival& rival, const Records& records) {
    const std::unique_lock<boost::shared_mutex> lock(rival.mutex);
    Keyer keys;
    for (const InstrumentPtr& record : records) {
        keys.take(*record);
        rival.records.insert_or_assign(keys.stock(), record);
        rival.marketByKey.insert_or_assign(keys.stock(), keys.market());
    }
}

void fill(NodeKeySets& sets, const Records& records) {
    Keyer keys;
    for (const InstrumentPtr& record : records) {
        keys.take(*record);
        sets[keys.market()].insert(keys.stock());
    }
}

void fill(TextRival& rival, const Records& records) {
    rival.records.reserve(records.size());
    for (const InstrumentPtr& record : records) {
        rival.records.emplace(filedKeyText(*record), record);
    }
}

}  // namespace bench
