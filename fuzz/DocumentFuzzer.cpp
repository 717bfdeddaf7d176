// Documents of every record class from arbitrary bytes. The first byte picks the class, the rest is the document.
//
// libbson is the judge of what is a document, but for a few forms in which one of the two is stricter on purpose. What
// is accepted survives being written and read again, and both ways of writing give the same bytes.

#include <bson/bson.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <set>
#include <type_traits>

#include "fuzz/Fuzzing.h"
#include "platform/bson/BSONObj.h"
#include "platform/record/Records.h"

namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;

/// The library's view of a document with all that is nested in it.
struct Verdict {
    bool damaged = false;
    bool refusedByUs = false;  // of a deprecated type, or deeper than a record ever is
    bool stricter = false;     // the library also looks into binary values of the old form
};

bool isOldBinary(const bson_t& document, std::uint32_t offset) {
    const char* const element = reinterpret_cast<const char*>(bson_get_data(&document)) + offset;
    const std::size_t left = document.len - offset;
    const std::size_t name = ::strnlen(element, left);
    constexpr std::size_t kLengthBytes = 4;
    return element[0] == BSON_TYPE_BINARY && name + 1 + kLengthBytes < left &&
           element[name + 1 + kLengthBytes] == BSON_SUBTYPE_BINARY_DEPRECATED;
}

void judge(const std::uint8_t* bytes, std::size_t size, int depth, Verdict& verdict) {
    bson_t document;
    bson_iter_t walk;
    if (depth > bson::kMaxDocumentDepth) {
        verdict.refusedByUs = true;
        return;
    }
    if (!bson_init_static(&document, bytes, size) || !bson_iter_init(&walk, &document)) {
        verdict.damaged = true;
        return;
    }
    std::uint32_t offset = walk.next_off;
    for (; bson_iter_next(&walk); offset = walk.next_off) {
        const bson_type_t type = bson_iter_type(&walk);
        const std::uint8_t* nested = nullptr;
        std::uint32_t nestedSize = 0;
        if (type == BSON_TYPE_DOCUMENT) {
            bson_iter_document(&walk, &nestedSize, &nested);
            judge(nested, nestedSize, depth + 1, verdict);
        } else if (type == BSON_TYPE_ARRAY) {
            bson_iter_array(&walk, &nestedSize, &nested);
            judge(nested, nestedSize, depth + 1, verdict);
        }
        verdict.refusedByUs = verdict.refusedByUs || type == BSON_TYPE_DBPOINTER || type == BSON_TYPE_CODEWSCOPE;
    }
    const bool early = offset + 1 < document.len;
    verdict.damaged = verdict.damaged || walk.err_off != 0 || early;
    verdict.stricter = verdict.stricter || (early && isOldBinary(document, offset));
}

template <class Integer>
Integer limited(std::int64_t value) {
    return static_cast<Integer>(
        std::clamp<std::int64_t>(value, std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()));
}

bool sameBits(double left, double right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
}

/// Whether the field holds the whole number that the library read.
bool holds(const Field& field, const IData& record, std::int64_t value) {
    return mxservice::visitField(field, record, [&](const auto& member) {
        using Member = std::decay_t<decltype(member)>;
        if constexpr (std::is_integral_v<Member>) {
            return member == limited<Member>(value);
        } else if constexpr (std::is_floating_point_v<Member>) {
            return sameBits(member, static_cast<double>(value));
        } else {
            return member.empty();
        }
    });
}

/// The document's own elements, as the library reads them, against what our document and a record read from it answer.
void compareFields(const bson::BSONObj& object, const IData& record) {
    bson_t document;
    bson_iter_t walk;
    bson_init_static(&document, reinterpret_cast<const std::uint8_t*>(object.objdata()),
                     static_cast<std::size_t>(object.objsize()));
    bson_iter_init(&walk, &document);
    const std::vector<std::string> names = object.fieldNames();
    const bool repeated = std::set<std::string>(names.begin(), names.end()).size() < names.size();
    std::size_t position = 0;
    for (; bson_iter_next(&walk); ++position) {
        const std::string name = bson_iter_key(&walk);
        require(position < names.size() && names[position] == name, "the same names in the same order");
        const Field* const field = repeated ? nullptr : record.recordType().find(name);
        if (repeated || field == nullptr) {
            continue;
        }
        if (BSON_ITER_HOLDS_UTF8(&walk)) {
            std::uint32_t length = 0;
            const char* const text = bson_iter_utf8(&walk, &length);
            const std::string expected(text, length);
            require(object.getStringField(name) == expected, "the same text in the document");
            require(field->kind() == FieldKind::Text ? field->in<std::string>(record) == expected
                                                     : field->isDefault(record),
                    "the same text in the record");
        } else if (BSON_ITER_HOLDS_INT32(&walk) || BSON_ITER_HOLDS_INT64(&walk)) {
            require(object.getLongField(name) == bson_iter_as_int64(&walk), "the same number in the document");
            require(holds(*field, record, bson_iter_as_int64(&walk)), "the same number in the record");
        } else if (BSON_ITER_HOLDS_DOUBLE(&walk)) {
            require(sameBits(object.getDoubleField(name), bson_iter_double(&walk)), "the same double");
        }
    }
    require(position == names.size(), "as many fields");
}

void writeAndReadBack(const IData& record) {
    std::string written;
    if (!record.appendDocument(written)) {
        return;
    }
    const bson::BSONObj built = record.toBsonWithBson();
    require(std::string_view(built.objdata(), static_cast<std::size_t>(built.objsize())) == written,
            "both ways of writing agree");
    const auto again = mxservice::TypeManager::instance()->parse(written, nullptr);
    require(again && *again == record, "what was written tells its class and is read back equal");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 1) {
        return 0;
    }
    const mxservice::RecordType& type = pickedClass(data[0], '0');
    // A copy of exactly that size, so that a byte read too far is noticed.
    const std::string copy(reinterpret_cast<const char*>(data + 1), size - 1);
    const std::string_view bytes = copy;

    std::string error;
    const auto record = type.make();
    const bool read = record->readDocument(bytes, true, &error);
    require(read || !error.empty(), "a refusal has a reason");
    if (read) {
        writeAndReadBack(*record);
    }
    if (const auto parsed = mxservice::TypeManager::instance()->parse(bytes, nullptr)) {
        writeAndReadBack(*parsed);
    }

    Verdict verdict;
    judge(data + 1, size - 1, 1, verdict);
    const bson::BSONObj object = bson::BSONObj::fromBytes(bytes.data(), bytes.size(), &error);
    const bool whole = object.objsize() == static_cast<int>(bytes.size());
    if (error.empty() && whole) {
        require(!verdict.damaged || verdict.stricter, "what we accept, libbson accepts");
        require(!verdict.refusedByUs, "what is too deep or deprecated is refused");
        require(read, "a document that passes the check can be read");
        require(!object.toJson().empty(), "an accepted document prints");
        if (!verdict.damaged) {
            compareFields(object, *record);
        }
    } else if (!error.empty()) {
        require(verdict.damaged || verdict.refusedByUs, "what libbson accepts, we accept");
    }
    return 0;
}
