#include "feed/Listing.h"

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <array>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/instrumentcenter/vocabulary/Markets.h"

namespace mxservice::feed {
namespace {

using InstrumentPtr = boost::shared_ptr<CInstrumentDetail>;
using Instruments = std::vector<InstrumentPtr>;

/// In the order in which the in-memory center takes them.
constexpr std::array kParts{market::kShanghaiConnect, market::kShenzhenConnect, market::kHongKong};

bool isConnect(std::string_view name) {
    return name == market::kShanghaiConnect || name == market::kShenzhenConnect;
}

/// The market under which a center files.
std::string_view filedUnder(std::string_view name) {
    return isConnect(name)                    ? std::string_view(market::kHongKong)
           : name == market::kShanghaiSpecial ? std::string_view(market::kShanghai)
                                              : name;
}

/// Whether listings of several markets may have one key here.
bool isShared(std::string_view name) {
    const std::string_view filed = filedUnder(name);
    return filed == market::kHongKong || filed == market::kShanghai;
}

/// Markets with a NUL between them and the code: keys as texts alone may be read in two ways.
std::string exactKey(const CInstrumentDetail& record) {
    return record.market + '\0' + record.code;
}

std::string filedKey(std::string_view name, std::string_view code) {
    return std::string(filedUnder(name)).append(code);
}

/// A removed key is a text in which only the connect markets are folded: centers look for "SHFI..." as it stands, and
/// have nothing under it.
std::string filedKey(const std::string& text) {
    constexpr std::size_t kConnectLetters = 3;
    return isConnect(std::string_view(text).substr(0, kConnectLetters))
               ? market::kHongKong + text.substr(kConnectLetters)
               : text;
}

std::uint32_t flagsOf(bool shanghai, bool shenzhen) {
    constexpr std::uint32_t kShanghaiOnly = 1;
    constexpr std::uint32_t kShenzhenOnly = 3;
    constexpr std::uint32_t kBoth = 5;
    return shanghai && shenzhen ? kBoth : shanghai ? kShanghaiOnly : shenzhen ? kShenzhenOnly : 0;
}

/// Hong Kong in parts, as the in-memory center takes it: built at each part once both connect markets are there. Of a
/// code the last record in the order of the parts stays, and flags that a build has set stay in the record, whatever
/// later parts say.
class Parts {
public:
    void take(const std::string& part, Instruments records) {
        byMarket_[part] = std::move(records);
        if (byMarket_.count(market::kShanghaiConnect) != 0 && byMarket_.count(market::kShenzhenConnect) != 0) {
            build();
        }
    }

    /// One record of a code, so that grouping has no say. Flags are set on copies: the records may be in a center.
    Instruments built() const {
        Instruments records;
        for (const auto& [name, code] : codes_) {
            const auto flags = flags_.find(code.record);
            records.push_back(code.record);
            if (flags != flags_.end()) {
                auto copy = boost::static_pointer_cast<CInstrumentDetail>(code.record->copy());
                copy->combinedConnectFlags = flags->second;
                records.back() = copy;
            }
        }
        return records;
    }

    /// All of them, for a center that groups them.
    Instruments all() const {
        Instruments records;
        for (const char* const part : kParts) {
            const auto found = byMarket_.find(part);
            if (found != byMarket_.end()) {
                records.insert(records.end(), found->second.begin(), found->second.end());
            }
        }
        return records;
    }

private:
    struct Code {
        InstrumentPtr record;
        bool shanghai = false;
        bool shenzhen = false;
    };

    /// Connect flags are those of all parts that are there now; a record that a former build has marked is one that the
    /// center has marked, too, and keeps its mark when the other listing goes.
    void build() {
        codes_.clear();
        for (const InstrumentPtr& record : all()) {
            if (filedUnder(record->market) == market::kHongKong) {  // the center leaves others out of its build
                Code& code = codes_[record->code];
                code.record = record;
                code.shanghai = code.shanghai || record->market == market::kShanghaiConnect;
                code.shenzhen = code.shenzhen || record->market == market::kShenzhenConnect;
            }
        }
        for (const auto& [name, code] : codes_) {
            const std::uint32_t flags = flagsOf(code.shanghai, code.shenzhen);
            if (flags != 0 && code.record->combinedConnectFlags == 0) {
                flags_.try_emplace(code.record, flags);
            }
        }
    }

    std::map<std::string, Instruments> byMarket_;
    std::map<std::string, Code> codes_;
    std::map<InstrumentPtr, std::uint32_t> flags_;
};

bool isPart(const Day::Call& call) {
    return call.markets.size() == 1 && std::find(kParts.begin(), kParts.end(), call.markets.front()) != kParts.end();
}

Instruments instrumentsOf(const Day::Call& call) {
    Instruments instruments;
    instruments.reserve(call.records.size());
    for (const auto& record : call.records) {
        instruments.push_back(boost::static_pointer_cast<CInstrumentDetail>(record));
    }
    return instruments;
}

void append(const Instruments& more, Instruments& instruments) {
    instruments.insert(instruments.end(), more.begin(), more.end());
}

/// What a later load replaces of the earlier ones: the markets that its records name, in the persisted center also
/// those that it names itself.
void dropReplaced(const Day::Call& call, ConnectParts parts, Instruments& instruments) {
    std::set<std::string, std::less<>> replaced;
    if (parts == ConnectParts::Grouped) {
        for (const std::string& name : call.markets) {
            replaced.emplace(filedUnder(name));
        }
    }
    for (const auto& record : call.records) {
        replaced.emplace(filedUnder(static_cast<const CInstrumentDetail&>(*record).market));
    }
    std::erase_if(instruments,
                  [&](const InstrumentPtr& record) { return replaced.count(filedUnder(record->market)) != 0; });
}

/// A record keeps its place when it changes, because of listings with one key the order decides; one that is removed
/// leaves its place empty until the end, for the maps know places.
void takeChanges(const std::vector<Change>& changes, Instruments& instruments) {
    std::unordered_map<std::string, std::size_t> places;
    std::unordered_map<std::string, std::vector<std::size_t>> placesOfKey;
    const auto note = [&](std::size_t place) {
        places[exactKey(*instruments[place])] = place;
        placesOfKey[filedKey(instruments[place]->market, instruments[place]->code)].push_back(place);
    };
    for (std::size_t i = 0; i < instruments.size(); ++i) {
        note(i);
    }
    for (const Change& change : changes) {
        for (const std::string& key : change.removedKeys) {
            const auto found = placesOfKey.find(filedKey(key));
            if (found == placesOfKey.end()) {
                continue;
            }
            // All listings of the key: a center that has forgotten it brings none of the others up.
            for (const std::size_t place : found->second) {
                places.erase(exactKey(*instruments[place]));
                instruments[place].reset();
            }
            placesOfKey.erase(found);
        }
        for (const InstrumentPtr& upsert : change.upserts) {
            const auto found = places.find(exactKey(*upsert));
            if (found != places.end()) {
                instruments[found->second] = upsert;
            } else {
                instruments.push_back(upsert);
                note(instruments.size() - 1);
            }
        }
    }
    std::erase(instruments, nullptr);
}

}  // namespace

Listing listingOf(const Day& day, const std::vector<Change>& changes, ConnectParts parts) {
    Listing listing;
    Parts hongKong;
    std::set<std::string> named;
    bool first = true;
    for (const Day::Call& call : day.calls()) {
        if (call.catalogue != SnapshotCatalogue::Instruments) {
            continue;
        }
        for (const std::string& name : call.markets) {
            if (named.insert(name).second) {
                listing.markets.push_back(name);
            }
        }
        if (isPart(call)) {
            hongKong.take(call.markets.front(), instrumentsOf(call));
            continue;
        }
        if (!std::exchange(first, false)) {  // mostly there is one load, and nothing that it could replace
            dropReplaced(call, parts, listing.instruments);
        }
        append(instrumentsOf(call), listing.instruments);
    }
    append(parts == ConnectParts::LastWins ? hongKong.built() : hongKong.all(), listing.instruments);
    if (!changes.empty()) {
        takeChanges(changes, listing.instruments);
    }
    return listing;
}

void nameAll(const std::set<std::string>& folded, std::vector<std::string>& markets) {
    for (const std::string& name : folded) {
        if (std::find(markets.begin(), markets.end(), name) == markets.end()) {
            markets.push_back(name);
        }
    }
    if (markets.size() == 1 && std::find(kParts.begin(), kParts.end(), markets.front()) != kParts.end()) {
        markets.emplace_back(isConnect(markets.front()) ? market::kHongKong : market::kShanghaiConnect);
    }
}

Instruments sharedUpserts(const std::vector<Change>& changes) {
    std::map<std::string, InstrumentPtr> lastByKey;
    for (const Change& change : changes) {
        for (const std::string& key : change.removedKeys) {
            lastByKey.erase(filedKey(key));
        }
        for (const InstrumentPtr& upsert : change.upserts) {
            if (isShared(upsert->market)) {
                lastByKey[filedKey(upsert->market, upsert->code)] = upsert;
            }
        }
    }
    Instruments upserts;
    for (const auto& [key, upsert] : lastByKey) {
        upserts.push_back(upsert);
    }
    return upserts;
}

std::set<std::string> marketsOf(const Listing& listing) {
    std::set<std::string> markets;
    for (const std::string& name : listing.markets) {
        markets.emplace(filedUnder(name));
    }
    std::string_view last;
    for (const InstrumentPtr& record : listing.instruments) {
        if (record->market != last) {  // records of one market mostly stand together
            last = record->market;
            markets.emplace(filedUnder(last));
        }
    }
    return markets;
}

}  // namespace mxservice::feed
