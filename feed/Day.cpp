// A day as it is handed in, and back into a center.

#include <boost/pointer_cast.hpp>

#include <stdexcept>
#include <string>
#include <utility>

#include "feed/Feed.h"

namespace mxservice::feed {
namespace {

template <class Record>
Day::Call callOf(SnapshotCatalogue catalogue, const std::vector<boost::shared_ptr<Record>>& records) {
    Day::Call call;
    call.catalogue = catalogue;
    call.records.reserve(records.size());
    for (const auto& record : records) {
        if (record) {
            call.records.push_back(record);
        }
    }
    return call;
}

/// The keys go along: some centers file by them, whatever the records say.
template <class Record>
Day::Call callOf(SnapshotCatalogue catalogue, const std::map<std::string, boost::shared_ptr<Record>>& records) {
    Day::Call call;
    call.catalogue = catalogue;
    for (const auto& [key, record] : records) {
        if (record) {
            call.records.push_back(record);
            call.keys.push_back(key);
        }
    }
    return call;
}

template <class Record>
std::vector<boost::shared_ptr<Record>> listOf(const Day::Call& call) {
    std::vector<boost::shared_ptr<Record>> records;
    records.reserve(call.records.size());
    for (const auto& record : call.records) {
        records.push_back(boost::static_pointer_cast<Record>(record));
    }
    return records;
}

template <class Record>
std::map<std::string, boost::shared_ptr<Record>> mapOf(const Day::Call& call) {
    std::map<std::string, boost::shared_ptr<Record>> records;
    for (std::size_t i = 0; i < call.records.size(); ++i) {
        // A call that somebody has put together may lack the keys.
        const std::string key = i < call.keys.size() ? call.keys[i] : call.records[i]->getKey();
        records.emplace_hint(records.end(), key, boost::static_pointer_cast<Record>(call.records[i]));
    }
    return records;
}

void load(const Day::Call& call, IInstrumentCenter& center) {
    switch (call.catalogue) {
        case SnapshotCatalogue::Instruments:
            return center.initInstruments(call.markets, listOf<CInstrumentDetail>(call));
        case SnapshotCatalogue::Etfs:
            return center.initEtfs(listOf<CETFDetail>(call));
        case SnapshotCatalogue::Bonds:
            return center.initBonds(mapOf<CBondInfoDetail>(call));
        case SnapshotCatalogue::TenderBonds:
            return center.initTenderBondInfos(mapOf<CTenderBondInfoDetail>(call));
        case SnapshotCatalogue::Counterparties:
            return center.initCounterpartys(mapOf<CCounterpartyDetail>(call));
        case SnapshotCatalogue::OtcPlans:
            return center.initOtcInstruments(listOf<COTCFundPlanInfo>(call));
        case SnapshotCatalogue::Issuances:
            return center.initIssuanceInfos(listOf<COTCSecuritiesIssuanceInfo>(call));
        case SnapshotCatalogue::IssuancePrices:
            return center.initIssuancePriceInfos(mapOf<COTCStockEnquiryPriceSetting>(call));
    }
}

}  // namespace

void Day::initInstruments(const std::vector<std::string>& markets,
                          const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) {
    Call call = callOf(SnapshotCatalogue::Instruments, instruments);
    call.markets = markets;
    add(std::move(call));
}

void Day::initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    add(callOf(SnapshotCatalogue::Etfs, etfs));
}

void Day::initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    add(callOf(SnapshotCatalogue::Bonds, bonds));
}

void Day::initTenderBondInfos(const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    add(callOf(SnapshotCatalogue::TenderBonds, tenderBonds));
}

void Day::initCounterpartys(const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    add(callOf(SnapshotCatalogue::Counterparties, counterparties));
}

void Day::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    add(callOf(SnapshotCatalogue::OtcPlans, plans));
}

void Day::initIssuanceInfos(const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    add(callOf(SnapshotCatalogue::Issuances, issuances));
}

void Day::initIssuancePriceInfos(
    const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings) {
    add(callOf(SnapshotCatalogue::IssuancePrices, settings));
}

void Day::add(Call call) {
    if (!call.keys.empty() && call.keys.size() != call.records.size()) {
        throw std::invalid_argument("a load with " + std::to_string(call.keys.size()) + " keys of " +
                                    std::to_string(call.records.size()) + " records");
    }
    calls_.push_back(std::move(call));
}

Day Day::of(const Snapshot& snapshot) {
    Day day;
    const auto addSome = [](const auto& records, const auto& init) {
        if (!records.empty()) {
            init();
        }
    };
    addSome(snapshot.instruments, [&] { day.initInstruments(snapshot.markets(), snapshot.instruments); });
    addSome(snapshot.etfs, [&] { day.initEtfs(snapshot.etfs); });
    addSome(snapshot.bonds, [&] { day.initBonds(snapshot.bonds); });
    addSome(snapshot.tenderBonds, [&] { day.initTenderBondInfos(snapshot.tenderBonds); });
    addSome(snapshot.counterparties, [&] { day.initCounterpartys(snapshot.counterparties); });
    addSome(snapshot.otcPlans, [&] { day.initOtcInstruments(snapshot.otcPlans); });
    addSome(snapshot.issuances, [&] { day.initIssuanceInfos(snapshot.issuances); });
    addSome(snapshot.issuancePrices, [&] { day.initIssuancePriceInfos(snapshot.issuancePrices); });
    return day;
}

Snapshot Day::snapshot() const {
    Snapshot snapshot;
    for (const Call& call : calls_) {
        for (const auto& record : call.records) {
            snapshot.add(call.catalogue, record);
        }
    }
    return snapshot;
}

void Day::loadInto(IInstrumentCenter& center) const {
    for (const Call& call : calls_) {
        load(call, center);
    }
}

}  // namespace mxservice::feed
