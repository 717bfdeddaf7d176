#include "feed/Operations.h"

#include <fmt/format.h>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "feed/Zstd.h"

namespace mxservice::feed {
namespace {

// Operations begin with one of these. Stored in logs; never change one.
constexpr char kTable = 'T';    // of a class, before its first record
constexpr char kCall = 'C';     // a load: catalogue, markets, whether records have keys, how many, records
constexpr char kRemoved = 'R';  // key texts
constexpr char kUpserts = 'U';  // instruments
constexpr char kEnd = 'E';

constexpr std::uint64_t kReservedRecords = 1U << 16U;  // at most, before records have shown that they are there

const RecordType& typeOf(SnapshotCatalogue catalogue) {
    switch (catalogue) {
        case SnapshotCatalogue::Instruments:
            break;
        case SnapshotCatalogue::Etfs:
            return CETFDetail::table();
        case SnapshotCatalogue::Bonds:
            return CBondInfoDetail::table();
        case SnapshotCatalogue::TenderBonds:
            return CTenderBondInfoDetail::table();
        case SnapshotCatalogue::Counterparties:
            return CCounterpartyDetail::table();
        case SnapshotCatalogue::OtcPlans:
            return COTCFundPlanInfo::table();
        case SnapshotCatalogue::Issuances:
            return COTCSecuritiesIssuanceInfo::table();
        case SnapshotCatalogue::IssuancePrices:
            return COTCStockEnquiryPriceSetting::table();
    }
    return CInstrumentDetail::table();
}

std::uint64_t bookKey(const CInstrumentDetail& instrument, std::string& text) {
    // Never a derived class's own getKey(): centers file by market and code, whatever that answers.
    text.assign(instrument.market).append(instrument.code);
    return Book::keyOf(SnapshotCatalogue::Instruments, text);
}

/// Notes the `index`-th record of a load. Only instruments change one by one and need keys of their own; of the others
/// those do that a host has given them.
void note(const Day::Call& call, std::size_t index, std::string_view bytes, std::string& text, Book& book) {
    if (call.catalogue == SnapshotCatalogue::Instruments) {
        const auto& instrument = static_cast<const CInstrumentDetail&>(*call.records[index]);
        book.add(bookKey(instrument, text), bytes);
        book.addMarket(instrument.market);
    } else {
        book.add(Book::keyOf(call.catalogue, call.keys.empty() ? std::string_view() : call.keys[index]), bytes);
    }
}

class Writer {
public:
    explicit Writer(Book& book) : book_(book) {}

    void call(const Day::Call& call) {
        tableOf(typeOf(call.catalogue));
        if (call.catalogue == SnapshotCatalogue::Etfs) {
            tableOf(CETFComponentStockInfo::table());
        }
        std::string& out = packer_.plain();
        out.push_back(kCall);
        out.push_back(static_cast<char>(call.catalogue));
        appendNumber(out, call.markets.size());
        for (const std::string& market : call.markets) {
            appendText(out, market);
        }
        const bool keyed = !call.keys.empty();
        out.push_back(keyed ? '\1' : '\0');
        appendNumber(out, call.records.size());
        book_.addCall(call.catalogue, call.markets, call.records.size());
        for (std::size_t i = 0; i < call.records.size(); ++i) {
            if (keyed) {
                appendText(out, call.keys[i]);
            }
            note(call, i, append(*call.records[i], typeOf(call.catalogue)), text_, book_);
            packer_.offer();
        }
    }

    void removed(const std::vector<std::string>& keys) {
        std::string& out = packer_.plain();
        out.push_back(kRemoved);
        appendNumber(out, keys.size());
        for (const std::string& key : keys) {
            appendText(out, key);
            book_.remove(Book::keyOf(SnapshotCatalogue::Instruments, key));
            packer_.offer();
        }
    }

    void upserts(const std::vector<boost::shared_ptr<CInstrumentDetail>>& records) {
        tableOf(CInstrumentDetail::table());
        std::string& out = packer_.plain();
        out.push_back(kUpserts);
        appendNumber(out, static_cast<std::uint64_t>(std::count_if(
                              records.begin(), records.end(), [](const auto& record) { return record != nullptr; })));
        for (const auto& record : records) {
            if (record) {
                const std::string_view bytes = append(*record, CInstrumentDetail::table());
                book_.put(bookKey(*record, text_), bytes);
                packer_.offer();
            }
        }
    }

    std::string finish() {
        packer_.plain().push_back(kEnd);
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

    Book& book_;
    Packer packer_;
    std::set<const RecordType*> sent_;
    std::string bytes_;
    std::string text_;
};

class Reader {
public:
    Reader(std::string_view packed, std::uint64_t maxBytes, Book& book) : in_(packed, maxBytes), book_(book) {}

    /// Calls `take` with the kind of each operation, which reads the rest of it.
    template <class Take>
    void each(Take take) {
        for (char kind = static_cast<char>(in_.byte()); kind != kEnd; kind = static_cast<char>(in_.byte())) {
            if (kind == kTable) {
                table();
            } else if (!take(kind)) {
                throw BadBytes(fmt::format("an operation '{}'", static_cast<int>(kind)));
            }
        }
        if (!in_.finished()) {
            throw BadBytes("bytes behind the last operation");
        }
    }

    Day::Call call() {
        Day::Call call;
        const std::uint8_t catalogue = in_.byte();
        if (catalogue >= kSnapshotCatalogues) {
            throw BadBytes(fmt::format("a catalogue {}", catalogue));
        }
        call.catalogue = static_cast<SnapshotCatalogue>(catalogue);
        call.markets = texts();
        const bool keyed = in_.byte() != 0;
        const std::uint64_t count = in_.number();
        book_.addCall(call.catalogue, call.markets, count);
        call.records.reserve(std::min(count, kReservedRecords));
        for (std::uint64_t i = 0; i < count; ++i) {
            if (keyed) {
                call.keys.emplace_back(in_.text());
                in_.charge(call.keys.back().size() + sizeof(std::string));
            }
            std::string_view bytes;
            call.records.push_back(record(call.catalogue, bytes));
            note(call, call.records.size() - 1, bytes, text_, book_);
        }
        return call;
    }

    void upserts(Change& change) {
        for (std::uint64_t left = in_.number(); left > 0; --left) {
            std::string_view bytes;
            change.upserts.push_back(
                boost::static_pointer_cast<CInstrumentDetail>(record(SnapshotCatalogue::Instruments, bytes)));
            book_.put(bookKey(*change.upserts.back(), text_), bytes);
        }
    }

    void removed(Change& change) {
        for (const std::string& key : texts()) {
            book_.remove(Book::keyOf(SnapshotCatalogue::Instruments, key));
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
        const RecordType& type = typeOf(catalogue);
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
    Book& book_;
    SentTables tables_;
    const FieldNames* names_ = nullptr;
    std::string text_;
};

}  // namespace

std::string packDay(const Day& day, Book& book) {
    book = Book();
    Writer writer(book);
    for (const Day::Call& call : day.calls()) {
        writer.call(call);
    }
    return writer.finish();
}

std::string packChange(const Change& change, Book& book) {
    Writer writer(book);
    writer.removed(change.removedKeys);
    writer.upserts(change.upserts);
    return writer.finish();
}

Day unpackDay(std::string_view packed, std::uint64_t maxBytes, Book& book) {
    book = Book();
    Day day;
    Reader reader(packed, maxBytes, book);
    reader.each([&](char kind) {
        if (kind == kCall) {
            day.add(reader.call());
        }
        return kind == kCall;
    });
    return day;
}

Change unpackChange(std::string_view packed, std::uint64_t maxBytes, Book& book) {
    Change change;
    Reader reader(packed, maxBytes, book);
    reader.each([&](char kind) {
        if (kind == kUpserts) {
            reader.upserts(change);
        } else if (kind == kRemoved) {
            reader.removed(change);
        }
        return kind == kUpserts || kind == kRemoved;
    });
    return change;
}

}  // namespace mxservice::feed
