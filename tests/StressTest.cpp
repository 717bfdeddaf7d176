#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

#include "tests/CenterFixture.h"
#include "tests/FromEnvironment.h"
#include "tests/SecondaryRecords.h"

// Writers reload and change everything, each load one generation further; readers ask everything meanwhile. A record
// carries its generation, and what is listed depends on it, so each answer shows of which moment it is. What a reader
// may see is worked out from the order in which loads change the tables. PM_GENERATIONS makes the run longer.

namespace mxservice {
namespace {

constexpr int kStable = 60;  // codes of every generation
constexpr int kPassing = 9;  // codes that only each third generation has
constexpr int kClasses = 3;
constexpr int kGroups = 2;

/// What readers found wrong; the first few in words.
class Faults {
public:
    void add(const std::string& what) {
        const std::lock_guard guard(lock_);
        ++count_;
        if (first_.size() < 2000) {
            first_ += what + '\n';
        }
    }
    int count() const { return count_; }
    const std::string& first() const { return first_; }

private:
    std::mutex lock_;
    int count_ = 0;
    std::string first_;
};

std::string stable(int i) {
    return "s" + std::to_string(i);
}

std::string passing(int generation, int i) {
    return "p" + std::to_string(generation % kClasses) + '-' + std::to_string(i);
}

template <class Record>
boost::shared_ptr<Record> aged(boost::shared_ptr<Record> record, int generation) {
    record->name = std::to_string(generation);
    return record;
}

boost::shared_ptr<CBondInfoDetail> aged(boost::shared_ptr<CBondInfoDetail> record, int generation) {
    record->bondName = std::to_string(generation);
    return record;
}

template <class Record>
int ageOf(const Record& record) {
    return std::atoi(record.name.c_str());
}

int ageOf(const CBondInfoDetail& record) {
    return std::atoi(record.bondName.c_str());
}

/// One market's records of a generation. Main contracts, inquiries, underlyings and spreads change with it.
void addMarket(Instruments& records, const std::string& market, int generation) {
    const auto add = [&](const std::string& code) {
        const InstrumentPtr record = aged(instrument(market, code), generation);
        record->productId = market == "SHO" ? "E(" + stable(0) + ")" : "product";
        record->productName = record->name;
        record->outerMarketName = record->name;
        record->listingDate = "abroad";
        record->platformCode = record->name;
        records.push_back(record);
        return record;
    };
    for (int i = 0; i < kStable; ++i) {
        add(stable(i))->mainContractFlag = i % kClasses == generation % kClasses ? 1 : 0;
    }
    for (int i = 0; i < kPassing; ++i) {
        add(passing(generation, i));
    }
    add("SP g" + std::to_string(generation) + "&x");
    add("g" + std::to_string(generation))->securityClass = 5;
}

/// Codes of every market of addMarket that the answers of a moment hold: stable, passing, spread, inquiry.
constexpr std::size_t kMarketSize = kStable + kPassing + 2;

const std::vector<std::string> kStockMarkets{"SH", "SZ", "BJ"};
const std::vector<std::string> kOtherMarkets{"DCE", "NEEQ", "SHO", "WP"};
const std::vector<std::string> kHongKong{"HGT", "SGT", "HK"};

Instruments recordsOf(const std::vector<std::string>& markets, int generation) {
    Instruments records;
    for (const std::string& market : markets) {
        addMarket(records, market, generation);
    }
    return records;
}

template <class Kind>
class Stress : public CenterTest<Kind> {
protected:
    static constexpr bool kClient = std::is_same_v<Kind, ClientKind>;
    // Each generation of the persisted center waits for the disk some forty times.
    const int last_ = fromEnvironment("PM_GENERATIONS", kClient ? 40 : 150);

    /// One reading thread: what it saw last, so that it notices when time runs backwards.
    class Reader {
    public:
        Reader(IInstrumentCenter& center, Faults& faults) : center_(center), faults_(faults) {}

        void ask(int round) {
            const std::string code = stable(round % kStable);
            for (const std::vector<std::string>* const markets : {&kStockMarkets, &kOtherMarkets}) {
                for (const std::string& market : *markets) {
                    one(market, market, code);
                    bulk(market, center_.getInstruments(market));
                }
            }
            bulk("DCE", center_.getInstruments(OvTraderFuture));
            for (const std::string& market : kHongKong) {
                one("HK", market, code);
            }
            hongKong();
            derived();
            secondary(round);
        }

    private:
        void expect(bool condition, const std::string& what) {
            if (!condition) {
                faults_.add(what);
            }
        }
        void notBack(const std::string& what, int generation) {
            int& last = seen_[what];
            expect(generation >= last, what + ": " + std::to_string(generation) + " after " + std::to_string(last));
            last = std::max(last, generation);
        }

        void one(const std::string& shelf, const std::string& market, const std::string& code) {
            const InstrumentPtr record = center_.getInstrument(market, code);
            if (!record) {
                // The persisted center forgets a market's keys while it loads the market anew.
                expect(kClient, "missing: " + market + code);
                return;
            }
            expect(record->code == code, "another record for " + market + code);
            notBack(shelf, ageOf(*record));
            if (!kClient) {
                expect(center_.hasCode(market + code), "no code: " + market + code);
            }
        }

        /// The generation of a whole market's answer.
        void bulk(const std::string& market, const InstrumentMap& records) {
            if (kClient && records.empty()) {
                return;
            }
            const auto first = records.find(market + stable(0));
            if (first == records.end()) {
                return faults_.add(market + ": a list without its first code");
            }
            const int age = ageOf(*first->second);
            notBack(market, age);
            int passingClass = -1;
            std::size_t passingCodes = 0;
            for (const auto& [key, record] : records) {
                const std::string& code = record->code;
                if (code[0] == 's') {
                    expect(ageOf(*record) == age, market + ": two generations in one list");
                } else if (code[0] == 'p') {
                    ++passingCodes;
                    const int of = code[1] - '0';
                    expect(passingClass == -1 || passingClass == of, market + ": codes of two generations");
                    passingClass = of;
                }
            }
            expect(records.size() == kMarketSize && passingCodes == kPassing, market + ": not one generation's codes");
            // The persisted center reads one state of the store. The in-memory center takes the keys first: they may be
            // older than the records, and a code that the records' generation lacks is then the last of its own.
            const int ageOfPassing = kClient ? age : age - (((age - passingClass) % kClasses) + kClasses) % kClasses;
            for (const auto& [key, record] : records) {
                if (record->code[0] == 'p') {
                    expect(ageOf(*record) == ageOfPassing, market + ": a code of the wrong generation");
                }
            }
        }

        void hongKong() {
            const InstrumentMap records = center_.getInstruments("HK");
            if (kClient && records.empty()) {
                return;
            }
            std::set<int> ages;
            for (const auto& [key, record] : records) {
                if (record->code[0] == 's') {
                    ages.insert(ageOf(*record));
                    expect(record->combinedConnectFlags != 0, "a connect listing without flags");
                }
            }
            expect(ages.size() == 1, "HK: not one generation");
            if (!ages.empty()) {
                notBack("HK", *ages.begin());
            }
        }

        void derived() {
            const InstrumentMap mains = center_.getFutureMainInstruments("DCE");
            expect(mains.size() == kStable / kClasses, "mains of DCE: " + std::to_string(mains.size()));
            std::set<int> ages;
            for (const auto& [key, record] : mains) {
                ages.insert(ageOf(*record));
            }
            expect(ages.size() == 1, "mains of DCE: not one generation");
            if (!ages.empty()) {
                // The persisted center stores main contracts apart, and later than the market.
                notBack(kClient ? "mains" : "DCE", *ages.begin());
            }

            for (const auto& [product, records] : center_.getProductMainInstruments()) {
                expect(kClient || records.size() == kStable / kClasses, "mains by product");
                for (const InstrumentPtr& record : records) {
                    expect(ageOf(*record) >= seen_["DCE"], "an old main contract");
                }
            }
            const auto spreads = center_.getDceCrossPeriod();
            expect(spreads.size() == 1, "spreads of more than one generation");
            notBack("spreads", std::atoi(spreads.at(0).first.c_str() + 1));
            const std::set<std::string> inquiries = center_.getNeeqInquiryCodes();
            expect(inquiries.size() == 1, "inquiries of more than one generation");
            notBack("inquiries", std::atoi(inquiries.begin()->c_str() + 5));
            expect(center_.isStkOptionUndlCode("SH", stable(0)), "no underlying");
            const std::set<std::string> issues = center_.getStockIpoCodes();
            expect(issues.size() == 1, "issues of more than one generation");
            notBack("issues", std::atoi(issues.begin()->c_str() + 3));
            if (kClient) {
                notBack("platform codes", std::atoi(center_.getLumoCode(stable(0)).c_str()));
                notBack("outer names", std::atoi(center_.getOutterProductName("product").c_str()));
                // Any load replaces this table, those without outer markets by an empty one.
                const auto products = center_.getMarketProductList();
                expect(products.empty() || products.at("abroad").size() == 1, "outer products");
            }
        }

        template <class Map>
        void whole(const std::string& what, const Map& records, std::size_t count) {
            std::set<int> ages;
            for (const auto& [key, record] : records) {
                ages.insert(ageOf(*record));
            }
            expect(records.size() == count && ages.size() == 1, what + ": not one generation");
            if (!ages.empty()) {
                notBack(what, *ages.begin());
            }
        }

        template <class Pointer>
        void known(const std::string& what, const Pointer& record) {
            if (!record) {
                return faults_.add("missing: " + what);
            }
            notBack(what, ageOf(*record));
        }

        void secondary(int round) {
            const std::string code = stable(round % kStable);
            whole("funds", center_.getEtfs(), kStable);
            whole("bonds", center_.getBonds(), kStable);
            known("fund " + code, center_.getEtf("SH" + code));
            known("tender bond " + code, center_.getTenderBondInfo(code));
            known("counterparty " + code, center_.getCounterparty(code));
            known("issuance " + code, center_.getIssuanceInfo(code));
            known("plan " + code, center_.getOtcInstrument("SOTC" + code));
            known("bond " + code, center_.getBond("BANK" + code));
            expect(center_.getIssuanceInfos().size() >= kStable, "issuances are missing");
            expect(center_.getTrenderBondInfos().size() == kStable, "tender bonds are missing");
            expect(center_.getCounterpartys().size() >= kStable, "counterparties are missing");
            expect(center_.getOtcInstruments().size() == kStable, "plans are missing");
            if (kClient) {
                const auto setting = center_.getIssuancePriceInfo(code);
                expect(setting != nullptr, "missing: price setting");
                notBack("price " + code, static_cast<int>(setting->enquiryPrice));
                return;
            }
            // A plan changes its group with each generation and is in one of them at any moment.
            std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
            center_.getOtcInstruments(-1, plans);
            expect(plans.size() == kStable, "plans of all groups");
            for (int group = 0; group < kGroups; ++group) {
                plans.clear();
                center_.getOtcInstruments(group, plans);
                for (const auto& plan : plans) {
                    expect(plan->planType == group, "a plan in a group of others");
                    notBack("plan " + plan->code, ageOf(*plan));
                }
            }
        }

        IInstrumentCenter& center_;
        Faults& faults_;
        std::map<std::string, int> seen_;
    };

    void loadStocks(int generation) { this->load(kStockMarkets, recordsOf(kStockMarkets, generation)); }
    void loadOthers(int generation) {
        this->load(kOtherMarkets, recordsOf(kOtherMarkets, generation));
        Instruments connect;
        for (const std::string& market : kHongKong) {
            for (int i = 0; i < kStable; ++i) {
                connect.push_back(aged(instrument(market, stable(i)), generation));
                connect.back()->connectFlagValue = 1;
            }
        }
        this->load(kHongKong, connect);
    }

    void loadSecondary(int generation) {
        IInstrumentCenter& center = this->asked();
        std::vector<boost::shared_ptr<CETFDetail>> etfs;
        std::map<std::string, boost::shared_ptr<CBondInfoDetail>> bonds;
        std::map<std::string, boost::shared_ptr<CCounterpartyDetail>> counterparties;
        std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>> tenderBonds;
        std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>> settings;
        std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>> issuances;
        std::vector<boost::shared_ptr<COTCFundPlanInfo>> plans;
        for (int i = 0; i < kStable; ++i) {
            const std::string code = stable(i);
            etfs.push_back(aged(etf("SH", code, "pr" + code), generation));
            bonds[code] = aged(bond(code), generation);
            counterparties[code] = aged(counterparty(code), generation);
            tenderBonds[code] = aged(tenderBond(code), generation);
            settings[code] = priceSetting(code, generation);
            issuances.push_back(aged(issuance(code), generation));
            plans.push_back(aged(plan(code, (i + generation) % kGroups), generation));
        }
        center.initEtfs(etfs);
        center.initBonds(bonds);
        // From the second generation on by changes where the center takes them.
        if (generation == 1) {
            center.initIssuanceInfos(issuances);
            center.initCounterpartys(counterparties);
            center.initTenderBondInfos(tenderBonds);
            center.initIssuancePriceInfos(settings);
            center.initOtcInstruments(plans);
            return;
        }
        const auto come = issuance("passing", "0");
        center.updateIssuanceInfos(generation % 2 == 0 ? 0 : 2, issuances);
        center.updateIssuanceInfos(0, {come});
        center.updateIssuanceInfos(3, {come});
        if (kClient) {
            for (const auto& [id, record] : counterparties) {
                center.updateCounterpartyInfo(record);
            }
            center.updateCounterpartyInfo(aged(counterparty("passing"), 0));
            center.updateCounterpartyInfo(counterparty("passing", true));
            for (const auto& [code, setting] : settings) {
                center.updateIssuancePriceInfo(generation % 2 == 0 ? 0 : 2, setting);
            }
            center.initTenderBondInfos(tenderBonds);
            center.initOtcInstruments(plans);
        } else {
            center.initCounterpartys(counterparties);
            std::vector<boost::shared_ptr<CTenderBondInfoDetail>> changed;
            for (const auto& [code, record] : tenderBonds) {
                changed.push_back(record);
            }
            center.updateTenderBondInfos(changed);
            center.updateOtcInstruments(plans);
        }
    }

    /// Asks until `done`, at least once.
    std::vector<std::thread> startReaders(int count, const std::atomic<bool>& done) {
        std::vector<std::thread> readers;
        for (int number = 0; number < count; ++number) {
            readers.emplace_back([this, number, &done] {
                Reader reader(this->asked(), faults_);
                int round = number;
                do {
                    reader.ask(round++);
                } while (!done.load());
            });
        }
        return readers;
    }

    Faults faults_;
};

TYPED_TEST_SUITE(Stress, BothCenterKinds);

TYPED_TEST(Stress, EveryAnswerIsOfOneMomentAndTimeNeverRunsBackwards) {
    this->loadStocks(1);
    this->loadOthers(1);
    this->loadSecondary(1);
    std::atomic<bool> done{false};
    std::vector<std::thread> readers = this->startReaders(3, done);
    const auto writer = [&](auto load) {
        return std::thread([this, load] {
            for (int generation = 2; generation <= this->last_; ++generation) {
                load(generation);
            }
        });
    };
    std::vector<std::thread> writers;
    writers.push_back(writer([this](int generation) { this->loadStocks(generation); }));
    writers.push_back(writer([this](int generation) { this->loadOthers(generation); }));
    writers.push_back(writer([this](int generation) { this->loadSecondary(generation); }));
    for (std::thread& thread : writers) {
        thread.join();
    }
    done = true;
    for (std::thread& thread : readers) {
        thread.join();
    }
    EXPECT_EQ(this->faults_.count(), 0) << this->faults_.first();

    // Now that it is quiet, everything is of the last generation.
    IInstrumentCenter& center = this->asked();
    for (const std::vector<std::string>* const markets : {&kStockMarkets, &kOtherMarkets}) {
        for (const std::string& market : *markets) {
            const InstrumentMap records = center.getInstruments(market);
            EXPECT_EQ(records.size(), kMarketSize) << market;
            for (const auto& [key, record] : records) {
                EXPECT_EQ(ageOf(*record), this->last_) << key;
                EXPECT_EQ(ageOf(*center.getInstrument(key)), this->last_) << key;
            }
        }
    }
    EXPECT_EQ(center.getInstruments("HK").size(), static_cast<std::size_t>(kStable));
    EXPECT_EQ(center.getIssuanceInfos().size(), static_cast<std::size_t>(kStable));
    EXPECT_EQ(center.getCounterpartys().size(), static_cast<std::size_t>(kStable));
    EXPECT_EQ(center.getOtcInstruments().size(), static_cast<std::size_t>(kStable));
    EXPECT_EQ(ageOf(*center.getBond("BANK" + stable(0))), this->last_);
    EXPECT_EQ(ageOf(*center.getEtf("SH" + stable(0))), this->last_);
}

}  // namespace
}  // namespace mxservice
