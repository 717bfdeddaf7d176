#pragma once

#include <functional>
#include <list>
#include <map>
#include <memory>
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

struct ServerState;
class InstrumentView;
class LoadNotes;
enum class Others : bool;
class ServerChange;

/// The center of server processes: every record stays in memory and a lookup costs little more than the cache misses
/// of one probe. Nothing is read from or written to disk. About 1.4 kB a record beside the host's own reference.
///
/// Threads, ownership and misses are as IInstrumentCenter says, and more: the catalogue is one immutable version, which
/// a load replaces in one step, derived catalogues included. No reader ever waits, for a load or for another reader;
/// each answer is of one version, and everything asked of one view() is. Two loads may run at the same time, and
/// neither loses what the other brings.
///
/// What this center leaves out on purpose: price settings, outer-market tables, interbank codes, product contract
/// lists and product names answer empty; counterparty updates do nothing.
class PM_CENTER_API CServerInstrumentCenter : public IInstrumentCenter {
public:
    /// Fetches the network engine's strand of that name and keeps it; nothing is posted to it.
    explicit CServerInstrumentCenter(const std::string& strandName);
    /// Not virtual; no operation may be running any more.
    ~CServerInstrumentCenter();

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

    // Behind the interface's slots, in this order; declared by both centers. Misses, I/O and cost as hasStock.

    /// In "NYSE".
    virtual bool hasNyseStock(const std::string& code);
    /// In "NASDAQ".
    virtual bool hasNasdaqStock(const std::string& code);

    /// As initInstruments, but the batch is all that the markets named have from now on: every other key of theirs,
    /// also those that earlier loads have left behind, is gone, with what was derived of it; of a market that the batch
    /// has nothing for, everything. Readers see all of it at once, so a key that is there before and after answers all
    /// the time. A single one of "HGT", "SGT" and "HK" replaces its part of Hong Kong. Not virtual; threads as in the
    /// loads.
    void replaceInstruments(const std::vector<std::string>& markets,
                            const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments);

    /// Removes whole markets: every key that is filed under them, also those that reloads have left behind, the
    /// records, the lists, and what was derived of them. "HGT" and "SGT" stand for "HK", whose connect parts stay kept.
    /// Funds, bonds and plans have loads of their own and stay. Not virtual; threads as in the loads. Cost: one walk of
    /// the index a market.
    void removeMarkets(const std::vector<std::string>& markets);

    /// Puts single records and removes single keys, all as one version: a new listing at noon, a correction. Lists,
    /// predicates and derived catalogues follow as if the markets concerned had been replaced by their listings with
    /// these changes in them; whether an issue is of today is asked of the upserts alone. An upsert takes its key,
    /// whatever is there, and of several with one key grouping decides as in initInstruments; a Hong Kong listing
    /// without combined flags keeps the other connect market's. `removedKeys` are key texts, "HGT" and "SGT" standing
    /// for "HK"; one that is not filed changes nothing, one that an upsert brings stays. The kept connect parts follow,
    /// too. Funds, bonds and plans have updates of their own. Not virtual; threads as in the loads. Cost: some tens of
    /// microseconds and a copy of each touched market's keys, more where a Dalian spread or the last option of a
    /// product comes or goes.
    void applyChanges(const std::vector<boost::shared_ptr<CInstrumentDetail>>& upserts,
                      const std::vector<std::string>& removedKeys);

    /// Runs `loads`, and whatever it loads, replaces, changes and updates in this center on the calling thread becomes
    /// visible in one step when it returns: a whole day, of all catalogues, is one version. Until then every question,
    /// the calling thread's own among them, is answered from the former version. If it throws, nothing of it is ever
    /// seen and the exception passes on; statistics() tell of its loads all the same. One within another is part of it.
    /// Subscribers hear of one change. Not virtual. Loads of other threads wait for its end, so `loads` must not wait
    /// for such a thread; questions wait for nothing. Cost: of the loads, and some memory for what each of them
    /// replaces of the one before.
    void loadTogether(const std::function<void()>& loads);

    /// Calls `handler` after each load or update that readers can see, in the order of versions and one call at a time,
    /// on the thread of the load, or of another one that is under way, or where `executor` runs it (then the executor
    /// decides about order). No lock is held: the handler may ask, load, subscribe and unsubscribe; what it loads is
    /// told after it returns. What it throws is logged and swallowed. An empty handler is none. Unsubscribed by the
    /// returned object's end, or the center's, which both wait for a running call. Without subscribers a load costs
    /// what it cost. With one, records that are handed in again as others with equal fields are compared with the
    /// former ones before the handler is called, where it is called: for all records of a center that takes about as
    /// long as the load itself, so an executor keeps it off the loading thread. Not virtual; safe from any thread.
    Subscription subscribe(std::function<void(const CatalogueChange&)> handler, Executor executor = {});

    // Contracts, chains and days, of what the markets list; none of them virtual. Of several that all of an order goes
    // by cannot tell apart, the market decides, then the code. The first question after a change of records makes a
    // table of them, in milliseconds; who asks meanwhile makes one, too, and nobody waits. No I/O.

    /// The futures of a product, of whichever of the six exchanges, by expiry, then code; options on them are none.
    /// Empty for an unknown or empty product.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getContracts(const std::string& productId) const;
    /// The options on an underlying, by expiry, strike price, then calls before puts: of "SH" and "SZ" those of their
    /// option markets and of "CFFEX", of a futures exchange or "WP" its own, so the options on a future are the chain
    /// of its market and code. An option that names no market has an underlying on its own exchange, one of "SHO" on
    /// "SH"; a stock option that names no code either has it in the parentheses of its product. Empty where there are
    /// none.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getOptionChain(const std::string& underlyingMarket,
                                                                     const std::string& underlyingCode) const;
    /// What has that day for its listing date, of all markets, by market, then code; "HGT" and "SGT" count as "HK", and
    /// what they and "HK" list is one record. The text is compared as it stands. Empty for an empty day.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getListed(const std::string& day) const;
    /// The same by expiry: options, futures and bonds that end on that day.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getExpiring(const std::string& day) const;
    /// The instruments that are one bond, by its interbank code: of "BANK", "SH" and "SZ", in this order, those that
    /// are there. Empty for an unknown bond.
    std::vector<boost::shared_ptr<CInstrumentDetail>> getBondListings(const std::string& bondCode) const;

    /// The catalogue of this moment, for questions that belong together and for records without a reference count.
    /// Cheap; see InstrumentView.
    InstrumentView view() const;
    /// Grows by one with every change that readers can see.
    std::uint64_t version() const;
    /// The records of `count` stock keys, all of one version, into `out`, which has as many places; a miss leaves an
    /// empty pointer there. Answers how many were found. Faster than asking one after the other.
    std::size_t resolve(const uint64* keys, std::size_t count, boost::shared_ptr<CInstrumentDetail>* out) const;

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
    /// Indexes Hong Kong from the kept "HGT", "SGT" and "HK" snapshots; of one code's records the last in this order
    /// wins. Derived catalogues are not rebuilt.
    void doInitGgtInstruments();
    /// What initEtfs does.
    void doInitEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs);
    /// What initBonds does.
    void doInitBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds);
    /// What initCounterpartys does.
    void doInitCounterpartys(const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties);
    /// What initOtcInstruments does.
    void doInitOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans);

    /// Writes the indexes: the records and keys of all markets together. Keys of an earlier load that `grouped`
    /// lacks still answer getInstrument and hasCode; only the market's own list forgets them.
    void createExchangeDatas(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// Main contracts of each futures exchange and of each product.
    void createFutureMainDatas(const std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>& grouped);
    /// Deliberately nothing but a line in the log.
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

    /// Removes whole markets, keys and records; "HGT" and "SGT" stand for "HK".
    void clearDatas(const std::vector<std::string>& markets);
    /// The exchanges of a trader type in their order; empty for an unknown type.
    std::list<std::string> getExchanges(EOvTraderType type);
    /// @}

private:
    using Grouped = std::map<uint64, std::map<uint64, boost::shared_ptr<CInstrumentDetail>>>;

    void load(const std::vector<std::string>& markets,
              const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments, Others others);
    void loadConnectSnapshot(const std::string& market,
                             const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments, Others others,
                             LoadReport& report, LoadNotes& notes);
    std::vector<LoadStep> loadMarkets(const std::vector<std::string>& markets,
                                      const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments,
                                      Others others, LoadNotes& notes);
    void buildConnect(Others others, LoadNotes& notes);
    // The steps of a load, each for its part of the change; then the change as one version.
    void file(const Grouped& grouped, ServerChange& change);
    void deriveMains(const Grouped& grouped, ServerChange& change);
    void deriveSpreads(const Grouped& grouped, ServerChange& change);
    void deriveCodes(const std::vector<std::string>& markets, const Grouped& grouped, ServerChange& change);
    void deriveInquiries(const Grouped& grouped, ServerChange& change);
    void deriveUnderlyings(const Grouped& grouped, ServerChange& change);
    void publishLoad(const Grouped& grouped, ServerChange& change, LoadNotes& notes);

    std::unique_ptr<ServerState> server_;
};

}  // namespace mxservice

#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif
