#pragma once

#include <array>
#include <string_view>

/// Market names, byte strings compared case-sensitively. Database names are made of them: stored, never change.
namespace mxservice::market {

constexpr const char* kShanghai = "SH";
constexpr const char* kShenzhen = "SZ";
constexpr const char* kBeijing = "BJ";
constexpr const char* kHongKong = "HK";
constexpr const char* kShanghaiConnect = "HGT";
constexpr const char* kShenzhenConnect = "SGT";
constexpr const char* kShanghaiOption = "SHO";
constexpr const char* kShenzhenOption = "SZO";
constexpr const char* kNeeq = "NEEQ";
constexpr const char* kGold = "SHGE";
constexpr const char* kInterbank = "BANK";
constexpr const char* kOuterFuture = "WP";
constexpr const char* kNyse = "NYSE";
constexpr const char* kNasdaq = "NASDAQ";
constexpr const char* kShanghaiSpecial = "SHFI";  // folded onto "SH" by every load
constexpr const char* kSecuritiesOtc = "SOTC";
constexpr const char* kOtc = "OTC";
constexpr const char* kDalian = "DCE";
constexpr const char* kCffex = "CFFEX";

/// The six futures exchanges, always in this order.
constexpr std::array<const char*, 6> kFutures{kCffex, "SHFE", kDalian, "CZCE", "INE", "GFEX"};

}  // namespace mxservice::market
