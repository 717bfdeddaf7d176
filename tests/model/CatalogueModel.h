#pragma once

#include <list>
#include <utility>

#include "tests/model/Answers.h"

namespace mxservice::model {

/// The catalogue as its description reads, one step after the other, in plain maps and loops: slow, and sharing no
/// code with the centers. Keys come from the platform's hash and days and code ranges from its predicates; the rest
/// is spelled out here once more. This part holds what both centers derive alike.
class CatalogueModel {
public:
    /// Records are those of the model: a load writes to the same fields as the center does with the host's.
    void initCounterpartys(const std::map<std::string, Counterparty>& records) { counterparties_ = records; }
    void initIssuanceInfos(const std::vector<Issuance>& records);
    void updateIssuanceInfos(int operation, const std::vector<Issuance>& records);

    Choice getCounterparty(const std::string& id) const;
    std::map<std::string, std::string> getCounterpartys() const { return imagesOf(counterparties_); }
    bool hasIssuance(const std::string& code) const { return issuances_.count(code) != 0; }
    Choice getIssuanceInfo(const std::string& code) const;
    std::map<std::string, std::string> getIssuanceInfos() const { return imagesOf(issuances_); }

    std::set<std::string> getStockIpoCodes() const;
    std::set<std::string> getStockCdrCodes() const;
    std::set<std::string> getNeeqInquiryCodes() const { return neeqCodes_; }
    bool isStkOptionUndlCode(const std::string& market, const std::string& code) const;
    std::vector<std::pair<std::string, std::string>> getDceCrossProduct() const { return crossProduct_; }
    std::vector<std::pair<std::string, std::string>> getDceCrossPeriod() const { return crossPeriod_; }

protected:
    void createFutureMainDatas(const Grouped& grouped);
    void createFutureDceDatas(const Grouped& grouped);
    void createStockCodes(const Markets& markets, const Grouped& grouped);
    void createNeeqCodes(const Grouped& grouped);
    void createStkOptionCodes(const Grouped& grouped);

    static Key keyOf(const std::string& market, const std::string& code);
    static bool isFutureExchange(Key market);
    static bool isFutureOption(const CInstrumentDetail& record);
    static std::string connectFolded(const std::string& key);
    static std::string foldedMarket(const std::string& market);
    static bool startsWith(const std::string& text, const std::string& prefix) {
        return text.compare(0, prefix.size(), prefix) == 0;
    }
    static std::list<std::string> commonExchanges(int type);
    static Instrument pseudoInstrument(const std::string& market, const std::string& code, const std::string& name);

    std::map<Key, std::set<Key>> mainByMarket_;
    std::map<std::string, std::set<Key>> mainByProduct_;
    std::map<std::string, Counterparty> counterparties_;
    std::map<std::string, Issuance> issuances_;

private:
    std::map<std::string, std::set<std::string>> ipoCodes_;
    std::map<std::string, std::set<std::string>> cdrCodes_;
    std::set<std::string> neeqCodes_;
    std::map<std::string, std::set<Key>> underlyings_;
    std::vector<std::pair<std::string, std::string>> crossProduct_;
    std::vector<std::pair<std::string, std::string>> crossPeriod_;
};

}  // namespace mxservice::model
