#include "src/Column.h"

#include <pybind11/numpy.h>

#include <algorithm>
#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <limits>
#include <numeric>
#include <string_view>
#include <utility>

#include "platform/record/Records.h"
#include "src/Casters.h"
#include "src/Values.h"

namespace binding {
namespace {

using mxservice::Field;
using mxservice::FieldKind;

/// Fields that tell groups of records: few texts, each of many. Others are texts of their own. By name and not by
/// counting, so that the frames of two days have columns of the same kinds.
constexpr std::array<std::string_view, 14> kCategories{
    "market",          "productId",    "productName",  "currency",         "industry",
    "outerMarketName", "statusString", "bondType",     "underlyingMarket", "couponType",
    "creditRating",    "issuerRating", "tenderMethod", "counterpartyType"};

/// Hands the values over to an array, which frees them.
template <class Value>
py::object arrayOf(std::vector<Value> values, const py::dtype& type) {
    auto kept = std::make_unique<std::vector<Value>>(std::move(values));
    Value* const data = kept->data();
    const auto size = static_cast<py::ssize_t>(kept->size());
    const py::capsule owner(kept.get(), [](void* vector) { delete static_cast<std::vector<Value>*>(vector); });
    kept.release();  // only now: a capsule that could not be made frees nothing
    return py::array(type, {size}, {static_cast<py::ssize_t>(sizeof(Value))}, data, owner);
}

/// An array of references to objects that are made once each: `objects` by the numbers in `places`.
py::object objectArray(const std::vector<std::int32_t>& places, const std::vector<py::object>& objects) {
    py::array array(py::dtype("O"), std::vector<py::ssize_t>{static_cast<py::ssize_t>(places.size())});
    auto* const cells = static_cast<PyObject**>(array.mutable_data());
    for (std::size_t i = 0; i < places.size(); ++i) {
        PyObject* const object = objects[static_cast<std::size_t>(places[i])].ptr();
        Py_INCREF(object);
        // New cells hold nothing or None, by numpy's version.
        Py_XDECREF(std::exchange(cells[i], object));
    }
    return array;
}

template <class Value>
constexpr const char* arrowFormat() {
    return std::is_same_v<Value, std::int8_t>     ? "c"
           : std::is_same_v<Value, std::int32_t>  ? "i"
           : std::is_same_v<Value, std::uint32_t> ? "I"
           : std::is_same_v<Value, std::int64_t>  ? "l"
                                                  : "g";
}

template <class Value>
class NumberColumn : public Column {
public:
    NumberColumn(const Field& field, std::size_t rows) : Column(field), values_(rows), next_(values_.data()) {}

    void read(const RecordPointer* records, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i) {
            *next_++ = field().template in<Value>(*records[i]);
        }
    }
    py::object array() override { return arrayOf(std::move(values_), py::dtype::of<Value>()); }
    ArrowColumn arrow() override {
        auto kept = std::make_shared<std::vector<Value>>(std::move(values_));
        ArrowColumn column = arrowColumn(arrowFormat<Value>(), kept->size());
        column.buffers = {nullptr, kept->data()};
        column.owner = std::move(kept);
        return column;
    }

private:
    std::vector<Value> values_;
    Value* next_;
};

class DayColumn : public Column {
public:
    DayColumn(const Field& field, std::size_t rows) : Column(field) { days_.reserve(rows); }

    void read(const RecordPointer* records, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i) {
            const auto& text = field().in<std::string>(*records[i]);
            days_.push_back(text.empty() ? kNoDay : dayNumber(text));
        }
    }

    py::object array() override { return instants(1, "M8[D]"); }

    py::object series(Dates dates) override {
        if (dates == Dates::Nanoseconds) {
            return instants(std::int64_t{86'400'000'000'000}, "M8[ns]");
        }
        // An object a day and not a cell; a day that is not known, also one that is no date, is None.
        boost::unordered_flat_map<std::int32_t, std::int32_t> placeByDay{{kNoDay, 0}};
        std::vector<py::object> objects{py::none()};
        std::int32_t lastDay = kNoDay;
        std::int32_t lastPlace = 0;
        for (std::int32_t& day : days_) {  // its place in place of the day: the column is handed out once
            if (day == lastDay) {
                day = lastPlace;
                continue;
            }
            const auto [known, fresh] = placeByDay.try_emplace(day, static_cast<std::int32_t>(objects.size()));
            if (fresh) {
                objects.push_back(owned(dateObject(day)));
            }
            lastDay = std::exchange(day, known->second);
            lastPlace = day;
        }
        return objectArray(days_, objects);
    }

    ArrowColumn arrow() override {
        struct Kept {
            std::vector<std::int32_t> days;
            std::vector<std::uint8_t> valid;
        };
        auto kept = std::make_shared<Kept>();
        kept->days = std::move(days_);
        kept->valid.resize(kept->days.size() / 8 + 1);
        ArrowColumn column = arrowColumn("tdD", kept->days.size());
        for (std::size_t i = 0; i < kept->days.size(); ++i) {
            const bool known = kept->days[i] != kNoDay;
            kept->valid[i / 8] = static_cast<std::uint8_t>(kept->valid[i / 8] | (known ? 1U << (i % 8) : 0U));
            column.nulls += known ? 0 : 1;
        }
        column.buffers = {kept->valid.data(), kept->days.data()};
        column.owner = std::move(kept);
        return column;
    }

private:
    /// numpy's own days. What a unit cannot count (nanoseconds end in 2262) is unknown.
    py::object instants(std::int64_t unitsADay, const char* type) const {
        constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();
        const std::int64_t limit = std::numeric_limits<std::int64_t>::max() / unitsADay;
        std::vector<std::int64_t> values(days_.size());
        std::transform(days_.begin(), days_.end(), values.begin(), [&](std::int64_t day) {
            return day == kNoDay || day > limit || day < -limit ? kUnknown : day * unitsADay;
        });
        return arrayOf(std::move(values), py::dtype(type));
    }

    std::vector<std::int32_t> days_;
};

/// Arrow's texts: where each begins, and all of them one behind the other.
struct ArrowTexts {
    std::vector<std::int64_t> begins{0};
    std::string bytes;

    void add(std::string_view text) {
        bytes += text;
        begins.push_back(static_cast<std::int64_t>(bytes.size()));
    }
};

/// Arrow's texts are UTF-8, always; other bytes become U+FFFD.
std::string utf8(std::string_view text) {
    // Most are ASCII, which is the same bytes either way.
    if (std::all_of(text.begin(), text.end(), [](char letter) { return static_cast<signed char>(letter) >= 0; })) {
        return std::string(text);
    }
    const auto decoded = owned(PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "replace"));
    Py_ssize_t size = 0;
    const char* const bytes = PyUnicode_AsUTF8AndSize(decoded.ptr(), &size);
    return {bytes, static_cast<std::size_t>(size)};
}

/// Texts by number: an object a text and not a cell, however often it occurs.
class TextColumn : public Column {
public:
    TextColumn(const Field& field, std::size_t rows)
        : Column(field),
          category_(std::find(kCategories.begin(), kCategories.end(), field.name()) != kCategories.end()) {
        places_.reserve(rows);
    }

    void read(const RecordPointer* records, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i) {
            places_.push_back(placeOf(field().in<std::string>(*records[i])));
        }
    }

    py::object array() override {
        std::vector<py::object> objects;
        objects.reserve(texts_.size());
        for (const std::string_view text : texts_) {
            objects.push_back(owned(textObject(text)));
        }
        return objectArray(places_, objects);
    }

    py::object series(Dates) override {
        if (!category_) {
            return array();
        }
        sortTexts();
        py::list categories;
        for (const std::string_view text : texts_) {
            categories.append(owned(textObject(text)));
        }
        return py::make_tuple(arrayOf(std::move(places_), py::dtype::of<std::int32_t>()), categories);
    }

    ArrowColumn arrow() override {
        std::vector<std::string> clean;
        clean.reserve(texts_.size());
        for (const std::string_view text : texts_) {
            clean.push_back(utf8(text));
        }
        // A dictionary of nearly as many texts as rows would cost consumers more than it saves.
        if (!category_) {
            auto texts = std::make_shared<ArrowTexts>();
            for (const std::int32_t place : places_) {
                texts->add(clean[static_cast<std::size_t>(place)]);
            }
            return arrowTexts(std::move(texts), places_.size());
        }
        auto distinct = std::make_shared<ArrowTexts>();
        for (const std::string& text : clean) {
            distinct->add(text);
        }
        auto kept = std::make_shared<std::vector<std::int32_t>>(std::move(places_));
        ArrowColumn column = arrowColumn("i", kept->size());
        column.buffers = {nullptr, kept->data()};
        column.owner = std::move(kept);
        column.dictionary = std::make_shared<ArrowColumn>(arrowTexts(std::move(distinct), clean.size()));
        return column;
    }

private:
    ArrowColumn arrowTexts(std::shared_ptr<ArrowTexts> texts, std::size_t count) const {
        ArrowColumn column = arrowColumn("U", count);  // 64-bit places: with 32 a column would end at 2 GiB
        column.buffers = {nullptr, texts->begins.data(), texts->bytes.data()};
        column.owner = std::move(texts);
        return column;
    }

    /// Most neighbours are alike: empty, or of one market and product. Those need no search. Where nearly every text is
    /// another one (codes, names), searching finds nothing and costs more than the objects that it would save; a
    /// category is searched to its end, since its texts must differ.
    std::int32_t placeOf(const std::string& text) {
        if (text.size() == last_.size() && (text.empty() || text == last_) && !places_.empty()) {
            return places_.back();
        }
        last_ = text;
        const auto next = static_cast<std::int32_t>(texts_.size());
        constexpr std::size_t kTried = 1024;
        const bool hopeless = !category_ && searches_ >= kTried && placeByText_.size() > searches_ / 4 * 3;
        if (!hopeless) {
            ++searches_;
            if (const auto [known, fresh] = placeByText_.try_emplace(text, next); !fresh) {
                return known->second;
            }
        }
        texts_.emplace_back(text);
        return next;
    }

    /// By their bytes, so that categories are in one order whatever the records are in.
    void sortTexts() {
        std::vector<std::int32_t> order(texts_.size());
        std::iota(order.begin(), order.end(), 0);
        std::sort(order.begin(), order.end(), [this](std::int32_t a, std::int32_t b) {
            return texts_[static_cast<std::size_t>(a)] < texts_[static_cast<std::size_t>(b)];
        });
        std::vector<std::int32_t> rank(order.size());
        std::vector<std::string_view> sorted;
        for (const std::int32_t place : order) {
            rank[static_cast<std::size_t>(place)] = static_cast<std::int32_t>(sorted.size());
            sorted.push_back(texts_[static_cast<std::size_t>(place)]);
        }
        texts_ = std::move(sorted);
        for (std::int32_t& place : places_) {
            place = rank[static_cast<std::size_t>(place)];
        }
    }

    const bool category_;
    std::vector<std::int32_t> places_;
    std::vector<std::string_view> texts_;  // of the records, which outlive the column
    boost::unordered_flat_map<std::string_view, std::int32_t> placeByText_;
    std::size_t searches_ = 0;
    std::string_view last_;
};

}  // namespace

Dates datesNamed(const std::string& name) {
    if (name == "date") {
        return Dates::Objects;
    }
    if (name != "datetime64" && name != "text") {
        throw py::value_error("dates are \"date\", \"datetime64\" or \"text\"");
    }
    return name == "text" ? Dates::Text : Dates::Nanoseconds;
}

std::unique_ptr<Column> Column::make(const Field& field, std::size_t rows, bool datesAsText) {
    return mxservice::visitMemberType(field.kind(), [&](auto member) -> std::unique_ptr<Column> {
        using Member = typename decltype(member)::type;
        if constexpr (std::is_same_v<Member, std::string>) {
            if (field.isDate() && !datesAsText) {
                return std::make_unique<DayColumn>(field, rows);
            }
            return std::make_unique<TextColumn>(field, rows);
        } else if constexpr (std::is_same_v<Member, mxservice::ComponentMap>) {
            throw py::value_error(field.name() + " is a basket and no column; see baskets()");
        } else {
            return std::make_unique<NumberColumn<Member>>(field, rows);
        }
    });
}

ArrowColumn Column::arrowColumn(const char* format, std::size_t rows) const {
    ArrowColumn column;
    column.format = format;
    column.name = field().name().c_str();
    column.length = static_cast<std::int64_t>(rows);
    return column;
}

}  // namespace binding
