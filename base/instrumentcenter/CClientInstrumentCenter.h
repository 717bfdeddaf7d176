#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CatalogueChange.h"
#include "base/instrumentcenter/CenterStatistics.h"
#include "base/instrumentcenter/Export.h"
#include "base/instrumentcenter/IInstrumentCenter.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
// No destructor of the hierarchy is virtual: centers are destroyed through their own class.
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor"
#endif

namespace mxservice {

class ClientAmendment;
class ClientState;
class LoadNotes;
struct ClientLoad;
struct ClientVersion;
struct StoredProduct;

/// The center of client processes: records live in the local store (persist::CPersistService, whose root path the host
/// sets first), memory holds the keys and a bounded number of recently read records.
///
/// Threads, ownership and misses are as IInstrumentCenter says. A load writes each market's documents before its keys
/// can be found; when a write fails, the failure is logged and the market is served from memory. Records read back are
/// fresh objects: two lookups of one key may give two equal records. A load replaces the cached records of its markets.
///
/// Databases left by an earlier run are not looked into until their market is loaded; documents of codes that the new
/// load lacks are then still in them. A host that wants none of that calls clearPersist before it constructs a center.
///
/// What this center leaves out on purpose: getOtcInstruments(group, ...) and updates of OTC plans and tender bonds do
/// nothing, product names answer empty.
class PM_CENTER_API CClientInstrumentCenter : public IInstrumentCenter {
public:
    /// Fetches the network engine's strand of that name and keeps it; nothing is posted to it. The capacities are
    /// numbers of records; 0 or less caches nothing. The store is not touched before the first load.
    CClientInstrumentCenter(const std::string& strandName, int instrumentCacheSize, int bondCacheSize,
                            int otcCacheSize);
    /// Not virtual; no operation may be running any more. What is stored stays.
    ~CClientInstrumentCenter();

    void initInstruments(const std::vector<std::string>& markets,
                         const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments) override;
    void initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs) override;
    void initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds) override;
    void initCounterpartys(
        const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties) override;
    void initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) override;
    void initIssuanceInfos(const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) override;
    void initIssuancePriceInfos(
        const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings) override;
    void initTenderBondInfos(
        const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) override;
    void updateOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans) override;
    void updateIssuanceInfos(int operation,
                             const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances) override;
    void updateIssuancePriceInfo(int operation,
                                 const boost::shared_ptr<COTCStockEnquiryPriceSetting>& setting) override;
    void updateTenderBondInfos(const std::vector<boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds) override;
    void updateCounterpartyInfo(const boost::shared_ptr<CCounterpartyDetail>& counterparty) override;

    bool hasCode(const std::string& code) override;
    bool hasStock(const std::string& code) override;
    bool hasFuture(const std::string& code) override;
    bool hasHkstock(const std::string& code) override;
    bool hasSkstock(const std::string& code) override;
    bool hasOption(const std::string& code) override;
    bool hasFutureOption(const std::string& code) override;
    bool hasNeeq(const std::string& code) override;
    bool hasGold(const std::string& code) override;
    bool hasEtf(const std::string& code) override;
    bool hasBond(const std::string& code) override;
    bool hasOtc(const std::string& code) override;
    bool hasIssuance(const std::string& code) override;
    bool hasTenderBond(const std::string& code) override;
    bool hasOuterFuture(const std::string& code) override;
    bool hasOuterStock(const std::string& code) override;

    boost::shared_ptr<CInstrumentDetail> getInstrument(uint64 key) override;
    boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& code) override;
    boost::shared_ptr<CInstrumentDetail> getInstrument(const std::string& market, const std::string& code) override;
    void getInstruments(const std::string& market, std::list<boost::shared_ptr<CInstrumentDetail>>& out) override;
    void getInstruments(const std::list<std::string>& markets,
                        std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) override;
    void getInstruments(EOvTraderType type, std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) override;
    void getInstruments(std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out) override;
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(
        const std::list<std::string>& markets) override;
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(const std::string& market) override;
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments(EOvTraderType type) override;
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getInstruments() override;

    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getFutureMainInstruments(
        const std::string& market) override;
    std::map<std::string, std::list<boost::shared_ptr<CInstrumentDetail>>> getProductMainInstruments() override;
    std::list<boost::shared_ptr<CInstrumentDetail>> getProductInstruments(const std::string& productId) override;
    std::string getProductId(const std::string& market, const std::string& code) override;
    std::string getProductName(const std::string& productId) override;
    std::vector<std::pair<std::string, std::string>> getDceCrossProduct() override;
    std::vector<std::pair<std::string, std::string>> getDceCrossPeriod() override;

    boost::shared_ptr<CETFDetail> getEtf(const std::string& code) override;
    boost::shared_ptr<CETFDetail> getEtf(const std::string& market, const std::string& code) override;
    std::map<std::string, boost::shared_ptr<CETFDetail>> getEtfs() override;
    boost::shared_ptr<CBondInfoDetail> getBond(uint64 key) override;
    boost::shared_ptr<CBondInfoDetail> getBond(const std::string& code) override;
    std::map<std::string, boost::shared_ptr<CBondInfoDetail>> getBonds() override;
    boost::shared_ptr<CCounterpartyDetail> getCounterparty(const std::string& id) override;
    std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> getCounterpartys() override;
    std::string getInterbankCode(const std::string& code) override;

    void getOtcInstruments(int group, std::vector<boost::shared_ptr<COTCFundPlanInfo>>& out) override;
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> getOtcInstruments() override;
    boost::shared_ptr<COTCFundPlanInfo> getOtcInstrument(const std::string& code) override;
    std::map<std::string, boost::shared_ptr<COTCSecuritiesIssuanceInfo>> getIssuanceInfos() override;
    boost::shared_ptr<COTCSecuritiesIssuanceInfo> getIssuanceInfo(const std::string& code) override;
    std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>> getIssuancePriceInfos() override;
    boost::shared_ptr<COTCStockEnquiryPriceSetting> getIssuancePriceInfo(const std::string& code) override;
    std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> getTrenderBondInfos() override;
    boost::shared_ptr<CTenderBondInfoDetail> getTenderBondInfo(const std::string& code) override;

    std::string getOutterProductName(const std::string& productId) override;
    std::map<std::string, std::string> getOutterProduct() override;
    std::string getOutterMarketName(const std::string& market) override;
    std::map<std::string, std::string> getOutterMarket() override;
    std::map<std::string, std::set<std::string>> getMarketProductList() override;
    bool isCommodityProduct(const std::string& productId) override;
    bool isInterestProduct(const std::string& productId) override;
    void clearPersist(const std::string& path) override;

    // Behind the interface's slots, in this order; declared by both centers. Misses, I/O and cost as hasStock.

    /// In "NYSE".
    virtual bool hasNyseStock(const std::string& code);
    /// In "NASDAQ".
    virtual bool hasNasdaqStock(const std::string& code);

    /// As initInstruments, but the batch is all that the markets named have from now on: every other key of theirs,
    /// also those that earlier loads have left behind, is gone, with its document and what was derived of it; of a
    /// market that the batch has nothing for, everything. Market by market, documents in one step and keys in one step
    /// after it, so a key that is there before and after answers all the time, with its former record or the new one.
    /// Hong Kong and Shanghai are completed from the raw databases as in initInstruments, but only by those of "HGT",
    /// "SGT", "HK", "SH" and "SHFI" that the call does not name. Not virtual; threads and I/O as in the loads.
    void replaceInstruments(const std::vector<std::string>& markets,
                            const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments);

    /// Removes whole markets: keys, documents, lists, and what was derived of them. "HGT" and "SGT" stand for "HK"; raw
    /// databases, from which a later load may complete Hong Kong or Shanghai, stay. So do funds, bonds and plans, which
    /// have loads of their own. Not virtual; threads and I/O as in the loads.
    void removeMarkets(const std::vector<std::string>& markets);

    /// Puts single records and removes single keys: a new listing at noon, a correction. Each market's documents change
    /// in one transaction, then all keys and code sets in one version, then what is derived and stored of futures.
    /// Lists, predicates and derived catalogues follow as if the markets concerned had been replaced by their listings
    /// with these changes in them; whether an issue is of today is asked of the upserts alone. An upsert takes its key,
    /// whatever is there, and of several with one key grouping decides as in initInstruments; a Hong Kong listing
    /// without combined flags keeps the other connect market's. `removedKeys` are key texts, "HGT" and "SGT" standing
    /// for "HK"; one that is not filed changes nothing, one that an upsert brings stays. The raw databases, from which
    /// a later load completes Hong Kong or Shanghai, follow, too. What the store refuses is served from memory, with
    /// the rest of its market. Funds, bonds and plans have updates of their own. Not virtual; threads and I/O as in the
    /// loads, one commit a market.
    void applyChanges(const std::vector<boost::shared_ptr<CInstrumentDetail>>& upserts,
                      const std::vector<std::string>& removedKeys);

    /// Calls `handler` after each load or update that readers can see, in the order of versions and one call at a time,
    /// on the thread of the load, or of another one that is under way, or where `executor` runs it (then the executor
    /// decides about order). A load of instruments is told once, at its end; former records are read from the store for
    /// that. No lock is held: the handler may ask, load, subscribe and unsubscribe; what it loads is told after it
    /// returns. What it throws is logged and swallowed. An empty handler is none. Unsubscribed by the returned object's
    /// end, or the center's, which both wait for a running call. Without subscribers a load costs what it cost. Not
    /// virtual; safe from any thread.
    Subscription subscribe(std::function<void(const CatalogueChange&)> handler, Executor executor = {});

    // Contracts, chains and days, of what the markets list; none of them virtual. Of several that all of an order goes
    // by cannot tell apart, the market decides, then the code. Each question reads every document of the markets it
    // concerns, past the record caches.

    /// The futures of a product, of whichever of the six exchanges, by expiry, then code; options on them are none.
    /// Empty for an unknown or empty product. Reads the six exchanges.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getContracts(const std::string& productId) const;
    /// The options on an underlying, by expiry, strike price, then calls before puts: of "SH" and "SZ" those of their
    /// option markets and of "CFFEX", of a futures exchange or "WP" its own, so the options on a future are the chain
    /// of its market and code. An option that names no market has an underlying on its own exchange, one of "SHO" on
    /// "SH"; a stock option that names no code either has it in the parentheses of its product. Empty where there are
    /// none. Reads the markets that may list some.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getOptionChain(const std::string& underlyingMarket,
                                                                     const std::string& underlyingCode) const;
    /// What has that day for its listing date, of all markets, by market, then code; "HGT" and "SGT" count as "HK", and
    /// what they and "HK" list is one record. The text is compared as it stands. Empty for an empty day. Reads every
    /// market there is.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getListed(const std::string& day) const;
    /// The same by expiry: options, futures and bonds that end on that day.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getExpiring(const std::string& day) const;
    /// The instruments that are one bond, by its interbank code: of "BANK", "SH" and "SZ", in this order, those that
    /// are there. Empty for an unknown bond. I/O as getBond and getInstrument.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getBondListings(const std::string& bondCode);

    /// The records of `count` stock keys into `out`, which has as many places; a miss leaves an empty pointer there.
    /// Answers how many were found. I/O as getInstrument.
    std::size_t resolve(const uint64* keys, std::size_t count, boost::shared_ptr<CInstrumentDetail>* out);

    /// Grows with every change that the center has published, several times in a load: the store takes one database
    /// after the other. Two equal answers around questions that need no record: those were answered from one moment.
    std::uint64_t version() const;

    /// What the loads did and how large the tables are. No I/O; walks the tables that own texts, so it is for an
    /// operator's page and not for every tick.
    CenterStatistics statistics() const;

protected:
    /// @name The steps of the loads
    /// For a host's derived class; not virtual. `grouped` and `datas` map market keys to stock keys to records. Each is
    /// what the operation of its name says, without further checks; misses, I/O and threads as in the public
    /// operations.
    /// @{

    /// What initInstruments does.
    void doInitInstruments(const std::vector<std::string>& markets,
                           const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments);
    /// What initEtfs does.
    void doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs);
    /// What initBonds does.
    void doInitBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds);
    /// What initCounterpartys does.
    void doInitCounterpartys(const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties);
    /// What initOtcInstruments does.
    void doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans);

    /// Adds records to `datas` (market key to stock key to record) and their connect flag values to `flags` (Hong Kong
    /// stock key to connect market key to value), and notes platform codes for getLumoCode.
    void doProcessInstrument(const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                             std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
                             std::map<uint64, std::map<uint64, std::int32_t>>& flags);
    /// Keeps what a load brings of "HGT", "HK" and "SGT" in the raw databases, and puts into `extra` what those hold of
    /// the sub-markets that the load does not bring.
    void tryMergeHkExchangeDatas(const std::vector<std::string>& markets,
                                 const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                                 std::vector<boost::shared_ptr<CInstrumentDetail>>& extra);
    /// The same for "SH" and "SHFI".
    void tryMergeSHExchangeDatas(const std::vector<std::string>& markets,
                                 const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                                 std::vector<boost::shared_ptr<CInstrumentDetail>>& extra);
    /// Writes each market to its database, then its keys to the indexes. `market` names the market when it is not the
    /// records' own. A market whose write fails is left empty in `datas`.
    void createExchangeDatas(std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
                             std::string market);
    /// Main contracts of each futures exchange and of each product; those of an exchange are written to "OvIns_FUMAIN".
    void createFutureMainDatas(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// Contracts of each futures product, written to "OvIns_FUPROD".
    void createFutureProdcutDatas(
        const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// The legs of the Dalian spreads; nothing when `grouped` has no "DCE".
    void createFutureDceDatas(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// IPO and CDR codes; nothing unless `markets` names "SH", "SZ" or "BJ".
    void createStockCodes(const std::vector<std::string>& markets,
                          const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// NEEQ inquiry codes; none found leaves the former ones.
    void createNeeqCodes(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// Underlyings of stock options, for the exchanges that `grouped` has.
    void createStkOptionCodes(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// The outer-market tables.
    void createOutterProductDatas(
        const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);

    /// Keeps a market's records in memory as unwritten; `datas` receives the unwritten batch before.
    void cacheFailedDatas(uint64 marketHash, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& datas);
    /// Adds the unwritten records of a market under their key texts; false when there are none.
    bool getCachedDatas(uint64 marketHash, std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out);
    /// Drops the documents and keys of whole markets; "HGT" and "SGT" stand for "HK".
    void clearDatas(const std::vector<std::string>& markets);
    /// The exchanges of a trader type in their order; empty for an unknown type.
    std::list<std::string> getExchanges(EOvTraderType type);
    /// @}

private:
    friend class ClientAmendment;

    /// The records that getInstrument answers for the keys.
    std::vector<boost::shared_ptr<CInstrumentDetail>> recordsOf(const std::vector<uint64>& keys);
    using Grouped = std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>;

    void takeIn(const std::vector<std::string>& markets,
                const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments, ClientLoad& load);
    std::vector<std::string> beginReplacing(const Grouped& datas, ClientLoad& load);
    void loadInstruments(const std::vector<std::string>& markets,
                         const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments, ClientLoad& load);
    /// doProcessInstrument of a load that notes what it receives.
    void group(const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
               std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
               std::map<uint64, std::map<uint64, std::int32_t>>& flags, LoadNotes& notes);
    /// Unfiles the keys of whole markets and leaves dropping their documents to the load.
    void forgetMarkets(const std::vector<std::string>& markets, ClientLoad& load);
    /// createExchangeDatas; databases that the load drops are emptied in the step that writes them.
    void writeMarkets(std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& datas,
                      const std::string& market, ClientLoad& load);
    void writeMarket(uint64 marketHash, const std::string& market,
                     std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& records, ClientLoad& load);
    std::optional<std::string> storeMarket(uint64 marketHash, const std::string& name,
                                           std::map<uint64, boost::shared_ptr<CInstrumentDetail>>& records,
                                           ClientLoad& load);
    /// Replaces a pseudo-market by the instruments that stand for `received` records of another kind.
    void replaceMarket(const std::string& market,
                       std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped,
                       std::size_t received);
    static void addMarket(const ClientVersion& version, uint64 marketHash, const std::string& name, const char* failure,
                          std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out);
    std::map<std::string, StoredProduct> productsWithout(uint64 market);
    void addMarkets(const std::list<std::string>& markets, const char* failure,
                    std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out);
    void addEverything(const char* failure, std::map<std::string, boost::shared_ptr<CInstrumentDetail>>& out);
    std::map<std::string, boost::shared_ptr<CInstrumentDetail>> ofTraderType(EOvTraderType type);

    std::unique_ptr<ClientState> client_;
};

}  // namespace mxservice

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
