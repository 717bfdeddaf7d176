#include "platform/record/DocumentForm.h"

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <boost/make_shared.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <array>
#include <bitset>
#include <cstring>
#include <ostream>

#include "platform/bson/ElementCursor.h"
#include "platform/record/Records.h"
#include "platform/utils/Singleton.h"

namespace mxservice {
namespace {

using bson::Element;
using bson::ElementCursor;
using bson::ElementType;

/// The component as its document tells it. An array has no keys, so what comes back is filed under the component's
/// code; one that a host has filed under another text would then take the place of its neighbours of the same code.
boost::shared_ptr<CETFComponentStockInfo> underItsKey(const std::string& key,
                                                      const boost::shared_ptr<CETFComponentStockInfo>& component) {
    if (component->code == key) {
        return component;
    }
    auto keyed = boost::static_pointer_cast<CETFComponentStockInfo>(component->copy());
    keyed->code = key;
    return keyed;
}

std::vector<bson::BSONObj> componentDocuments(const ComponentMap& components) {
    std::vector<bson::BSONObj> documents;
    documents.reserve(components.size());
    for (const auto& [code, component] : components) {
        if (component) {
            documents.push_back(underItsKey(code, component)->toBsonWithBson());
        }
    }
    return documents;
}

/// A field with an unfit value counts as missing, for the rest of the document is sound. Behind a damaged one nothing
/// can be trusted.
enum class Outcome { Filled, Unfit, Damaged };

/// Fills a number from any element that holds one, limited to the member's range: another library may have written a
/// wider one, and cut to its low bits it would come out as anything.
template <class Number>
Outcome fill(Number& member, const Element& element) {
    if (!element.isNumber()) {
        return Outcome::Unfit;
    }
    if constexpr (std::is_floating_point_v<Number>) {
        member = element.toDouble();
    } else {
        member = element.toInteger<Number>();
    }
    return Outcome::Filled;
}

Outcome fill(std::string& member, const Element& element) {
    if (!element.isText()) {
        return Outcome::Unfit;
    }
    member.assign(element.text());
    return Outcome::Filled;
}

/// Fills the basket from an array; what is no embedded document is skipped.
Outcome fill(ComponentMap& components, const Element& element) {
    if (element.type != ElementType::Array) {
        return Outcome::Unfit;
    }
    components.clear();
    ElementCursor cursor(element.value, element.valueSize);
    for (Element item; cursor.next(item);) {
        if (item.type != ElementType::Document) {
            continue;
        }
        auto component = boost::make_shared<CETFComponentStockInfo>();  // new, so there is nothing to reset
        if (!readDocument(*component, item.value, item.valueSize, false, nullptr)) {
            return Outcome::Damaged;
        }
        components[component->code] = component;
    }
    return cursor.failure() == nullptr ? Outcome::Filled : Outcome::Damaged;
}

/// Fills the field if the next element is its own, of the type that it is written with; false for what takes a closer
/// look. Nearly every element of nearly every document is read here.
bool readExpected(const Field& field, IData& record, ElementCursor& cursor) {
    return visitField(field, record, [&](auto& member) {
        using Member = std::decay_t<decltype(member)>;
        if constexpr (std::is_same_v<Member, std::string>) {
            std::string_view text;
            const bool found = cursor.nextText(field.header(), text);
            if (found) {
                member.assign(text);
            }
            return found;
        } else if constexpr (std::is_arithmetic_v<Member> && std::is_same_v<Member, Stored<Member>>) {
            return cursor.nextPlain(field.header(), member);
        } else {
            return false;  // what is stored wider than it is has to be limited; a basket is walked
        }
    });
}

template <class Number>
void append(bson::BSONObjBuilder& builder, const std::string& name, Number member) {
    builder.append(name, static_cast<Stored<Number>>(member));
}

void append(bson::BSONObjBuilder& builder, const std::string& name, const std::string& member) {
    builder.append(name, member);
}

void append(bson::BSONObjBuilder& builder, const std::string& name, const ComponentMap& member) {
    builder.append(name, componentDocuments(member));
}

template <class Plain>
void appendPlain(std::string& bytes, Plain value) {
    bytes.append(reinterpret_cast<const char*>(&value), sizeof value);
}

/// Appends a document whose elements `elements` appends: length, elements, closing zero. False when it grew too large.
template <class Elements>
bool appendFrame(std::string& bytes, const Elements& elements) {
    const std::size_t begin = bytes.size();
    appendPlain(bytes, std::int32_t{0});
    const bool good = elements();
    bytes.push_back('\0');
    const std::size_t size = bytes.size() - begin;
    if (!good || size > bson::kMaxDocumentBytes) {
        return false;
    }
    const auto length = static_cast<std::int32_t>(size);  // known now only: texts and baskets have any length
    std::memcpy(bytes.data() + begin, &length, sizeof length);
    return true;
}

bool appendRecord(std::string& bytes, const IData& record, const RecordType& type);

template <class Number>
bool appendValue(std::string& bytes, Number member) {
    appendPlain(bytes, static_cast<Stored<Number>>(member));
    return true;
}

bool appendValue(std::string& bytes, const std::string& text) {
    if (text.size() >= bson::kMaxDocumentBytes) {  // before its length is cut to 32 bits
        return false;
    }
    appendPlain(bytes, static_cast<std::int32_t>(text.size() + 1));
    bytes.append(text).push_back('\0');
    return true;
}

bool appendValue(std::string& bytes, const ComponentMap& components) {
    return appendFrame(bytes, [&] {
        std::size_t index = 0;
        for (const auto& [code, component] : components) {
            if (!component) {
                continue;
            }
            bytes.push_back(static_cast<char>(ElementType::Document));
            bytes.append(std::to_string(index++)).push_back('\0');
            if (!appendRecord(bytes, *underItsKey(code, component), component->recordType())) {
                return false;
            }
        }
        return true;
    });
}

bool appendRecord(std::string& bytes, const IData& record, const RecordType& type) {
    return appendFrame(bytes, [&] {
        for (const Field& field : type.fields()) {
            bytes.append(field.header());
            if (!visitField(field, record, [&](const auto& member) { return appendValue(bytes, member); })) {
                return false;
            }
        }
        return true;
    });
}

void print(std::ostream& out, const std::string& member) {
    out << member;
}

void print(std::ostream& out, const ComponentMap& member) {
    out << member.size() << " components";
}

/// As it is stored: as itself one of 8 bits would be a letter.
template <class Number>
void print(std::ostream& out, Number member) {
    out << fmt::format("{}", Stored<Number>{member});
}

/// No class has more fields; a test holds the tables against it.
constexpr std::size_t kMaxFields = 128;

const RecordType* classByTelltale(std::string_view key) {
    const std::vector<const RecordType*>& types = TypeManager::instance()->types();
    // Of the names before a telltale, few are as long as any telltale; the others need no comparison.
    constexpr std::size_t kLongest = 64;
    static const std::bitset<kLongest> sizes = [&types] {
        std::bitset<kLongest> found;
        for (const RecordType* const type : types) {
            found.set(type->telltale().size());
        }
        return found;
    }();
    if (key.size() >= kLongest || !sizes.test(key.size())) {
        return nullptr;
    }
    const auto found =
        std::find_if(types.begin(), types.end(), [&](const RecordType* type) { return type->telltale() == key; });
    return found == types.end() ? nullptr : *found;
}

}  // namespace

bool readDocument(IData& record, const char* data, std::size_t size, bool resetMissing, std::string* error) {
    const RecordType& type = record.recordType();
    const std::vector<Field>& fields = type.fields();
    std::bitset<kMaxFields> filled;
    std::size_t expected = 0;
    const std::size_t count = fields.size();
    const auto refuse = [error](const char* reason, std::size_t offset) {
        if (error != nullptr) {
            *error = fmt::format("{} at byte {}", reason, offset);
        }
        return false;
    };
    ElementCursor cursor(data, size);
    for (Element element;;) {
        while (expected < count && readExpected(fields[expected], record, cursor)) {
            filled.set(expected++);
        }
        // Another type, another order, a field of an older or newer class, damage: here it is found out which.
        if (!cursor.next(element)) {
            break;
        }
        std::size_t index = expected;
        if (index >= count || fields[index].name() != element.name) {
            const int found = type.indexOf(element.name);
            if (found < 0) {
                continue;
            }
            index = static_cast<std::size_t>(found);
        }
        const Outcome outcome = visitField(fields[index], record, [&](auto& member) { return fill(member, element); });
        if (outcome == Outcome::Damaged) {
            return refuse("damaged basket", cursor.offset());
        }
        // Of two elements with one name the last counts, also where it is unfit: the field is then missing.
        filled.set(index, outcome == Outcome::Filled);
        expected = index + 1;  // behind one that was moved or passed over the order mostly goes on
    }
    if (cursor.failure() != nullptr) {
        return refuse(cursor.failure(), cursor.offset());
    }
    if (resetMissing && filled.count() < count) {
        for (std::size_t i = 0; i < count; ++i) {
            if (!filled.test(i)) {
                fields[i].reset(record);
            }
        }
    }
    return true;
}

// Damage ends the walk and is not told of here: whoever reads the document as the class that it showed up to there
// finds the same place.
const RecordType* classOfDocument(const char* data, std::size_t size) {
    bool market = false;
    bool code = false;
    ElementCursor cursor(data, size);
    for (Element element; cursor.next(element);) {
        if (const RecordType* const type = classByTelltale(element.name)) {
            return type;
        }
        market = market || element.name == "market";
        code = code || element.name == "code";
    }
    return market && code ? &CInstrumentDetail::table() : nullptr;
}

IData::~IData() = default;

void IData::appendElements(bson::BSONObjBuilder& builder) const {
    for (const Field& field : recordType().fields()) {
        visitField(field, *this, [&](const auto& member) { append(builder, field.name(), member); });
    }
}

// The platform's other name for the same; hosts call either.
void IData::appendElements_v2(bson::BSONObjBuilder& builder) const {
    appendElements(builder);
}

bool IData::appendDocument(std::string& bytes) const {
    return recordType().appendDocument(*this, bytes);
}

bool RecordType::appendDocument(const IData& record, std::string& bytes) const {
    const std::size_t before = bytes.size();
    const bool fits = appendRecord(bytes, record, *this);
    if (!fits) {
        bytes.resize(before);  // half a document must not stand before the next one
    }
    return fits;
}

bson::BSONObj IData::toBsonWithBson() const {
    bson::BSONObjBuilder builder;
    appendElements(builder);
    return builder.obj();
}

bool IData::bsonValueFromObj(const bson::BSONObj& object, bool resetMissing, std::string* error) {
    if (error != nullptr) {
        error->clear();
    }
    return mxservice::readDocument(*this, object.objdata(), static_cast<std::size_t>(object.objsize()), resetMissing,
                                   error);
}

bool IData::readDocument(std::string_view bytes, bool resetMissing, std::string* error) {
    return mxservice::readDocument(*this, bytes.data(), bytes.size(), resetMissing, error);
}

std::ostream& operator<<(std::ostream& out, const IData& record) {
    const RecordType& type = record.recordType();
    out << type.name() << '{';
    const char* separator = "";
    for (const Field& field : type.fields()) {
        if (field.isDefault(record)) {
            continue;
        }
        out << separator << field.name() << '=';
        separator = ", ";
        visitField(field, record, [&](const auto& member) { print(out, member); });
    }
    return out << '}';
}

TypeManager* TypeManager::instance() {
    static TypeManager* const manager = new TypeManager;  // never destroyed, as the tables
    return manager;
}

const RecordType* TypeManager::find(std::string_view name) const {
    const auto found =
        std::find_if(types_.begin(), types_.end(), [&](const RecordType* type) { return type->name() == name; });
    return found == types_.end() ? nullptr : *found;
}

boost::shared_ptr<IData> TypeManager::parse(std::string_view bytes, std::string* error) const {
    const RecordType* const type = classOfDocument(bytes.data(), bytes.size());
    if (type == nullptr) {
        if (error != nullptr) {
            *error = "document damaged or of no known record class";
        }
        return nullptr;
    }
    boost::shared_ptr<IData> record = type->make();
    // A new record has its defaults: there is nothing to reset.
    return readDocument(*record, bytes.data(), bytes.size(), false, error) ? record : nullptr;
}

boost::shared_ptr<IData> TypeManager::parse(const bson::BSONObj& object, bool /*complete*/, std::string* error) const {
    return parse(std::string_view(object.objdata(), static_cast<std::size_t>(object.objsize())), error);
}

}  // namespace mxservice
