#include "base/instrumentcenter/InstrumentView.h"

#include <algorithm>
#include <array>

#include "base/instrumentcenter/ServerState.h"
#include "base/instrumentcenter/catalogue/InstrumentMap.h"
#include "base/instrumentcenter/catalogue/PseudoInstruments.h"
#include "base/instrumentcenter/catalogue/Questions.h"
#include "base/instrumentcenter/vocabulary/Exchanges.h"

// Everything is read from the version that the view holds: no lock, no mark, and no check whether it is the newest.
// What answers a list builds it from whole tables; there is nothing that could change beneath it.

namespace mxservice {
namespace {

constexpr int kAllGroups = -1;

template <class Question>
bool isOne(const ServerVersion& version, const std::string& keyText) {
    return isAmong(version.keys.marketOf(Question::keyOf(keyText)), Question::markets());
}

}  // namespace

std::uint64_t InstrumentView::version() const {
    return version_->number;
}

const CInstrumentDetail* InstrumentView::find(uint64 key) const {
    // The pointer needs no reference of its own: the version has one for as long as a copy of this view lives.
    const InstrumentPtr* const record = version_->records.find(key);
    return record == nullptr ? nullptr : record->get();
}

const CInstrumentDetail* InstrumentView::find(const std::string& code) const {
    return find(foldedTextKey(code));
}

InstrumentView::Instrument InstrumentView::get(uint64 key) const {
    return version_->recordOf(key);
}

InstrumentView::Instrument InstrumentView::get(const std::string& code) const {
    return get(foldedTextKey(code));
}

std::size_t InstrumentView::resolve(const uint64* keys, std::size_t count, Instrument* out) const {
    // Searches that do not depend on each other wait for memory together, and so do the reference counts, which are
    // fetched as soon as their records are known.
    constexpr std::size_t kTogether = 32;
    std::array<const InstrumentPtr*, kTogether> records;
    std::size_t found = 0;
    for (std::size_t begin = 0; begin < count; begin += kTogether) {
        const std::size_t size = std::min(kTogether, count - begin);
        for (std::size_t i = 0; i < size; ++i) {
            prefetchCount(out[begin + i]);  // what the caller's pointer lets go of
            records[i] = version_->records.find(keys[begin + i]);
            if (records[i] != nullptr) {
                prefetchCount(*records[i]);
            }
        }
        for (std::size_t i = 0; i < size; ++i) {
            out[begin + i] = records[i] == nullptr ? Instrument() : *records[i];
            found += out[begin + i] ? 1U : 0U;
        }
    }
    return found;
}

bool InstrumentView::hasCode(const std::string& code) const {
    return version_->keys.marketOf(foldedTextKey(code)) != nullptr;
}

bool InstrumentView::hasStock(const std::string& code) const {
    return isOne<IsStock>(*version_, code);
}

bool InstrumentView::hasFuture(const std::string& code) const {
    return isOne<IsFuture>(*version_, code);
}

bool InstrumentView::hasHkstock(const std::string& code) const {
    return isOne<IsFiledUnderShanghaiConnect>(*version_, code);
}

bool InstrumentView::hasSkstock(const std::string& code) const {
    return isOne<IsHongKongStock>(*version_, code);
}

bool InstrumentView::hasOption(const std::string& code) const {
    return isOne<IsOption>(*version_, code);
}

bool InstrumentView::hasFutureOption(const std::string& code) const {
    // Not a slip: the exchanges list both under one market, and telling them apart is left to the record.
    return isOne<IsFuture>(*version_, code);
}

bool InstrumentView::hasNeeq(const std::string& code) const {
    return isOne<IsNeeq>(*version_, code);
}

bool InstrumentView::hasGold(const std::string& code) const {
    return isOne<IsGold>(*version_, code);
}

bool InstrumentView::hasBond(const std::string& code) const {
    return isOne<IsBond>(*version_, code);
}

bool InstrumentView::hasOuterFuture(const std::string& code) const {
    return isOne<IsOuterFuture>(*version_, code);
}

bool InstrumentView::hasOuterStock(const std::string& code) const {
    return hasNyseStock(code) || hasNasdaqStock(code);
}

bool InstrumentView::hasNyseStock(const std::string& code) const {
    return isOne<IsNyseStock>(*version_, code);
}

bool InstrumentView::hasNasdaqStock(const std::string& code) const {
    return isOne<IsNasdaqStock>(*version_, code);
}

// Key texts of funds, plans and the like are taken as they stand: only listings of Hong Kong come under a connect name.

bool InstrumentView::hasEtf(const std::string& code) const {
    return version_->etfs->contains(textKey(code));
}

bool InstrumentView::hasOtc(const std::string& code) const {
    return version_->plans->byKey.contains(textKey(code));
}

bool InstrumentView::hasIssuance(const std::string& code) const {
    return version_->issuances->count(code) != 0;
}

bool InstrumentView::hasTenderBond(const std::string& code) const {
    return version_->tenderBonds->contains(textKey(code));
}

void InstrumentView::visit(const std::string& market, const std::function<void(const Instrument&)>& visitor) const {
    const std::shared_ptr<const ServerVersion> held = version_;  // the visitor may let go of this view
    const KeySet* const keys = held->keys.keysOf(marketKey(foldedMarket(market)));
    if (keys == nullptr) {
        return;
    }
    for (const StockKey key : *keys) {
        const InstrumentPtr* const record = held->records.find(key);
        if (record != nullptr && *record) {
            visitor(*record);
        }
    }
}

InstrumentView::InstrumentMap InstrumentView::getInstruments() const {
    std::vector<InstrumentPtr> records;
    records.reserve(version_->records.size());
    version_->records.visitAll([&](StockKey /*key*/, const InstrumentPtr& record) {
        if (record) {
            records.push_back(record);
        }
    });
    // By the records' own texts: a connect listing stands under "HGT" or "SGT", though it is filed under "HK".
    InstrumentMap out;
    addByKeyText(records, out);
    return out;
}

InstrumentView::InstrumentMap InstrumentView::getInstruments(const std::string& market) const {
    return getInstruments(std::list<std::string>{market});
}

InstrumentView::InstrumentMap InstrumentView::getInstruments(const std::list<std::string>& markets) const {
    InstrumentMap out;
    // Market by market: of two records with one text that of the market named first stays.
    for (const std::string& market : markets) {
        addByKeyText(version_->recordsOf(marketKey(foldedMarket(market))), out);
    }
    return out;
}

InstrumentView::InstrumentMap InstrumentView::getInstruments(EOvTraderType type) const {
    if (meansEverything(type)) {
        return getInstruments();
    }
    InstrumentMap out = getInstruments(exchangesOf(type));
    keepOnly(type, out);
    return out;
}

InstrumentView::InstrumentMap InstrumentView::getFutureMainInstruments(const std::string& market) const {
    InstrumentMap out;
    // Not folded: no futures exchange comes under a second name.
    const auto& mains = version_->futures->mainCodesByMarket;
    if (const auto found = mains.find(marketKey(market)); found != mains.end()) {
        addByKeyText(version_->resolve(found->second), out);
    }
    return out;
}

std::map<std::string, std::list<InstrumentView::Instrument>> InstrumentView::getProductMainInstruments() const {
    std::map<std::string, std::list<Instrument>> mains;
    for (const auto& [product, keys] : version_->futures->mainCodesByProduct) {
        // Also where no key has a record: a product that is known is listed, if with nothing.
        const std::vector<InstrumentPtr> records = version_->resolve(keys);
        mains[product].assign(records.begin(), records.end());
    }
    return mains;
}

std::string InstrumentView::getProductId(const std::string& market, const std::string& code) const {
    const CInstrumentDetail* const record = find(stockKey(foldedMarket(market), code));
    return record == nullptr ? std::string() : record->productId;
}

std::vector<std::pair<std::string, std::string>> InstrumentView::getDceCrossProduct() const {
    return version_->futures->spreads.crossProduct;
}

std::vector<std::pair<std::string, std::string>> InstrumentView::getDceCrossPeriod() const {
    return version_->futures->spreads.crossPeriod;
}

boost::shared_ptr<CETFDetail> InstrumentView::getEtf(const std::string& code) const {
    return in(*version_->etfs, textKey(code));
}

std::map<std::string, boost::shared_ptr<CETFDetail>> InstrumentView::getEtfs() const {
    std::map<std::string, boost::shared_ptr<CETFDetail>> etfs;
    for (const auto& [key, etf] : *version_->etfs) {  // meets each fund under both its keys
        etfs.emplace(keyTextOf(*etf), etf);
    }
    return etfs;
}

boost::shared_ptr<CBondInfoDetail> InstrumentView::getBond(uint64 key) const {
    return in(*version_->bonds, key);
}

boost::shared_ptr<CBondInfoDetail> InstrumentView::getBond(const std::string& code) const {
    return getBond(textKey(code));
}

std::map<std::string, boost::shared_ptr<CBondInfoDetail>> InstrumentView::getBonds() const {
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
    // By the bond's own code: the key of the host's map went when the bond was filed.
    for (const auto& [key, bond] : *version_->bonds) {
        bonds.emplace(bond->bondCode, bond);
    }
    return bonds;
}

boost::shared_ptr<CCounterpartyDetail> InstrumentView::getCounterparty(const std::string& id) const {
    return in(*version_->counterparties, id);
}

std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> InstrumentView::getCounterpartys() const {
    return *version_->counterparties;
}

boost::shared_ptr<COTCFundPlanInfo> InstrumentView::getOtcInstrument(const std::string& code) const {
    return in(version_->plans->byKey, textKey(code));
}

InstrumentView::InstrumentMap InstrumentView::getOtcInstruments() const {
    InstrumentMap plans;
    for (const auto& [key, plan] : version_->plans->byKey) {
        plans.emplace(keyTextOf(*plan), plan);
    }
    return plans;
}

std::vector<boost::shared_ptr<COTCFundPlanInfo>> InstrumentView::getOtcInstruments(int group) const {
    const PlanCatalogue& plans = *version_->plans;
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> members;
    if (group == kAllGroups) {
        for (const auto& [key, plan] : plans.byKey) {  // a group may have two of one key, this has one
            members.push_back(plan);
        }
    } else if (const auto found = plans.byGroup.find(group); found != plans.byGroup.end()) {
        members = found->second;
    }
    return members;
}

boost::shared_ptr<COTCSecuritiesIssuanceInfo> InstrumentView::getIssuanceInfo(const std::string& code) const {
    return in(*version_->issuances, code);
}

std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> InstrumentView::getIssuanceInfos() const {
    return *version_->issuances;
}

boost::shared_ptr<CTenderBondInfoDetail> InstrumentView::getTenderBondInfo(const std::string& code) const {
    return in(*version_->tenderBonds, textKey(code));
}

std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> InstrumentView::getTrenderBondInfos() const {
    std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> tenderBonds;
    // Two may share a code, one loaded under another key and one updated since; which of them is listed is open.
    for (const auto& [key, tenderBond] : *version_->tenderBonds) {
        tenderBonds.emplace(tenderBond->code, tenderBond);
    }
    return tenderBonds;
}

std::set<std::string> InstrumentView::getStockIpoCodes() const {
    return unionOf(version_->codeSets->ipoCodes);
}

std::set<std::string> InstrumentView::getStockCdrCodes() const {
    return unionOf(version_->codeSets->cdrCodes);
}

std::string InstrumentView::getLumoCode(const std::string& code) const {
    // None are noted by this center's loads; a host's derived class may have set some.
    const auto found = version_->lumoCodes->find(code);
    return found == version_->lumoCodes->end() ? code : found->second;
}

std::set<std::string> InstrumentView::getNeeqInquiryCodes() const {
    return version_->codeSets->neeqInquiryCodes;
}

bool InstrumentView::isStkOptionUndlCode(const std::string& market, const std::string& code) const {
    return isOptionUnderlying(*version_->codeSets, market, textKey(code));
}

}  // namespace mxservice
