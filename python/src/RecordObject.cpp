#include "src/RecordObject.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "platform/record/Records.h"
#include "src/Casters.h"
#include "src/Values.h"

namespace binding {
namespace {

using mxservice::Field;
using mxservice::FieldKind;
using mxservice::IData;
using mxservice::RecordType;

struct RecordObject {
    PyObject base;
    boost::shared_ptr<const IData> record;
};

/// A record class in both languages.
struct RecordClass {
    const RecordType* type;
    const char* name;
    const char* doc;
    PyTypeObject* object;
};

PyTypeObject* recordBase = nullptr;

template <class Record>
RecordClass classOfRecord(const char* doc) {
    return {&Record::table(), kPythonName<Record>.text, doc, nullptr};
}

std::array<RecordClass, 9>& recordClasses() {
    using namespace mxservice;
    // An instrument first: it is what is asked for most. Bases stand before what derives from them.
    static std::array<RecordClass, 9> classes{
        classOfRecord<CInstrumentDetail>("A tradable instrument of any market."),
        classOfRecord<COTCFundPlanInfo>("An OTC fund plan: an instrument with the terms of the plan."),
        classOfRecord<CETFDetail>("A fund with its creation and redemption parameters and its basket."),
        classOfRecord<CETFComponentStockInfo>("One component of a fund's basket."),
        classOfRecord<CBondInfoDetail>("An interbank bond."),
        classOfRecord<CTenderBondInfoDetail>("A bond on tender."),
        classOfRecord<CCounterpartyDetail>("A counterparty of the interbank market."),
        classOfRecord<COTCSecuritiesIssuanceInfo>("An OTC securities issuance."),
        classOfRecord<COTCStockEnquiryPriceSetting>("The price setting of an OTC enquiry.")};
    return classes;
}

RecordObject* asRecord(PyObject* object) {
    return reinterpret_cast<RecordObject*>(object);
}

const IData& recordOf(PyObject* object) {
    return *asRecord(object)->record;
}

/// Runs what may throw where Python calls: null and Python's error then.
template <class Work>
PyObject* guarded(Work&& work) {
    try {
        return work();
    } catch (py::error_already_set& error) {
        error.restore();
    } catch (const py::cast_error& error) {
        PyErr_SetString(PyExc_TypeError, error.what());
    } catch (const py::builtin_exception& error) {
        error.set_error();
    } catch (const std::bad_alloc&) {
        PyErr_NoMemory();
    } catch (const std::exception& error) {
        PyErr_SetString(PyExc_RuntimeError, error.what());
    }
    return nullptr;
}

/// Of a type of ours, whose objects have nothing beside the record; what Python derives may have, see construct().
PyObject* makeObject(PyTypeObject* type, boost::shared_ptr<const IData> record) {
    auto* const object = PyObject_New(RecordObject, type);
    if (object == nullptr) {
        return nullptr;
    }
    new (&object->record) boost::shared_ptr<const IData>(std::move(record));
    return reinterpret_cast<PyObject*>(object);
}

void destroy(PyObject* object) {
    PyTypeObject* const type = Py_TYPE(object);
    asRecord(object)->record.~shared_ptr();
    type->tp_free(object);
    Py_DECREF(type);  // objects of types that are made at run time hold their type
}

/// The record class of a type of ours, or of what Python derives from one; null for the base of them all.
const RecordClass* classOf(PyTypeObject* type) {
    const RecordClass* found = nullptr;
    for (const RecordClass& known : recordClasses()) {
        // The last one: a derived class stands behind its base.
        found = PyType_IsSubtype(type, known.object) != 0 ? &known : found;
    }
    return found;
}

void setFields(const RecordType& type, IData& record, PyObject* values) {
    PyObject* name = nullptr;
    PyObject* value = nullptr;
    Py_ssize_t position = 0;
    while (values != nullptr && PyDict_Next(values, &position, &name, &value) != 0) {
        setField(fieldNamed(type, py::cast<std::string>(py::handle(name)), PyExc_TypeError), record, value);
    }
}

PyObject* construct(PyTypeObject* type, PyObject* positional, PyObject* named) {
    return guarded([&]() -> PyObject* {
        const RecordClass* const known = classOf(type);
        if (known == nullptr || PyTuple_GET_SIZE(positional) != 0) {
            throw py::type_error(known == nullptr ? "Record is made by its classes" : "fields are given by name");
        }
        // Before the object, which would have to be taken apart again where a field is refused.
        const boost::shared_ptr<IData> record = known->type->make();
        setFields(*known->type, *record, named);
        PyObject* const object = type->tp_alloc(type, 0);
        if (object != nullptr) {
            new (&asRecord(object)->record) boost::shared_ptr<const IData>(record);
        }
        return object;
    });
}

PyObject* replaced(PyObject* self, PyObject* positional, PyObject* named) {
    return guarded([&]() -> PyObject* {
        if (PyTuple_GET_SIZE(positional) != 0) {
            throw py::type_error("fields are given by name");
        }
        const boost::shared_ptr<IData> record = recordOf(self).copy();
        setFields(record->recordType(), *record, named);
        return recordObject(record);
    });
}

PyObject* getField(PyObject* self, void* field) {
    return guarded([&] { return fieldObject(*static_cast<const Field*>(field), recordOf(self)); });
}

PyObject* getKey(PyObject* self, void*) {
    return guarded([&] { return textObject(recordOf(self).getKey()); });
}

PyObject* getClass(PyObject* self, void*) {
    PyObject* const type = reinterpret_cast<PyObject*>(Py_TYPE(self));
    Py_INCREF(type);
    return type;
}

PyObject* asDict(PyObject* self, PyObject*) {
    return guarded([&] {
        py::dict fields;
        for (const Field& field : recordOf(self).recordType().fields()) {
            py::object value = owned(fieldObject(field, recordOf(self)));
            if (field.kind() == FieldKind::Components) {  // or json could not write what this gives
                py::dict plain;
                for (const auto& [code, component] : value.cast<py::dict>()) {
                    plain[code] = owned(asDict(component.ptr(), nullptr));
                }
                value = plain;
            }
            if (PyDict_SetItemString(fields.ptr(), field.name().c_str(), value.ptr()) != 0) {
                throw py::error_already_set();
            }
        }
        return fields.release().ptr();
    });
}

PyObject* represent(PyObject* self) {
    return guarded([&] {
        std::string text = recordName(recordOf(self).recordType());
        const char* separator = "(";
        for (const Field& field : recordOf(self).recordType().fields()) {
            // What is left out has its default when the text is evaluated, too.
            if (!field.isDefault(recordOf(self))) {
                const py::object value = owned(fieldObject(field, recordOf(self)));
                text += separator + field.name() + '=' + py::cast<std::string>(py::object(py::repr(value)));
                separator = ", ";
            }
        }
        return textObject(text + (*separator == '(' ? "()" : ")"));
    });
}

/// Equal records have equal keys. No more of them is looked at: a set of a day's records costs a hash of a short text
/// each.
Py_hash_t hashed(PyObject* self) {
    const auto hash = static_cast<Py_hash_t>(std::hash<std::string>()(recordOf(self).getKey()));
    return hash == -1 ? -2 : hash;  // -1 is an error to Python
}

PyObject* compared(PyObject* left, PyObject* right, int operation) {
    const auto* const other = recordIn(right);
    if (other == nullptr || (operation != Py_EQ && operation != Py_NE)) {
        Py_RETURN_NOTIMPLEMENTED;
    }
    // Mostly one and the same: both languages share records.
    const bool equal = asRecord(left)->record == *other || recordOf(left) == **other;
    return PyBool_FromLong(equal == (operation == Py_EQ) ? 1 : 0);
}

/// Pickled as the document that stores hold: every field, byte for byte, and readable by versions with more fields.
PyObject* reduced(PyObject* self, PyObject*) {
    return guarded([&] {
        std::string document;
        if (!recordOf(self).appendDocument(document)) {
            throw py::value_error("the record is too large for a document");
        }
        const py::object restore = py::module_::import("inscenter._native").attr("_restore");
        return py::make_tuple(restore, py::make_tuple(recordOf(self).recordType().name(), py::bytes(document)))
            .release()
            .ptr();
    });
}

PyObject* restored(PyObject*, PyObject* arguments) {
    const char* className = nullptr;
    PyObject* document = nullptr;
    if (PyArg_ParseTuple(arguments, "sS", &className, &document) == 0) {
        return nullptr;
    }
    return guarded([&] {
        // A pickle may come from anywhere: name and bytes are looked at, and no more is made of them than a record.
        const RecordType* const type = mxservice::TypeManager::instance()->find(className);
        const boost::shared_ptr<IData> record = type == nullptr ? nullptr : type->make();
        std::string error = std::string("no class ") + className;
        if (!record ||
            !record->readDocument({PyBytes_AS_STRING(document), static_cast<std::size_t>(PyBytes_GET_SIZE(document))},
                                  true, &error)) {
            throw py::value_error("no record: " + error);
        }
        return recordObject(record);
    });
}

/// Not by pybind11, of whose functions pickle knows no name.
PyMethodDef moduleFunctions[] = {{"_restore", restored, METH_VARARGS, "For pickle."}, {nullptr, nullptr, 0, nullptr}};

const char* docOf(const Field& field) {
    switch (field.kind()) {
        case FieldKind::Text:
            return field.isDate() ? "str: a day YYYYMMDD, empty where it is unknown." : "str.";
        case FieldKind::Double:
            return "float.";
        case FieldKind::Components:
            return "dict: the basket's components by code.";
        default:
            return "int.";
    }
}

/// Never freed, as the type that refers to it.
PyGetSetDef* fieldAttributes(const RecordType& type) {
    auto& attributes = *new std::vector<PyGetSetDef>();
    for (const Field& field : type.fields()) {
        attributes.push_back({field.name().c_str(), getField, nullptr, docOf(field), const_cast<Field*>(&field)});
    }
    attributes.push_back({nullptr, nullptr, nullptr, nullptr, nullptr});
    return attributes.data();
}

PyMethodDef recordMethods[] = {{"asdict", asDict, METH_NOARGS, "Every field by its name; baskets as dicts, too."},
                               {"replace", reinterpret_cast<PyCFunction>(reinterpret_cast<void (*)()>(replaced)),
                                METH_VARARGS | METH_KEYWORDS, "A copy with other values of the fields that are named."},
                               {"__reduce__", reduced, METH_NOARGS, "For pickle and copy."},
                               {nullptr, nullptr, 0, nullptr}};

PyGetSetDef baseAttributes[] = {
    {"key", getKey, nullptr, "str: what tells this record from others of its class; of an instrument market and code.",
     nullptr},
    // All records are objects of one size, so Python would let one take another class, whose getters read the members
    // of that class's record. Here as well as by the flag of fix(): Python 3.9 has no such flag, and what derives from
    // a record class without members of its own has not got it.
    {"__class__", getClass, nullptr, "The class, which nobody changes.", nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr}};

/// No attribute of the class is changed from here on.
void fix([[maybe_unused]] PyTypeObject* type) {
#ifdef Py_TPFLAGS_IMMUTABLETYPE
    type->tp_flags |= Py_TPFLAGS_IMMUTABLETYPE;
#endif
}

PyTypeObject* makeType(const std::string& name, const char* doc, PyGetSetDef* attributes, PyTypeObject* base) {
    std::vector<PyType_Slot> slots{{Py_tp_doc, const_cast<char*>(doc)}, {Py_tp_getset, attributes}};
    if (base == nullptr) {  // the others inherit these
        slots.insert(slots.end(), {{Py_tp_new, reinterpret_cast<void*>(construct)},
                                   {Py_tp_dealloc, reinterpret_cast<void*>(destroy)},
                                   {Py_tp_repr, reinterpret_cast<void*>(represent)},
                                   {Py_tp_hash, reinterpret_cast<void*>(hashed)},
                                   {Py_tp_richcompare, reinterpret_cast<void*>(compared)},
                                   {Py_tp_methods, recordMethods}});
    }
    slots.push_back({0, nullptr});
    // Kept: the type's name points into it.
    const auto& full = *new std::string("inscenter." + name);
    PyType_Spec spec{full.c_str(), sizeof(RecordObject), 0, Py_TPFLAGS_DEFAULT | Py_TPFLAGS_BASETYPE, slots.data()};
    auto* const bases = base == nullptr ? nullptr : reinterpret_cast<PyObject*>(base);
    auto* const type = reinterpret_cast<PyTypeObject*>(PyType_FromSpecWithBases(&spec, bases));
    if (type == nullptr) {
        throw py::error_already_set();
    }
    return type;
}

}  // namespace

void addRecords(py::module_& module) {
    recordBase = makeType("Record", "What all records have: fields that nobody changes.", baseAttributes, nullptr);
    fix(recordBase);
    module.add_object("Record", reinterpret_cast<PyObject*>(recordBase));
    for (RecordClass& known : recordClasses()) {
        PyTypeObject* const base =
            known.type == &mxservice::COTCFundPlanInfo::table() ? recordClasses()[0].object : recordBase;
        known.object = makeType(known.name, known.doc, fieldAttributes(*known.type), base);
        const py::handle type(reinterpret_cast<PyObject*>(known.object));
        py::list names;
        for (const Field& field : known.type->fields()) {
            names.append(field.name());
        }
        type.attr("fields") = py::tuple(names);
        fix(known.object);
        module.add_object(known.name, type);
    }
    if (PyModule_AddFunctions(module.ptr(), moduleFunctions) != 0) {
        throw py::error_already_set();
    }
}

PyObject* recordObject(boost::shared_ptr<const IData> record) {
    if (!record) {
        Py_RETURN_NONE;
    }
    const RecordType& type = record->recordType();
    const auto& classes = recordClasses();
    const auto known = std::find_if(classes.begin(), classes.end(), [&](const auto& one) { return one.type == &type; });
    // A class of a host's own is shown as the base that everybody knows.
    PyTypeObject* const shown = known == classes.end() ? recordBase : known->object;
    return makeObject(shown, std::move(record));
}

const boost::shared_ptr<const IData>* recordIn(PyObject* object) {
    return PyObject_TypeCheck(object, recordBase) ? &asRecord(object)->record : nullptr;
}

const char* recordName(const RecordType& type) {
    const auto& classes = recordClasses();
    const auto known = std::find_if(classes.begin(), classes.end(), [&](const auto& one) { return one.type == &type; });
    return known == classes.end() ? "Record" : known->name;
}

const Field& fieldNamed(const RecordType& type, const std::string& name, PyObject* error) {
    const Field* const field = type.find(name);
    if (field == nullptr) {
        PyErr_SetString(error, (std::string(recordName(type)) + " has no field " + name).c_str());
        throw py::error_already_set();
    }
    return *field;
}

}  // namespace binding
