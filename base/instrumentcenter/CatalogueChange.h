#pragma once

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/instrumentcenter/Export.h"
#include "base/instrumentcenter/IInstrumentCenter.h"

namespace mxservice {

/// What one load or update has changed in a center, for those who subscribed. By the time that it is told, questions
/// are answered from it, or from something newer.
struct CatalogueChange {
    /// A record that a market lists anew, no longer, or with other fields. Records that were handed in again with equal
    /// fields are in no item, nor is a record that stays the same object, whatever was changed in it.
    struct Item {
        boost::shared_ptr<CInstrumentDetail> before;  ///< null: added
        boost::shared_ptr<CInstrumentDetail> after;   ///< null: removed
    };

    std::uint64_t version = 0;         ///< that readers have by then, or a later one
    std::vector<std::string> markets;  ///< whose listings were brought, changed or not, by their folded names
    std::vector<Item> instruments;     ///< in no particular order
    /// Other catalogues that were brought or updated, without their records: "etfs", "bonds", "tenderbonds",
    /// "counterparties", "otcfundplans", "issuances", "issuanceprices".
    std::vector<std::string> catalogues;
};

/// Given a task, runs it, now or later, on whatever thread; each task once.
using Executor = std::function<void(std::function<void()>)>;

/// The document keys of the fields in which two records of one class differ, in the order of the class's table; every
/// key of both where their classes differ. Safe from any thread.
PM_CENTER_API std::vector<std::string> changedFields(const IData& before, const IData& after);

struct Subscriber;

/// A subscription, which ends with this object. It may outlive the center; then it does nothing.
class PM_CENTER_API Subscription {
public:
    /// Of nothing.
    Subscription();
    /// For the centers.
    explicit Subscription(std::shared_ptr<Subscriber> subscriber);
    /// Unsubscribes. Waits for a call of the handler that another thread is running; called by the handler itself, it
    /// does not wait. From then on the handler is not called.
    ~Subscription();
    Subscription(Subscription&& other) noexcept;             ///< leaves `other` of nothing
    Subscription& operator=(Subscription&& other) noexcept;  ///< unsubscribes first
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

private:
    std::shared_ptr<Subscriber> subscriber_;
};

}  // namespace mxservice
