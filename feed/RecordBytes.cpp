#include "feed/RecordBytes.h"

#include <fmt/format.h>
#include <boost/make_shared.hpp>

#include <cstring>
#include <type_traits>

namespace mxservice::feed {
namespace {

constexpr unsigned kGroupBits = 7;  // of a number that one byte carries
constexpr std::uint8_t kMore = 1U << kGroupBits;
constexpr unsigned kByteBits = 8;
constexpr std::uint64_t kMostFields = 4096;       // of a class; ours have about 60
constexpr std::uint64_t kMostComponents = 65536;  // of a fund; each costs far more memory than bytes

/// Small numbers of either sign become small ones without.
std::uint64_t folded(std::int64_t number) {
    return (static_cast<std::uint64_t>(number) << 1U) ^ static_cast<std::uint64_t>(number >> 63);
}

std::int64_t unfolded(std::uint64_t number) {
    return static_cast<std::int64_t>(number >> 1U) ^ -static_cast<std::int64_t>(number & 1U);
}

void appendValue(std::string& bytes, const std::string& text) {
    appendText(bytes, text);
}

void appendValue(std::string& bytes, double number) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

template <class Number>
std::enable_if_t<std::is_integral_v<Number>> appendValue(std::string& bytes, Number number) {
    appendNumber(bytes, folded(static_cast<std::int64_t>(number)));
}

void appendValue(std::string& bytes, const ComponentMap& components) {
    std::uint64_t count = 0;
    for (const auto& [key, component] : components) {
        count += component ? 1U : 0U;
    }
    appendNumber(bytes, count);
    std::string one;
    for (const auto& [key, component] : components) {
        if (component) {
            one.clear();
            appendRecord(one, *component, CETFComponentStockInfo::table());
            appendText(bytes, key);
            appendText(bytes, one);
        }
    }
}

void readValue(ByteReader& reader, const SentTables& /*tables*/, std::string& text) {
    text.assign(reader.text());
}

void readValue(ByteReader& reader, const SentTables& /*tables*/, double& number) {
    std::memcpy(&number, reader.take(sizeof number).data(), sizeof number);
}

template <class Number>
std::enable_if_t<std::is_integral_v<Number>> readValue(ByteReader& reader, const SentTables& /*tables*/,
                                                       Number& number) {
    const std::int64_t value = unfolded(reader.number());
    number = static_cast<Number>(value);
    if (static_cast<std::int64_t>(number) != value) {
        throw BadBytes(fmt::format("the number {} exceeds its field", value));
    }
}

void readValue(ByteReader& reader, const SentTables& tables, ComponentMap& components) {
    const auto names = tables.find(CETFComponentStockInfo::table().name());
    components.clear();
    std::uint64_t left = reader.number();
    if (left > kMostComponents) {
        throw BadBytes(fmt::format("a fund of {} components", left));
    }
    for (; left > 0; --left) {
        const std::string_view key = reader.text();
        const std::string_view bytes = reader.text();
        if (names == tables.end()) {
            throw BadBytes("components without their table");
        }
        auto component = boost::make_shared<CETFComponentStockInfo>();
        readRecord(bytes, names->second, tables, *component);
        components[std::string(key)] = std::move(component);
    }
}

/// Passes over a value that this process has no field for.
void skipValue(ByteReader& reader, const SentTables& tables, FieldKind kind) {
    visitMemberType(kind, [&](auto member) {
        typename decltype(member)::type unused{};
        readValue(reader, tables, unused);
    });
}

std::size_t maskBytes(std::size_t fields) {
    return (fields + kByteBits - 1) / kByteBits;
}

}  // namespace

void appendNumber(std::string& bytes, std::uint64_t number) {
    while (number >= kMore) {
        bytes.push_back(static_cast<char>(static_cast<std::uint8_t>(number) | kMore));
        number >>= kGroupBits;
    }
    bytes.push_back(static_cast<char>(number));
}

void appendText(std::string& bytes, std::string_view text) {
    appendNumber(bytes, text.size());
    bytes.append(text);
}

std::uint64_t Source::number() {
    std::uint64_t number = 0;
    for (unsigned shift = 0; shift < 64; shift += kGroupBits) {
        const std::uint8_t group = byte();
        number |= static_cast<std::uint64_t>(group & (kMore - 1U)) << shift;
        if ((group & kMore) == 0) {
            return number;
        }
    }
    throw BadBytes("a number without an end");
}

std::string_view ByteReader::take(std::uint64_t size) {
    if (size > bytes_.size()) {
        throw BadBytes(fmt::format("{} bytes where {} are left", size, bytes_.size()));
    }
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
}

void appendRecord(std::string& bytes, const IData& record, const RecordType& type) {
    const std::size_t mask = bytes.size();
    bytes.append(maskBytes(type.fields().size()), '\0');
    std::size_t index = 0;
    for (const Field& field : type.fields()) {
        visitField(field, record, [&](const auto& member) {
            using Member = std::decay_t<decltype(member)>;
            // By bytes for doubles: minus zero equals zero and is another record.
            bool differs = false;
            if constexpr (std::is_same_v<Member, double>) {
                const double zero = 0;
                differs = std::memcmp(&member, &zero, sizeof zero) != 0;
            } else if constexpr (std::is_arithmetic_v<Member>) {
                differs = member != 0;
            } else {
                differs = !member.empty();
            }
            if (differs) {
                char& place = bytes[mask + index / kByteBits];
                place = static_cast<char>(static_cast<std::uint8_t>(place) | (1U << index % kByteBits));
                appendValue(bytes, member);
            }
        });
        ++index;
    }
}

void appendFieldNames(std::string& bytes, const RecordType& type) {
    appendText(bytes, type.name());
    appendNumber(bytes, type.fields().size());
    for (const Field& field : type.fields()) {
        bytes.push_back(static_cast<char>(field.kind()));
        appendText(bytes, field.name());
    }
}

FieldNames::FieldNames(const RecordType& type, Source& source) : type_(&type) {
    const std::uint64_t count = source.number();
    if (count > kMostFields) {
        throw BadBytes(fmt::format("a table of {} fields", count));
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        const std::uint8_t kind = source.byte();
        if (kind > static_cast<std::uint8_t>(FieldKind::Components)) {
            throw BadBytes(fmt::format("a field of kind {}", kind));
        }
        const Place place{static_cast<FieldKind>(kind), type.find(source.text())};
        // Or a table could nest its records as deep as bytes allow, and the reader with them.
        if (place.kind == FieldKind::Components && &type == &CETFComponentStockInfo::table()) {
            throw BadBytes("components within components");
        }
        const bool ours = place.field != nullptr && place.field->kind() == place.kind;
        places_.push_back({place.kind, ours ? place.field : nullptr});
    }
}

void readRecord(std::string_view bytes, const FieldNames& names, const SentTables& tables, IData& record) {
    ByteReader reader(bytes);
    const auto& places = names.places();
    const std::string_view mask = reader.take(maskBytes(places.size()));
    for (std::size_t i = 0; i < places.size(); ++i) {
        if ((static_cast<std::uint8_t>(mask[i / kByteBits]) & (1U << i % kByteBits)) == 0) {
            continue;
        }
        if (places[i].field == nullptr) {
            skipValue(reader, tables, places[i].kind);
        } else {
            visitField(*places[i].field, record, [&](auto& member) { readValue(reader, tables, member); });
        }
    }
    if (!reader.atEnd()) {
        throw BadBytes("bytes behind the last field of a record");
    }
}

}  // namespace mxservice::feed
