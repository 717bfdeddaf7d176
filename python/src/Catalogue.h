#pragma once

// What centers and views have in common, and the two centers.

#include <pybind11/pybind11.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "base/instrumentcenter/InstrumentView.h"
#include "snapshot/Snapshot.h"
#include "src/Interpreter.h"

namespace binding {

using mxservice::CInstrumentDetail;
using mxservice::EOvTraderType;
using Instrument = boost::shared_ptr<CInstrumentDetail>;
using Instruments = std::vector<Instrument>;
using InstrumentMap = std::map<std::string, Instrument>;

/// What both centers and a view answer. Called without the interpreter's lock, but for what takes less than letting go
/// of it: a predicate, or one record of what is in memory.
class Catalogue {
public:
    virtual ~Catalogue() = default;

    virtual Instrument get(const std::string& key) = 0;
    virtual Instrument get(std::uint64_t key) = 0;
    virtual Instrument get(const std::string& market, const std::string& code) = 0;
    virtual void resolve(const std::uint64_t* keys, std::size_t count, Instrument* out) = 0;
    virtual bool has(const std::string& key) = 0;
    /// Whether lookups read nothing from disk.
    virtual bool inMemory() const = 0;

    virtual InstrumentMap instruments() = 0;
    virtual InstrumentMap instruments(const std::list<std::string>& markets) = 0;
    virtual InstrumentMap instruments(EOvTraderType type) = 0;
    virtual Instruments contracts(const std::string& productId) = 0;
    virtual Instruments chain(const std::string& market, const std::string& code) = 0;
    virtual Instruments listed(const std::string& day) = 0;
    virtual Instruments expiring(const std::string& day) = 0;
    virtual Instruments bondListings(const std::string& bondCode) = 0;
    virtual std::uint64_t version() = 0;
};

class Center : public Catalogue {
public:
    virtual mxservice::IInstrumentCenter& operations() = 0;
    /// Every catalogue that has records, which are the center's from now on; in the center in memory all as one
    /// version.
    virtual void load(const mxservice::Snapshot& day) = 0;
    virtual bool hasNyseStock(const std::string& key) = 0;
    virtual bool hasNasdaqStock(const std::string& key) = 0;
    virtual void replaceInstruments(const std::vector<std::string>& markets, const Instruments& records) = 0;
    virtual void removeMarkets(const std::vector<std::string>& markets) = 0;
    virtual void applyChanges(const Instruments& upserts, const std::vector<std::string>& removedKeys) = 0;
    virtual mxservice::Subscription subscribe(std::function<void(const mxservice::CatalogueChange&)> handler) = 0;
    virtual mxservice::CenterStatistics statistics() = 0;
};

/// What all three classes call alike, in front of `Base`.
template <class Base, class Implementation>
class CatalogueOf : public Base {
public:
    template <class... Arguments>
    explicit CatalogueOf(Arguments&&... arguments) : catalogue_(std::forward<Arguments>(arguments)...) {}

    bool has(const std::string& key) override { return catalogue_.hasCode(key); }
    void resolve(const std::uint64_t* keys, std::size_t count, Instrument* out) override {
        catalogue_.resolve(keys, count, out);
    }
    InstrumentMap instruments() override { return catalogue_.getInstruments(); }
    InstrumentMap instruments(const std::list<std::string>& markets) override {
        return catalogue_.getInstruments(markets);
    }
    InstrumentMap instruments(EOvTraderType type) override { return catalogue_.getInstruments(type); }
    Instruments contracts(const std::string& productId) override { return catalogue_.getContracts(productId); }
    Instruments chain(const std::string& market, const std::string& code) override {
        return catalogue_.getOptionChain(market, code);
    }
    Instruments listed(const std::string& day) override { return catalogue_.getListed(day); }
    Instruments expiring(const std::string& day) override { return catalogue_.getExpiring(day); }
    Instruments bondListings(const std::string& bondCode) override { return catalogue_.getBondListings(bondCode); }
    std::uint64_t version() override { return catalogue_.version(); }

protected:
    Implementation catalogue_;
};

template <class Implementation>
class CenterOf : public CatalogueOf<Center, Implementation> {
public:
    using CatalogueOf<Center, Implementation>::CatalogueOf;

    Instrument get(const std::string& key) override { return center().getInstrument(key); }
    Instrument get(std::uint64_t key) override { return center().getInstrument(key); }
    Instrument get(const std::string& market, const std::string& code) override {
        return center().getInstrument(market, code);
    }
    mxservice::IInstrumentCenter& operations() override { return center(); }
    void load(const mxservice::Snapshot& day) override {
        if constexpr (std::is_same_v<Implementation, mxservice::CServerInstrumentCenter>) {
            center().loadTogether([&] { day.loadInto(center()); });
        } else {
            day.loadInto(center());
        }
    }
    bool hasNyseStock(const std::string& key) override { return center().hasNyseStock(key); }
    bool hasNasdaqStock(const std::string& key) override { return center().hasNasdaqStock(key); }
    void replaceInstruments(const std::vector<std::string>& markets, const Instruments& records) override {
        center().replaceInstruments(markets, records);
    }
    void removeMarkets(const std::vector<std::string>& markets) override { center().removeMarkets(markets); }
    void applyChanges(const Instruments& upserts, const std::vector<std::string>& removedKeys) override {
        center().applyChanges(upserts, removedKeys);
    }
    mxservice::Subscription subscribe(std::function<void(const mxservice::CatalogueChange&)> handler) override {
        return center().subscribe(std::move(handler));
    }
    mxservice::CenterStatistics statistics() override { return center().statistics(); }

protected:
    Implementation& center() { return this->catalogue_; }
};

class View : public CatalogueOf<Catalogue, mxservice::InstrumentView> {
public:
    using CatalogueOf::CatalogueOf;

    Instrument get(const std::string& key) override { return catalogue_.get(key); }
    Instrument get(std::uint64_t key) override { return catalogue_.get(key); }
    Instrument get(const std::string& market, const std::string& code) override { return get(market + code); }
    bool inMemory() const override { return true; }
    const mxservice::InstrumentView& operations() { return catalogue_; }
};

class ServerCenter : public CenterOf<mxservice::CServerInstrumentCenter> {
public:
    using CenterOf::CenterOf;
    bool inMemory() const override { return true; }
    mxservice::InstrumentView view() { return catalogue_.view(); }
};

class ClientCenter : public CenterOf<mxservice::CClientInstrumentCenter> {
public:
    using CenterOf::CenterOf;
    bool inMemory() const override { return false; }
};

namespace py = pybind11;

template <class T, class Base>
using CatalogueClass = py::class_<T, Base, std::shared_ptr<T>>;

/// Loads and destruction wait for others and must not hold the interpreter's lock.
template <class T, class... Arguments>
std::shared_ptr<T> makeShared(Arguments&&... arguments) {
    const Released released;
    return std::shared_ptr<T>(new T(std::forward<Arguments>(arguments)...), ReleasedDelete<T>());
}

// Each adds its part to the module, in this order.
void addCatalogue(py::module_& module);
void addStatistics(py::module_& module);
void addCenters(py::module_& module);

/// By their Python names.
const std::vector<std::pair<const char*, EOvTraderType>>& traderTypes();

}  // namespace binding
