#pragma once

// How texts and records cross between the two languages, for every unit of the module alike.

#include <pybind11/pybind11.h>

#include <boost/shared_ptr.hpp>
#include <string>
#include <type_traits>

#include "platform/record/Records.h"
#include "src/RecordObject.h"
#include "src/Values.h"

namespace binding {

/// What a record class is called in Python.
template <class Record>
inline constexpr auto kPythonName = py::detail::const_name("Record");
template <>
inline constexpr auto kPythonName<mxservice::CInstrumentDetail> = py::detail::const_name("Instrument");
template <>
inline constexpr auto kPythonName<mxservice::COTCFundPlanInfo> = py::detail::const_name("OtcPlan");
template <>
inline constexpr auto kPythonName<mxservice::CETFDetail> = py::detail::const_name("Etf");
template <>
inline constexpr auto kPythonName<mxservice::CETFComponentStockInfo> = py::detail::const_name("EtfComponent");
template <>
inline constexpr auto kPythonName<mxservice::CBondInfoDetail> = py::detail::const_name("Bond");
template <>
inline constexpr auto kPythonName<mxservice::CTenderBondInfoDetail> = py::detail::const_name("TenderBond");
template <>
inline constexpr auto kPythonName<mxservice::CCounterpartyDetail> = py::detail::const_name("Counterparty");
template <>
inline constexpr auto kPythonName<mxservice::COTCSecuritiesIssuanceInfo> = py::detail::const_name("Issuance");
template <>
inline constexpr auto kPythonName<mxservice::COTCStockEnquiryPriceSetting> = py::detail::const_name("IssuancePrice");

}  // namespace binding

namespace pybind11::detail {

/// In place of pybind11's own, which refuses bytes that are not UTF-8.
template <>
class type_caster<std::string> {
public:
    PYBIND11_TYPE_CASTER(std::string, const_name("str"));
    bool load(handle source, bool) { return binding::readText(source.ptr(), value); }
    static handle cast(const std::string& text, return_value_policy, handle) {
        return binding::owned(binding::textObject(text)).release();
    }
};

/// Records are shared by both languages: neither changes one (see ownCopy for what loads do). None is no record.
template <class Record>
class type_caster<boost::shared_ptr<Record>, enable_if_t<std::is_base_of_v<mxservice::IData, Record>>> {
public:
    PYBIND11_TYPE_CASTER(boost::shared_ptr<Record>, binding::kPythonName<Record>);
    bool load(handle source, bool) {
        const auto* const record = binding::recordIn(source.ptr());
        value = record == nullptr
                    ? nullptr
                    : boost::dynamic_pointer_cast<Record>(boost::const_pointer_cast<mxservice::IData>(*record));
        return value != nullptr;
    }
    static handle cast(boost::shared_ptr<Record> record, return_value_policy, handle) {
        return binding::owned(binding::recordObject(std::move(record))).release();
    }
};

}  // namespace pybind11::detail

#include <pybind11/stl.h>
