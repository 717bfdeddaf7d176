#include "src/Catalogue.h"

#include <algorithm>
#include <set>
#include <string_view>

#include "platform/utils/Hash.h"
#include "src/Casters.h"
#include "src/Inside.h"
#include "src/Questions.h"
#include "src/Table.h"

namespace binding {
namespace {

using TypeMap = std::map<EOvTraderType, std::string>;

/// Of what is in memory a record is found in a few nanoseconds; letting go of the lock takes longer.
template <class... Key>
Instrument lookUp(Catalogue& catalogue, const Key&... key) {
    if (catalogue.inMemory()) {
        return catalogue.get(key...);
    }
    const Released released;
    return catalogue.get(key...);
}

/// Market and code, a key text or its 64-bit hash.
Instrument find(Catalogue& catalogue, py::handle key) {
    if (PyTuple_Check(key.ptr())) {
        const auto [market, code] = key.cast<std::pair<std::string, std::string>>();
        return lookUp(catalogue, market, code);
    }
    if (PyLong_Check(key.ptr())) {
        const auto number = PyLong_AsUnsignedLongLong(key.ptr());
        if (PyErr_Occurred() != nullptr) {
            throw py::error_already_set();
        }
        return lookUp(catalogue, std::uint64_t{number});
    }
    std::string text;
    if (!readText(key.ptr(), text)) {
        throw py::type_error(std::string("a key is str, int or a tuple of market and code, not ") +
                             Py_TYPE(key.ptr())->tp_name);
    }
    return lookUp(catalogue, text);
}

py::object getOr(Catalogue& catalogue, py::handle key, py::object otherwise) {
    Instrument record = find(catalogue, key);
    return record ? py::cast(std::move(record)) : std::move(otherwise);
}

py::object item(Catalogue& catalogue, py::handle key) {
    Instrument record = find(catalogue, key);
    if (!record) {
        PyErr_SetObject(PyExc_KeyError, key.ptr());
        throw py::error_already_set();
    }
    return py::cast(std::move(record));
}

/// Keys that lookups fold are answered by a lookup: folding them is the library's to do.
bool isFolded(std::string_view text) {
    return text.starts_with("HGT") || text.starts_with("SGT");
}

/// As asking for one after the other, but the searches wait for memory together.
Instruments findMany(Catalogue& catalogue, py::handle keys) {
    // A tuple, for a list may be changed by whoever has its turn while find() waits for the library. And before
    // anything of Python's is held here: an iterable is asked by code of Python's, in which the interpreter may end
    // this thread.
    const py::object sequence = owned(PySequence_Tuple(keys.ptr()));
    const auto count = static_cast<std::size_t>(PyTuple_GET_SIZE(sequence.ptr()));
    std::vector<std::uint64_t> hashes(count);
    std::vector<std::pair<std::size_t, Instrument>> single;
    std::string text;
    for (std::size_t i = 0; i < count; ++i) {
        PyObject* const key = PyTuple_GET_ITEM(sequence.ptr(), static_cast<Py_ssize_t>(i));
        if (readText(key, text) && !isFolded(text)) {
            hashes[i] = utils::hash(text);
        } else {
            single.emplace_back(i, find(catalogue, key));
        }
    }
    Instruments found(count);
    {
        const Released released;
        catalogue.resolve(hashes.data(), count, found.data());
    }
    for (auto& [place, record] : single) {
        found[place] = std::move(record);
    }
    return found;
}

Instruments recordsOf(InstrumentMap map) {
    Instruments records;
    records.reserve(map.size());
    for (auto& [key, record] : map) {
        records.push_back(std::move(record));
    }
    return records;
}

/// A name of its own or the union of its bits; the library knows single types alone.
InstrumentMap ofTraderType(Catalogue& catalogue, int type) {
    const auto& names = traderTypes();
    const auto known = std::find_if(names.begin(), names.end(), [&](const auto& one) { return one.second == type; });
    const Released released;
    if (known != names.end()) {
        return catalogue.instruments(known->second);
    }
    InstrumentMap all;
    for (const auto& [name, bit] : names) {
        if ((bit & (bit - 1)) == 0 && (bit & type) != 0) {
            all.merge(catalogue.instruments(bit));
        }
    }
    return all;
}

/// A text is one market: as a sequence it would be its letters.
std::list<std::string> marketList(py::handle markets) {
    const Inside inside;  // asks a sequence of a class of Python's
    return PyUnicode_Check(markets.ptr()) ? std::list<std::string>{markets.cast<std::string>()}
                                          : markets.cast<std::list<std::string>>();
}

InstrumentMap instrumentsOf(Catalogue& catalogue, py::handle what) {
    if (what.is_none()) {
        const Released released;
        return catalogue.instruments();
    }
    if (PyLong_Check(what.ptr())) {
        return ofTraderType(catalogue, what.cast<int>());
    }
    const std::list<std::string> markets = marketList(what);
    const Released released;
    return catalogue.instruments(markets);
}

/// In order, each once.
std::vector<std::string> marketsOf(Catalogue& catalogue) {
    std::set<std::string> names;
    for (const auto& [key, record] : catalogue.instruments()) {
        names.insert(record->market);
    }
    return {names.begin(), names.end()};
}

template <Instruments (Catalogue::*ask)(const std::string&)>
Instruments byDay(Catalogue& catalogue, py::handle day) {
    const std::string text = dayText(day);
    const Released released;
    return (catalogue.*ask)(text);
}

void addContainer(py::class_<Catalogue, std::shared_ptr<Catalogue>>& object) {
    object
        .def("get", getOr,
             "The record of a key: its text (\"SH600000\", folding \"HGT\" and \"SGT\"), its 64-bit hash, or a tuple "
             "of market and code. None, or the other argument, for a miss.",
             py::arg("key"), py::arg("default") = py::none())
        .def("__getitem__", item, "As get; KeyError for a miss.", py::arg("key"))
        .def(
            "__contains__",
            [](Catalogue& catalogue, py::handle key) {
                std::string text;
                // A text asks the keys alone; the persisted center would read a document for a record.
                return readText(key.ptr(), text) ? catalogue.has(text) : find(catalogue, key) != nullptr;
            },
            "Whether any market has the key.", py::arg("key"))
        .def("resolve", findMany, "The records of many keys, None for each miss; faster than one after the other.",
             py::arg("keys"))
        .def(
            // By the list, which __iter__ goes through: of two records with one key text it has one.
            "__len__", [](Catalogue& catalogue) { return catalogue.instruments().size(); }, Release(),
            "How many instruments there are.")
        .def(
            "__iter__",
            [](Catalogue& catalogue) { return py::iter(py::cast(recordsOf(instrumentsOf(catalogue, py::none())))); },
            "Every instrument of this moment, market by market, by code.");
}

void addLists(py::class_<Catalogue, std::shared_ptr<Catalogue>>& object) {
    object
        .def("get_instruments", instrumentsOf,
             "Records by key: of everything, of a market, of several markets, or of a TraderType.",
             py::arg("what") = py::none())
        .def("markets", marketsOf, Release(), "The markets that instruments name, in order.")
        .def("get_contracts", &Catalogue::contracts, Release(),
             "The futures of a product, by expiry, then code. Options on them are none.", py::arg("product_id"))
        .def("get_option_chain", &Catalogue::chain, Release(),
             "The options on an underlying, by expiry, strike price, then calls before puts.", py::arg("market"),
             py::arg("code"))
        .def("get_listed", byDay<&Catalogue::listed>, "What has that day (str or date) for its listing date.",
             py::arg("day"))
        .def("get_expiring", byDay<&Catalogue::expiring>,
             "Options, futures and bonds that end on that day (str or date).", py::arg("day"))
        .def("get_bond_listings", &Catalogue::bondListings, Release(),
             "The instruments that are one bond, by its interbank code.", py::arg("bond_code"))
        .def_property_readonly("version", &Catalogue::version, "Grows with every change that can be seen.");
}

void addTables(py::class_<Catalogue, std::shared_ptr<Catalogue>>& object) {
    const auto table = [](Catalogue& catalogue, py::handle market, const py::object& fields) {
        return Table(recordsOf(instrumentsOf(catalogue, market)), fields);
    };
    object
        .def("table", table, "Instruments as columns: of everything, a market, several, or a TraderType.",
             py::arg("market") = py::none(), py::arg("fields") = py::none())
        .def(
            "columns",
            [table](Catalogue& catalogue, py::handle market, const py::object& fields) {
                return table(catalogue, market, fields).columns();
            },
            "The same as numpy arrays; see Table.columns.", py::arg("market") = py::none(),
            py::arg("fields") = py::none())
        .def(
            "__arrow_c_stream__",
            [table](Catalogue& catalogue, const py::object& schema) {
                return table(catalogue, py::none(), py::none()).arrowStream(schema);
            },
            "Every instrument, for who takes Arrow's C data interface.", py::arg("requested_schema") = py::none());
}

}  // namespace

const std::vector<std::pair<const char*, EOvTraderType>>& traderTypes() {
    using namespace mxservice;
    // Never destroyed: a thread may be asking while the process exits.
    static const auto& types = *new std::vector<std::pair<const char*, EOvTraderType>>{
        {"STOCK", OvTraderStock},
        {"FUTURE", OvTraderFuture},
        {"ALL", OvTraderAll},
        {"MARGIN", OvTraderMargin},
        {"GOLD", OvTraderGold},
        {"OPTION", OvTraderOption},
        {"FOREIGN", OvTraderForeign},
        {"HONG_KONG", OvTraderHongKong},
        {"NEEQ", OvTraderNeeq},
        {"OTC", OvTraderOtc},
        {"FUTURE_OPTION", OvTraderFutureOption},
        {"OUTER_FUTURE", OvTraderOuterFuture},
        {"BOND", OvTraderBond},
        {"CONNECT", OvTraderConnect},
        {"BASKET", OvTraderBasket},
        {"FUND", OvTraderFund},
        {"SECURITIES_OTC", OvTraderSecuritiesOtc},
        {"REFERENCE", OvTraderReference},
        {"QUOTE", OvTraderQuote},
        {"DOMESTIC", OvTraderDomestic},
        {"EVERYTHING", OvTraderEverything},
    };
    return types;
}

void addCatalogue(py::module_& module) {
    py::class_<Catalogue, std::shared_ptr<Catalogue>> object(module, "Catalogue",
                                                             "What centers and views answer alike.");
    addContainer(object);
    addLists(object);
    addTables(object);

    CatalogueClass<View, Catalogue> view(module, "View",
                                         "The in-memory catalogue of one moment: all answers are of the same loads. "
                                         "Keeps what it shows; may outlive its center.");
    addQuestions<View, mxservice::InstrumentView>(view);
    view.def("has_nyse_stock", ask<View>(&mxservice::InstrumentView::hasNyseStock), "Whether \"NYSE\" has the key.",
             py::arg("code"))
        .def("has_nasdaq_stock", ask<View>(&mxservice::InstrumentView::hasNasdaqStock),
             "Whether \"NASDAQ\" has the key.", py::arg("code"))
        .def(
            "get_otc_instruments", [](View& self, int group) { return self.operations().getOtcInstruments(group); },
            Release(), "The OTC fund plans of a group, -1 for all.", py::arg("group"));

    py::dict names;
    for (const auto& [name, type] : traderTypes()) {
        names[name] = static_cast<int>(type);
    }
    // With its module, which pickle looks for it in, and as a flag, so that types add up with "|" as their bits do.
    const py::object kind =
        py::module_::import("enum").attr("IntFlag")("TraderType", names, py::arg("module") = "inscenter._native");
    kind.attr("__doc__") = "Kinds of trading; get_instruments and frame list what each stands for.";
    module.attr("TraderType") = kind;
}

}  // namespace binding
