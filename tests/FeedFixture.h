#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "feed/PublisherCore.h"
#include "feed/SubscriberCore.h"
#include "tests/CenterFixture.h"
#include "tests/MemoryLog.h"

namespace mxservice::feed {

constexpr std::uint64_t kRoom = 1U << 30U;  // for what is unpacked

/// Key text to name of what a log or a host has.
using Content = std::map<std::string, std::string>;

inline InstrumentPtr named(const std::string& market, const std::string& code, const std::string& name) {
    auto record = instrument(market, code);
    record->name = name;
    return record;
}

inline Day dayOf(const Instruments& records) {
    Day day;
    Snapshot snapshot;
    snapshot.instruments = records;
    day.initInstruments(snapshot.markets(), records);
    return day;
}

inline Content contentOf(IInstrumentCenter& center) {
    Content content;
    for (const auto& [key, record] : center.getInstruments()) {
        content[key] = record->name;
    }
    return content;
}

/// A center with what fills it, driven step by step.
template <class Center>
struct StepHost {
    explicit StepHost(std::shared_ptr<MemoryLog> connection, const Options& options = {})
        : log(std::move(connection)), subscriber(hostOf(center), log, options, false) {
        subscriber.restore();
    }

    IInstrumentCenter& asked() { return center; }

    Center center;
    std::shared_ptr<MemoryLog> log;
    SubscriberCore subscriber;
};

using ServerHost = StepHost<OpenServerCenter>;
using ClientHost = StepHost<OpenClientCenter>;

class FeedTest : public testing::Test {
protected:
    static Options oneTry() {
        Options options;
        options.publishFor = std::chrono::milliseconds(0);
        return options;
    }
    std::shared_ptr<MemoryLog> connection() const { return std::make_shared<MemoryLog>(stream_); }

    TemporaryStore store_;
    const Options options_ = oneTry();
    const std::shared_ptr<MemoryStream> stream_ = std::make_shared<MemoryStream>();
    const std::shared_ptr<MemoryLog> log_ = connection();
    PublisherCore publisher_{log_, options_};
};

}  // namespace mxservice::feed
