#pragma once

#include <boost/shared_ptr.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/Export.h"
#include "base/instrumentcenter/IInstrumentCenter.h"

namespace mxservice {

struct ServerVersion;

/// The in-memory catalogue of one moment: everything asked of one view, and of its copies, is of the same loads,
/// whatever is loaded meanwhile. Made by CServerInstrumentCenter::view().
///
/// A view is a pointer: copying and moving cost no more than that of a std::shared_ptr. It makes nobody wait. Kept, it
/// keeps the tables and records of its moment in memory; what later loads have not changed is shared with them. It may
/// outlive its center. Who lets go of the last view of a replaced catalogue frees it, in milliseconds where it was
/// large.
///
/// Every operation answers as that of its name in the interface, for the in-memory center, and may be called from any
/// thread, of one view by many at once. Keys of any bytes, also empty ones, are misses. A moved-from view may only be
/// assigned to or destroyed.
class PM_CENTER_API InstrumentView {
public:
    using Instrument = boost::shared_ptr<CInstrumentDetail>;  ///< as handed in by the host
    using InstrumentMap = std::map<std::string, Instrument>;  ///< by stock key text

    /// Grows with every change that the center has published.
    std::uint64_t version() const;

    /// @name One instrument
    /// @{

    /// By 64-bit stock key. Null for a miss; else valid while any copy of this view lives. Counts no reference, so
    /// threads that look at one record do not slow each other.
    const CInstrumentDetail* find(uint64 key) const;
    /// By stock key text; folds "HGT" and "SGT".
    const CInstrumentDetail* find(const std::string& code) const;
    /// The same for callers that keep the record; empty for a miss.
    Instrument get(uint64 key) const;
    /// By stock key text; folds "HGT" and "SGT".
    Instrument get(const std::string& code) const;
    /// `count` keys at once, into `out`, which has as many places: a miss leaves an empty pointer. Answers how many
    /// were found. Faster than one after the other: the searches wait for memory together.
    std::size_t resolve(const uint64* keys, std::size_t count, Instrument* out) const;
    /// @}

    /// @name What a key is
    /// @{
    bool hasCode(const std::string& code) const;          ///< in any market
    bool hasStock(const std::string& code) const;         ///< "SH", "SZ", "BJ"
    bool hasFuture(const std::string& code) const;        ///< a futures exchange
    bool hasHkstock(const std::string& code) const;       ///< filed under "HGT": no for what loads file
    bool hasSkstock(const std::string& code) const;       ///< filed under "HK"
    bool hasOption(const std::string& code) const;        ///< "SHO", "SZO"
    bool hasFutureOption(const std::string& code) const;  ///< as hasFuture
    bool hasNeeq(const std::string& code) const;          ///< "NEEQ"
    bool hasGold(const std::string& code) const;          ///< "SHGE"
    bool hasBond(const std::string& code) const;          ///< "BANK"
    bool hasOuterFuture(const std::string& code) const;   ///< "WP"
    bool hasOuterStock(const std::string& code) const;    ///< "NYSE", "NASDAQ"
    bool hasNyseStock(const std::string& code) const;     ///< "NYSE"
    bool hasNasdaqStock(const std::string& code) const;   ///< "NASDAQ"
    bool hasEtf(const std::string& code) const;           ///< by either of a fund's keys
    bool hasOtc(const std::string& code) const;           ///< an OTC fund plan
    bool hasIssuance(const std::string& code) const;      ///< by the issuance code itself
    bool hasTenderBond(const std::string& code) const;    ///< by the tender bond's code itself
    /// @}

    /// @name Many instruments
    /// @{

    /// Calls `visitor` with every record that the market lists, in no fixed order and without building anything; "HGT"
    /// and "SGT" mean "HK". The visitor may do what it likes, load into the center, too.
    void visit(const std::string& market, const std::function<void(const Instrument&)>& visitor) const;
    /// Every record there is.
    InstrumentMap getInstruments() const;
    /// One market's records.
    InstrumentMap getInstruments(const std::string& market) const;
    /// The records of several markets; written out `std::list<std::string>{"SH", "SZ"}`.
    InstrumentMap getInstruments(const std::list<std::string>& markets) const;
    /// The records of a trader type.
    InstrumentMap getInstruments(EOvTraderType type) const;
    /// @}

    /// @name Contracts, chains and days
    /// Each as the operation of that name in CServerInstrumentCenter.
    /// @{
    std::vector<Instrument> getContracts(const std::string& productId) const;  ///< futures of a product
    std::vector<Instrument> getOptionChain(const std::string& underlyingMarket,
                                           const std::string& underlyingCode) const;  ///< options on something
    std::vector<Instrument> getListed(const std::string& day) const;                  ///< by listing date
    std::vector<Instrument> getExpiring(const std::string& day) const;                ///< by expiry
    std::vector<Instrument> getBondListings(const std::string& bondCode) const;       ///< instruments that are a bond
    /// @}

    /// @name Futures
    /// @{
    InstrumentMap getFutureMainInstruments(const std::string& market) const;         ///< main contracts of an exchange
    std::map<std::string, std::list<Instrument>> getProductMainInstruments() const;  ///< main contracts by product id
    std::string getProductId(const std::string& market, const std::string& code) const;  ///< of the record there
    std::vector<std::pair<std::string, std::string>> getDceCrossProduct() const;         ///< legs, inter-commodity
    std::vector<std::pair<std::string, std::string>> getDceCrossPeriod() const;          ///< legs, inter-period
    /// @}

    /// @name Other catalogues
    /// @{
    boost::shared_ptr<CETFDetail> getEtf(const std::string& code) const;                            ///< by either key
    std::map<std::string, boost::shared_ptr<CETFDetail>> getEtfs() const;                           ///< each once
    boost::shared_ptr<CBondInfoDetail> getBond(uint64 key) const;                                   ///< by bond key
    boost::shared_ptr<CBondInfoDetail> getBond(const std::string& code) const;                      ///< by key text
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> getBonds() const;                     ///< by bond code
    boost::shared_ptr<CCounterpartyDetail> getCounterparty(const std::string& id) const;            ///< by id
    std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> getCounterpartys() const;         ///< all, by id
    boost::shared_ptr<COTCFundPlanInfo> getOtcInstrument(const std::string& code) const;            ///< by key text
    InstrumentMap getOtcInstruments() const;                                                        ///< all plans
    std::vector<boost::shared_ptr<COTCFundPlanInfo>> getOtcInstruments(int group) const;            ///< -1: all
    boost::shared_ptr<COTCSecuritiesIssuanceInfo> getIssuanceInfo(const std::string& code) const;   ///< by code
    std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> getIssuanceInfos() const;  ///< all
    boost::shared_ptr<CTenderBondInfoDetail> getTenderBondInfo(const std::string& code) const;      ///< by code
    std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> getTrenderBondInfos() const;    ///< all, by code
    /// @}

    /// @name Code sets of the day
    /// @{
    std::set<std::string> getStockIpoCodes() const;                                      ///< new issues
    std::set<std::string> getStockCdrCodes() const;                                      ///< depositary receipts
    std::set<std::string> getNeeqInquiryCodes() const;                                   ///< inquiries
    std::string getLumoCode(const std::string& code) const;                              ///< the code itself
    bool isStkOptionUndlCode(const std::string& market, const std::string& code) const;  ///< underlies options
    /// @}

private:
    friend class CServerInstrumentCenter;
    explicit InstrumentView(std::shared_ptr<const ServerVersion> version) : version_(std::move(version)) {}

    std::shared_ptr<const ServerVersion> version_;
};

}  // namespace mxservice
