#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/instrumentcenter/Guarded.h"
#include "base/instrumentcenter/Subscribers.h"
#include "base/instrumentcenter/catalogue/CodeSets.h"
#include "base/instrumentcenter/catalogue/GroupedSnapshot.h"
#include "base/instrumentcenter/catalogue/LoadLedger.h"
#include "system/Published.h"

namespace mxservice {

/// What happens to records of a load's markets that the load does not bring.
enum class Others : bool { Keep, Drop };

/// A part of a version that a change may replace: versions share what neither has changed.
template <class Table>
class Part {
public:
    const Table& operator*() const { return *table_; }
    const Table* operator->() const { return table_.get(); }

    /// Whether both are one table: neither has changed since one was copied from the other.
    bool sharesWith(const Part& other) const { return table_ == other.table_; }

    /// The table to be changed, a copy of the one that other versions share. The reference goes with the next change.
    Table& own() {
        auto copy = std::make_shared<Table>(*table_);
        Table& table = *copy;
        table_ = std::move(copy);
        return table;
    }
    /// Replaces the table whole.
    void set(Table table) { table_ = std::make_shared<const Table>(std::move(table)); }

private:
    std::shared_ptr<const Table> table_ = std::make_shared<const Table>();
};

/// What a table holds under the key, or nothing: an empty pointer, an empty text.
template <class Table, class Key>
typename Table::mapped_type in(const Table& table, const Key& key) noexcept(
    std::is_nothrow_copy_constructible_v<typename Table::mapped_type>) {
    const auto found = table.find(key);
    return found == table.end() ? typename Table::mapped_type() : found->second;
}

/// One state of a catalogue, immutable once it is published: everything asked of one version is of one moment.
struct Version : std::enable_shared_from_this<Version> {
    virtual ~Version() = default;
    /// A version to be changed, which shares its tables with this one.
    virtual std::shared_ptr<Version> copy() const = 0;
    /// Called once it is changed, before it is published: `former` is what it is a copy of.
    virtual void settle(const Version& /*former*/) {}

    std::uint64_t number = 0;  // grows by one with every version
    Part<CodeSets> codeSets;
    Part<std::map<std::string, std::string>> lumoCodes;  // platform code by instrument code

protected:
    Version() = default;
    Version(const Version&) = default;  // shares the tables; who owns a copy is another question
    Version& operator=(const Version&) = delete;
};

/// A version with nothing but what the interface itself answers from.
struct PlainVersion final : Version {
    std::shared_ptr<Version> copy() const override { return std::make_shared<PlainVersion>(*this); }
};

/// Adds the catalogues beside the instruments whose tables are others in the fresh version.
template <class CenterVersion>
void addCatalogues(const CenterVersion& former, const CenterVersion& fresh, CatalogueChange& change) {
    const auto add = [&](const auto& was, const auto& is, const char* name) {
        if (!is.sharesWith(was)) {
            change.catalogues.emplace_back(name);
        }
    };
    add(former.etfs, fresh.etfs, "etfs");
    add(former.bonds, fresh.bonds, "bonds");
    add(former.tenderBonds, fresh.tenderBonds, "tenderbonds");
    add(former.counterparties, fresh.counterparties, "counterparties");
    add(former.plans, fresh.plans, "otcfundplans");
    add(former.issuances, fresh.issuances, "issuances");
    if constexpr (requires { fresh.priceSettings; }) {  // the persisted center's alone
        add(former.priceSettings, fresh.priceSettings, "issuanceprices");
    }
}

/// What the interface itself keeps.
struct InterfaceState {
    sys::Published<Version> versions{std::make_shared<const PlainVersion>()};
    Subscribers subscribers;
    Guarded<LoadLedger> loads;
    std::recursive_mutex connectLock;                                    // guards connectSnapshots
    std::map<std::string, std::vector<InstrumentPtr>> connectSnapshots;  // by "HGT", "SGT", "HK"

    /// Between two publications: each is told, or was seen by whoever asks from now on.
    Subscription subscribe(ChangeHandler handler, Executor executor) {
        if (isTogether()) {
            // The thread holds already what between() would wait for. The draft still has the number of what can be
            // seen, so the version that it becomes will be told.
            return subscribers.add(std::move(handler), std::move(executor), draft_->number);
        }
        return versions.between([&](const Version& current) {
            return subscribers.add(std::move(handler), std::move(executor), current.number);
        });
    }

    /// Tells the former and the fresh version apart; null for what nobody needs to be told.
    using MakeDifference = std::function<Subscribers::Difference(std::shared_ptr<const Version> former,
                                                                 std::shared_ptr<const Version> fresh)>;

    /// Publishes a version that `change` has made of the current one. With `difference`, subscribers are to be told.
    template <class Change>
    void publish(const Change& change, const MakeDifference& difference = nullptr) {
        if (const auto note = publishUnshown(change, difference)) {
            subscribers.show(*note);
        }
    }

    /// The same where more is to be published before it can be told. The note, if there is one, must be shown.
    template <class Change>
    std::shared_ptr<Subscribers::Note> publishUnshown(const Change& change, const MakeDifference& difference) {
        if (isTogether()) {
            // On a copy: what throws must leave the draft as it was, for whoever catches it may go on.
            auto next = draft_->copy();
            change(*next);
            draft_ = std::move(next);
            return nullptr;
        }
        std::shared_ptr<Subscribers::Note> note;
        versions.update([&](const Version& current) {
            std::shared_ptr<Version> fresh = current.copy();
            change(*fresh);
            note = settle(current, fresh, difference);
            return fresh;
        });
        return note;
    }

    /// Publishes whatever this thread publishes in `task` as one version; none where that is nothing. Who else
    /// publishes waits from the beginning, or what it brought in between would be lost. A task that throws publishes
    /// nothing.
    template <class Task>
    void publishTogether(const Task& task, const MakeDifference& difference) {
        if (isTogether()) {
            // Within another one: part of that, but for what it throws.
            const auto before = draft_;
            try {
                task();
            } catch (...) {
                draft_ = before;
                throw;
            }
            return;
        }
        std::shared_ptr<Subscribers::Note> note;
        versions.update([&](const Version& current) -> std::shared_ptr<const Version> {
            const auto first = current.copy();
            const Drafting drafting(*this, first);
            task();
            if (draft_ == first) {
                return current.shared_from_this();
            }
            note = settle(current, draft_, difference);
            return draft_;
        });
        if (note) {
            subscribers.show(*note);
        }
    }

    /// Whether the calling thread is within publishTogether().
    bool isTogether() const { return drafter_ == std::this_thread::get_id(); }

private:
    /// Makes the calling thread's publications go into a draft, for as long as it lives.
    class Drafting {
    public:
        Drafting(InterfaceState& state, std::shared_ptr<Version> draft) : state_(state) {
            state_.draft_ = std::move(draft);
            state_.drafter_ = std::this_thread::get_id();
        }
        ~Drafting() {
            state_.drafter_ = std::thread::id();
            state_.draft_ = nullptr;
        }
        Drafting(const Drafting&) = delete;
        Drafting& operator=(const Drafting&) = delete;

    private:
        InterfaceState& state_;
    };

    /// Makes `fresh` ready to be published in the place of `current`. Answers the note, if there is anybody to tell.
    std::shared_ptr<Subscribers::Note> settle(const Version& current, const std::shared_ptr<Version>& fresh,
                                              const MakeDifference& difference) {
        fresh->settle(current);
        ++fresh->number;
        if (difference && subscribers.any()) {
            // Here, where no other change is made, so that they are noted in their order.
            if (auto derive = difference(current.shared_from_this(), fresh)) {
                return subscribers.note(fresh->number, std::move(derive));
            }
        }
        return nullptr;
    }

    // Other threads only compare themselves with the one that drafts; the draft is that thread's own.
    std::atomic<std::thread::id> drafter_{};
    std::shared_ptr<Version> draft_;
};

}  // namespace mxservice
