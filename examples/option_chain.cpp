// The options on something, as a trader's screen shows them: a line a strike, calls left, puts right, expiry by expiry.
//
//     option_chain DIR MARKET CODE      such as: option_chain samples SH 510050

#include <exception>
#include <iomanip>
#include <iostream>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "snapshot/Snapshot.h"

namespace {

using Records = std::vector<boost::shared_ptr<mxservice::CInstrumentDetail>>;

void printChain(const Records& chain) {
    std::cout << "expiry      strike  call              put\n";
    // The chain comes in this order already; the map brings call and put of one strike together.
    std::map<std::pair<std::string, double>, std::pair<std::string, std::string>> lines;
    for (const auto& option : chain) {
        auto& line = lines[{option->expireDate, option->strikePrice}];
        (option->optionType == 1 ? line.first : line.second) = option->code;
    }
    for (const auto& [where, codes] : lines) {
        std::cout << where.first << std::setw(10) << where.second << "  " << std::left << std::setw(18) << codes.first
                  << std::right << codes.second << '\n';
    }
}

int run(const std::string& directory, const std::string& market, const std::string& code) {
    const mxservice::Snapshot day = mxservice::Snapshot::read(directory);
    if (day.skippedLines + day.skippedFiles > 0)
        std::cerr << day.skippedLines << " lines and " << day.skippedFiles << " files could not be used\n";
    mxservice::CServerInstrumentCenter center("instruments");
    day.loadInto(center);

    const auto underlying = center.getInstrument(market, code);
    if (!underlying) {
        std::cerr << market << code << " is unknown on this day\n";
        return 1;
    }
    // A miss is an empty chain. The first question of a day makes the table that all later ones are answered from.
    const Records chain = center.getOptionChain(market, code);
    std::cout << market << code << ' ' << underlying->name << ": " << chain.size() << " options\n";
    if (chain.empty())
        return 0;
    printChain(chain);

    const std::string expiry = chain.front()->expireDate;
    std::cout << "of all markets " << center.getExpiring(expiry).size() << " instruments end on " << expiry << ", "
              << center.getListed(underlying->tradingDay).size() << " are new on " << underlying->tradingDay << '\n';
    if (center.hasFuture(market + code)) {
        std::cout << "contracts of " << underlying->productId << ':';
        for (const auto& contract : center.getContracts(underlying->productId)) {
            std::cout << ' ' << contract->code << (contract->mainContractFlag == 1 ? "*" : "");
        }
        std::cout << "   * main contract\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        std::cerr << "usage: option_chain DIR MARKET CODE\n";
        return 2;
    }
    try {
        return run(argv[1], argv[2], argv[3]);
    } catch (const std::exception& failure) {  // nothing of the directory could be read
        std::cerr << failure.what() << '\n';
        return 2;
    }
}
