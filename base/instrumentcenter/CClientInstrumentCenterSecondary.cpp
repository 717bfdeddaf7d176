#include <boost/make_shared.hpp>

#include <optional>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/ClientState.h"
#include "base/instrumentcenter/boundary/Platform.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/catalogue/RecordChanges.h"

// ETFs, bonds and OTC fund plans, kept in the store; tender bonds, counterparties, issuance records and price settings,
// kept in memory.

namespace mxservice {
namespace {

template <class Records>
typename Records::mapped_type recordIn(const Records& records, const std::string& key) {
    const auto found = records.find(key);
    return found == records.end() ? typename Records::mapped_type() : found->second;
}

/// A component without a name gets that of its instrument, where there is one. Changes the host's own record.
void fillComponentNames(IInstrumentCenter& center, const CETFDetail& etf) {
    for (const auto& [code, component] : etf.components) {
        if (component && component->name.empty()) {
            const InstrumentPtr record = center.getInstrument(utils::ovStockKey(component->market, component->code));
            if (record) {
                component->name = record->name;
            }
        }
    }
}

/// The keys of records that memory holds by key.
template <class Record>
std::set<std::uint64_t> keysOf(const std::map<std::uint64_t, boost::shared_ptr<Record>>& records) {
    std::set<std::uint64_t> keys;
    for (const auto& [key, record] : records) {
        keys.insert(keys.end(), key);
    }
    return keys;
}

enum class Others { Keep, Drop };

/// Some of the documents of a batch.
class PartOfBatch final : public StoreBatch {
public:
    PartOfBatch(const StoreBatch& whole, std::vector<std::size_t> entries)
        : whole_(whole), entries_(std::move(entries)) {}
    std::size_t size() const override { return entries_.size(); }
    std::string_view key(std::size_t entry) const override { return whole_.key(entries_[entry]); }
    Document value(std::size_t entry) const override { return whole_.value(entries_[entry]); }

private:
    const StoreBatch& whole_;
    const std::vector<std::size_t> entries_;
};

template <class Record>
struct Unsaved {
    std::map<std::uint64_t, boost::shared_ptr<Record>> records;
    std::string reason;
};

/// Writes the batch of the records, all in one step, in which the database's other documents are kept or dropped.
/// Nothing when they are stored; else those that are not: the ones that are too large for a document, or all of them,
/// which may be none, when the write fails.
template <class Record>
std::optional<Unsaved<Record>> saveApart(const std::string& db, const DocumentBatch<Record>& batch,
                                         const std::map<std::uint64_t, boost::shared_ptr<Record>>& records,
                                         Others rest) {
    const auto save = [&](const StoreBatch& part) {
        return rest == Others::Drop ? store().replace(db, part) : store().write(db, part);
    };
    const bool nothingToDo = rest == Others::Keep && records.empty();
    if (nothingToDo || save(batch)) {
        return std::nullopt;
    }
    Unsaved<Record> unsaved{{}, store().lastFailure()};
    std::vector<std::size_t> fitting;
    for (std::size_t entry = 0; entry < batch.size(); ++entry) {
        if (isNone(batch.value(entry))) {
            const std::uint64_t key = documentKey(batch.key(entry));
            unsaved.records.emplace(key, records.at(key));
        } else {
            fitting.push_back(entry);
        }
    }
    if (unsaved.records.empty() || !save(PartOfBatch(batch, std::move(fitting)))) {
        unsaved.records = records;
    }
    return unsaved;
}

/// Writes a catalogue's records and makes them what memory knows of it: keys, records that could not be written, cache.
/// All of it while no other load of the catalogue writes: of two at once the one that writes last has its way in the
/// store and in memory.
template <class Record>
void replaceCatalogue(const std::string& db, const char* name, Others rest,
                      const std::map<std::uint64_t, boost::shared_ptr<Record>>& records, SharedDatabases& databases,
                      Guarded<StoredCatalogue<Record>>& catalogue, RecordCache<Record>& cache,
                      Guarded<LoadLedger>& loads) {
    StoredCatalogue<Record> fresh;  // then what it replaced, destroyed after the locks
    fresh.keys = keysOf(records);
    const DocumentBatch batch(records);
    std::optional<std::string> failure;
    {
        const DatabaseWriting writing(databases, db);
        store().open(db);
        if (auto unsaved = saveApart(db, batch, records, rest)) {
            failure = std::move(unsaved->reason);
            fresh.unsaved = std::move(unsaved->records);
            fresh.isBehind = rest == Others::Drop;
        }
        std::swap(*catalogue.write(), fresh);
        // After the write: a reader that met an old document meanwhile has its copy replaced.
        cache.refresh(records);
    }
    if (failure) {
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, name));
        loads.write()->noteFailedWrite(db, *failure);
    }
}

/// The record of a key: cached, else not written to the store, else stored there.
template <class Record>
boost::shared_ptr<Record> readThrough(RecordCache<Record>& cache, const Guarded<StoredCatalogue<Record>>& catalogue,
                                      const std::string& db, std::uint64_t key) {
    if (boost::shared_ptr<Record> cached = cache.find(key)) {
        return cached;
    }
    const std::uint64_t generation = cache.generation();
    boost::shared_ptr<Record> record = unsavedRecord(catalogue, key);
    if (!record) {
        record = readOwnRecord<Record>(db, key);
    }
    if (record) {
        cache.insert(key, record, generation);
    }
    return record;
}

}  // namespace

void CClientInstrumentCenter::initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    doInitEtfs(etfs);
}

void CClientInstrumentCenter::doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) {
    const std::string db = DBBuilder::buildDbName(kAllEtfs);
    store().open(db);
    std::map<std::uint64_t, boost::shared_ptr<CETFDetail>> etfByKey;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(kEtfInstruments)];
    std::size_t received = 0;
    for (const auto& etf : etfs) {
        if (etf) {
            fillComponentNames(*this, *etf);
            // Assigned: of two funds with one key the last stays, as the later document would have in the store.
            etfByKey[etfKey(*etf)] = etf;
            etfByKey[creationKey(*etf)] = etf;
            addEtfInstrument(*etf, instruments);
            ++received;
        }
    }
    std::set<std::uint64_t> keys = keysOf(etfByKey);
    if (auto unsaved = saveApart(db, DocumentBatch(etfByKey), etfByKey, Others::Keep)) {
        PM_CENTER_LOG(kLogError, kClientSource, formatted(kSaveFailed, kEtfInstruments));
        state().loads.write()->noteFailedWrite(db, unsaved->reason);
        // Records that an earlier load could not write are kept until a later one fails: deliberate.
        std::swap(client_->etfs.write()->unsaved, unsaved->records);
    }
    std::swap(client_->etfs.write()->keys, keys);
    replaceMarket(kEtfInstruments, grouped, received);
    client_->names.updateDbName(kAllEtfs, db);
}

void CClientInstrumentCenter::replaceMarket(
    const std::string& market, std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped,
    std::size_t received) {
    ClientLoad load(*client_);
    forgetMarkets({market}, load);
    load.notes.receive({{marketKey(market), received}});
    writeMarkets(grouped, market, load);
}

bool CClientInstrumentCenter::hasEtf(const std::string& code) {
    return client_->etfs.read()->keys.count(textKey(code)) != 0;
}

boost::shared_ptr<CETFDetail> CClientInstrumentCenter::getEtf(const std::string& code) {
    const std::uint64_t key = textKey(code);
    if (client_->etfs.read()->keys.count(key) == 0) {
        return nullptr;
    }
    if (boost::shared_ptr<CETFDetail> unsaved = unsavedRecord(client_->etfs, key)) {
        return unsaved;
    }
    // A known key whose document is lost answers a record of defaults: deliberate.
    const auto stored = readOwnRecord(DBBuilder::buildDbName(kAllEtfs), key, knownRecordOf<CETFDetail>);
    return stored ? stored : boost::make_shared<CETFDetail>();
}

boost::shared_ptr<CETFDetail> CClientInstrumentCenter::getEtf(const std::string& market, const std::string& code) {
    return getEtf(utils::ovStockKey(market, code));
}

std::map<std::string, boost::shared_ptr<CETFDetail>> CClientInstrumentCenter::getEtfs() {
    std::map<std::string, boost::shared_ptr<CETFDetail>> etfs;
    const auto unsaved = client_->etfs.read()->unsaved;
    for (const auto& [key, etf] : unsaved) {
        etfs[keyTextOf(*etf)] = etf;
    }
    for (auto& etf : readRecords(client_->names.getDbName(kAllEtfs), knownRecordOf<CETFDetail>)) {
        etfs.emplace(keyTextOf(*etf), std::move(etf));
    }
    return etfs;
}

void CClientInstrumentCenter::initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    doInitBonds(bonds);
}

void CClientInstrumentCenter::doInitBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) {
    const std::string db = DBBuilder::buildDbName(kBankBonds);
    std::map<std::string, std::string> interbankCodes;
    std::map<std::uint64_t, boost::shared_ptr<CBondInfoDetail>> bondByKey;
    GroupedSnapshot grouped;
    MarketRecords& instruments = grouped[marketKey(market::kInterbank)];
    std::size_t received = 0;
    for (const auto& [code, bond] : bonds) {
        if (!bond) {
            continue;
        }
        for (const auto& [market, listing] :
             {std::pair(market::kShanghai, &bond->shanghaiCode), std::pair(market::kShenzhen, &bond->shenzhenCode)}) {
            if (!listing->empty()) {
                interbankCodes[utils::ovStockKey(market, *listing)] = bond->bondCode;
            }
        }
        bondByKey[bondKey(*bond)] = bond;
        addBondInstrument(*bond, instruments);
        ++received;
    }
    replaceCatalogue(db, kBankBonds, Others::Keep, bondByKey, client_->databases, client_->bondCatalogue,
                     client_->bonds, state().loads);
    std::swap(*client_->interbankCodes.write(), interbankCodes);
    replaceMarket(market::kInterbank, grouped, received);
    client_->names.updateDbName(kBankBonds, db);
}

boost::shared_ptr<CBondInfoDetail> CClientInstrumentCenter::getBond(uint64 key) {
    return readThrough(client_->bonds, client_->bondCatalogue, client_->names.getDbName(kBankBonds), key);
}

boost::shared_ptr<CBondInfoDetail> CClientInstrumentCenter::getBond(const std::string& code) {
    return getBond(textKey(code));
}

std::map<std::string, boost::shared_ptr<CBondInfoDetail>> CClientInstrumentCenter::getBonds() {
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    const auto unsaved = client_->bondCatalogue.read()->unsaved;
    for (const auto& [key, bond] : unsaved) {
        bonds[bond->bondCode] = bond;
    }
    for (auto& bond : readRecords<CBondInfoDetail>(client_->names.getDbName(kBankBonds))) {
        bonds.emplace(bond->bondCode, std::move(bond));
    }
    return bonds;
}

std::string CClientInstrumentCenter::getInterbankCode(const std::string& code) {
    const auto codes = client_->interbankCodes.read();
    const auto found = codes->find(code);
    return found == codes->end() ? std::string() : found->second;
}

void CClientInstrumentCenter::initCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    doInitCounterpartys(counterparties);
}

void CClientInstrumentCenter::doInitCounterpartys(
    const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) {
    auto copy = counterparties;
    std::swap(*client_->counterparties.write(), copy);
}

void CClientInstrumentCenter::updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& counterparty) {
    if (counterparty) {
        const Change change = counterparty->removed != 0 ? Change::Remove : Change::Put;
        const std::string key = counterparty->getKey();
        const auto former = applyChange(change, key, counterparty, *client_->counterparties.write());
    }
}

boost::shared_ptr<CCounterpartyDetail> CClientInstrumentCenter::getCounterparty(const std::string& id) {
    return recordIn(*client_->counterparties.read(), id);
}

std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> CClientInstrumentCenter::getCounterpartys() {
    return client_->counterparties.copy();
}

void CClientInstrumentCenter::initTenderBondInfos(
    const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) {
    auto copy = tenderBonds;
    std::swap(*client_->tenderBonds.write(), copy);
}

void CClientInstrumentCenter::updateTenderBondInfos(
    const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& /*tenderBonds*/) {
    // Deliberately nothing: client processes reload their tender bonds.
}

bool CClientInstrumentCenter::hasTenderBond(const std::string& code) {
    return client_->tenderBonds.read()->count(code) != 0;
}

boost::shared_ptr<CTenderBondInfoDetail> CClientInstrumentCenter::getTenderBondInfo(const std::string& code) {
    return recordIn(*client_->tenderBonds.read(), code);
}

std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> CClientInstrumentCenter::getTrenderBondInfos() {
    return client_->tenderBonds.copy();
}

void CClientInstrumentCenter::initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    doInitOtcInstruments(plans);
}

void CClientInstrumentCenter::doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) {
    const std::string db = DBBuilder::buildDbName(kOtcInstruments);
    std::map<std::uint64_t, boost::shared_ptr<COTCFundPlanInfo>> planByKey;
    for (const auto& plan : plans) {
        if (plan) {
            planByKey.emplace(stockKey(plan->market, plan->code), plan);
        }
    }
    replaceCatalogue(db, kOtcInstruments, Others::Drop, planByKey, client_->databases, client_->otc, client_->plans,
                     state().loads);
    client_->names.updateDbName(kOtcInstruments, db);
}

void CClientInstrumentCenter::updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& /*plans*/) {
    // Deliberately nothing: client processes reload their plans.
}

bool CClientInstrumentCenter::hasOtc(const std::string& code) {
    return client_->otc.read()->keys.count(textKey(code)) != 0;
}

void CClientInstrumentCenter::getOtcInstruments(int /*group*/,
                                                std::vector<boost::shared_ptr<COTCFundPlanInfo>>& /*out*/) {
    // Deliberately nothing: this center does not group plans.
}

std::map<std::string, boost::shared_ptr<CInstrumentDetail>> CClientInstrumentCenter::getOtcInstruments() {
    InstrumentMap plans;
    const StoredCatalogue<COTCFundPlanInfo> catalogue = client_->otc.copy();
    for (const auto& [key, plan] : catalogue.unsaved) {
        plans.emplace(keyTextOf(*plan), plan);
    }
    std::vector<InstrumentPtr> stored = readRecords<CInstrumentDetail>(client_->names.getDbName(kOtcInstruments));
    if (catalogue.isBehind) {  // documents that the load could not replace are no plans of today
        std::erase_if(stored, [&](const InstrumentPtr& plan) {
            return catalogue.keys.count(stockKey(plan->market, plan->code)) == 0;
        });
    }
    addByKeyText(stored, plans);
    return plans;
}

boost::shared_ptr<COTCFundPlanInfo> CClientInstrumentCenter::getOtcInstrument(const std::string& code) {
    if (client_->otc.read()->keys.count(textKey(code)) == 0) {
        return nullptr;  // also for a plan that is no more and still cached
    }
    return readThrough(client_->plans, client_->otc, client_->names.getDbName(kOtcInstruments), textKey(code));
}

void CClientInstrumentCenter::initIssuanceInfos(
    const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    auto fresh = byOwnKey(issuances);
    std::swap(client_->issuance.write()->issuances, fresh);
}

void CClientInstrumentCenter::updateIssuanceInfos(
    int operation, const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) {
    const Change change = changeOf(operation);
    if (change == Change::None) {
        return;
    }
    for (const auto& issuance : issuances) {
        if (issuance) {
            const std::string key = issuance->getKey();
            const auto former = applyChange(change, key, issuance, client_->issuance.write()->issuances);
        }
    }
}

bool CClientInstrumentCenter::hasIssuance(const std::string& code) {
    return client_->issuance.read()->issuances.count(code) != 0;
}

boost::shared_ptr<COTCSecuritiesIssuanceInfo> CClientInstrumentCenter::getIssuanceInfo(const std::string& code) {
    return recordIn(client_->issuance.read()->issuances, code);
}

std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> CClientInstrumentCenter::getIssuanceInfos() {
    return client_->issuance.read()->issuances;
}

void CClientInstrumentCenter::initIssuancePriceInfos(
    const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings) {
    auto copy = settings;
    std::swap(client_->issuance.write()->priceSettings, copy);
}

void CClientInstrumentCenter::updateIssuancePriceInfo(int operation,
                                                      const boost::shared_ptr<COTCStockEnquiryPriceSetting>& setting) {
    if (!setting) {
        return;
    }
    const std::string key = setting->getKey();
    switch (changeOf(operation)) {
        case Change::Put: {
            const auto former = applyChange(Change::Put, key, setting, client_->issuance.write()->priceSettings);
            break;
        }
        case Change::Remove: {
            // Deliberately the issuance record of that key goes, and the price setting stays.
            const auto former = client_->issuance.write()->issuances.extract(key);
            break;
        }
        case Change::None:
            break;
    }
}

boost::shared_ptr<COTCStockEnquiryPriceSetting> CClientInstrumentCenter::getIssuancePriceInfo(const std::string& code) {
    return recordIn(client_->issuance.read()->priceSettings, code);
}

std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>
CClientInstrumentCenter::getIssuancePriceInfos() {
    return client_->issuance.read()->priceSettings;
}

}  // namespace mxservice
