#include "feed/Operations.h"

#include <fmt/format.h>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <iterator>
#include <set>
#include <utility>
#include <vector>

#include "feed/Parallel.h"
#include "feed/Zstd.h"

namespace mxservice::feed {
namespace {

// Operations begin with one of these. Stored in logs; never change one.
constexpr char kTable = 'T';    // of a class, before the first record of a frame
constexpr char kCall = 'C';     // a load: catalogue, markets, whether records have keys, how many follow, records
constexpr char kMore = 'M';     // more records of the load before: catalogue, whether they have keys, how many, records
constexpr char kRemoved = 'R';  // key texts
constexpr char kUpserts = 'U';  // instruments
constexpr char kNext = 'N';     // the end of a frame behind which another one stands
constexpr char kEnd = 'E';      // the end of the last one: a day that lacks whole frames breaks off

// A day is packed in frames of so many records, so that several threads pack and unpack it. Each is some 50 times what
// a context of zstd costs to make, and larger than its window, so that nearly nothing is lost by their beginning anew.
constexpr std::size_t kFrameRecords = 8192;

std::uint64_t bookKey(const CInstrumentDetail& instrument, std::string& text) {
    // Never a derived class's own getKey(): centers file by market and code, whatever that answers.
    text.assign(instrument.market).append(instrument.code);
    return Book::keyOf(SnapshotCatalogue::Instruments, text);
}

/// What records of a day come to in a book, made beside it.
class Notes {
public:
    /// Only instruments change one by one and need keys of their own; of the others those do that a host has given
    /// them.
    void add(SnapshotCatalogue catalogue, const std::string* key, const IData& record, std::string_view bytes) {
        std::uint64_t place = 0;
        if (catalogue == SnapshotCatalogue::Instruments) {
            const auto& instrument = static_cast<const CInstrumentDetail&>(record);
            place = bookKey(instrument, text_);
            if (instrument.market != lastMarket_) {  // records of one market mostly stand together
                lastMarket_ = instrument.market;
                markets_.insert(lastMarket_);
            }
        } else {
            place = Book::keyOf(catalogue, key == nullptr ? std::string_view() : std::string_view(*key));
        }
        hashes_.emplace_back(place, Book::hashOf(place, bytes));
    }

    std::size_t size() const { return hashes_.size(); }
    void addTo(Book& book) const {
        for (const auto& [key, hash] : hashes_) {
            book.add(key, hash);
        }
        for (const std::string& market : markets_) {
            book.addMarket(market);
        }
    }

private:
    std::vector<std::pair<std::uint64_t, Digest>> hashes_;
    std::set<std::string> markets_;
    std::string lastMarket_;
    std::string text_;
};

/// Writes one frame.
class Writer {
public:
    /// Records of a load from `begin` on; with its head where that is 0.
    void records(const Day::Call& call, std::size_t begin, std::size_t end, Notes& notes) {
        tableOf(catalogueType(call.catalogue));
        if (call.catalogue == SnapshotCatalogue::Etfs) {
            tableOf(CETFComponentStockInfo::table());
        }
        std::string& out = packer_.plain();
        out.push_back(begin == 0 ? kCall : kMore);
        out.push_back(static_cast<char>(call.catalogue));
        if (begin == 0) {
            appendNumber(out, call.markets.size());
            for (const std::string& market : call.markets) {
                appendText(out, market);
            }
        }
        const bool keyed = !call.keys.empty();
        out.push_back(keyed ? '\1' : '\0');
        appendNumber(out, end - begin);
        for (std::size_t i = begin; i < end; ++i) {
            if (keyed) {
                appendText(out, call.keys[i]);
            }
            const std::string_view bytes = append(*call.records[i], catalogueType(call.catalogue));
            notes.add(call.catalogue, keyed ? &call.keys[i] : nullptr, *call.records[i], bytes);
            packer_.offer();
        }
    }

    void removed(const std::vector<std::string>& keys, Book& book) {
        std::string& out = packer_.plain();
        out.push_back(kRemoved);
        appendNumber(out, keys.size());
        for (const std::string& key : keys) {
            appendText(out, key);
            book.remove(Book::keyOf(SnapshotCatalogue::Instruments, key));
            packer_.offer();
        }
    }

    void upserts(const std::vector<boost::shared_ptr<CInstrumentDetail>>& records, Book& book) {
        tableOf(CInstrumentDetail::table());
        std::string& out = packer_.plain();
        out.push_back(kUpserts);
        appendNumber(out, static_cast<std::uint64_t>(std::count_if(
                              records.begin(), records.end(), [](const auto& record) { return record != nullptr; })));
        std::string text;
        for (const auto& record : records) {
            if (record) {
                const std::string_view bytes = append(*record, CInstrumentDetail::table());
                book.put(bookKey(*record, text), bytes);
                packer_.offer();
            }
        }
    }

    std::string finish(bool last) {
        packer_.plain().push_back(last ? kEnd : kNext);
        return packer_.finish();
    }

private:
    void tableOf(const RecordType& type) {
        if (sent_.insert(&type).second) {
            packer_.plain().push_back(kTable);
            appendFieldNames(packer_.plain(), type);
        }
    }

    /// Appends the record with its length and answers its bytes, valid until the next one.
    std::string_view append(const IData& record, const RecordType& type) {
        bytes_.clear();
        appendRecord(bytes_, record, type);
        appendText(packer_.plain(), bytes_);
        return bytes_;
    }

    Packer packer_;
    std::set<const RecordType*> sent_;
    std::string bytes_;
};

/// Reads one frame.
class Reader {
public:
    Reader(std::string_view frame, Allowance& allowance) : in_(frame, allowance) {}

    /// Calls `take` with the kind of each operation, which reads the rest of it. Answers whether it is the last frame.
    template <class Take>
    bool each(Take take) {
        char kind = static_cast<char>(in_.byte());
        for (; kind != kEnd && kind != kNext; kind = static_cast<char>(in_.byte())) {
            if (kind == kTable) {
                table();
            } else if (!take(kind)) {
                throw BadBytes(fmt::format("an operation '{}'", static_cast<int>(kind)));
            }
        }
        if (!in_.finished()) {
            throw BadBytes("bytes behind the last operation");
        }
        return kind == kEnd;
    }

    /// Records of a load, with its markets where it begins here.
    Day::Call records(bool begins, Notes& notes) {
        Day::Call call;
        const std::uint8_t catalogue = in_.byte();
        if (catalogue >= kSnapshotCatalogues) {
            throw BadBytes(fmt::format("a catalogue {}", catalogue));
        }
        call.catalogue = static_cast<SnapshotCatalogue>(catalogue);
        if (begins) {
            call.markets = texts();
        }
        const bool keyed = in_.byte() != 0;
        const std::uint64_t count = in_.number();
        call.records.reserve(std::min<std::uint64_t>(count, kFrameRecords));  // more only once they are there
        for (std::uint64_t i = 0; i < count; ++i) {
            if (keyed) {
                call.keys.emplace_back(in_.text());
                in_.charge(call.keys.back().size() + sizeof(std::string));
            }
            std::string_view bytes;
            call.records.push_back(record(call.catalogue, bytes));
            notes.add(call.catalogue, keyed ? &call.keys.back() : nullptr, *call.records.back(), bytes);
        }
        return call;
    }

    void upserts(Change& change, Book& book) {
        std::string text;
        for (std::uint64_t left = in_.number(); left > 0; --left) {
            std::string_view bytes;
            change.upserts.push_back(
                boost::static_pointer_cast<CInstrumentDetail>(record(SnapshotCatalogue::Instruments, bytes)));
            book.put(bookKey(*change.upserts.back(), text), bytes);
        }
    }

    void removed(Change& change, Book& book) {
        for (const std::string& key : texts()) {
            book.remove(Book::keyOf(SnapshotCatalogue::Instruments, key));
            change.removedKeys.push_back(key);
        }
    }

private:
    void table() {
        const std::string name(in_.text());
        const RecordType* const type = TypeManager::instance()->find(name);
        if (type == nullptr) {
            throw BadBytes("a table of an unknown class");
        }
        tables_.insert_or_assign(name, FieldNames(*type, in_));
    }

    boost::shared_ptr<IData> record(SnapshotCatalogue catalogue, std::string_view& bytes) {
        const RecordType& type = catalogueType(catalogue);
        if (names_ == nullptr || &names_->type() != &type) {
            const auto found = tables_.find(type.name());
            if (found == tables_.end()) {
                throw BadBytes("records of " + type.name() + " without their table");
            }
            names_ = &found->second;
        }
        bytes = in_.text();
        in_.charge(type.recordSize());
        boost::shared_ptr<IData> record = type.make();
        readRecord(bytes, *names_, tables_, *record);
        if (catalogue == SnapshotCatalogue::Etfs) {
            in_.charge(static_cast<const CETFDetail&>(*record).components.size() *
                       CETFComponentStockInfo::table().recordSize());
        }
        return record;
    }

    std::vector<std::string> texts() {
        std::vector<std::string> texts;
        for (std::uint64_t left = in_.number(); left > 0; --left) {
            texts.emplace_back(in_.text());
            in_.charge(texts.back().size() + sizeof(std::string));
        }
        return texts;
    }

    Unpacker in_;
    SentTables tables_;
    const FieldNames* names_ = nullptr;
};

/// What a frame of a day holds: the rest of a load, whole loads, the begin of one.
struct Frame {
    std::vector<std::pair<bool, Day::Call>> pieces;  // whether a load begins with it
    Notes notes;
    bool last = false;
};

Frame readFrame(std::string_view bytes, Allowance& allowance) {
    Frame frame;
    Reader reader(bytes, allowance);
    frame.last = reader.each([&](char kind) {
        const bool ours = kind == kCall || kind == kMore;
        if (ours) {
            frame.pieces.emplace_back(kind == kCall, reader.records(kind == kCall, frame.notes));
        }
        return ours;
    });
    return frame;
}

/// Adds records to the load that they are of.
void extend(Day::Call more, Day::Call& call) {
    if (more.catalogue != call.catalogue ||
        (!more.records.empty() && !call.records.empty() && more.keys.empty() != call.keys.empty())) {
        throw BadBytes("records of another load");
    }
    call.records.insert(call.records.end(), more.records.begin(), more.records.end());
    std::move(more.keys.begin(), more.keys.end(), std::back_inserter(call.keys));
}

}  // namespace

std::string packDay(const Day& day, Book& book) {
    struct Piece {
        const Day::Call* call;
        std::size_t begin;
        std::string packed;
        Notes notes;
    };
    std::vector<Piece> pieces;
    for (const Day::Call& call : day.calls()) {
        for (std::size_t begin = 0; begin == 0 || begin < call.records.size(); begin += kFrameRecords) {
            pieces.push_back({&call, begin, {}, {}});
        }
    }
    inParallel(pieces.size(), workers(), [&](std::size_t i) {
        Piece& piece = pieces[i];
        Writer writer;
        const std::size_t end = std::min(piece.begin + kFrameRecords, piece.call->records.size());
        writer.records(*piece.call, piece.begin, end, piece.notes);
        piece.packed = writer.finish(i + 1 == pieces.size());
    });
    book = Book();
    std::size_t records = 0;
    for (const Day::Call& call : day.calls()) {
        book.addCall(call.catalogue, call.markets, call.records.size());
        records += call.records.size();
    }
    book.reserve(records);
    std::string packed;
    for (const Piece& piece : pieces) {
        piece.notes.addTo(book);
        packed += piece.packed;
    }
    return pieces.empty() ? Writer().finish(true) : packed;
}

std::string packChange(const Change& change, Book& book) {
    Writer writer;
    writer.removed(change.removedKeys, book);
    writer.upserts(change.upserts, book);
    return writer.finish(true);
}

Day unpackDay(std::string_view packed, std::uint64_t maxBytes, Book& book) {
    const std::vector<std::string_view> frames = framesOf(packed);
    std::vector<Frame> read(frames.size());
    Allowance allowance(maxBytes);
    inParallel(frames.size(), workers(), [&](std::size_t i) { read[i] = readFrame(frames[i], allowance); });
    book = Book();
    std::vector<Day::Call> calls;
    std::size_t records = 0;
    for (std::size_t i = 0; i < read.size(); ++i) {
        if (read[i].last != (i + 1 == read.size())) {
            throw BadBytes("the operations do not end with the last frame");
        }
        records += read[i].notes.size();
        for (auto& [begins, piece] : read[i].pieces) {
            if (begins) {
                calls.push_back(std::move(piece));
            } else if (calls.empty()) {
                throw BadBytes("records without their load");
            } else {
                extend(std::move(piece), calls.back());
            }
        }
    }
    if (read.empty()) {
        throw BadBytes("no operations");
    }
    book.reserve(records);
    for (const Frame& frame : read) {
        frame.notes.addTo(book);
    }
    Day day;
    for (Day::Call& call : calls) {
        book.addCall(call.catalogue, call.markets, call.records.size());
        day.add(std::move(call));
    }
    return day;
}

Change unpackChange(std::string_view packed, std::uint64_t maxBytes, Book& book) {
    Change change;
    Allowance allowance(maxBytes);
    Reader reader(packed, allowance);
    const bool last = reader.each([&](char kind) {
        if (kind == kUpserts) {
            reader.upserts(change, book);
        } else if (kind == kRemoved) {
            reader.removed(change, book);
        }
        return kind == kUpserts || kind == kRemoved;
    });
    if (!last) {
        throw BadBytes("a change goes on behind its frame");
    }
    return change;
}

}  // namespace mxservice::feed
