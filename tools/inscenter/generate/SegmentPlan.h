#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace inscenter::generate {

/// The groups of records that instruments.ndjson is made of.
enum class Segment : std::uint8_t {
    ShIndexes,
    ShStocks,
    ShFunds,
    ShTreasuries,
    ShBonds,
    ShIssues,
    Shfi,
    SzIndexes,
    SzStocks,
    SzFunds,
    SzConvertibles,
    SzBonds,
    SzIssues,
    BjStocks,
    BjIssues,
    Neeq,
    Hk,
    Hgt,
    Sgt,
    Sho,
    Szo,
    CffexFutures,
    ShfeFutures,
    DceFutures,
    CzceFutures,
    IneFutures,
    GfexFutures,
    DceSpreads,
    CffexOptions,
    ShfeOptions,
    DceOptions,
    CzceOptions,
    IneOptions,
    GfexOptions,
    Shge,
    Wp,
    Nyse,
    Nasdaq,
    Sotc,
    kCount
};

using SegmentCounts = std::array<std::size_t, static_cast<std::size_t>(Segment::kCount)>;

/// The largest snapshot whose codes are all different.
std::size_t largestSize();

/// How many records each segment gets in a snapshot of `size` records, at most largestSize(); they add up to `size`.
SegmentCounts planSegments(std::size_t size);

}  // namespace inscenter::generate
