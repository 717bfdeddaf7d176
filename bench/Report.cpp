#include "Report.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <ostream>
#include <vector>

namespace bench {
namespace {

std::string targetText(const Comparison& comparison) {
    if (comparison.target == 0) {
        return "";
    }
    return fmt::format("{} {:.3g}  {}{}", comparison.topic == Topic::Scaling ? "at least" : "at most",
                       comparison.target, comparison.met() ? "ok" : "MISSED",
                       comparison.disturbed ? ", disturbed" : "");
}

/// The table of one topic; nothing where it has no rows.
void printTopic(std::ostream& out, const std::vector<Comparison>& comparisons, Topic topic, const char* title) {
    bool begun = false;
    for (const Comparison& comparison : comparisons) {
        if (comparison.topic != topic) {
            continue;
        }
        if (!begun) {
            fmt::print(out, "\n{}\n\n{:<40}{:>8}{:>8}  {:<9}{:>13}{:>13}{:>10}  {:<20}{:<32}{}\n", title, "what",
                       "size", "threads", "keys", "center", "other", "value", "quartiles", "target", "other");
            begun = true;
        }
        fmt::print(out, "{:<40}{:>8}{:>8}  {:<9}{:>13.1f}{:>13.1f}{:>10.3g}  {:<20}{:<32}{}\n", comparison.what,
                   comparison.size, comparison.threads, comparison.keys, comparison.center, comparison.other,
                   comparison.value, fmt::format("{:.3g} to {:.3g}", comparison.low, comparison.high),
                   targetText(comparison), comparison.against);
    }
}

const char* nameOf(Beside beside) {
    switch (beside) {
        case Beside::Nothing:
            return "no load";
        case Beside::Reload:
            return "reloading";
        case Beside::Crowd:
            return "list and loads";
        case Beside::Elsewhere:
            return "list and loads elsewhere";
        case Beside::Other:
            return "load elsewhere";
    }
    return "";
}

void printLatencies(std::ostream& out, const std::vector<Latency>& latencies) {
    if (latencies.empty()) {
        return;
    }
    fmt::print(out,
               "\nLatency of single lookups in nanoseconds, clock included: medians of the rounds, and the longest of\n"
               "all; only lookups during a load count where one runs\n\n");
    fmt::print(out, "{:<22}{:<44}{:<16}{:>9}{:>9}{:>9}{:>10}{:>12}{:>12}{:>11}{:>10}\n", "what", "who", "beside",
               "reloaded", "p50", "p99", "p99.9", "longest", "of all", "lookups", "answered");
    for (const Latency& latency : latencies) {
        std::uint64_t lookups = 0;
        for (const Percentiles& round : latency.rounds) {
            lookups += round.lookups;
        }
        fmt::print(out, "{:<22}{:<44}{:<16}{:>9}{:>9.0f}{:>9.0f}{:>10.0f}{:>12.0f}{:>12.0f}{:>11}{:>9.0f}%\n",
                   latency.what, latency.who, nameOf(latency.beside), latency.reloaded,
                   latency.median(&Percentiles::p50), latency.median(&Percentiles::p99),
                   latency.median(&Percentiles::p999), latency.median(&Percentiles::longest), latency.worst(), lookups,
                   latency.median(&Percentiles::answered) * 100);
    }
}

void printMemory(std::ostream& out, const std::vector<Memory>& memories) {
    for (const Memory& memory : memories) {
        fmt::print(
            out,
            "\nA record of {}: {:.0f} bytes of heap; {:.1f} of its texts stand in the record, {:.1f} take a block "
            "each\n",
            memory.size, memory.record, memory.shortTexts, memory.longTexts);
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
        R"("undisturbed":{},"runs_ns_share":[{}]}})",
        series.what, series.who, series.size, series.threads, series.keys, series.items, result.median(),
        result.spread(), result.undisturbed(), fmt::join(runs, ","));
}

std::string asJson(const Comparison& comparison) {
    return fmt::format(
        R"({{"topic":"{}","what":"{}","size":{},"keys":"{}","threads":{},"against":"{}","center":{:.4f},"other":{:.4f},)"
        R"("value":{:.4f},"low":{:.4f},"high":{:.4f},"target":{:.4f},"met":{},"disturbed":{}}})",
        nameOf(comparison.topic), comparison.what, comparison.size, comparison.keys, comparison.threads,
        comparison.against, comparison.center, comparison.other, comparison.value, comparison.low, comparison.high,
        comparison.target, comparison.met(), comparison.disturbed);
}

std::string asJson(const Latency& latency) {
    std::vector<std::string> rounds;
    std::transform(latency.rounds.begin(), latency.rounds.end(), std::back_inserter(rounds),
                   [](const Percentiles& round) {
                       return fmt::format("[{:.0f},{:.0f},{:.0f},{:.0f},{}]", round.p50, round.p99, round.p999,
                                          round.longest, round.lookups);
                   });
    return fmt::format(
        R"({{"what":"{}","who":"{}","size":{},"reloaded":{},"beside":"{}","p50":{:.0f},"p99":{:.0f},"p999":{:.0f},)"
        R"("longest":{:.0f},"worst":{:.0f},"answered":{:.4f},"rounds_p50_p99_p999_longest_lookups":[{}]}})",
        latency.what, latency.who, latency.size, latency.reloaded, nameOf(latency.beside),
        latency.median(&Percentiles::p50), latency.median(&Percentiles::p99), latency.median(&Percentiles::p999),
        latency.median(&Percentiles::longest), latency.worst(), latency.median(&Percentiles::answered),
        fmt::join(rounds, ","));
}

std::string asJson(const Memory& memory) {
    return fmt::format(R"({{"size":{},"record_bytes":{},"short_texts":{:.3f},"long_texts":{:.3f}}})", memory.size,
                       memory.record, memory.shortTexts, memory.longTexts);
}

template <class Values>
std::string jsonLines(const Values& values) {
    std::vector<std::string> lines;
    std::transform(values.begin(), values.end(), std::back_inserter(lines),
                   [](const auto& value) { return asJson(value); });
    return fmt::format("[\n{}\n]", fmt::join(lines, ",\n"));
}

}  // namespace

void printReport(std::ostream& out, const Measurements& measured) {
    const std::vector<Comparison> comparisons = compare(measured);
    fmt::print(out,
               "\nThe center's time or size over the other's: ratio of the medians, quartiles over all pairs of runs.\n"
               "Times are wall nanoseconds of one item; with two threads, of one item of either.\n");
    printTopic(out, comparisons, Topic::Floor, "Against the floor");
    printTopic(out, comparisons, Topic::Rival,
               "Against what would be written in its place, or a part against the whole");
    printTopic(out, comparisons, Topic::Scaling, "Throughput of two threads over that of one; other: the floor's");
    printTopic(out, comparisons, Topic::Reload, "p99.9 of lookups during a load over that without one");
    printTopic(out, comparisons, Topic::Stall, "The longest lookup of a round during a load, in milliseconds");
    printTopic(out, comparisons, Topic::Crowd, "The longest lookup of a round beside two other threads");
    printLatencies(out, measured.latencies);
    printTopic(out, comparisons, Topic::Bytes, "Bytes of one record");
    printMemory(out, measured.memories);
}

bool writeJson(const std::string& path, const Conditions& conditions, const Measurements& measured) {
    std::ofstream file(path);
    fmt::print(file,
               R"({{"quick":{},"build":"{}","day":"{}","processor":"{}","processors":{},"memory_bytes":{:.0f},)"
               R"("system":"{}",)"
               "\n\"comparisons\":{},\n\"latencies\":{},\n\"memory\":{},\n\"results\":{}}}\n",
               conditions.quick, conditions.build, conditions.day, conditions.processor, conditions.processors,
               conditions.memoryBytes, conditions.system, jsonLines(compare(measured)), jsonLines(measured.latencies),
               jsonLines(measured.memories), jsonLines(measured.results));
    file.close();
    return !file.fail();
}

}  // namespace bench
