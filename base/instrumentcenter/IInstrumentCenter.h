#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/Export.h"
#include "base/instrumentcenter/vocabulary/TraderType.h"
#include "platform/record/Records.h"

namespace mxservice {

using uint64 = std::uint64_t;

struct InterfaceState;

/// The catalogue of tradable instruments: a host hands it the day's snapshots and asks it questions.
///
/// Keys. A stock key text is a market name directly followed by a code ("SH600000"); its 64-bit key is utils::hash of
/// that text. Unless an operation says otherwise, `code` and `key` arguments are stock key texts. "HGT" and "SGT" are
/// other names for what the connect markets reach in Hong Kong; lookups fold them onto "HK".
///
/// Absence is a value: an empty pointer, an empty text, an empty container or false. Nothing throws for missing data.
///
/// Threads. Every operation may be called from any thread at any time. Loads and updates run on the caller's thread
/// and return when what they brought can be seen. Lookups wait for no load; those of the persisted one may wait for
/// the store and, for some nanoseconds, for another thread in the same part of the record cache.
///
/// Ownership. Records are shared with the host, never copied (one exception, getInstrument of the persisted center for
/// connect keys). A host must not change a record that it has handed in or received. Result containers are the
/// caller's own. A load itself writes two fields of the records it is given: the market of "SHFI" records and connect
/// flags that are still 0; the persisted center also fills empty component names of ETFs. A connect part that the
/// in-memory center keeps may have its flags written when a later part arrives. So a host hands the same record objects
/// in again only while nobody reads those fields.
///
/// A center is destroyed through its own class, never through this one: no destructor here is virtual. No operation
/// may run any more when the destructor begins.
///
/// The virtual operations stand in the order of their slots, which callers compiled elsewhere rely on. The Microsoft
/// compiler gives the overloads of one name their slots last first: for it they are declared in reverse, so that a
/// slot's number is the same everywhere.
class PM_CENTER_API IInstrumentCenter {
public:
    /// @name Loads
    /// Each replaces what its catalogue held, instruments by market; the others stay. Empty pointers in vectors are
    /// skipped; maps of counterparties, tender bonds and price settings should hold none, since some are kept as they
    /// are. A load answers nothing: what became of instruments is in the center's statistics(), failed writes are in
    /// the log.
    /// I/O: none in the in-memory center. In the persisted one instruments, ETFs, bonds and OTC plans are written to
    /// the store, flushed to disk before the call returns; the rest stays in memory. Cost: with the number of records;
    /// docs/persistence.md has numbers for the store.
    /// @{

    /// Loads the snapshot of instrument records of `markets`. Markets that the records name are replaced; others stay,
    /// but the persisted center empties those of `markets` without a record. In the in-memory center the keys that a
    /// market's new records lack leave its lists and still answer getInstrument and hasCode. Of two records with one
    /// key the later counts, but of two plain ones of "HK" the first, a connect listing before a plain one, and "SH"
    /// before "SHFI", of which the first counts. The derived catalogues are
    /// rebuilt. In the in-memory center a call for exactly one of "HGT", "SGT" or "HK" only keeps the records; Hong
    /// Kong is indexed once both connect markets have arrived, and of one code's records the last in the order "HGT",
    /// "SGT", "HK" counts there. Loads may run at the same time when they are of different families: Hong Kong with its
    /// connect markets is one, "SH" with "SHFI", "SZ" and "BJ" another, every other market its own.
    virtual void initInstruments(const std::vector<std::string>& markets,
                                 const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) = 0;
    /// Loads the funds, and files the instruments that stand for their creation and redemption under "ETFINSTS". Of two
    /// funds with one key the first stays in the in-memory center, the last in the persisted one, where getEtfs also
    /// lists the funds of earlier loads. Funds that the persisted center could not write answer from memory, and go on
    /// to, ahead of what later loads write, until another load fails.
    virtual void initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) = 0;
    /// Loads the interbank bonds, by bond code, and files the instruments that stand for them under "BANK". Of two with
    /// one bond code the first in the map's order stays in the in-memory center, the last in the persisted one, where
    /// getBond and getBonds also answer with the bonds of earlier loads.
    virtual void initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) = 0;
    /// Loads the counterparties, by the map's keys, their ids.
    virtual void initCounterpartys(
        const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) = 0;
    /// Loads the OTC fund plans, by market and code; of two with one key the first stays.
    virtual void initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) = 0;
    /// Loads the OTC issuance records, by code; of two with one code the later stays.
    virtual void initIssuanceInfos(const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) = 0;
    /// Loads the price settings of OTC issuances, by the map's keys, the codes of the issuances. The in-memory center
    /// keeps none and does nothing.
    virtual void initIssuancePriceInfos(
        const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings) = 0;
    /// Loads the tender bonds, by the map's keys, their codes.
    virtual void initTenderBondInfos(
        const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) = 0;
    /// @}

    /// @name Changes
    /// Readers see a batch whole or not at all. Empty pointers are skipped; removing what is not there changes nothing.
    /// No I/O in either center. Cost: a copy of the table a call, about a millisecond for 20,000 entries, so changes
    /// that come together are best handed in together.
    /// @{

    /// Inserts or replaces each plan. The persisted center does nothing.
    virtual void updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) = 0;
    /// `operation` 0 or 2 inserts or replaces each record, 3 removes it, any other value does nothing.
    virtual void updateIssuanceInfos(int operation,
                                     const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) = 0;
    /// `operation` as above, except that the persisted center's 3 deliberately removes the issuance record of that key
    /// and leaves the price setting. The in-memory center does nothing.
    virtual void updateIssuancePriceInfo(int operation,
                                         const boost::shared_ptr<COTCStockEnquiryPriceSetting>& setting) = 0;
    /// Inserts or replaces each. The persisted center does nothing.
    virtual void updateTenderBondInfos(const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) = 0;
    /// Inserts, replaces or, with the record's removal flag set, removes one. The in-memory center does nothing.
    virtual void updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& counterparty) = 0;
    /// @}

    /// @name What a key is
    /// False for a key that is not known. No I/O in either center. Cost: one hash of the text and one probe of an index
    /// in memory; no allocation. hasIssuance, and in the persisted
    /// center hasEtf, hasOtc and hasTenderBond, search an ordered table instead.
    /// @{

    /// The key exists in any market; folds "HGT" and "SGT".
    virtual bool hasCode(const std::string& code) = 0;
    /// In "SH", "SZ" or "BJ".
    virtual bool hasStock(const std::string& code) = 0;
    /// In one of the six futures exchanges.
    virtual bool hasFuture(const std::string& code) = 0;
    /// In-memory center: filed under "HGT", folding that prefix only; connect listings are filed under "HK", so its
    /// answer is no. Persisted center: filed under "HK", folding both prefixes.
    virtual bool hasHkstock(const std::string& code) = 0;
    /// Filed under "HK"; folds "SGT" but deliberately not "HGT".
    virtual bool hasSkstock(const std::string& code) = 0;
    /// In "SHO" or "SZO".
    virtual bool hasOption(const std::string& code) = 0;
    /// Deliberately the same answer as hasFuture.
    virtual bool hasFutureOption(const std::string& code) = 0;
    /// In "NEEQ".
    virtual bool hasNeeq(const std::string& code) = 0;
    /// In "SHGE".
    virtual bool hasGold(const std::string& code) = 0;
    /// By either of the fund's keys: market and ETF code, or market and creation/redemption code.
    virtual bool hasEtf(const std::string& code) = 0;
    /// In "BANK".
    virtual bool hasBond(const std::string& code) = 0;
    /// An OTC fund plan, by market and code.
    virtual bool hasOtc(const std::string& code) = 0;
    /// By the issuance code itself.
    virtual bool hasIssuance(const std::string& code) = 0;
    /// By the tender bond's code itself.
    virtual bool hasTenderBond(const std::string& code) = 0;
    /// In "WP".
    virtual bool hasOuterFuture(const std::string& code) = 0;
    /// hasNyseStock or hasNasdaqStock, asked through their slots.
    virtual bool hasOuterStock(const std::string& code) = 0;
    /// @}

    /// @name One instrument
    /// An empty pointer for a key that is not known, and in the persisted center for a known one whose document is lost
    /// or damaged (which is logged). The record stays valid, and as it is, for as long as the caller holds the pointer,
    /// whatever is loaded meanwhile. In-memory center: no I/O; one hash and one probe, two cache lines. Persisted
    /// center: an unknown key costs one probe; a cached record one mutex; any other one is read from the store's mapped
    /// file, which may wait for the disk, and enters the cache.
    /// @{

#ifndef _MSC_VER
    /// By 64-bit stock key.
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(uint64 key) = 0;
    /// By stock key text; folds "HGT" and "SGT". The persisted center answers a connect key with a fresh copy whose
    /// market is the connect market asked for, where the record's own differs.
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& code) = 0;
    /// By market and code; folds a market "HGT" or "SGT".
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& market, const std::string& code) = 0;
#else
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& market, const std::string& code) = 0;
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& code) = 0;
    virtual boost::shared_ptr<CInstrumentDetail> getInstrument(uint64 key) = 0;
#endif
    /// @}

    /// @name Many instruments
    /// Keyed by the stock key text made of each record's own market and code; a connect listing stands under its
    /// connect market. What `out` holds already stays; of two records with one key text the first stays. An unknown
    /// market adds nothing. In-memory center: no I/O; a probe and a map entry for each record. Persisted center: reads
    /// every document of the markets concerned from the store, each into a new record, past the record cache; a
    /// database that cannot be read is logged and adds nothing. Cost: with the number of records; not for every tick.
    ///
    /// Markets that are written out are named as a list, `getInstruments(std::list<std::string>{"SH", "SZ"})`: one or
    /// two literals in braces alone could be a text as well, which compilers refuse as ambiguous.
    /// @{

#ifndef _MSC_VER
    /// Appends one market's records in the order of their key texts.
    virtual void getInstruments(const std::string& market, std::list<boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    /// Adds the records of several markets.
    virtual void getInstruments(const std::list<std::string>& markets,
                                std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    /// Adds the records of a trader type's exchanges; type 2 without futures options, type 1024 nothing but those; a
    /// few types stand for everything. An unknown type gives nothing.
    virtual void getInstruments(EOvTraderType type,
                                std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    /// Adds every record there is.
    virtual void getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    /// The records of several markets.
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(
        const std::list<std::string>& markets) = 0;
    /// One market's records; "HGT" and "SGT" mean "HK".
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(const std::string& market) = 0;
    /// The records of a trader type, as above.
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(EOvTraderType type) = 0;
    /// Every record there is.
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments() = 0;
#else
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments() = 0;
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(EOvTraderType type) = 0;
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(const std::string& market) = 0;
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(
        const std::list<std::string>& markets) = 0;
    virtual void getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    virtual void getInstruments(EOvTraderType type,
                                std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    virtual void getInstruments(const std::list<std::string>& markets,
                                std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) = 0;
    virtual void getInstruments(const std::string& market, std::list<boost::shared_ptr<CInstrumentDetail>>& out) = 0;
#endif
    /// @}

    /// @name Futures
    /// An empty container or text for a market, product or instrument that is not known. In-memory center: no I/O; one
    /// probe a contract. Persisted center: main contracts of a market and contracts of a product are one sweep of a
    /// field in the store; getProductMainInstruments and getProductId go the way of getInstrument; spreads and names
    /// come from memory.
    /// @{

    /// The main contracts of a futures exchange by stock key text.
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getFutureMainInstruments(
        const std::string& market) = 0;
    /// The main contracts by product id; every product that ever had one is listed. Order within a list is not fixed.
    virtual std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>> getProductMainInstruments() = 0;
    /// The contracts of a product id; the in-memory center's table stays empty.
    virtual std::list<boost::shared_ptr<CInstrumentDetail>> getProductInstruments(const std::string& productId) = 0;
    /// The product id of the record that getInstrument(market, code) answers.
    virtual std::string getProductId(const std::string& market, const std::string& code) = 0;
    /// The display name of a product id; the table stays empty in both centers.
    virtual std::string getProductName(const std::string& productId) = 0;
    /// The legs of the Dalian inter-commodity spreads ("SPC a2101&m2101" gives "a2101" and "m2101").
    virtual std::vector<std::pair<std::string, std::string>> getDceCrossProduct() = 0;
    /// The legs of the Dalian inter-period spreads ("SP a2101&a2105" gives "a2101" and "a2105").
    virtual std::vector<std::pair<std::string, std::string>> getDceCrossPeriod() = 0;
    /// @}

    /// @name ETFs, bonds, counterparties, tender bonds
    /// An empty pointer, text or container on a miss. In-memory center: no I/O. Persisted center: an unknown fund costs
    /// one search; a known one is read from the store each time, without a cache; a bond comes from the bond cache or
    /// the store, also for an unknown key; getEtfs and getBonds read their whole database. Counterparties, tender bonds
    /// and interbank codes are in memory in both, in ordered tables.
    /// @{

#ifndef _MSC_VER
    /// By either of the fund's keys. A known fund whose document is lost answers a record of defaults in the persisted
    /// center.
    virtual boost::shared_ptr<CETFDetail> getEtf(const std::string& code) = 0;
    /// By market and either code; asks getEtf(code) through its slot.
    virtual boost::shared_ptr<CETFDetail> getEtf(const std::string& market, const std::string& code) = 0;
#else
    virtual boost::shared_ptr<CETFDetail> getEtf(const std::string& market, const std::string& code) = 0;
    virtual boost::shared_ptr<CETFDetail> getEtf(const std::string& code) = 0;
#endif
    /// Every fund once, keyed by market and ETF code.
    virtual std::map<std::string, boost::shared_ptr<CETFDetail>> getEtfs() = 0;
#ifndef _MSC_VER
    /// By the 64-bit key of "BANK" and bond code.
    virtual boost::shared_ptr<CBondInfoDetail> getBond(uint64 key) = 0;
    /// By the stock key text of "BANK" and bond code.
    virtual boost::shared_ptr<CBondInfoDetail> getBond(const std::string& code) = 0;
#else
    virtual boost::shared_ptr<CBondInfoDetail> getBond(const std::string& code) = 0;
    virtual boost::shared_ptr<CBondInfoDetail> getBond(uint64 key) = 0;
#endif
    /// Keyed by bond code.
    virtual std::map<std::string, boost::shared_ptr<CBondInfoDetail>> getBonds() = 0;
    /// By counterparty id.
    virtual boost::shared_ptr<CCounterpartyDetail> getCounterparty(const std::string& id) = 0;
    /// All of them, keyed by id.
    virtual std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> getCounterpartys() = 0;
    /// The interbank bond code of an "SH" or "SZ" listing; always empty in the in-memory center.
    virtual std::string getInterbankCode(const std::string& code) = 0;
    /// @}

    /// @name OTC plans, issuances, tender bonds
    /// An empty pointer or container on a miss. In-memory center: no I/O. Persisted center: a plan comes from the plan
    /// cache or the store, an unknown one costs one search; getOtcInstruments() reads the whole database of plans;
    /// issuances, price settings and tender bonds are in memory in both.
    /// @{

#ifndef _MSC_VER
    /// Appends the plans of a group, -1 for all. The persisted center leaves `out` as it is.
    virtual void getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) = 0;
    /// Every plan as an instrument, by stock key text.
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getOtcInstruments() = 0;
#else
    virtual std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getOtcInstruments() = 0;
    virtual void getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) = 0;
#endif
    /// By the stock key text of the plan.
    virtual boost::shared_ptr<COTCFundPlanInfo> getOtcInstrument(const std::string& code) = 0;
    /// All of them, keyed by code.
    virtual std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> getIssuanceInfos() = 0;
    /// By the issuance code itself.
    virtual boost::shared_ptr<COTCSecuritiesIssuanceInfo> getIssuanceInfo(const std::string& code) = 0;
    /// All of them, keyed by code. Always empty in the in-memory center, as the next one.
    virtual std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>> getIssuancePriceInfos() = 0;
    /// By the code of its issuance.
    virtual boost::shared_ptr<COTCStockEnquiryPriceSetting> getIssuancePriceInfo(const std::string& code) = 0;
    /// All tender bonds, keyed by code; in the persisted center by the keys they were loaded with.
    virtual std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> getTrenderBondInfos() = 0;
    /// By the tender bond's code itself.
    virtual boost::shared_ptr<CTenderBondInfoDetail> getTenderBondInfo(const std::string& code) = 0;
    /// @}

    /// @name Outer (foreign) futures markets
    /// An empty text or container, or false, on a miss and always in the in-memory center. In the persisted one any
    /// load of instruments, also one without "WP", replaces what these markets list and which group a product is of;
    /// names are added to and stay. No I/O; one search in an ordered table.
    /// @{

    /// The display name of a product id.
    virtual std::string getOutterProductName(const std::string& productId) = 0;
    /// Product id to product name.
    virtual std::map<std::string, std::string> getOutterProduct() = 0;
    /// The display name of an outer market key.
    virtual std::string getOutterMarketName(const std::string& market) = 0;
    /// Outer market key to display name.
    virtual std::map<std::string, std::string> getOutterMarket() = 0;
    /// Outer market key to its product ids.
    virtual std::map<std::string, std::set<std::string>> getMarketProductList() = 0;

    /// Whether the product id is of the commodity group; false in the in-memory center.
    virtual bool isCommodityProduct(const std::string& productId);
    /// Whether the product id is of the interest-rate group; false in the in-memory center.
    virtual bool isInterestProduct(const std::string& productId);
    /// @}

    /// Removes the catalogue databases, which are the directories beneath `path` with "OvIns" in their names, from
    /// disk; raw ones stay, and what cannot be removed is logged. Nothing in the in-memory center. To be called while
    /// no center uses the store, from any one thread. `path` is UTF-8. Throws boost::filesystem::filesystem_error when
    /// it cannot be read.
    virtual void clearPersist(const std::string& path);

    /// @name Code sets of today
    /// Rebuilt by loads; never half-built. Empty or false on a miss. No I/O in either center. The sets are copies, at
    /// the cost of their size; the other two search an ordered table.
    /// @{

    /// Today's new issues of all markets, as market directly followed by code ("SH730001").
    std::set<std::string> getStockIpoCodes() const;
    /// Depositary receipts and innovative enterprises, in the same form.
    std::set<std::string> getStockCdrCodes() const;
    /// Inquiry codes of "NEEQ", in the same form.
    std::set<std::string> getNeeqInquiryCodes() const;
    /// Whether stock options of the exchange `market` ("SH" or "SZ") have `code` as their underlying. The code is
    /// taken as it stands, without market.
    bool isStkOptionUndlCode(const std::string& market, const std::string& code) const;
    /// The platform code of an instrument code where the persisted center's load noted one; else `code` itself.
    std::string getLumoCode(const std::string& code) const;
    /// @}

    IInstrumentCenter(const IInstrumentCenter&) = delete;
    IInstrumentCenter& operator=(const IInstrumentCenter&) = delete;

protected:
    IInstrumentCenter();
    ~IInstrumentCenter();

    /// @name Filling the code sets
    /// For a host's own implementation of this interface; the two centers fill them from their loads. Each replaces one
    /// set whole, in one step for readers; from any thread.
    /// @{

    /// The new issues of one market, as market directly followed by code ("SH730001").
    void setStockIpoCodes(const std::string& market, std::set<std::string> codes);
    /// The depositary receipts and innovative enterprises of one market, in the same form.
    void setStockCdrCodes(const std::string& market, std::set<std::string> codes);
    /// The inquiry codes of "NEEQ", in the same form.
    void setNeeqInquiryCodes(std::set<std::string> codes);
    /// The codes, without market, that underlie stock options of the exchange `market` ("SH" or "SZ").
    void setStkOptionUndlCodes(const std::string& market, const std::set<std::string>& codes);
    /// The platform codes by instrument code, of all markets together.
    void setLumoCodes(std::map<std::string, std::string> platformCodeByCode);
    /// @}

    /// For the two centers: code sets, translation table and connect snapshots. Of no use to others, the type is
    /// nowhere installed. Protected, because with the centers as friends compilers would take the destructor for
    /// public.
    InterfaceState& state() const {
        return *state_;
    }

private:
    std::unique_ptr<InterfaceState> state_;
};

}  // namespace mxservice
