#include "Report.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <ostream>
#include <thread>

#include "Workload.h"

namespace bench {
namespace {

constexpr double kMostTimesFloor = 1.5;
constexpr double kLeastScaling = 1.8;
constexpr double kLeastLoadsPerSecond = 1e6;
constexpr double kNanosecondsPerSecond = 1e9;

bool isLookup(const std::string& what) {
    return what == kTextLookup || what == kHashLookup;
}

std::string verdict(bool met, bool disturbed) {
    return fmt::format("{}{}", met ? "ok" : "MISSED", disturbed ? ", disturbed" : "");
}

std::string ratioTarget(double ratio, double most, bool disturbed) {
    return most == 0 ? "" : fmt::format("at most {:.2f}  {}", most, verdict(ratio <= most, disturbed));
}

std::string ratioTarget(const Result& center, const Result& other, double ratio) {
    return ratioTarget(ratio, other.series.centerAtMost, center.disturbed() || other.disturbed());
}

std::string floorTarget(const Result& center, const Result& floor, double ratio) {
    const Series& series = center.series;
    if (isLookup(series.what) && series.threads == 1) {
        return fmt::format("at most {:.1f}  {}", kMostTimesFloor,
                           verdict(ratio <= kMostTimesFloor, center.disturbed() || floor.disturbed()));
    }
    if (series.what == kLoad && series.size == kTargetSize) {
        const double perSecond = kNanosecondsPerSecond / center.median();
        return fmt::format("{:.2f} M/s, at least {:.0f}  {}", perSecond / 1e6, kLeastLoadsPerSecond / 1e6,
                           verdict(perSecond >= kLeastLoadsPerSecond, center.disturbed()));
    }
    return ratioTarget(center, floor, ratio);
}

std::string timeColumns(const Result& result) {
    return fmt::format("{:>9.1f}{:>7.0f}%{:>7}", result.median(), result.spread() * 100,
                       fmt::format("{}/{}", result.undisturbed(), result.runs.size()));
}

void printAgainstFloor(std::ostream& out, const std::vector<Result>& results) {
    fmt::print(
        out,
        "\nAgainst the floor: median wall nanoseconds of one item (two threads: of one item of either), distance of\n"
        "the quartiles, and how many of the runs had the processors to themselves\n\n");
    fmt::print(out, "{:<28}{:>9}{:>9}  {:<9}{:>9}{:>8}{:>7}{:>9}{:>8}{:>7}{:>8}  {}\n", "what", "size", "threads",
               "keys", "center", "spread", "runs", "floor", "spread", "runs", "ratio", "target");
    for (const Result& result : results) {
        const Series& series = result.series;
        const Result* const floor = findResult(results, series, kFloor, series.threads);
        if (series.who != kCenter || floor == nullptr) {
            continue;
        }
        const double ratio = result.median() / floor->median();
        fmt::print(out, "{:<28}{:>9}{:>9}  {:<9}{}{}{:>8.2f}  {}\n", series.what, series.size, series.threads,
                   series.keys, timeColumns(result), timeColumns(*floor), ratio, floorTarget(result, *floor, ratio));
    }
}

/// How many times the items of one thread two threads get through; 0 when either was not run.
double scaling(const std::vector<Result>& results, const Series& series, const char* who) {
    const Result* const one = findResult(results, series, who, 1);
    const Result* const two = findResult(results, series, who, 2);
    return one == nullptr || two == nullptr ? 0 : one->median() / two->median();
}

std::string scalingTarget(const std::vector<Result>& results, const Result& one, double center) {
    const double least = isLookup(one.series.what) ? kLeastScaling : one.series.leastScaling;
    if (least == 0) {
        return "";
    }
    const Result* const two = findResult(results, one.series, kCenter, 2);
    return fmt::format("at least {:.1f}  {}", least, verdict(center >= least, one.disturbed() || two->disturbed()));
}

void printScaling(std::ostream& out, const std::vector<Result>& results) {
    fmt::print(out, "\nThroughput of two threads, times that of one\n\n");
    fmt::print(out, "{:<28}{:>9}  {:<9}{:>9}{:>9}  {}\n", "what", "size", "keys", "center", "floor", "target");
    for (const Result& result : results) {
        const Series& series = result.series;
        const double center = scaling(results, series, kCenter);
        if (series.who == kCenter && series.threads == 1 && center != 0) {
            fmt::print(out, "{:<28}{:>9}  {:<9}{:>9.2f}{:>9.2f}  {}\n", series.what, series.size, series.keys, center,
                       scaling(results, series, kFloor), scalingTarget(results, result, center));
        }
    }
}

bool isRival(const Result& result) {
    return result.series.who != kCenter && result.series.who != kFloor;
}

void printAgainstRivals(std::ostream& out, const std::vector<Result>& results) {
    if (std::none_of(results.begin(), results.end(), isRival)) {
        return;
    }
    fmt::print(out, "\nAgainst what would be written in its place\n\n");
    fmt::print(out, "{:<28}{:>9}{:>9}  {:<9}{:>9}{:>9}{:>8}  {}\n", "what", "size", "threads", "keys", "center",
               "rival", "ratio", "rival");
    for (const Result& rival : results) {
        const Series& series = rival.series;
        const Result* const center = findResult(results, series, kCenter, series.threads);
        if (!isRival(rival) || center == nullptr) {
            continue;
        }
        const double ratio = center->median() / rival.median();
        fmt::print(out, "{:<28}{:>9}{:>9}  {:<9}{:>9.1f}{:>9.1f}{:>8.2f}  {}  {}\n", series.what, series.size,
                   series.threads, series.keys, center->median(), rival.median(), ratio, series.who,
                   ratioTarget(*center, rival, ratio));
    }
}

void printMemory(std::ostream& out, const std::vector<Memory>& memories) {
    fmt::print(out, "\nHeap bytes of one record\n\n");
    fmt::print(out, "{:>9}{:>10}{:>16}{:>14}{:>8}{:>15}{:>10}\n", "size", "record", "center adds", "bare indexes",
               "ratio", "node indexes", "of those");
    for (const Memory& memory : memories) {
        fmt::print(out, "{:>9}{:>10.0f}{:>16.1f}{:>14.1f}{:>8.2f}{:>15.1f}{:>10.2f}\n", memory.size, memory.record,
                   memory.center, memory.bareIndexes, memory.center / memory.bareIndexes, memory.nodeIndexes,
                   memory.center / memory.nodeIndexes);
    }
}

void printFootprints(std::ostream& out, const std::vector<Footprint>& footprints) {
    fmt::print(out, "\nMegabytes of what the persisted center keeps\n\n");
    fmt::print(out, "{:<28}{:>9}{:>9}{:>9}{:>8}  {}\n", "what", "size", "center", "other", "ratio", "other");
    constexpr double kMegabyte = 1e6;
    for (const Footprint& footprint : footprints) {
        const double ratio = footprint.center / footprint.otherBytes;
        fmt::print(out, "{:<28}{:>9}{:>9.1f}{:>9.1f}{:>8.3f}  {}  {}\n", footprint.what, footprint.size,
                   footprint.center / kMegabyte, footprint.otherBytes / kMegabyte, ratio, footprint.other,
                   ratioTarget(ratio, footprint.atMost, false));
    }
}

/// Series names are our own and need no escaping.
std::string asJson(const Result& result) {
    const Series& series = result.series;
    std::vector<std::string> runs;
    std::transform(result.runs.begin(), result.runs.end(), std::back_inserter(runs),
                   [](const Run& run) { return fmt::format("[{:.3f},{:.3f}]", run.nanoseconds, run.processorShare); });
    return fmt::format(
        R"({{"what":"{}","who":"{}","size":{},"threads":{},"keys":"{}","items":{},"median_ns":{:.3f},"spread":{:.3f},)"
        R"("runs_ns_share":[{}]}})",
        series.what, series.who, series.size, series.threads, series.keys, series.items, result.median(),
        result.spread(), fmt::join(runs, ","));
}

std::string asJson(const Memory& memory) {
    return fmt::format(
        R"({{"size":{},"record_bytes":{},"center_bytes":{},"bare_index_bytes":{},"node_index_bytes":{}}})", memory.size,
        memory.record, memory.center, memory.bareIndexes, memory.nodeIndexes);
}

std::string asJson(const Footprint& footprint) {
    return fmt::format(R"({{"what":"{}","size":{},"center_bytes":{},"other":"{}","other_bytes":{}}})", footprint.what,
                       footprint.size, footprint.center, footprint.other, footprint.otherBytes);
}

template <class Values>
std::string jsonLines(const Values& values) {
    std::vector<std::string> lines;
    std::transform(values.begin(), values.end(), std::back_inserter(lines),
                   [](const auto& value) { return asJson(value); });
    return fmt::format("{}", fmt::join(lines, ",\n"));
}

}  // namespace

void printReport(std::ostream& out, const std::vector<Result>& results, const std::vector<Memory>& memories,
                 const std::vector<Footprint>& footprints) {
    if (!results.empty()) {
        printAgainstFloor(out, results);
        printScaling(out, results);
        printAgainstRivals(out, results);
    }
    printMemory(out, memories);
    printFootprints(out, footprints);
}

bool writeJson(const std::string& path, const Conditions& conditions, const std::vector<Result>& results,
               const std::vector<Memory>& memories, const std::vector<Footprint>& footprints) {
    std::ofstream file(path);
    fmt::print(file,
               "{{\"processors\":{},\"quick\":{},\"build\":\"{}\",\n\"results\":[\n{}\n],\n\"memory\":[\n{}\n],\n"
               "\"footprints\":[\n{}\n]}}\n",
               std::thread::hardware_concurrency(), conditions.quick, conditions.build, jsonLines(results),
               jsonLines(memories), jsonLines(footprints));
    file.close();
    return !file.fail();
}

}  // namespace bench
