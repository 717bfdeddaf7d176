#include "tools/inscenter/generate/SegmentPlan.h"

#include <algorithm>
#include <iterator>

namespace inscenter::generate {
namespace {

struct SegmentSize {
    Segment segment;
    std::size_t least;  ///< enough for every kind of record of the segment
    std::size_t usual;  ///< on an ordinary trading day
    std::size_t share;  ///< of what exceeds an ordinary day, in proportion; 0: never more than usual
    std::size_t most;   ///< as many codes as the segment's form has room for
};

constexpr SegmentSize kSizes[] = {
    {Segment::ShIndexes, 3, 250, 0, 250},
    {Segment::ShStocks, 32, 2280, 0, 2280},
    {Segment::ShFunds, 10, 880, 0, 880},
    {Segment::ShTreasuries, 9, 700, 0, 700},
    {Segment::ShBonds, 12, 14000, 6, 79000},
    {Segment::ShIssues, 18, 36, 0, 36},
    {Segment::Shfi, 8, 1600, 0, 1600},
    {Segment::SzIndexes, 2, 400, 0, 400},
    {Segment::SzStocks, 32, 2880, 0, 2880},
    {Segment::SzFunds, 8, 760, 0, 760},
    {Segment::SzConvertibles, 6, 320, 0, 320},
    {Segment::SzBonds, 8, 7200, 4, 39000},
    {Segment::SzIssues, 14, 28, 0, 28},
    {Segment::BjStocks, 8, 280, 0, 280},
    {Segment::BjIssues, 2, 4, 0, 4},
    {Segment::Neeq, 10, 6000, 0, 6000},
    {Segment::Hk, 27, 2700, 0, 2700},
    {Segment::Hgt, 10, 560, 0, 560},
    {Segment::Sgt, 10, 640, 0, 640},
    {Segment::Sho, 16, 700, 14, 30'000'000},
    {Segment::Szo, 12, 560, 10, 9'000'000},
    {Segment::CffexFutures, 8, 56, 0, 56},
    {Segment::ShfeFutures, 14, 260, 0, 260},
    {Segment::DceFutures, 16, 286, 0, 286},
    {Segment::CzceFutures, 16, 312, 0, 312},
    {Segment::IneFutures, 8, 60, 0, 60},
    {Segment::GfexFutures, 8, 60, 0, 60},
    {Segment::DceSpreads, 6, 160, 0, 160},
    {Segment::CffexOptions, 6, 1300, 2, 1'000'000},
    {Segment::ShfeOptions, 8, 5200, 8, 10'000'000},
    {Segment::DceOptions, 10, 7000, 8, 10'000'000},
    {Segment::CzceOptions, 10, 6400, 8, 10'000'000},
    {Segment::IneOptions, 4, 500, 3, 1'000'000},
    {Segment::GfexOptions, 4, 1500, 3, 1'000'000},
    {Segment::Shge, 5, 18, 0, 18},
    {Segment::Wp, 24, 800, 0, 800},
    {Segment::Nyse, 14, 2900, 14, 400'000},
    {Segment::Nasdaq, 16, 4300, 20, 10'000'000},
    {Segment::Sotc, 6, 300, 0, 300},
};
static_assert(std::size(kSizes) == static_cast<std::size_t>(Segment::kCount));

std::size_t totalOf(std::size_t SegmentSize::*member) {
    std::size_t total = 0;
    for (const SegmentSize& size : kSizes) {
        total += size.*member;
    }
    return total;
}

std::size_t& countOf(SegmentCounts& counts, const SegmentSize& size) {
    return counts[static_cast<std::size_t>(size.segment)];
}

/// Deals `amount` in proportion to the weights. The running total is what is rounded, so nothing is lost.
template <class Weight, class Add>
void deal(std::size_t amount, const Weight& weightOf, const Add& add) {
    std::size_t total = 0;
    for (const SegmentSize& size : kSizes) {
        total += weightOf(size);
    }
    std::size_t weight = 0;
    for (const SegmentSize& size : kSizes) {
        const std::size_t before = amount * weight / total;
        weight += weightOf(size);
        add(size, amount * weight / total - before);
    }
}

/// Deals what exceeds an ordinary day, in rounds, since a segment that runs full hands its rest on.
void dealSurplus(std::size_t surplus, SegmentCounts& counts) {
    while (surplus > 0) {
        std::size_t left = 0;
        SegmentCounts before = counts;
        deal(
            surplus, [&](const SegmentSize& size) { return countOf(before, size) < size.most ? size.share : 0; },
            [&](const SegmentSize& size, std::size_t part) {
                std::size_t& count = countOf(counts, size);
                const std::size_t taken = std::min(part, size.most - count);
                count += taken;
                left += part - taken;
            });
        surplus = left;
    }
}

}  // namespace

std::size_t largestSize() {
    return totalOf(&SegmentSize::most);
}

SegmentCounts planSegments(std::size_t size) {
    const std::size_t least = totalOf(&SegmentSize::least);
    const std::size_t usual = totalOf(&SegmentSize::usual);
    SegmentCounts counts{};
    const auto add = [&](const SegmentSize& segment, std::size_t part) { countOf(counts, segment) += part; };

    deal(
        std::min(size, least), [](const SegmentSize& segment) { return segment.least; }, add);
    if (size > least) {
        deal(
            std::min(size, usual) - least, [](const SegmentSize& segment) { return segment.usual - segment.least; },
            add);
    }
    if (size > usual) {
        dealSurplus(size - usual, counts);
    }
    return counts;
}

}  // namespace inscenter::generate
