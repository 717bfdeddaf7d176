#pragma once

#include <gtest/gtest.h>
#include <boost/make_shared.hpp>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "platform/utils/Utils.h"
#include "tests/TemporaryStore.h"

namespace mxservice {

/// Whether the centers ask of the platform its named operations alone. Tests of what those cannot give are left out.
#ifdef PM_NAMED_PLATFORM_ONLY
constexpr bool kNamedPlatformOnly = true;
#else
constexpr bool kNamedPlatformOnly = false;
#endif

using InstrumentPtr = boost::shared_ptr<CInstrumentDetail>;
using Instruments = std::vector<InstrumentPtr>;
using InstrumentMap = std::map<std::string, InstrumentPtr>;

inline InstrumentPtr instrument(const std::string& market, const std::string& code) {
    auto record = boost::make_shared<CInstrumentDetail>();
    record->market = market;
    record->code = code;
    record->platformCode = code;
    record->name = "name of " + market + code;
    return record;
}

/// Opens the protected operations, as a host's derived class may use them.
class OpenServerCenter : public CServerInstrumentCenter {
public:
    OpenServerCenter() : CServerInstrumentCenter("test") {}
    using CServerInstrumentCenter::clearDatas;
    using CServerInstrumentCenter::getExchanges;
};

class OpenClientCenter : public CClientInstrumentCenter {
public:
    static constexpr int kCapacity = 16;
    explicit OpenClientCenter(int capacity = kCapacity)
        : CClientInstrumentCenter("test", capacity, capacity, capacity) {}
    using CClientInstrumentCenter::cacheFailedDatas;
    using CClientInstrumentCenter::clearDatas;
    using CClientInstrumentCenter::getCachedDatas;
    using CClientInstrumentCenter::getExchanges;
};

struct ServerKind {
    using Center = OpenServerCenter;
};
struct ClientKind {
    using Center = OpenClientCenter;
};
using BothCenterKinds = testing::Types<ServerKind, ClientKind>;

template <class Kind>
class CenterTest : public testing::Test {
protected:
    using Center = typename Kind::Center;
    Center& center() { return *center_; }
    IInstrumentCenter& asked() { return *center_; }

    void load(const std::vector<std::string>& markets, const Instruments& records) {
        center_->initInstruments(markets, records);
    }

    TemporaryStore store_;

private:
    std::unique_ptr<Center> center_ = std::make_unique<Center>();
};

/// Pins today for as long as it lives.
class PinnedDay {
public:
    PinnedDay() { utils::setToday("20260302"); }
    ~PinnedDay() { utils::setToday(""); }
    PinnedDay(const PinnedDay&) = delete;
    PinnedDay& operator=(const PinnedDay&) = delete;
};

/// The key texts of a result.
inline std::vector<std::string> keysOf(const InstrumentMap& records) {
    std::vector<std::string> keys;
    for (const auto& [key, record] : records) {
        keys.push_back(key);
    }
    return keys;
}

}  // namespace mxservice
