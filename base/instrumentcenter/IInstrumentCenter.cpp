#include "base/instrumentcenter/IInstrumentCenter.h"

#include <utility>

#include "base/instrumentcenter/InterfaceState.h"
#include "base/instrumentcenter/Version.h"
#include "base/instrumentcenter/vocabulary/Keys.h"

// What both centers answer from the code sets. The two kinds of reading differ in who waits: who publishes waits for a
// question, which is short, and not for the copy of a set, which holds its version instead.

// Each number as text; in two steps, so that the macro's value is taken and not its name.
#define PM_TEXT_OF(number) #number
#define PM_VERSION_TEXT(major, minor, patch) PM_TEXT_OF(major) "." PM_TEXT_OF(minor) "." PM_TEXT_OF(patch)

namespace mxservice {

const char* version() noexcept {
    return PM_VERSION_TEXT(PM_INSTRUMENTCENTER_VERSION_MAJOR, PM_INSTRUMENTCENTER_VERSION_MINOR,
                           PM_INSTRUMENTCENTER_VERSION_PATCH);
}

IInstrumentCenter::IInstrumentCenter() : state_(std::make_unique<InterfaceState>()) {}

IInstrumentCenter::~IInstrumentCenter() = default;

// Outer products, and a store to be cleared, are the persisted center's alone.

bool IInstrumentCenter::isCommodityProduct(const std::string& /*productId*/) {
    return false;
}

bool IInstrumentCenter::isInterestProduct(const std::string& /*productId*/) {
    return false;
}

void IInstrumentCenter::clearPersist(const std::string& /*path*/) {}

std::set<std::string> IInstrumentCenter::getStockIpoCodes() const {
    return unionOf(state_->versions.hold()->codeSets->ipoCodes);
}

std::set<std::string> IInstrumentCenter::getStockCdrCodes() const {
    return unionOf(state_->versions.hold()->codeSets->cdrCodes);
}

std::set<std::string> IInstrumentCenter::getNeeqInquiryCodes() const {
    return state_->versions.hold()->codeSets->neeqInquiryCodes;
}

bool IInstrumentCenter::isStkOptionUndlCode(const std::string& market, const std::string& code) const {
    const std::uint64_t key = textKey(code);  // before the version is asked: publishers wait for what is done there
    return state_->versions.ask(
        [&](const Version& version) noexcept { return isOptionUnderlying(*version.codeSets, market, key); });
}

std::string IInstrumentCenter::getLumoCode(const std::string& code) const {
    const auto version = state_->versions.hold();
    const auto found = version->lumoCodes->find(code);
    return found == version->lumoCodes->end() ? code : found->second;
}

// Where a set is swapped in, what was there goes with the argument, after the version is published.

void IInstrumentCenter::setStockIpoCodes(const std::string& market, std::set<std::string> codes) {
    state_->publish([&](Version& version) { version.codeSets.own().ipoCodes[market].swap(codes); });
}

void IInstrumentCenter::setStockCdrCodes(const std::string& market, std::set<std::string> codes) {
    state_->publish([&](Version& version) { version.codeSets.own().cdrCodes[market].swap(codes); });
}

void IInstrumentCenter::setNeeqInquiryCodes(std::set<std::string> codes) {
    state_->publish([&](Version& version) { version.codeSets.own().neeqInquiryCodes.swap(codes); });
}

void IInstrumentCenter::setStkOptionUndlCodes(const std::string& market, const std::set<std::string>& codes) {
    // As hashes, which is what they are asked by; the texts are in no answer.
    std::set<std::uint64_t> keys;
    for (const std::string& code : codes) {
        keys.insert(textKey(code));
    }
    state_->publish([&](Version& version) { version.codeSets.own().stkOptionUndlCodes[market].swap(keys); });
}

void IInstrumentCenter::setLumoCodes(std::map<std::string, std::string> platformCodeByCode) {
    state_->publish([&](Version& version) { version.lumoCodes.set(std::move(platformCodeByCode)); });
}

}  // namespace mxservice
