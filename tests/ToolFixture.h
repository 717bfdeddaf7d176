#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "TemporaryStore.h"
#include "tools/inscenter/Tool.h"

// The tool as a shell runs it, but in this process.

namespace tooltest {

struct Result {
    int code;
    std::string out;
    std::string err;
};

inline Result run(const std::vector<std::string>& arguments) {
    std::vector<const char*> argv{"inscenter"};
    for (const std::string& argument : arguments) {
        argv.push_back(argument.c_str());
    }
    std::ostringstream out;
    std::ostringstream err;
    const int code = inscenter::runTool(static_cast<int>(argv.size()), argv.data(), out, err);
    return {code, out.str(), err.str()};
}

inline std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// A text whose runs of blanks are one blank each: how wide a column is depends on everything else in it.
inline std::string squeezed(std::string text) {
    text.erase(std::unique(text.begin(), text.end(), [](char a, char b) { return a == ' ' && b == ' '; }), text.end());
    return text;
}

/// A day of a few records in all catalogues.
class ToolTest : public ::testing::Test {
protected:
    ToolTest() {
        write("instruments.ndjson", R"-({"market":"SH","code":"600000","name":"浦发银行","listingDate":"19991110"}
{"market":"SH","code":"510050","name":"50ETF"}
{"market":"SH","code":"730001","name":"申购","listingDate":"20260302"}
{"market":"SZ","code":"000002","name":"万科Ａ"}
{"market":"HK","code":"00700","name":"TENCENT"}
{"market":"HGT","code":"00005","name":"HSBC","connectFlagValue":3}
{"market":"SHO","code":"10000001","productId":"50ETF(510050)","optionType":1}
{"market":"DCE","code":"a2705","productId":"a","productName":"豆一","mainContractFlag":1}
{"market":"DCE","code":"a2705-C-100","productId":"a_o","optionType":1}
{"market":"DCE","code":"SPC a2705&m2705"}
{"market":"SHFE","code":"cu2705","productId":"cu"}
{"market":"NEEQ","code":"430001","securityClass":5}
{"market":"WP","code":"CL","productId":"CL","productName":"Crude","mainContractFlag":1,"productGroup":1,"listingDate":"NYMEX","outerMarketName":"Nymex"}
)-");
        write("etfs.ndjson", R"({"exchid":"SH","etfcode":"510050","prcode":"510051","stocks":[)"
                             R"({"market":"SH","code":"600000","name":"浦发银行","quantity":100}]})");
        write("bonds.ndjson", R"({"bondCode":"220001","bondName":"22国债01","shanghaiCode":"019547"})");
        write("tenderbonds.ndjson", R"({"code":"T1","name":"招标"})");
        write("counterparties.ndjson", R"({"id":"C1","name":"对手方"})");
        write("otcfundplans.ndjson", R"({"market":"SOTC","code":"P1","planType":2})");
        write("issuances.ndjson", R"({"code":"I1","name":"收益凭证"})");
        write("issuanceprices.ndjson", R"({"code":"I1","enquiryPrice":10.5})");
    }

    void write(const std::string& name, const std::string& bytes) {
        std::ofstream(day_.path() / name, std::ios::binary) << bytes;
    }

    /// Runs a verb on the day.
    Result ask(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--data", day_.path().string()});
        return run(arguments);
    }
    Result askClient(std::vector<std::string> arguments) {
        arguments.insert(arguments.end(), {"--center", "client", "--store", (store_.path() / "db").string()});
        return ask(std::move(arguments));
    }

    TemporaryDirectory day_;
    TemporaryDirectory store_;
};

}  // namespace tooltest
