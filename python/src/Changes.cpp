#include "src/Changes.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <set>
#include <thread>
#include <unordered_map>

#include "base/instrumentcenter/CatalogueChange.h"
#include "src/Casters.h"
#include "src/Day.h"
#include "src/Interpreter.h"

namespace binding {
namespace {

using mxservice::CatalogueChange;
using mxservice::IData;

// Both guarded by the interpreter's lock.
bool ending = false;       // the interpreter
int callbacksRunning = 0;  // on whatever thread

struct Running {
    Running() { ++callbacksRunning; }
    ~Running() { --callbacksRunning; }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
};

/// A subscription as Python has it. The center's end of it knows `callback` alone, and looks at it under the
/// interpreter's lock: so nothing of Python's is destroyed on whatever thread lets go of the center's end last.
class PythonSubscription {
public:
    PythonSubscription(Center& center, py::function callback) : callback_(std::make_shared<Callback>()) {
        callback_->function = std::move(callback);
        {
            const Released released;
            subscription_ =
                center.subscribe([callback = callback_](const CatalogueChange& change) { tell(*callback, change); });
        }
    }

    ~PythonSubscription() { close(); }

    PythonSubscription(const PythonSubscription&) = delete;
    PythonSubscription& operator=(const PythonSubscription&) = delete;

    /// No call begins from here on, also of a thread that the center has sent already: it finds None. One that another
    /// thread is in the middle of wants the interpreter's lock to get to its end, so that is free while this waits.
    void close() {
        const py::object function = std::exchange(callback_->function, py::none());
        auto former = std::exchange(subscription_, std::nullopt);
        const Released released;
        former.reset();
    }

    /// A subscription is kept by what it calls more often than not (`self.subscription = center.subscribe(self.told)`),
    /// and ends when nobody but the two know each other. The reference in Callback is the only one that is counted for
    /// this object: while a thread calls, it has one of its own, and the collector takes the callback for used.
    static void collect(PyHeapTypeObject* heapType) {
        PyTypeObject& type = heapType->ht_type;
        type.tp_flags |= Py_TPFLAGS_HAVE_GC;
        type.tp_traverse = [](PyObject* self, visitproc visit, void* arg) {
            Py_VISIT(Py_TYPE(self));
            if (const PythonSubscription* const subscription = made(self)) {
                Py_VISIT(subscription->callback_->function.ptr());
            }
            return 0;
        };
        // Not cleared but finalized: that comes before the collector takes anything apart, so that no other thread
        // calls what is half gone, and nothing is left to clear. It hardly waits: a call that is under way is a use.
        type.tp_finalize = [](PyObject* self) {
            const py::error_scope kept;
            if (PythonSubscription* const subscription = made(self)) {
                subscription->close();
            }
        };
        // Closing lets go of the interpreter's lock: a thread that collects then would meet an object that nobody
        // counts any more, and destroy it once again. Not every version of pybind11 keeps it from being met.
        type.tp_dealloc = [](PyObject* self) {
            PyObject_GC_UnTrack(self);
            reinterpret_cast<PyTypeObject*>(py::detail::get_internals().instance_base)->tp_dealloc(self);
        };
    }

    bool active() const { return subscription_.has_value(); }

private:
    /// Null for an object that the collector meets before it is filled; a cast would make it up.
    static PythonSubscription* made(PyObject* self) {
        const auto& instance = *reinterpret_cast<const py::detail::instance*>(self);
        return instance.simple_layout && instance.simple_holder_constructed
                   ? static_cast<PythonSubscription*>(instance.simple_value_holder[0])
                   : nullptr;
    }

    struct Callback {
        py::object function;                 // None once it was closed
        ~Callback() { function.release(); }  // None by then, which nobody counts
    };

    static void tell(const Callback& callback, const CatalogueChange& change) {
        const Held held;  // declared first, given back last: what follows are objects of Python's
        if (!held || ending) {
            return;
        }
        // Its own reference: the callback may close its subscription.
        const py::object function = callback.function;
        if (function.is_none()) {
            return;
        }
        const Running running;
        try {
            function(change);
        } catch (py::error_already_set& error) {
            // The load goes on, whatever a subscriber thinks of it.
            error.discard_as_unraisable(function);
        }
    }

    std::shared_ptr<Callback> callback_;
    std::optional<mxservice::Subscription> subscription_;
};

/// The record of each key; of several the last, as a load would have it.
std::unordered_map<std::string, boost::shared_ptr<IData>> byKey(const std::vector<boost::shared_ptr<IData>>& records) {
    std::unordered_map<std::string, boost::shared_ptr<IData>> map;
    map.reserve(records.size());
    for (const auto& record : records) {
        map.insert_or_assign(record->getKey(), record);
    }
    return map;
}

/// What became of one key.
struct Difference {
    std::string key;
    boost::shared_ptr<IData> before;
    boost::shared_ptr<IData> after;
    std::vector<std::string> fields;  // where both are there
};

std::vector<Difference> differences(const Day& older, const Day& newer, mxservice::SnapshotCatalogue catalogue) {
    const auto former = byKey(older.snapshot.records(catalogue));
    const auto latter = byKey(newer.snapshot.records(catalogue));
    std::vector<Difference> found;
    for (const auto& [key, before] : former) {
        const auto after = latter.find(key);
        if (after == latter.end()) {
            found.push_back({key, before, nullptr, {}});
        } else if (auto fields = mxservice::changedFields(*before, *after->second); !fields.empty()) {
            found.push_back({key, before, after->second, std::move(fields)});
        }
    }
    for (const auto& [key, after] : latter) {
        if (former.count(key) == 0) {
            found.push_back({key, nullptr, after, {}});
        }
    }
    // The maps are in no order, and two runs over the same days shall answer alike.
    std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.key < b.key; });
    return found;
}

py::object fieldValue(const std::string& name, const IData& record) {
    return owned(fieldObject(fieldNamed(record.recordType(), name, PyExc_ValueError), record));
}

py::tuple diff(const Day& older, const Day& newer, const std::string& catalogue, const std::set<std::string>& ignore) {
    std::vector<Difference> found;
    {
        const auto number = catalogueNamed(catalogue);
        const Released released;
        found = differences(older, newer, number);
    }
    py::list keys;
    py::list fields;
    py::list before;
    py::list after;
    const auto add = [&](const std::string& key, py::object field, py::object from, py::object to) {
        keys.append(key);
        fields.append(std::move(field));
        before.append(std::move(from));
        after.append(std::move(to));
    };
    for (const Difference& one : found) {
        if (!one.before || !one.after) {
            add(one.key, py::none(), py::cast(one.before), py::cast(one.after));
        }
        for (const std::string& field : one.fields) {
            if (ignore.count(field) == 0) {
                add(one.key, py::cast(field), fieldValue(field, *one.before), fieldValue(field, *one.after));
            }
        }
    }
    return py::make_tuple(keys, fields, before, after);
}

}  // namespace

void addSubscribe(py::module_& module, py::class_<Center, Catalogue, std::shared_ptr<Center>>& center) {
    py::class_<CatalogueChange>(module, "Change", "What one load or update has changed in a center.")
        .def_readonly("version", &CatalogueChange::version, "That readers have by then, or a later one.")
        .def_readonly("markets", &CatalogueChange::markets, "Whose listings were brought, changed or not.")
        .def_readonly("catalogues", &CatalogueChange::catalogues, "Other catalogues that were brought.")
        .def_property_readonly(
            "instruments",
            [](const CatalogueChange& change) {
                py::list items;
                for (const auto& item : change.instruments) {
                    items.append(py::make_tuple(item.before, item.after));
                }
                return items;
            },
            "Pairs of the record before and after; None before: added, None after: removed.");
    py::class_<PythonSubscription>(module, "Subscription",
                                   "A subscription, which ends with close(), the end of a with block, or this object.",
                                   py::custom_type_setup(&PythonSubscription::collect))
        .def("close", &PythonSubscription::close,
             "Ends it; waits for a call that another thread is in. Closing twice is closing once.")
        .def_property_readonly("active", &PythonSubscription::active, "Whether it was not closed yet.")
        .def("__enter__", [](py::object self) { return self; })
        .def("__exit__", [](PythonSubscription& self, const py::args&) { self.close(); });
    center.def(
        "subscribe",
        [](Center& self, py::function callback) {
            return std::make_unique<PythonSubscription>(self, std::move(callback));
        },
        "Calls `callback(change)` after each load or update, on a thread that is loading. What it raises goes to "
        "sys.unraisablehook, and the load goes on. Keep the subscription that is returned.",
        py::arg("callback"));
}

void addDiff(py::module_& module) {
    module.def("_diff", diff, "For diff.", py::arg("old"), py::arg("new"), py::arg("catalogue"), py::arg("ignore"));
    module.def(
        "changed_fields",
        [](const boost::shared_ptr<IData>& before, const boost::shared_ptr<IData>& after) {
            return mxservice::changedFields(*before, *after);
        },
        "The names of the fields in which two records of a class differ.", py::arg("before"), py::arg("after"));
}

void endCallbacks() {
    ending = true;  // first: who comes later sees it, and who came before has counted itself
    while (callbacksRunning > 0) {
        const Released released;
        std::this_thread::yield();
    }
}

}  // namespace binding
