#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/record/Records.h"

// A record in few bytes: which of its fields differ from their defaults, and those. The names of the fields stand once
// before all records (FieldNames), so that publisher and host may have different tables: fields that one of them lacks
// are passed over.

namespace mxservice::feed {

/// Bytes from the network or a file that are not what they should be.
class BadBytes : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

void appendNumber(std::string& bytes, std::uint64_t number);
void appendText(std::string& bytes, std::string_view text);

/// Takes one thing after the other off the front of bytes that nobody has checked. Throws BadBytes where they end.
class Source {
public:
    Source() = default;
    virtual ~Source() = default;
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    /// The next bytes, valid until the next call.
    virtual std::string_view take(std::uint64_t size) = 0;

    std::uint8_t byte() { return static_cast<std::uint8_t>(take(1).front()); }
    std::uint64_t number();
    /// A number and as many bytes.
    std::string_view text() { return take(number()); }
};

/// Of bytes that are all there.
class ByteReader final : public Source {
public:
    explicit ByteReader(std::string_view bytes) : bytes_(bytes) {}
    std::string_view take(std::uint64_t size) override;
    bool atEnd() const { return bytes_.empty(); }
    std::size_t left() const { return bytes_.size(); }

private:
    std::string_view bytes_;
};

/// Appends a record by the table of its catalogue's class, not of its own: a host may hand in a class derived from it.
void appendRecord(std::string& bytes, const IData& record, const RecordType& type);

/// The fields of a class as the sender's table has them: what precedes its records.
void appendFieldNames(std::string& bytes, const RecordType& type);

/// The sender's table of a class, with what this process makes of each field.
class FieldNames {
public:
    /// Reads what appendFieldNames wrote, behind the name of the class.
    FieldNames(const RecordType& type, Source& source);

    const RecordType& type() const { return *type_; }

    /// What stands at a bit of a record.
    struct Place {
        FieldKind kind;
        const Field* field;  // null: this process has none of that name and kind
    };
    const std::vector<Place>& places() const { return places_; }

private:
    const RecordType* type_;
    std::vector<Place> places_;
};

/// The tables that a sender has sent, by the name of the class.
using SentTables = std::unordered_map<std::string, FieldNames>;

/// Fills a new record. Throws BadBytes when the bytes are not one record exactly, or of a class without a table.
void readRecord(std::string_view bytes, const FieldNames& names, const SentTables& tables, IData& record);

}  // namespace mxservice::feed
