#include "tools/inscenter/StoreReader.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "tools/inscenter/System.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

using persist::StoreDatabase;
using persist::StoreEngine;
using persist::StoreStatus;

/// Whether the engine is refused its lock file, which it writes to even for a reader.
bool lacksLock(const DatabaseDirectory& directory) {
    const std::filesystem::path file = directory.path / "lock.mdb";
    std::error_code unknown;
    return !mayWrite(std::filesystem::exists(file, unknown) ? file : directory.path);
}

}  // namespace

std::shared_ptr<StoreDatabase> StoreReader::open(const DatabaseDirectory& directory) {
    if (directory.fileBytes.value_or(0) == 0) {
        return nullptr;
    }
    StoreStatus status;
    // A reader changes nothing: what is damaged stays in its place, and the next load sets it aside.
    auto database = engine_->open(textOf(directory.path), StoreEngine::Mode::ReadExisting, status);
    check(directory, status);
    return database;
}

bool StoreReader::scan(const DatabaseDirectory& directory, StoreDatabase& database, std::string_view prefix,
                       const StoreDatabase::Visitor& visit) {
    return check(directory, database.scan(prefix, visit));
}

bool StoreReader::check(const DatabaseDirectory& directory, const StoreStatus& status) {
    if (!status.failed()) {
        return true;
    }
    const bool damaged = status.kind == StoreStatus::Kind::Damaged;
    console_.message(fmt::format("{}: {}: {}{}", directory.name, damaged ? "damaged" : "cannot be read", status.reason,
                                 !damaged && lacksLock(directory) ? "; lock.mdb cannot be written to" : ""));
    failed_ = true;
    return false;
}

}  // namespace inscenter
