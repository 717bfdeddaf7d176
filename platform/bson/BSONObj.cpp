#include "platform/bson/BSONObj.h"

#include <bson/bson.h>
#include <fmt/format.h>

#include <cstring>
#include <optional>
#include <utility>

#include "platform/bson/ElementCursor.h"

namespace bson {
namespace {

constexpr char kEmptyDocument[] = {5, 0, 0, 0, 0};

/// The first of that name. No index: a document has some dozens of fields, and who wants most of them walks it once.
std::optional<Element> findField(const BSONObj& object, std::string_view name) {
    ElementCursor cursor(object.objdata(), static_cast<std::size_t>(object.objsize()));
    for (Element element; cursor.next(element);) {
        if (element.name == name) {
            return element;
        }
    }
    return std::nullopt;
}

std::optional<Element> findNumber(const BSONObj& object, std::string_view name) {
    const std::optional<Element> element = findField(object, name);
    return element && element->isNumber() ? element : std::nullopt;
}

/// The length of the UTF-8 sequence that begins at `at`, or 0 when there is none (Unicode 15, table 3-7). The library
/// tells whether a text is UTF-8, but not where it is not, and the rest is to be kept.
std::size_t sequenceLength(const char* at, std::size_t left) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(at[i]); };
    const auto continues = [&](std::size_t i) { return i < left && (byte(i) & 0xC0U) == 0x80U; };
    const unsigned lead = byte(0);
    if (lead < 0x80U) {
        return 1;
    }
    if (lead >= 0xC2U && lead <= 0xDFU) {
        return continues(1) ? 2 : 0;
    }
    if (lead >= 0xE0U && lead <= 0xEFU && continues(1) && continues(2)) {
        const bool overlong = lead == 0xE0U && byte(1) < 0xA0U;
        const bool surrogate = lead == 0xEDU && byte(1) > 0x9FU;
        return overlong || surrogate ? 0 : 3;
    }
    if (lead >= 0xF0U && lead <= 0xF4U && continues(1) && continues(2) && continues(3)) {
        const bool overlong = lead == 0xF0U && byte(1) < 0x90U;
        const bool beyond = lead == 0xF4U && byte(1) > 0x8FU;
        return overlong || beyond ? 0 : 4;
    }
    return 0;
}

void replaceInvalidUtf8(char* text, std::size_t size) {
    for (std::size_t i = 0; i < size;) {
        const std::size_t length = sequenceLength(text + i, size - i);
        if (length == 0) {
            text[i] = '?';  // U+FFFD would take three bytes, and every length around it would have to change
        }
        i += length == 0 ? 1 : length;
    }
}

/// Makes bytes of the oldest kind, which repeat their length within, plain ones: the library refuses those that repeat
/// another, and the whole document with them.
void makePlain(char* binary) {
    constexpr std::size_t kKindAt = sizeof(std::int32_t);
    constexpr char kOldest = 2;
    if (binary[kKindAt] == kOldest) {
        binary[kKindAt] = 0;
    }
}

/// Makes every name and text of the checked document at `document` valid UTF-8, and old bytes plain, in place: no
/// length changes.
void sanitise(char* document, std::size_t size) {
    const auto writable = [&](const char* at) { return document + (at - document); };
    ElementCursor cursor(document, size);
    for (Element element; cursor.next(element);) {
        replaceInvalidUtf8(writable(element.name.data()), element.name.size());
        switch (element.type) {
            case ElementType::Text:
            case ElementType::Code:
            case ElementType::Symbol:
                replaceInvalidUtf8(writable(element.text().data()), element.text().size());
                break;
            case ElementType::Regex:  // two texts, each with its NUL
                replaceInvalidUtf8(writable(element.value), element.valueSize);
                break;
            case ElementType::Binary:
                makePlain(writable(element.value));
                break;
            case ElementType::Document:
            case ElementType::Array:
                sanitise(writable(element.value), element.valueSize);
                break;
            default:
                break;
        }
    }
}

std::string jsonOf(const char* data, std::size_t size) {
    bson_t document;
    if (!bson_init_static(&document, reinterpret_cast<const std::uint8_t*>(data), size)) {
        return {};
    }
    std::size_t length = 0;
    char* const json = bson_as_canonical_extended_json(&document, &length);
    std::string text = json == nullptr ? std::string() : std::string(json, length);
    bson_free(json);
    return text;
}

}  // namespace

BSONObj::BSONObj() : data_(kEmptyDocument), size_(sizeof kEmptyDocument) {}

BSONObj::BSONObj(std::shared_ptr<const void> owner, const char* data, int size)
    : owner_(std::move(owner)), data_(data), size_(size) {}

BSONObj BSONObj::fromBytes(const void* data, std::size_t size, std::string* error) {
    if (error != nullptr) {
        error->clear();
    }
    const char* const bytes = static_cast<const char*>(data);
    std::int32_t length = 0;
    if (bytes != nullptr && size >= sizeof length) {
        std::memcpy(&length, bytes, sizeof length);
    }
    // The length that the document gives itself counts; what follows it in a larger buffer is not looked at. Checked
    // before it is copied, so nothing that is refused takes memory.
    const bool fits = length > 0 && static_cast<std::size_t>(length) <= size;
    if (!fits) {
        if (error != nullptr) {
            *error = fmt::format("document length {} does not fit into {} bytes", length, size);
        }
        return {};
    }
    if (!checkDocument(bytes, static_cast<std::size_t>(length), error)) {
        return {};
    }
    // A copy, because pages of the store are the reader's only during the call.
    auto copy = std::make_shared<std::string>(bytes, static_cast<std::size_t>(length));
    const char* const begin = copy->data();
    return {std::move(copy), begin, length};
}

bool BSONObj::isEmpty() const {
    return size_ == sizeof kEmptyDocument;
}

bool BSONObj::hasField(std::string_view name) const {
    return findField(*this, name).has_value();
}

std::string BSONObj::getStringField(std::string_view name) const {
    const std::optional<Element> element = findField(*this, name);
    return element && element->isText() ? std::string(element->text()) : std::string();
}

std::int32_t BSONObj::getIntField(std::string_view name) const {
    const std::optional<Element> element = findNumber(*this, name);
    return element ? element->toInteger<std::int32_t>() : 0;
}

std::int64_t BSONObj::getLongField(std::string_view name) const {
    const std::optional<Element> element = findNumber(*this, name);
    return element ? element->toInt64() : 0;
}

double BSONObj::getDoubleField(std::string_view name) const {
    const std::optional<Element> element = findNumber(*this, name);
    return element ? element->toDouble() : 0.0;
}

bool BSONObj::getBoolField(std::string_view name) const {
    const std::optional<Element> element = findNumber(*this, name);
    return element && element->toDouble() != 0.0;
}

BSONObj BSONObj::getObjectField(std::string_view name) const {
    const std::optional<Element> element = findField(*this, name);
    if (!element || element->type != ElementType::Document) {
        return {};
    }
    // Bytes within this document, whose owner they keep alive: a basket of thousands of components is not copied.
    return {owner_, element->value, static_cast<int>(element->valueSize)};
}

std::vector<BSONObj> BSONObj::getArrayField(std::string_view name) const {
    std::vector<BSONObj> documents;
    const std::optional<Element> element = findField(*this, name);
    if (!element || element->type != ElementType::Array) {
        return documents;
    }
    ElementCursor cursor(element->value, element->valueSize);
    for (Element item; cursor.next(item);) {
        if (item.type == ElementType::Document) {
            documents.push_back({owner_, item.value, static_cast<int>(item.valueSize)});
        }
    }
    return documents;
}

std::vector<std::string> BSONObj::fieldNames() const {
    std::vector<std::string> names;
    ElementCursor cursor(data_, static_cast<std::size_t>(size_));
    for (Element element; cursor.next(element);) {
        names.emplace_back(element.name);
    }
    return names;
}

std::string BSONObj::toJson() const {
    std::string json = jsonOf(data_, static_cast<std::size_t>(size_));
    if (json.empty()) {
        // The library refuses texts that are not UTF-8, and some old bytes; an operator who looks at such a record
        // wants to see the rest.
        std::string copy(data_, static_cast<std::size_t>(size_));
        sanitise(copy.data(), copy.size());
        json = jsonOf(copy.data(), copy.size());
    }
    return json;
}

/// The library's document grows as it is appended to. After the first append that fails all others are passed over, and
/// `obj` hands out nothing: half a record must not be taken for a whole one.
struct BSONObjBuilder::State {
    State() { bson_init(&document); }
    ~State() { bson_destroy(&document); }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    bson_t document;
    bool ok = true;
    bool nested = false;  // holds documents of others, so the depth must be checked at the end
};

BSONObjBuilder::BSONObjBuilder() : state_(std::make_unique<State>()) {}

BSONObjBuilder::~BSONObjBuilder() = default;

bool BSONObjBuilder::ok() const {
    return state_->ok;
}

namespace {

/// Never null: the library aborts on a null name.
const char* nameData(std::string_view name) {
    return name.data() == nullptr ? "" : name.data();
}

/// Names end with a NUL: what stands behind one within a name would be read as a value. The library counts lengths in
/// 32 bits, so sizes are looked at before they are handed over.
bool nameFits(std::string_view name) {
    return name.size() < kMaxDocumentBytes && name.find('\0') == std::string_view::npos;
}

bool staticDocument(bson_t& target, const BSONObj& object) {
    return bson_init_static(&target, reinterpret_cast<const std::uint8_t*>(object.objdata()),
                            static_cast<std::size_t>(object.objsize()));
}

}  // namespace

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, std::string_view value) {
    // An empty view may point nowhere, of which the library makes a null instead of a text.
    const char* const text = value.empty() ? "" : value.data();
    state_->ok = state_->ok && nameFits(name) && value.size() < kMaxDocumentBytes &&
                 state_->document.len < kMaxDocumentBytes &&
                 bson_append_utf8(&state_->document, nameData(name), static_cast<int>(name.size()), text,
                                  static_cast<int>(value.size()));
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, const std::string& value) {
    return append(name, std::string_view(value));
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, const char* value) {
    return append(name, value == nullptr ? std::string_view() : std::string_view(value));
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, std::int32_t value) {
    state_->ok = state_->ok && nameFits(name) &&
                 bson_append_int32(&state_->document, nameData(name), static_cast<int>(name.size()), value);
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, std::int64_t value) {
    state_->ok = state_->ok && nameFits(name) &&
                 bson_append_int64(&state_->document, nameData(name), static_cast<int>(name.size()), value);
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, double value) {
    state_->ok = state_->ok && nameFits(name) &&
                 bson_append_double(&state_->document, nameData(name), static_cast<int>(name.size()), value);
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, bool value) {
    state_->ok = state_->ok && nameFits(name) &&
                 bson_append_bool(&state_->document, nameData(name), static_cast<int>(name.size()), value);
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, const BSONObj& value) {
    bson_t nested;
    state_->nested = true;
    state_->ok = state_->ok && nameFits(name) && staticDocument(nested, value) &&
                 state_->document.len < kMaxDocumentBytes &&
                 bson_append_document(&state_->document, nameData(name), static_cast<int>(name.size()), &nested);
    return *this;
}

BSONObjBuilder& BSONObjBuilder::append(std::string_view name, const std::vector<BSONObj>& values) {
    bson_t array;
    state_->nested = true;
    state_->ok = state_->ok && nameFits(name) &&
                 bson_append_array_begin(&state_->document, nameData(name), static_cast<int>(name.size()), &array);
    if (!state_->ok) {
        return *this;
    }
    for (std::size_t i = 0; i < values.size() && state_->ok; ++i) {
        const std::string index = std::to_string(i);
        bson_t nested;
        state_->ok = staticDocument(nested, values[i]) && array.len < kMaxDocumentBytes &&
                     bson_append_document(&array, index.data(), static_cast<int>(index.size()), &nested);
    }
    // Also after a failure: until then nothing can be done with the document itself.
    state_->ok = bson_append_array_end(&state_->document, &array) && state_->ok;
    return *this;
}

BSONObj BSONObjBuilder::obj() {
    // The finished document takes over the bytes, and the builder is fresh afterwards, whatever came of it.
    auto finished = std::make_shared<State>();
    bson_destroy(&finished->document);
    bson_steal(&finished->document, &state_->document);
    bson_init(&state_->document);
    const char* const data = reinterpret_cast<const char*>(bson_get_data(&finished->document));
    const std::size_t size = finished->document.len;
    const bool nested = std::exchange(state_->nested, false);
    const bool ok = std::exchange(state_->ok, true) && size <= kMaxDocumentBytes;
    // Of plain fields the library has made a sound document; only documents within may be nested too deep by now.
    if (!ok || (nested && !checkDocument(data, size, nullptr))) {
        return {};
    }
    return {std::move(finished), data, static_cast<int>(size)};
}

}  // namespace bson
