#pragma once

#include "tests/model/CatalogueModel.h"

namespace mxservice::model {

/// The text that stands for a key in the store.
inline std::string decimal(Key key) {
    return std::to_string(key);
}

/// What the store holds: it outlives the center. Documents are copies, by their key's decimal text.
struct StoreModel {
    using Instruments = std::map<std::string, Instrument>;

    std::map<std::string, Instruments> instruments;  ///< by database
    std::map<std::string, Instruments> mains;        ///< by field
    std::map<std::string, Instruments> products;     ///< by field
    std::map<std::string, Etf> etfs;                 ///< OvIns_ALLETF
    std::map<std::string, Bond> bonds;               ///< OvIns_BANKBOND
    std::map<std::string, Plan> plans;               ///< OvIns_OTCINS
    std::set<std::string> broken;                    ///< databases whose writes fail

    bool takes(const std::string& db) const;
    bool write(const std::string& db, const Instruments& documents);
    void drop(const std::string& db);
    /// Every catalogue database, as clearPersist removes them.
    void clearCatalogues();
};

/// The persisted center. Of its record caches only what no recency rule can change is modelled: whether a record may
/// still be cached (`Some`), never is (`None`) or always stays (`All`).
class ClientModel : public CatalogueModel {
public:
    enum class Cache { None, Some, All };
    ClientModel(StoreModel& store, Cache cache) : store_(store), cache_(cache) {}

    void initInstruments(const Markets& markets, const std::vector<Instrument>& records);
    void clearDatas(const Markets& markets);
    void initEtfs(const std::vector<Etf>& records);
    void initBonds(const std::map<std::string, Bond>& records);
    void initOtcInstruments(const std::vector<Plan>& records);
    void updateOtcInstruments(const std::vector<Plan>&) {}
    void initIssuancePriceInfos(const std::map<std::string, PriceSetting>& records) { priceSettings_ = records; }
    void updateIssuancePriceInfo(int operation, const PriceSetting& record);
    void initTenderBondInfos(const std::map<std::string, TenderBond>& records) { tenderBonds_ = records; }
    void updateTenderBondInfos(const std::vector<TenderBond>&) {}
    void updateCounterpartyInfo(const Counterparty& record);

    Key marketOf(const std::string& key) const;
    bool hasHkstock(const std::string& code) const;
    bool hasEtf(const std::string& code) const;
    bool hasOtc(const std::string& code) const;
    bool hasTenderBond(const std::string& code) const { return tenderBonds_.count(code) != 0; }

    Choice getInstrument(Key key);
    Choice getInstrument(const std::string& code);
    Choice getInstrument(const std::string& market, const std::string& code);
    ChoiceByText getInstruments(const std::list<std::string>& markets);
    ChoiceByText getInstruments(int type);
    ChoiceByText getInstruments();

    ChoiceByText getFutureMainInstruments(const std::string& market);
    std::map<std::string, std::multiset<Choice>> getProductMainInstruments();
    Images getProductInstruments(const std::string& product) const;
    std::set<std::string> getProductId(const std::string& market, const std::string& code);

    Choice getEtf(const std::string& code);
    ChoiceByText getEtfs() const;
    Choice getBond(Key key);
    ChoiceByText getBonds() const;
    std::string getInterbankCode(const std::string& code) const;
    Images getOtcInstruments(int /*group*/) const { return {}; }
    ChoiceByText getOtcInstruments() const;
    Choice getOtcInstrument(const std::string& code);
    std::map<std::string, std::string> getIssuancePriceInfos() const { return imagesOf(priceSettings_); }
    Choice getIssuancePriceInfo(const std::string& code) const;
    std::map<std::string, std::string> getTrenderBondInfos(bool&) const { return imagesOf(tenderBonds_); }
    Choice getTenderBondInfo(const std::string& code) const;

    std::map<std::string, std::string> getOutterProduct() const { return outerProductNames_; }
    std::map<std::string, std::string> getOutterMarket() const { return outerMarketNames_; }
    std::map<std::string, std::set<std::string>> getMarketProductList() const { return outerProducts_; }
    bool isCommodityProduct(const std::string& product) const { return commodity_.count(product) != 0; }
    bool isInterestProduct(const std::string& product) const { return interest_.count(product) != 0; }
    std::string getLumoCode(const std::string& code) const;

private:
    using Flags = std::map<Key, std::map<Key, std::int32_t>>;

    void process(const std::vector<Instrument>& records, Grouped& grouped, Flags& flags);
    void notePlatformCode(const CInstrumentDetail& record);
    void merge(const std::set<std::string>& group, const Markets& markets, const std::vector<Instrument>& records,
               std::vector<Instrument>& extra);
    void createExchangeDatas(Grouped& grouped, const std::string& market);
    void createMainDocuments(const Grouped& grouped);
    void createProductDocuments(const Grouped& grouped);
    void createOuterDatas(const Grouped& grouped);
    std::string registered(Key market) const;
    void addMarket(Key market, ChoiceByText& result) const;
    Instrument source(Key market, Key key);
    /// The records that a lookup of the key may answer.
    std::vector<Instrument> candidates(Key key);

    StoreModel& store_;
    Cache cache_;
    std::map<Key, std::string> dbByMarket_;
    std::map<Key, Key> marketByKey_;
    std::map<Key, std::set<Key>> keysByMarket_;
    std::map<Key, std::map<Key, Instrument>> failed_;
    std::set<Key> lastWriteFailed_;  // markets; later the database goes first and the parked records fill gaps
    std::map<Key, std::vector<Instrument>> cached_;
    std::set<std::string> productsWritten_;
    std::map<std::string, std::string> lumoCodes_;
    std::map<std::string, std::string> outerProductNames_;
    std::map<std::string, std::string> outerMarketNames_;
    std::map<std::string, std::set<std::string>> outerProducts_;
    std::set<std::string> commodity_;
    std::set<std::string> interest_;
    std::set<Key> etfKeys_;
    std::map<Key, Etf> unsavedEtfs_;
    std::map<Key, Bond> cachedBonds_;
    std::map<std::string, std::string> interbankCodes_;
    std::set<Key> planKeys_;
    std::map<std::string, PriceSetting> priceSettings_;
    std::map<std::string, TenderBond> tenderBonds_;
};

}  // namespace mxservice::model
