#include "feed/Listing.h"

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <array>
#include <iterator>
#include <map>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
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

/// Whether a batch is not all that decides about the market's keys.
bool isShared(std::string_view name) {
    const std::string_view filed = filedUnder(name);
    return filed == market::kHongKong || filed == market::kShanghai || filed == market::kInterbank;
}

/// Whether the key is of what stands for funds or bonds.
bool isPseudo(const std::string& text) {
    return text.rfind(kEtfInstruments, 0) == 0 || text.rfind(market::kInterbank, 0) == 0;
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
    /// Answers whether Hong Kong is built anew by it.
    bool take(const std::string& part, Instruments records) {
        byMarket_[part] = std::move(records);
        const bool complete =
            byMarket_.count(market::kShanghaiConnect) != 0 && byMarket_.count(market::kShenzhenConnect) != 0;
        if (complete) {
            build();
        }
        return complete;
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
        for (const char* const part : kParts) {
            for (const InstrumentPtr& record : byMarket_[part]) {
                if (filedUnder(record->market) == market::kHongKong) {  // the center leaves others out of its build
                    Code& code = codes_[record->code];
                    code.record = record;
                    code.shanghai = code.shanghai || record->market == market::kShanghaiConnect;
                    code.shenzhen = code.shenzhen || record->market == market::kShenzhenConnect;
                }
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

void append(const Instruments& more, Instruments& instruments) {
    instruments.insert(instruments.end(), more.begin(), more.end());
}

/// What each market lists after the loads of a day, under the name that it is filed under.
class Markets {
public:
    explicit Markets(Loads loads) : persisted_(loads == Loads::Persisted) {}

    void take(const Day::Call& call) {
        Listings brought = listingsOf(call);
        if (!persisted_ && isPart(call)) {
            if (parts_.take(call.markets.front(), std::move(brought[market::kHongKong]))) {
                listings_[market::kHongKong] = parts_.built();
            }
            return;
        }
        std::set<std::string, std::less<>> named;
        for (const std::string& name : call.markets) {
            named.emplace(isConnect(name) ? market::kHongKong : name);
        }
        if (persisted_) {
            restore(call, {market::kShanghaiConnect, market::kHongKong, market::kShenzhenConnect}, brought);
            restore(call, {market::kShanghai, market::kShanghaiSpecial}, brought);
            for (const std::string& name : named) {
                brought.try_emplace(name);  // it empties what a load names, and then looks at the records
            }
        }
        for (auto& [name, records] : brought) {
            // The persisted center writes what a load does not name beside what is there. The in-memory one would
            // forget that in its lists alone; "SH" in a load of "SHFI" is what hosts do, and no listing shall go by
            // that.
            if (named.count(name) == 0 && (persisted_ || name == market::kShanghai)) {
                keepOthers(name, records);
            }
            listings_[name] = std::move(records);
        }
    }

    Instruments all() const {
        Instruments instruments;
        for (const auto& [name, records] : listings_) {
            append(records, instruments);
        }
        return instruments;
    }

private:
    using Listings = std::map<std::string, Instruments, std::less<>>;

    static Listings listingsOf(const Day::Call& call) {
        Listings listings;
        std::string_view last;
        Instruments* listing = nullptr;
        for (const auto& one : call.records) {
            auto record = boost::static_pointer_cast<CInstrumentDetail>(one);
            if (listing == nullptr || record->market != last) {  // records of one market mostly stand together
                last = record->market;
                listing = &listings.try_emplace(std::string(filedUnder(last))).first->second;
            }
            listing->push_back(std::move(record));
        }
        return listings;
    }

    /// As the persisted center completes what shares a market: of those of the family that a load which names any does
    /// not bring, behind its own records and in the order of their names, whatever earlier loads have brought.
    void restore(const Day::Call& call, const std::set<std::string>& family, Listings& brought) {
        const bool concerned = std::any_of(call.markets.begin(), call.markets.end(),
                                           [&](const std::string& name) { return family.count(name) != 0; });
        const auto found = brought.find(filedUnder(*family.begin()));
        if (!concerned || found == brought.end()) {
            return;
        }
        Instruments& own = found->second;
        std::set<std::string_view> plain;  // codes of "SH"
        for (const InstrumentPtr& record : own) {
            if (record->market == market::kShanghai) {
                plain.insert(record->code);
            }
        }
        std::set<std::string> there;
        for (const InstrumentPtr& record : own) {
            // By now one of "SHFI" is one of "SH", unless a plain one goes first.
            const bool special = record->market == market::kShanghaiSpecial && plain.count(record->code) == 0;
            const std::string& name = special ? *family.begin() : record->market;
            there.insert(name);
            kept_[name].push_back(record);
        }
        for (const std::string& name : family) {
            if (there.count(name) == 0) {
                append(lastOfEachCode(kept_[name]), own);
            }
        }
    }

    void keepOthers(const std::string& name, Instruments& records) {
        std::set<std::string> codes;
        for (const InstrumentPtr& record : records) {
            codes.insert(record->code);
        }
        for (const InstrumentPtr& former : listings_[name]) {
            if (codes.count(former->code) == 0) {
                records.push_back(former);
            }
        }
    }

    static Instruments lastOfEachCode(const Instruments& records) {
        std::map<std::string_view, InstrumentPtr> byCode;
        for (const InstrumentPtr& record : records) {
            byCode[record->code] = record;
        }
        Instruments last;
        for (const auto& [code, record] : byCode) {
            last.push_back(record);
        }
        return last;
    }

    const bool persisted_;
    Listings listings_;
    Parts parts_;
    std::map<std::string, Instruments> kept_;  // what loads have brought of the two families, by market
};

/// The filed keys that a change removes: one that it also puts stays, with whatever else is listed under it.
std::set<std::string> removedBy(const Change& change) {
    std::set<std::string> removed;
    for (const std::string& key : change.removedKeys) {
        removed.insert(filedKey(key));
    }
    for (const InstrumentPtr& upsert : change.upserts) {
        removed.erase(filedKey(upsert->market, upsert->code));
    }
    return removed;
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
        for (const std::string& key : removedBy(change)) {
            const auto found = placesOfKey.find(key);
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
        std::set<std::string> fresh;  // keys of Hong Kong that come with this change
        for (InstrumentPtr upsert : change.upserts) {
            if (filedUnder(upsert->market) == market::kHongKong) {
                const std::string key = filedKey(upsert->market, upsert->code);
                // Which flags a record has depends on every change that the key has been through, one after the other:
                // the batch has what they begin with, and they follow it. A key that is there is there all the time.
                if (placesOfKey.count(key) != 0 && fresh.count(key) == 0) {
                    continue;
                }
                fresh.insert(key);
            }
            if (isShared(upsert->market)) {
                // A load fills in flags, and "SH" for "SHFI"; the change that follows must find what was handed in.
                upsert = boost::static_pointer_cast<CInstrumentDetail>(upsert->copy());
            }
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

Listing listingOf(const Day& day, const std::vector<Change>& changes, Loads loads) {
    Listing listing;
    Markets markets(loads);
    std::set<std::string> named;
    for (const Day::Call& call : day.calls()) {
        if (call.catalogue == SnapshotCatalogue::Instruments) {
            for (const std::string& name : call.markets) {
                if (named.insert(name).second) {
                    listing.markets.push_back(name);
                }
            }
            markets.take(call);
        }
    }
    listing.instruments = markets.all();
    if (!changes.empty()) {
        takeChanges(changes, listing.instruments);
    }
    return listing;
}

void nameAll(const std::set<std::string>& folded, std::vector<std::string>& markets) {
    const auto name = [&](const std::string& one) {
        if (std::find(markets.begin(), markets.end(), one) == markets.end()) {
            markets.push_back(one);
        }
    };
    for (const std::string& one : folded) {
        name(one);
        if (one == market::kHongKong) {
            std::for_each(kParts.begin(), kParts.end(), name);
        } else if (one == market::kShanghai) {
            name(market::kShanghaiSpecial);
        }
    }
}

std::vector<Change> afterBatch(const std::vector<Change>& changes) {
    std::map<std::string, std::size_t> lastRemoved;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        for (const std::string& key : removedBy(changes[i])) {
            lastRemoved[key] = i;
        }
    }
    std::vector<Change> after;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        Change rest;
        std::copy_if(changes[i].removedKeys.begin(), changes[i].removedKeys.end(), std::back_inserter(rest.removedKeys),
                     isPseudo);
        for (const InstrumentPtr& upsert : changes[i].upserts) {
            const auto removed = lastRemoved.find(filedKey(upsert->market, upsert->code));
            if (isShared(upsert->market) && (removed == lastRemoved.end() || removed->second < i)) {
                rest.upserts.push_back(upsert);
            }
        }
        if (!rest.upserts.empty() || !rest.removedKeys.empty()) {
            after.push_back(std::move(rest));
        }
    }
    return after;
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
