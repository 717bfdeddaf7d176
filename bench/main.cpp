#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <malloc.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "Report.h"
#include "StoreWorkload.h"
#include "Suite.h"
#include "Workload.h"

// center_bench: measures both centers against floors and rivals and prints the ratios.

namespace bench {
namespace {

struct Options {
    bool quick = false;
    std::string json;
    std::vector<std::size_t> sizes;       // of the in-memory center's days
    std::vector<std::size_t> storeSizes;  // of the persisted center's
    std::vector<std::string> rest;        // Google Benchmark's
};

constexpr const char* kUsage =
    "center_bench [--quick] [--json FILE] [--size N]... [options of Google Benchmark]\n"
    "  --quick      no day of 3,000,000 instruments, no stores of other makes, shorter runs\n"
    "  --json FILE  every run, for scripts\n"
    "  --size N     this many instruments instead; may be repeated\n"
    "  --benchmark_filter=REGEX matches what/who/size/keys/threads, as in 'lookup by text/.*/300000/Zipf/1'\n"
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
            options.rest.push_back(argument);
        }
    }
    if (options.sizes.empty()) {
        options.sizes = {10000, 300000};
        if (!options.quick) {
            options.sizes.push_back(3000000);
        }
        options.storeSizes = {30000, 300000};
    }
    return options;
}

/// Hands Google Benchmark our defaults, then what the command line says.
void initializeLibrary(const Options& options) {
    std::vector<std::string> arguments{
        "center_bench", "--benchmark_enable_random_interleaving=true",
        // Many short runs rather than a few long ones: on a shared machine some of them are undisturbed.
        options.quick ? "--benchmark_min_time=0.02" : "--benchmark_min_time=0.03",
        options.quick ? "--benchmark_repetitions=11" : "--benchmark_repetitions=25"};
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

/// Fills the workload and weighs each of its parts.
Memory prepare(Workload& workload, std::size_t size) {
    Memory memory;
    memory.size = size;
    memory.record = bytesPerRecord(size, [&] { workload.records = makeMarketDay(size); });
    memory.center = bytesPerRecord(size, [&] { workload.center.initInstruments(kLoadedMarkets, workload.records); });
    memory.bareIndexes = bytesPerRecord(size, [&] { fill(workload.bare, workload.records); });
    memory.nodeIndexes = bytesPerRecord(size, [&] { fill(workload.node, workload.records); });
    fill(workload.text, workload.records);
    return memory;
}

void runSuite(Suite& suite, std::vector<Result>& results) {
    std::vector<Result> measured = suite.run();
    std::move(measured.begin(), measured.end(), std::back_inserter(results));
}

void measure(std::size_t size, std::vector<Result>& results, std::vector<Memory>& memories) {
    std::cerr << fmt::format("{} instruments: making and loading them\n", size);
    const auto workload = std::make_unique<Workload>();
    memories.push_back(prepare(*workload, size));
    Suite suite;
    addLookups(suite, *workload);
    addMarketLists(suite, *workload);
    addLoads(suite, *workload);
    if (size == kTargetSize) {
        addDerivations(suite, *workload);
    }
    std::cerr << fmt::format("{} instruments: measuring\n", size);
    runSuite(suite, results);
}

/// How full pages are does not depend on the size of the day.
constexpr std::size_t kLargestFileSample = 100000;

/// Reads and loads take turns, because the process has one store.
void measureStore(std::size_t size, bool rivals, std::vector<Result>& results, std::vector<Footprint>& footprints) {
    std::cerr << fmt::format("{} instruments: storing and reading them\n", size);
    {
        StoreWorkload workload(size);
        Suite suite;
        addStoreReads(suite, workload);
        if (rivals) {
            addRivalReads(suite, workload);
        }
        runSuite(suite, results);
    }
    malloc_trim(0);
    const StoreLoads loads(size);
    Suite suite;
    loads.add(suite);
    runSuite(suite, results);
    if (size <= kLargestFileSample) {
        footprints.push_back(loads.fileBytes());
    }
}

void measureEtfLoads(std::vector<Result>& results) {
    const EtfLoads loads;
    Suite suite;
    loads.add(suite);
    runSuite(suite, results);
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

std::string buildDescription() {
#ifdef NDEBUG
    return fmt::format("{}, no asserts", __VERSION__);
#else
    std::cerr << "center_bench: built with asserts; the numbers say little\n";
    return fmt::format("{}, asserts", __VERSION__);
#endif
}

int run(int count, char** arguments) {
    const Options options = parse(count, arguments);
    initializeLibrary(options);
    const Conditions conditions{options.quick, buildDescription()};
    std::vector<Result> results;
    std::vector<Memory> memories;
    std::vector<Footprint> footprints;
    chooseStoreDirectory();
    for (const std::size_t size : options.storeSizes) {
        footprints.push_back(clientMemory(size));
    }
    for (const std::size_t size : options.sizes) {
        measure(size, results, memories);
        malloc_trim(0);
    }
    for (const std::size_t size : options.storeSizes) {
        measureStore(size, !options.quick, results, footprints);
        malloc_trim(0);
    }
    measureEtfLoads(results);
    printReport(std::cout, results, memories, footprints);
    if (!options.json.empty() && !writeJson(options.json, conditions, results, memories, footprints)) {
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
