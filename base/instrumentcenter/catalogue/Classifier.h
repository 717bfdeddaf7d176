#pragma once

#include <string>

#include "base/instrumentcenter/catalogue/CodeIndex.h"

namespace mxservice {

/// What kind of instrument a stock key text names, by the market it is filed under. Both centers ask the same
/// questions of their code index; where they differ, there are two operations here. Safe from any thread.
class Classifier {
public:
    explicit Classifier(const CodeIndex& index) : index_(index) {}

    bool isCode(const std::string& keyText) const;
    bool isStock(const std::string& keyText) const;
    /// Also the answer for futures options: the exchanges list both under one market, and the predicate for futures
    /// options deliberately asks no more than that.
    bool isFuture(const std::string& keyText) const;
    bool isOption(const std::string& keyText) const;
    bool isNeeq(const std::string& keyText) const;
    bool isGold(const std::string& keyText) const;
    bool isBond(const std::string& keyText) const;
    bool isOuterFuture(const std::string& keyText) const;
    bool isNyseStock(const std::string& keyText) const;
    bool isNasdaqStock(const std::string& keyText) const;

    /// Filed under "HK"; folds a leading "SGT" but deliberately not "HGT".
    bool isHongKongStock(const std::string& keyText) const;
    /// Filed under "HGT"; folds a leading "HGT" but deliberately not "SGT". The in-memory center's question, which no
    /// load of its own answers with yes: connect listings are filed under "HK".
    bool isFiledUnderShanghaiConnect(const std::string& keyText) const;
    /// Filed under "HK"; folds both connect prefixes. The persisted center's question.
    bool isConnectStock(const std::string& keyText) const;

private:
    const CodeIndex& index_;
};

}  // namespace mxservice
