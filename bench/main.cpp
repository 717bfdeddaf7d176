#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <malloc.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "DayBenchmarks.h"
#include "Latency.h"
#include "Report.h"
#include "StoreWorkload.h"
#include "Suite.h"
#include "Workload.h"
#include "platform/record/RecordType.h"

// center_bench: measures both centers against floors and rivals and prints the ratios.

namespace bench {
namespace {

struct Options {
    bool quick = false;
    bool filtered = false;  // only some series are wanted
    std::string json;
    std::vector<std::size_t> sizes;       // of the days of which everything is asked
    std::vector<std::size_t> curveSizes;  // of further days of the in-memory center
    std::vector<std::size_t> storeSizes;  // of the persisted center's days
    std::vector<std::string> rest;        // Google Benchmark's
};

constexpr const char* kUsage =
    "center_bench [--quick] [--json FILE] [--size N]... [options of Google Benchmark]\n"
    "  --quick      the ratios at 300,000 instruments (store loads: 100,000); no other sizes, no stores of other\n"
    "               makes, shorter runs\n"
    "  --json FILE  every run, for scripts\n"
    "  --size N     this many instruments instead; may be repeated\n"
    "  --benchmark_filter=REGEX matches what/who/size/keys/threads, as in 'lookup by text/.*/300000/Zipf/1';\n"
    "               latencies beside loads are left out then\n"
    "Stores go beneath $TMPDIR, else to the memory file system.\n";

[[noreturn]] void refuse(const std::string& reason) {
    std::cerr << "center_bench: " << reason << "\n" << kUsage;
    std::exit(2);
}

std::size_t sizeOf(const std::string& text) {
    constexpr std::size_t kFewest = 1000;  // fewer leave some markets empty
    constexpr std::size_t kMost = 3500000;
    const unsigned long long size = std::strtoull(text.c_str(), nullptr, 10);
    if (size < kFewest || size > kMost) {
        refuse(fmt::format("--size {} is not between {} and {}", text, kFewest, kMost));
    }
    return size;
}

Options parse(int count, char** arguments) {
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string argument = arguments[i];
        const bool hasValue = i + 1 < count;
        if (argument == "--quick") {
            options.quick = true;
        } else if (argument == "--json" && hasValue) {
            options.json = arguments[++i];
        } else if (argument == "--size" && hasValue) {
            options.sizes.push_back(sizeOf(arguments[++i]));
            options.storeSizes = options.sizes;
        } else if (argument == "--help") {
            std::cout << kUsage;
            std::exit(0);
        } else {
            options.filtered = options.filtered || argument.rfind("--benchmark_filter", 0) == 0;
            options.rest.push_back(argument);
        }
    }
    if (options.sizes.empty()) {
        options.sizes = {300000};
        options.storeSizes = options.sizes;
        if (!options.quick) {
            options.curveSizes = {10000, 3000000};
            options.storeSizes.insert(options.storeSizes.begin(), 30000);
        }
    }
    return options;
}

/// Hands Google Benchmark our defaults, then what the command line says.
void initializeLibrary(const Options& options) {
    std::vector<std::string> arguments{
        "center_bench", "--benchmark_enable_random_interleaving=true",
        // Many short runs rather than a few long ones: on a shared machine some of them are undisturbed.
        options.quick ? "--benchmark_min_time=0.02" : "--benchmark_min_time=0.03",
        options.quick ? "--benchmark_repetitions=9" : "--benchmark_repetitions=17"};
    arguments.insert(arguments.end(), options.rest.begin(), options.rest.end());
    std::vector<char*> pointers;
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    int count = static_cast<int>(pointers.size());
    benchmark::Initialize(&count, pointers.data());
    if (count > 1) {
        refuse(fmt::format("unknown option {}", pointers[1]));
    }
}

/// Says what comes next and when.
void tell(const std::string& step) {
    static const auto begin = std::chrono::steady_clock::now();
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - begin;
    std::cerr << fmt::format("{:4.0f} s  {}\n", elapsed.count(), step);
}

void tell(std::size_t size, const char* step) {
    tell(fmt::format("{} instruments: {}", size, step));
}

double heapBytes() {
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

/// Heap bytes that `step` leaves behind for each of `records`.
template <class Step>
double bytesPerRecord(std::size_t records, Step step) {
    const double before = heapBytes();
    step();
    return (heapBytes() - before) / static_cast<double>(records);
}

/// Counts the texts of the records by where they stand.
void countTexts(const Records& records, Memory& memory) {
    constexpr std::size_t kLongestInPlace = 15;
    for (const InstrumentPtr& record : records) {
        for (const mxservice::Field& field : record->recordType().fields()) {
            if (field.kind() == mxservice::FieldKind::Text) {
                const std::size_t size = field.in<std::string>(*record).size();
                memory.longTexts += size > kLongestInPlace ? 1 : 0;
                memory.shortTexts += size > 0 && size <= kLongestInPlace ? 1 : 0;
            }
        }
    }
    memory.longTexts /= static_cast<double>(records.size());
    memory.shortTexts /= static_cast<double>(records.size());
}

/// What the two large tables of the center take, as it says itself.
double largeIndexBytes(mxservice::CServerInstrumentCenter& center) {
    double bytes = 0;
    for (const mxservice::IndexSize& index : center.statistics().indexes) {
        if (index.name == "records" || index.name == "market by key") {
            bytes += static_cast<double>(index.bytes);
        }
    }
    return bytes;
}

/// Fills the workload and weighs each of its parts.
void prepare(Workload& workload, std::size_t size, Extent extent, Measurements& measured) {
    Memory memory;
    memory.size = size;
    memory.record = bytesPerRecord(size, [&] { workload.records = makeMarketDay(size); });
    countTexts(workload.records, memory);
    measured.memories.push_back(memory);

    const double center =
        bytesPerRecord(size, [&] { workload.center.initInstruments(kLoadedMarkets, workload.records); });
    const double indexes = largeIndexBytes(workload.center) / static_cast<double>(size);
    const double nodes = bytesPerRecord(size, [&] { fill(workload.node, workload.records); });
    NodeKeySets sets;
    const double nodeSets = bytesPerRecord(size, [&] { fill(sets, workload.records); });
    constexpr double kIndexesAtMost = 0.65;
    measured.footprints.push_back({"both large indexes", "the same in boost::unordered_map", size, indexes, nodes,
                                   extent == Extent::Whole ? kIndexesAtMost : 0});
    measured.footprints.push_back({"all that a center adds",
                                   "both indexes and the markets' keys in boost::unordered_map", size, center,
                                   nodes + nodeSets, 0});
    fill(workload.bare, workload.records);
    if (extent == Extent::Whole) {
        fill(workload.text, workload.records);
    }
}

void runSuite(Suite& suite, Measurements& measured) {
    std::vector<Result> results = suite.run();
    std::move(results.begin(), results.end(), std::back_inserter(measured.results));
}

/// Whether a day of this size can be held as often as the benchmarks need it; says so if not.
bool fits(std::size_t size) {
    constexpr double kBytesPerInstrument = 4000;
    const double needed = kBytesPerInstrument * static_cast<double>(size);
    const double available = availableBytes();
    if (needed > available) {
        constexpr double kGigabyte = 1e9;
        std::cerr << fmt::format("{} instruments: left out, {:.1f} GB of memory are needed and {:.1f} available\n",
                                 size, needed / kGigabyte, available / kGigabyte);
    }
    return needed <= available;
}

void measure(std::size_t size, Extent extent, bool quick, Measurements& measured) {
    tell(size, "making and loading them");
    const auto workload = std::make_unique<Workload>();
    prepare(*workload, size, extent, measured);
    Suite suite;
    addLookups(suite, *workload, extent);
    addLoads(suite, *workload, extent);
    if (extent == Extent::Whole) {
        addMarketLists(suite, *workload);
        addDerivations(suite, *workload, !quick);
        addChains(suite, *workload);
    }
    tell(size, "lookups and loads");
    runSuite(suite, measured);
}

void measureStoreReads(std::size_t size, bool rivals, Measurements& measured) {
    tell(size, "storing them and reading from the store");
    StoreWorkload workload(size);
    Suite suite;
    addStoreReads(suite, workload);
    if (rivals) {
        addRivalReads(suite, workload);
    }
    runSuite(suite, measured);
}

template <class Loads>
void measureLoads(const Loads& loads, Measurements& measured) {
    Suite suite;
    loads.add(suite);
    runSuite(suite, measured);
}

void measureStoreLoads(std::size_t size, Measurements& measured) {
    tell(size, "loads into the store");
    const StoreLoads loads(size);
    measureLoads(loads, measured);
    if (const auto bytes = loads.fileBytes()) {
        measured.footprints.push_back(*bytes);
    }
}

void measureDayReads(std::size_t size, Measurements& measured) {
    tell(size, "days from files");
    measureLoads(DayReads(size), measured);
}

/// Stores go to the memory file system where that is large enough and nothing else is asked for: what is compared is
/// the work, not the disk of the day.
void chooseStoreDirectory() {
    constexpr const char* kMemoryDirectory = "/dev/shm";
    constexpr std::uintmax_t kLeastBytes = std::uintmax_t{4} << 30U;
    std::error_code error;
    const std::filesystem::space_info space = std::filesystem::space(kMemoryDirectory, error);
    if (!error && space.available >= kLeastBytes) {
        ::setenv("TMPDIR", kMemoryDirectory, 0);
    }
}

void measureLatencies(std::size_t size, bool quick, Measurements& measured) {
    tell(size, "latencies beside loads");
    const Watch watch = quick ? Watch{0.2, 3, false} : Watch{0.5, 7, true};
    std::vector<Latency> latencies = measureReloads(size, watch);
    std::move(latencies.begin(), latencies.end(), std::back_inserter(measured.latencies));
    malloc_trim(0);
}

/// Temporary files go to a disk rather than to memory while it lives.
class OnDisk {
public:
    OnDisk() {
        const char* const directory = std::getenv("TMPDIR");
        before_ = directory == nullptr ? "/tmp" : directory;
        ::setenv("TMPDIR", "/var/tmp", 1);
    }
    ~OnDisk() { ::setenv("TMPDIR", before_.c_str(), 1); }
    OnDisk(const OnDisk&) = delete;
    OnDisk& operator=(const OnDisk&) = delete;

private:
    std::string before_;
};

void measureCommits(Measurements& measured) {
    const OnDisk onDisk;
    Suite suite;
    addCommits(suite);
    runSuite(suite, measured);
}

/// Writing a whole day unordered takes ten seconds, too long for every day.
constexpr std::size_t kQuickLoad = 100000;

Measurements measureAll(const Options& options) {
    Measurements measured;
    for (const std::size_t size : options.storeSizes) {
        tell(size, "memory of both centers");
        measured.footprints.push_back(clientMemory(size));
    }
    for (const std::size_t size : options.sizes) {
        measure(size, Extent::Whole, options.quick, measured);
        malloc_trim(0);
        if (!options.filtered) {
            measureLatencies(size, options.quick, measured);
        }
    }
    for (const std::size_t size : options.curveSizes) {
        if (fits(size)) {
            measure(size, Extent::Curve, options.quick, measured);
            malloc_trim(0);
        }
    }
    for (const std::size_t size : options.storeSizes) {
        // One after the other, because the process has one store.
        measureStoreReads(size, !options.quick, measured);
        malloc_trim(0);
        measureStoreLoads(options.quick ? std::min(size, kQuickLoad) : size, measured);
        malloc_trim(0);
    }
    for (const std::size_t size : options.storeSizes) {
        measureDayReads(size, measured);
        malloc_trim(0);
    }
    tell("loads of ETFs");
    measureLoads(EtfLoads(), measured);
    if (!options.quick) {
        tell("commits");
        measureCommits(measured);
    }
    return measured;
}

int run(int count, char** arguments) {
    const Options options = parse(count, arguments);
    initializeLibrary(options);
    const Conditions conditions = conditionsOfNow(options.quick);
    chooseStoreDirectory();
    const Measurements measured = measureAll(options);
    tell("done");
    printReport(std::cout, measured);
    if (!options.json.empty() && !writeJson(options.json, conditions, measured)) {
        std::cerr << "center_bench: " << options.json << ": cannot be written\n";
        return 1;
    }
    return 0;
}

}  // namespace
}  // namespace bench

int main(int count, char** arguments) {
    return bench::run(count, arguments);
}
