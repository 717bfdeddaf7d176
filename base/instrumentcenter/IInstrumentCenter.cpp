#include "base/instrumentcenter/IInstrumentCenter.h"

#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

namespace mxservice {
namespace {

std::set<std::string> unionOf(const std::map<std::string, std::set<std::string>>& setByMarket) {
    std::set<std::string> all;
    for (const auto& [market, entries] : setByMarket) {
        all.insert(entries.begin(), entries.end());
    }
    return all;
}

}  // namespace

IInstrumentCenter::IInstrumentCenter() : state_(std::make_unique<InterfaceState>()) {}

IInstrumentCenter::~IInstrumentCenter() = default;

bool IInstrumentCenter::isCommodityProduct(const std::string& /*productId*/) {
    return false;
}

bool IInstrumentCenter::isInterestProduct(const std::string& /*productId*/) {
    return false;
}

void IInstrumentCenter::clearPersist(const std::string& /*path*/) {}

std::set<std::string> IInstrumentCenter::getStockIpoCodes() const {
    return unionOf(state_->codeSets.read()->ipoCodes);
}

std::set<std::string> IInstrumentCenter::getStockCdrCodes() const {
    return unionOf(state_->codeSets.read()->cdrCodes);
}

std::set<std::string> IInstrumentCenter::getNeeqInquiryCodes() const {
    return state_->codeSets.read()->neeqInquiryCodes;
}

bool IInstrumentCenter::isStkOptionUndlCode(const std::string& market, const std::string& code) const {
    const std::uint64_t key = textKey(code);
    const auto sets = state_->codeSets.read();
    const auto found = sets->stkOptionUndlCodes.find(market);
    return found != sets->stkOptionUndlCodes.end() && found->second.count(key) != 0;
}

std::string IInstrumentCenter::getLumoCode(const std::string& code) const {
    const auto sets = state_->codeSets.read();
    const auto found = sets->lumoCodes.find(code);
    return found == sets->lumoCodes.end() ? code : found->second;
}

// What is replaced is destroyed after the lock.

void IInstrumentCenter::setStockIpoCodes(const std::string& market, std::set<std::string> codes) {
    state_->codeSets.write()->ipoCodes[market].swap(codes);
}

void IInstrumentCenter::setStockCdrCodes(const std::string& market, std::set<std::string> codes) {
    state_->codeSets.write()->cdrCodes[market].swap(codes);
}

void IInstrumentCenter::setNeeqInquiryCodes(std::set<std::string> codes) {
    state_->codeSets.write()->neeqInquiryCodes.swap(codes);
}

void IInstrumentCenter::setStkOptionUndlCodes(const std::string& market, const std::set<std::string>& codes) {
    std::set<std::uint64_t> keys;
    for (const std::string& code : codes) {
        keys.insert(textKey(code));
    }
    state_->codeSets.write()->stkOptionUndlCodes[market].swap(keys);
}

void IInstrumentCenter::setLumoCodes(std::map<std::string, std::string> platformCodeByCode) {
    state_->codeSets.write()->lumoCodes.swap(platformCodeByCode);
}

}  // namespace mxservice
