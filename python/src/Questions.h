#pragma once

// The questions that the interface and the view have under the same names, bound once for both.

#include "base/instrumentcenter/InstrumentView.h"
#include "src/Casters.h"
#include "src/Catalogue.h"

namespace binding {

/// What reads a store, builds a list or makes a table first.
using Release = py::call_guard<Released>;

/// A question of `Operations` as a function of the object that has them.
template <class Self, class Operations, class Answer, class... Arguments>
auto ask(Answer (Operations::*question)(Arguments...)) {
    return [question](Self& self, Arguments... arguments) -> Answer {
        return (self.operations().*question)(std::forward<Arguments>(arguments)...);
    };
}

template <class Self, class Operations, class Answer, class... Arguments>
auto ask(Answer (Operations::*question)(Arguments...) const) {
    return [question](Self& self, Arguments... arguments) -> Answer {
        return (self.operations().*question)(std::forward<Arguments>(arguments)...);
    };
}

/// Predicates hold the interpreter's lock: they are over before it could be let go of.
template <class Self, class Operations, class Class>
void addPredicates(Class& object) {
    const auto add = [&](const char* name, auto predicate, const char* doc) {
        object.def(name, ask<Self>(predicate), doc, py::arg("code"));
    };
    add("has_code", &Operations::hasCode, "Whether any market has the key; folds \"HGT\" and \"SGT\".");
    add("has_stock", &Operations::hasStock, "Whether \"SH\", \"SZ\" or \"BJ\" has the key.");
    add("has_future", &Operations::hasFuture, "Whether one of the six futures exchanges has the key.");
    add("has_hkstock", &Operations::hasHkstock, "As hasHkstock of the kind of center: \"HK\" in the persisted one.");
    add("has_skstock", &Operations::hasSkstock, "Whether the key is filed under \"HK\"; does not fold \"HGT\".");
    add("has_option", &Operations::hasOption, "Whether \"SHO\" or \"SZO\" has the key.");
    add("has_future_option", &Operations::hasFutureOption, "The same answer as has_future.");
    add("has_neeq", &Operations::hasNeeq, "Whether \"NEEQ\" has the key.");
    add("has_gold", &Operations::hasGold, "Whether \"SHGE\" has the key.");
    add("has_etf", &Operations::hasEtf, "Whether a fund has the key, by either of its codes.");
    add("has_bond", &Operations::hasBond, "Whether \"BANK\" has the key.");
    add("has_otc", &Operations::hasOtc, "Whether an OTC fund plan has the key.");
    add("has_issuance", &Operations::hasIssuance, "Whether an OTC issuance has the code itself.");
    add("has_tender_bond", &Operations::hasTenderBond, "Whether a bond on tender has the code itself.");
    add("has_outer_future", &Operations::hasOuterFuture, "Whether \"WP\" has the key.");
    add("has_outer_stock", &Operations::hasOuterStock, "Whether \"NYSE\" or \"NASDAQ\" has the key.");
}

template <class Self, class Operations, class Class>
void addFutures(Class& object) {
    object
        .def("get_future_main_instruments", ask<Self>(&Operations::getFutureMainInstruments), Release(),
             "The main contracts of a futures exchange, by key.", py::arg("market"))
        .def("get_product_main_instruments", ask<Self>(&Operations::getProductMainInstruments), Release(),
             "The main contracts by product id.")
        .def("get_product_id", ask<Self>(&Operations::getProductId), Release(),
             "The product id of an instrument; empty for a miss.", py::arg("market"), py::arg("code"))
        .def("get_dce_cross_product", ask<Self>(&Operations::getDceCrossProduct), Release(),
             "The legs of the Dalian inter-commodity spreads.")
        .def("get_dce_cross_period", ask<Self>(&Operations::getDceCrossPeriod), Release(),
             "The legs of the Dalian inter-period spreads.");
}

template <class Self, class Operations, class Class>
void addOthers(Class& object) {
    object
        .def(
            "get_etf", [](Self& self, const std::string& code) { return self.operations().getEtf(code); }, Release(),
            "A fund by either of its keys, or None.", py::arg("code"))
        .def("get_etfs", ask<Self>(&Operations::getEtfs), Release(), "Every fund once, by market and trading code.")
        .def(
            "get_bond", [](Self& self, const std::string& code) { return self.operations().getBond(code); }, Release(),
            "An interbank bond by the key of \"BANK\" and its code, or None.", py::arg("code"))
        .def(
            "get_bond", [](Self& self, std::uint64_t key) { return self.operations().getBond(key); }, Release(),
            "An interbank bond by its 64-bit key, or None.", py::arg("key"))
        .def("get_bonds", ask<Self>(&Operations::getBonds), Release(), "Every interbank bond, by bond code.")
        .def("get_counterparty", ask<Self>(&Operations::getCounterparty), Release(), "A counterparty, or None.",
             py::arg("id"))
        .def("get_counterpartys", ask<Self>(&Operations::getCounterpartys), Release(), "Every counterparty, by id.")
        .def("get_otc_instrument", ask<Self>(&Operations::getOtcInstrument), Release(), "An OTC fund plan, or None.",
             py::arg("code"))
        .def(
            "get_otc_instruments", [](Self& self) { return self.operations().getOtcInstruments(); }, Release(),
            "Every OTC fund plan as an instrument, by key.")
        .def("get_issuance_info", ask<Self>(&Operations::getIssuanceInfo), Release(), "An OTC issuance, or None.",
             py::arg("code"))
        .def("get_issuance_infos", ask<Self>(&Operations::getIssuanceInfos), Release(), "Every issuance, by code.")
        .def("get_tender_bond_info", ask<Self>(&Operations::getTenderBondInfo), Release(), "A bond on tender, or None.",
             py::arg("code"))
        .def("get_trender_bond_infos", ask<Self>(&Operations::getTrenderBondInfos), Release(),
             "Every bond on tender, by code.");
}

template <class Self, class Operations, class Class>
void addCodeSets(Class& object) {
    object
        .def("get_stock_ipo_codes", ask<Self>(&Operations::getStockIpoCodes), Release(),
             "Today's new issues, as market directly followed by code.")
        .def("get_stock_cdr_codes", ask<Self>(&Operations::getStockCdrCodes), Release(),
             "Depositary receipts and innovative enterprises, in the same form.")
        .def("get_neeq_inquiry_codes", ask<Self>(&Operations::getNeeqInquiryCodes), Release(),
             "Inquiry codes of \"NEEQ\", in the same form.")
        .def("get_lumo_code", ask<Self>(&Operations::getLumoCode), Release(),
             "The platform code of an instrument code where one is known, else the code.", py::arg("code"))
        .def("is_stk_option_undl_code", ask<Self>(&Operations::isStkOptionUndlCode), Release(),
             "Whether stock options of \"SH\" or \"SZ\" have the code as their underlying.", py::arg("market"),
             py::arg("code"));
}

/// All of them.
template <class Self, class Operations, class Class>
void addQuestions(Class& object) {
    addPredicates<Self, Operations>(object);
    addFutures<Self, Operations>(object);
    addOthers<Self, Operations>(object);
    addCodeSets<Self, Operations>(object);
}

}  // namespace binding
