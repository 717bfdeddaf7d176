#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <thread>

#include "tests/CenterFixture.h"

// Readers on every operation while loads run. The sanitizers look for races; the assertions here for answers that no
// moment of the loads allows.

namespace mxservice {
namespace {

template <class Kind>
class WhileLoading : public CenterTest<Kind> {};

using Kinds = testing::Types<ServerKind, ClientKind>;
TYPED_TEST_SUITE(WhileLoading, Kinds);

constexpr int kCodes = 200;

Instruments generation(int number) {
    Instruments records;
    for (const char* const market : {"SH", "SZ", "HK", "DCE", "SHO", "NEEQ", "WP"}) {
        for (int i = 0; i < kCodes; ++i) {
            const InstrumentPtr record = instrument(market, std::to_string(i));
            record->name = std::to_string(number);
            record->mainContractFlag = i % 10 == 0 ? 1 : 0;
            record->productId = "p(" + std::to_string(i % 10) + ")";
            record->securityClass = 5;
            records.push_back(record);
        }
    }
    return records;
}

TYPED_TEST(WhileLoading, EveryReaderGetsWholeAnswers) {
    const std::vector<std::string> markets{"SH", "SZ", "HK", "DCE", "SHO", "NEEQ", "WP"};
    this->load(markets, generation(0));
    IInstrumentCenter& center = this->asked();
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    const auto expect = [&](bool condition) { wrong += condition ? 0 : 1; };
    const std::vector<std::function<void(int)>> questions{
        [&](int i) {
            const std::string code = std::to_string(i % kCodes);
            const InstrumentPtr record = center.getInstrument("SH" + code);
            expect(!record || (record->market == "SH" && record->code == code));
        },
        [&](int i) { center.hasCode("HGT" + std::to_string(i % kCodes)); },
        [&](int) { expect(center.getInstruments("SZ").size() <= kCodes); },
        [&](int) { expect(center.getInstruments(OvTraderFuture).size() <= kCodes); },
        [&](int) { expect(center.getFutureMainInstruments("DCE").size() <= kCodes / 10); },
        [&](int) { expect(center.getProductMainInstruments().size() == 1); },
        [&](int) { expect(center.getNeeqInquiryCodes().size() == kCodes); },
        [&](int) { expect(center.isStkOptionUndlCode("SH", "3")); },
        [&](int) { center.getStockIpoCodes().size(); },
        [&](int) { center.getDceCrossPeriod(); },
        [&](int) { center.getOutterMarket(); },
        [&](int) { center.getEtfs(); },
        [&](int) { center.getBonds(); },
        [&](int) { center.getIssuanceInfos(); },
        [&](int i) { center.getLumoCode(std::to_string(i)); },
    };
    std::vector<std::thread> readers;
    for (std::size_t reader = 0; reader < 4; ++reader) {
        readers.emplace_back([&, reader] {
            for (int i = 0; !done.load(); ++i) {
                questions[(static_cast<std::size_t>(i) + reader) % questions.size()](i);
            }
        });
    }
    constexpr int kLoads = 15;
    for (int load = 1; load <= kLoads; ++load) {
        this->load(markets, generation(load));
        center.initEtfs({});
        center.initBonds({});
        center.initIssuanceInfos({});
    }
    done = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
    for (const auto& [key, record] : center.getInstruments("SH")) {
        EXPECT_EQ(record->name, std::to_string(kLoads)) << key;
    }
}

}  // namespace
}  // namespace mxservice
