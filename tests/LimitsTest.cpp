#include <gmock/gmock.h>
#include <gtest/gtest.h>

#ifndef _WIN32
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#endif

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include "tests/CenterFixture.h"
#include "tests/ChildProcess.h"
#include "tests/FromEnvironment.h"
#include "tests/LogCapture.h"
#include "tests/SecondaryRecords.h"

// Large markets, codes and documents; a system that has no more to give. Whatever the store has lost, memory answers.

namespace mxservice {
namespace {

namespace fs = std::filesystem;

std::string marketName(int number) {
    return "M" + std::to_string(number);
}

/// A day of so many markets, each record of which bears `name` and takes at least `bytes`.
void loadDay(IInstrumentCenter& center, int markets, int codes, const std::string& name, std::size_t bytes = 0) {
    std::vector<std::string> names;
    Instruments records;
    for (int market = 0; market < markets; ++market) {
        names.push_back(marketName(market));
        for (int code = 0; code < codes; ++code) {
            records.push_back(instrument(marketName(market), std::to_string(code)));
            records.back()->name = name;
            records.back()->productName = std::string(bytes, 'b');
        }
    }
    center.initInstruments(names, records);
    center.initEtfs({etf("SH", "510050", "510051")});
    center.initBonds({{"b", bond("240001")}});
    center.initOtcInstruments({plan("P1", 1, name)});
}

/// The lines at ERROR that hold the text.
std::size_t errorsWith(const LogCapture& capture, const std::string& text) {
    const auto lines = capture.lines();
    return static_cast<std::size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogCapture::Line& line) {
        return line.level >= utils::kLogError && line.text.find(text) != std::string::npos;
    }));
}

#ifndef _WIN32  // where nobody gives a process or a disk less

/// The first question about such a day that is not answered; empty when all are.
std::string unanswered(IInstrumentCenter& center, int markets, int codes, const std::string& name) {
    for (int market = 0; market < markets; ++market) {
        for (int code = 0; code < codes; ++code) {
            const auto record = center.getInstrument(marketName(market), std::to_string(code));
            if (!record || record->name != name) {
                return "no answer for " + marketName(market) + " " + std::to_string(code);
            }
        }
        if (center.getInstruments(marketName(market)).size() != static_cast<std::size_t>(codes)) {
            return "no list of " + marketName(market);
        }
    }
    const auto fund = center.getEtf("SH510050");
    const auto fundPlan = center.getOtcInstrument("SOTCP1");
    const bool others = fund && fund->etfCode == "510050" && center.getInstrument("ETFINSTS510051") &&
                        center.getBond("BANK240001") && fundPlan && fundPlan->name == name;
    return others ? std::string() : "no answer for a fund, bond or plan";
}

constexpr int kMarkets = 30;
constexpr int kCodes = 10;

/// Loads a day while the system lacks something: each record is answered and the log names the reason. Then a day when
/// it has it again, which must be in the store.
template <class Lack, class Heal>
std::string loadThrough(OpenClientCenter& center, const char* reason, std::size_t bytes, Lack lack, Heal heal) {
    std::string problem;
    {
        const LogCapture capture;
        problem = lack();
        if (problem.empty()) {
            loadDay(center, kMarkets, kCodes, "lacking", bytes);
            problem = unanswered(center, kMarkets, kCodes, "lacking");
        }
        if (problem.empty() &&
            (errorsWith(capture, reason) == 0 || errorsWith(capture, "save to persist failed") == 0)) {
            problem = std::string("no line says ") + reason;
        }
    }
    if (problem.empty()) {
        problem = heal();
    }
    const LogCapture capture;
    if (problem.empty()) {
        loadDay(center, kMarkets, kCodes, "healed", bytes);
        problem = unanswered(center, kMarkets, kCodes, "healed");
    }
    return problem.empty() && errorsWith(capture, "") > 0 ? "the load after it failed, too" : problem;
}

std::string failure(const char* what) {
    return std::string(what) + ": " + std::strerror(errno);
}

/// A file system in memory that only this process sees; it ends with it.
class SmallDisk {
public:
    explicit SmallDisk(fs::path directory) : directory_(std::move(directory)) {}

    std::string mountSized(const char* size) const {
        const bool mounted = ::unshare(CLONE_NEWNS) == 0 &&
                             ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                             ::mount("tmpfs", directory_.c_str(), "tmpfs", 0, size) == 0;
        return mounted ? std::string() : kNotHere + failure("a file system can be mounted by root alone");
    }
    std::string remount(unsigned long flags, const char* options) const {
        return ::mount("tmpfs", directory_.c_str(), "tmpfs", MS_REMOUNT | flags, options) == 0 ? std::string()
                                                                                               : failure("remount");
    }
    /// Takes all the room there is.
    std::string fill() const {
        std::ofstream file(directory_ / "filler", std::ios::binary);
        while (file.write(std::string(4096, 'f').data(), 4096).flush()) {
        }
        return {};
    }
    std::string empty() const {
        fs::remove(directory_ / "filler");
        return {};
    }

private:
    const fs::path directory_;
};

class Limits : public testing::Test {
protected:
    fs::path root() const { return directory_.path() / "store"; }
    static persist::CPersistService& service() { return TemporaryStore::service(); }

    /// Runs `work` with a center on a small disk, in a process of its own.
    template <class Work>
    void onSmallDisk(Work work) {
        const int status = inChild([&] {
            const SmallDisk disk(directory_.path());
            std::string problem = disk.mountSized("size=8m");
            if (problem.empty()) {
                service().setRootPath(root());
                OpenClientCenter center(1);
                problem = work(center, disk);
            }
            return problem;
        });
        if (status == kSkipped) {
            GTEST_SKIP() << "no file system can be mounted here";
        }
        EXPECT_EQ(status, 0);
    }

    const TemporaryDirectory directory_;
};

TEST_F(Limits, OfTheDiskWhileALoadGrows) {
    onSmallDisk([](OpenClientCenter& center, const SmallDisk& disk) {
        loadDay(center, kMarkets, kCodes, "before");
        constexpr std::size_t kBytes = 30000;  // of each record, so that no day fits
        return loadThrough(
            center, "No space left", kBytes, [] { return std::string(); }, [&] { return disk.remount(0, "size=64m"); });
    });
}

TEST_F(Limits, OfADiskThatIsFullFromTheStart) {
    onSmallDisk([](OpenClientCenter& center, const SmallDisk& disk) {
        return loadThrough(
            center, "No space left", 0, [&] { return disk.fill(); }, [&] { return disk.empty(); });
    });
}

TEST_F(Limits, OfARootThatIsReadOnly) {
    onSmallDisk([this](OpenClientCenter& center, const SmallDisk& disk) {
        center.initInstruments({"SZ"}, {instrument("SZ", "1")});
        const auto lack = [&] {
            service().setRootPath(root());  // closes what is open for writing
            return disk.remount(MS_RDONLY, nullptr);
        };
        std::string problem = loadThrough(center, "Read-only file system", 0, lack, [&] {
            const bool served = center.getInstrument("SZ1") != nullptr;
            return served ? disk.remount(0, nullptr) : "what is on the disk cannot be read";
        });
        return problem;
    });
}

TEST_F(Limits, OfFileDescriptors) {
#if defined(__SANITIZE_ADDRESS__)
    // It goes with UndefinedBehaviorSanitizer, which opens a pipe to look at an object before it trusts its class.
    GTEST_SKIP() << "the sanitizer needs file descriptors of its own";
#endif
    constexpr rlim_t kFiles = 64;
    EXPECT_EQ(inChild([&] {
                  rlimit limit{};
                  ::getrlimit(RLIMIT_NOFILE, &limit);
                  const auto allow = [&](rlim_t files) {
                      const rlimit changed{files, limit.rlim_max};
                      return ::setrlimit(RLIMIT_NOFILE, &changed) == 0 ? std::string() : failure("setrlimit");
                  };
                  service().setRootPath(root());
                  OpenClientCenter center(1);
                  return loadThrough(
                      center, "Too many open files", 0, [&] { return allow(kFiles); },
                      [&] { return allow(std::max<rlim_t>(limit.rlim_cur, 1024)); });
              }),
              0);
}

#endif

template <class Kind>
class LargeLimits : public testing::Test {
protected:
    LargeLimits() { TemporaryStore::service().setRootPath((directory_.path() / "store").string()); }
    ~LargeLimits() override { TemporaryStore::service().setRootPath(""); }
    typename Kind::Center center_;

private:
    const TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
};

TYPED_TEST_SUITE(LargeLimits, BothCenterKinds);

TYPED_TEST(LargeLimits, OfAMarket) {
    const int codes = static_cast<int>(fromEnvironment("PM_RECORDS", 20000));
    const LogCapture capture;
    loadDay(this->center_, 1, codes, "one of many");
    IInstrumentCenter& asked = this->center_;
    for (const int code : {0, codes / 3, codes - 1}) {
        ASSERT_TRUE(asked.getInstrument("M0", std::to_string(code)));
    }
    EXPECT_FALSE(asked.getInstrument("M0", std::to_string(codes)));
    EXPECT_EQ(asked.getInstruments("M0").size(), static_cast<std::size_t>(codes));
    loadDay(this->center_, 1, codes / 2, "one of half as many");
    EXPECT_EQ(asked.getInstruments("M0").size(), static_cast<std::size_t>(codes / 2));
    EXPECT_EQ(errorsWith(capture, ""), 0U);
}

TYPED_TEST(LargeLimits, OfCodesAndTexts) {
    const std::string code(10000, 'c');
    const InstrumentPtr record = instrument("DCE", code);
    record->productId = std::string(10000, 'p');
    record->mainContractFlag = 1;
    IInstrumentCenter& asked = this->center_;
    this->center_.initInstruments({"DCE", "HGT"}, {record, instrument("HGT", code), instrument("DCE", code + "2")});
    this->center_.initEtfs({etf("SH", code, code + "r")});
    EXPECT_EQ(asked.getInstrument("DCE" + code)->code, code);
    EXPECT_EQ(asked.getInstrument("SGT" + code)->code, code);
    EXPECT_TRUE(asked.hasFuture("DCE" + code) && !asked.getInstrument("DCE" + code + "3"));
    EXPECT_EQ(asked.getInstruments("DCE").size(), 2U);
    EXPECT_EQ(asked.getFutureMainInstruments("DCE").size(), 1U);
    EXPECT_EQ(asked.getProductId("DCE", code), record->productId);
    EXPECT_EQ(asked.getEtf("SH" + code + "r")->etfCode, code);
}

TYPED_TEST(LargeLimits, OfADocument) {
    const InstrumentPtr largest = instrument("SZ", "1");
    largest->name.clear();
    std::string bytes;
    ASSERT_TRUE(largest->appendDocument(bytes));
    largest->name = std::string(bson::kMaxDocumentBytes - bytes.size(), 'n');
    const InstrumentPtr larger = instrument("SH", "1");
    larger->name = largest->name + largest->name;
    const LogCapture capture;
    this->center_.initInstruments({"SZ", "SH"}, {largest, larger, instrument("SH", "2")});
    IInstrumentCenter& asked = this->center_;
    ASSERT_TRUE(asked.getInstrument("SZ1") && asked.getInstrument("SH1"));
    EXPECT_EQ(asked.getInstrument("SZ1")->name.size(), largest->name.size());
    EXPECT_EQ(asked.getInstrument("SH1")->name.size(), larger->name.size()) << "too large for a document";
    EXPECT_TRUE(asked.getInstrument("SH2"));
    EXPECT_EQ(asked.getInstruments("SH").size(), 2U);
    const bool stores = std::is_same_v<TypeParam, ClientKind>;
    EXPECT_EQ(errorsWith(capture, "save to persist failed, market = SH"), stores ? 1U : 0U);
    EXPECT_EQ(errorsWith(capture, "save to persist failed, market = SZ"), 0U) << "16 MiB exactly can be stored";
}

}  // namespace
}  // namespace mxservice
