#include "DayBenchmarks.h"

#include <simdjson.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "MarketDay.h"
#include "Timing.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "snapshot/RecordText.h"
#include "snapshot/Snapshot.h"

namespace bench {
namespace {

using mxservice::Snapshot;
using mxservice::SnapshotCatalogue;
using mxservice::SnapshotFormat;
using mxservice::SnapshotPacking;
using mxservice::SnapshotReadOptions;

constexpr const char* kDayRead = "day from NDJSON into a center, per record";
constexpr const char* kDayUnpacked = "what gzip adds to that, per record";
constexpr double kReadAtMost = 1.6;
constexpr double kUnpackAtMost = 1.2;
constexpr int kRepetitions = 9;

/// A center and what it was loaded from, which the clock does not see going.
struct Host {
    mxservice::CServerInstrumentCenter center{"bench"};
    Snapshot day;
};

std::unique_ptr<Host> freshHost() {
    return std::make_unique<Host>();
}

void readInto(Host& host, const std::string& bytes, SnapshotFormat format) {
    SnapshotReadOptions options;
    options.format = format;
    host.day = Snapshot::read(bytes.data(), bytes.size(), options);
    host.day.loadInto(host.center);
}

/// Of several threads.
template <class Load>
Body timeReads(Load load) {
    return timeLoadsBy(freshHost, load, CLOCK_PROCESS_CPUTIME_ID);
}

template <class Step>
double secondsOf(const Step& step) {
    const double begin = seconds(CLOCK_MONOTONIC);
    step();
    return seconds(CLOCK_MONOTONIC) - begin;
}

/// Looks at every value of every line, as what it is; answers a sum, so that nothing is left out.
std::size_t walk(simdjson::ondemand::parser& parser, const simdjson::padded_string& text) {
    constexpr std::size_t kBatch = std::size_t{1} << 20U;
    std::size_t sum = 0;
    simdjson::ondemand::document_stream lines;
    if (parser.iterate_many(text, kBatch).get(lines) != simdjson::SUCCESS) {
        return 0;
    }
    for (auto line : lines) {
        for (auto entry : line.get_object()) {
            if (entry.error() != simdjson::SUCCESS) {
                return 0;
            }
            // Looked at where it stands, as the reader does: the floor must not lose time to copies.
            simdjson::ondemand::field& field = entry.value_unsafe();
            sum += field.key().raw()[0] == '"' ? 1U : 0U;
            simdjson::ondemand::value& value = field.value();
            std::string_view string;
            double number = 0;
            if (value.get_string().get(string) == simdjson::SUCCESS) {
                sum += string.size();
            } else if (value.get_double().get(number) == simdjson::SUCCESS) {
                sum += static_cast<std::size_t>(number != 0);
            }
        }
    }
    return sum;
}

/// What zlib alone takes for the bytes.
void inflateAll(const std::string& packed) {
    static std::vector<unsigned char> plain(std::size_t{1} << 18U);
    z_stream stream{};
    inflateInit2(&stream, 15 + 16);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(packed.data()));
    stream.avail_in = static_cast<uInt>(packed.size());
    int state = Z_OK;
    while (state == Z_OK) {
        stream.next_out = plain.data();
        stream.avail_out = static_cast<uInt>(plain.size());
        state = inflate(&stream, Z_NO_FLUSH);
    }
    benchmark::DoNotOptimize(plain.data());
    inflateEnd(&stream);
}

Series daySeries(const char* what, const char* who, std::size_t size) {
    return timedSeries(what, who, size, kRepetitions);
}

std::string written(const Snapshot& day, SnapshotFormat format, SnapshotPacking packing) {
    const auto directory = std::filesystem::temp_directory_path() / "center_bench.day";
    std::filesystem::remove_all(directory);
    day.write(directory.string(), format, packing);
    std::string bytes;
    for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        if (entry.path().filename().string().rfind("instruments", 0) == 0) {
            std::ifstream file(entry.path(), std::ios::binary);
            bytes.assign(std::istreambuf_iterator<char>(file), {});
        }
    }
    std::filesystem::remove_all(directory);
    return bytes;
}

}  // namespace

struct DayReads::Texts {
    Snapshot day;
    std::vector<std::string> markets;
    std::string json;
    std::string csv;
    std::string gzip;
    simdjson::padded_string padded;
};

DayReads::DayReads(std::size_t size) {
    auto texts = std::make_unique<Texts>();
    texts->day.instruments = makeMarketDay(size);
    texts->markets = texts->day.markets();
    texts->json = written(texts->day, SnapshotFormat::Ndjson, SnapshotPacking::None);
    texts->csv = written(texts->day, SnapshotFormat::Csv, SnapshotPacking::None);
    texts->gzip = written(texts->day, SnapshotFormat::Ndjson, SnapshotPacking::Gzip);
    texts->padded = simdjson::padded_string(texts->json);
    texts_ = std::move(texts);
}

DayReads::~DayReads() = default;

void DayReads::add(Suite& suite) const {
    const Texts* const texts = texts_.get();
    const std::size_t size = texts->day.instruments.size();
    suite.add(daySeries(kDayRead, kCenter, size), timeReads([texts](Host& host) {
                  return secondsOf([&] { readInto(host, texts->json, SnapshotFormat::Ndjson); });
              }));
    // The least that it could be: every value looked at once, by one thread, and the load of records that are there.
    Series floor = daySeries(kDayRead, kFloor, size);
    floor.centerAtMost = kReadAtMost;
    const auto parser = std::make_shared<simdjson::ondemand::parser>();
    suite.add(floor, timeReads([texts, parser](Host& host) {
                  return secondsOf([&] {
                      benchmark::DoNotOptimize(walk(*parser, texts->padded));
                      host.center.initInstruments(texts->markets, texts->day.instruments);
                  });
              }));
    suite.add(daySeries(kDayRead, "the same from CSV", size), timeReads([texts](Host& host) {
                  return secondsOf([&] { readInto(host, texts->csv, SnapshotFormat::Csv); });
              }));
    suite.add(daySeries(kDayUnpacked, kCenter, size), timeReads([texts](Host& host) {
                  const double packed = secondsOf([&] { readInto(host, texts->gzip, SnapshotFormat::Ndjson); });
                  const auto other = freshHost();
                  const double plain = secondsOf([&] { readInto(*other, texts->json, SnapshotFormat::Ndjson); });
                  return std::max(packed - plain, 1e-9);
              }));
    floor = daySeries(kDayUnpacked, "zlib's inflate", size);
    floor.centerAtMost = kUnpackAtMost;
    suite.add(floor, timeReads([texts](Host&) { return secondsOf([&] { inflateAll(texts->gzip); }); }));
}

}  // namespace bench
