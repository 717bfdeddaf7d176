#pragma once

#include "tests/model/CatalogueModel.h"

namespace mxservice::model {

/// The in-memory center.
class ServerModel : public CatalogueModel {
public:
    void initInstruments(const Markets& markets, const std::vector<Instrument>& records);
    void clearDatas(const Markets& markets);
    void initEtfs(const std::vector<Etf>& records);
    void initBonds(const std::map<std::string, Bond>& records);
    void initOtcInstruments(const std::vector<Plan>& records);
    void updateOtcInstruments(const std::vector<Plan>& records);
    void initIssuancePriceInfos(const std::map<std::string, PriceSetting>&) {}
    void updateIssuancePriceInfo(int, const PriceSetting&) {}
    void initTenderBondInfos(const std::map<std::string, TenderBond>& records);
    void updateTenderBondInfos(const std::vector<TenderBond>& records);
    void updateCounterpartyInfo(const Counterparty&) {}

    /// The market that a stock key text, folded or not, is filed under; 0 for none.
    Key marketOf(const std::string& key) const;
    bool hasHkstock(const std::string& code) const;
    bool hasEtf(const std::string& code) const;
    bool hasOtc(const std::string& code) const;
    bool hasTenderBond(const std::string& code) const;

    Choice getInstrument(Key key);
    Choice getInstrument(const std::string& code) { return getInstrumentOf(connectFolded(code)); }
    Choice getInstrument(const std::string& market, const std::string& code);
    ChoiceByText getInstruments(const std::list<std::string>& markets);
    ChoiceByText getInstruments(int type);
    ChoiceByText getInstruments();
    /// The record itself, for a comparison by identity.
    Instrument find(Key key) const;

    ChoiceByText getFutureMainInstruments(const std::string& market);
    std::map<std::string, std::multiset<Choice>> getProductMainInstruments();
    Images getProductInstruments(const std::string&) { return {}; }
    std::set<std::string> getProductId(const std::string& market, const std::string& code);

    Choice getEtf(const std::string& code);
    ChoiceByText getEtfs() const;
    Choice getBond(Key key);
    ChoiceByText getBonds() const;
    std::string getInterbankCode(const std::string&) const { return ""; }
    Images getOtcInstruments(int group) const;
    ChoiceByText getOtcInstruments() const;
    Choice getOtcInstrument(const std::string& code);
    std::map<std::string, std::string> getIssuancePriceInfos() const { return {}; }
    Choice getIssuancePriceInfo(const std::string&) const { return {"none"}; }
    std::map<std::string, std::string> getTrenderBondInfos(bool& unambiguous) const;
    Choice getTenderBondInfo(const std::string& code) const;

    std::map<std::string, std::string> getOutterProduct() const { return {}; }
    std::map<std::string, std::string> getOutterMarket() const { return {}; }
    std::map<std::string, std::set<std::string>> getMarketProductList() const { return {}; }
    bool isCommodityProduct(const std::string&) const { return false; }
    bool isInterestProduct(const std::string&) const { return false; }
    std::string getLumoCode(const std::string& code) const { return code; }

private:
    Choice getInstrumentOf(const std::string& key);
    void createExchangeDatas(const Grouped& grouped);
    void buildConnect();
    static void markConnect(Grouped& grouped, const std::map<Key, std::set<Key>>& connect);

    std::map<std::string, std::vector<Instrument>> snapshots_;
    std::map<Key, Instrument> records_;
    std::map<Key, Key> marketByKey_;
    std::map<Key, std::set<Key>> keysByMarket_;
    std::map<Key, Etf> etfs_;
    std::map<Key, Bond> bonds_;
    std::map<Key, Plan> plans_;
    std::map<int, std::vector<Plan>> groups_;
    std::map<Key, TenderBond> tenderBonds_;
};

}  // namespace mxservice::model
