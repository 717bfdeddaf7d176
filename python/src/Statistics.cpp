#include <pybind11/chrono.h>

#include "base/instrumentcenter/CenterStatistics.h"
#include "src/Casters.h"
#include "src/Catalogue.h"

namespace binding {
namespace {

using namespace mxservice;

/// A struct of the library with its members as attributes.
template <class Struct>
class Shown {
public:
    Shown(py::module_& module, const char* name, const char* doc) : class_(module, name, doc) {}

    template <class Member>
    Shown& with(const char* name, Member Struct::*member, const char* doc) {
        class_.def_readonly(name, member, doc);
        return *this;
    }

private:
    py::class_<Struct> class_;
};

void addParts(py::module_& module) {
    Shown<MarketLoad>(module, "MarketLoad", "What the latest load of one market did with its records.")
        .with("market", &MarketLoad::market, "Under which the records are filed.")
        .with("received", &MarketLoad::received, "Records that the batch brought.")
        .with("restored", &MarketLoad::restored, "Read back from the store to complete a partial listing.")
        .with("stored", &MarketLoad::stored, "Records that the load made findable.")
        .with("replaced", &MarketLoad::replaced, "Of those, how many keys answered before.")
        .with("removed", &MarketLoad::removed, "Keys that answered before and no longer do.")
        .with("outranked", &MarketLoad::outranked, "Dropped, because another record of the key goes first.")
        .with("unwritten", &MarketLoad::unwritten, "Served from memory, because the store refused them.")
        .with("time", &MarketLoad::time, "How long that took.");
    Shown<LoadStep>(module, "LoadStep", "A part of the work of a load.")
        .with("name", &LoadStep::name, "What is done in it.")
        .with("time", &LoadStep::time, "How long it took.");
    Shown<DroppedRecord>(module, "DroppedRecord", "A record that a load dropped.")
        .with("key", &DroppedRecord::key, "Its key.")
        .with("position", &DroppedRecord::position, "Of an empty one its place in the batch.")
        .with("reason", &DroppedRecord::reason, "Why.");
    Shown<LoadReport>(module, "LoadReport", "One load of instruments.")
        .with("number", &LoadReport::number, "Counts the loads of the center; 0 before the first.")
        .with("records", &LoadReport::records, "Handed in.")
        .with("empty", &LoadReport::empty, "Dropped, because they were None.")
        .with("foreign", &LoadReport::foreign, "Dropped, because they are not of Hong Kong.")
        .with("waiting", &LoadReport::waiting, "Kept until both connect markets have arrived.")
        .with("time", &LoadReport::time, "The whole load.")
        .with("steps", &LoadReport::steps, "Its parts.")
        .with("dropped", &LoadReport::dropped, "Some of those that were dropped.");
    Shown<CacheUse>(module, "CacheUse", "A record cache of the persisted center.")
        .with("name", &CacheUse::name, "What it caches.")
        .with("capacity", &CacheUse::capacity, "Records that it may hold.")
        .with("used", &CacheUse::used, "Records that it holds.")
        .with("hits", &CacheUse::hits, "Lookups that it answered.")
        .with("misses", &CacheUse::misses, "Lookups that it did not.")
        .with("evictions", &CacheUse::evictions, "Records that made room for another.");
    Shown<IndexSize>(module, "IndexSize", "A table in memory.")
        .with("name", &IndexSize::name, "What it finds.")
        .with("keys", &IndexSize::keys, "Entries.")
        .with("bytes", &IndexSize::bytes, "What it has allocated.");
    Shown<FailedWrites>(module, "FailedWrites", "A database that refused a write.")
        .with("database", &FailedWrites::database, "Its name in the store.")
        .with("writes", &FailedWrites::writes, "Transactions refused.")
        .with("reason", &FailedWrites::reason, "Why the last of them was.");
}

}  // namespace

void addStatistics(py::module_& module) {
    addParts(module);
    Shown<CenterStatistics>(module, "Statistics", "What a center knows of its own work.")
        .with("last_load", &CenterStatistics::lastLoad, "The load of instruments that ended last.")
        .with("markets", &CenterStatistics::markets, "Every market loaded so far.")
        .with("failed_writes", &CenterStatistics::failedWrites, "Databases that refused a write.")
        .with("caches", &CenterStatistics::caches, "Record caches; none in memory.")
        .with("indexes", &CenterStatistics::indexes, "Tables that grow with the catalogue.");
}

}  // namespace binding
