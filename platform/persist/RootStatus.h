#pragma once

#include <string>
#include <type_traits>

#include "platform/Export.h"

namespace persist {

/// Whether a directory can be the root of the store, as things were when that was asked: nothing is made or opened for
/// it, and a disk may fill up or a directory go a moment later. May be ignored.
class PM_PLATFORM_API RootStatus {
public:
    /// Looks at a directory. One that does not exist yet is as good as a directory that is there, as long as it can be
    /// made.
    static RootStatus of(const std::string& directory);

    /// What is there can be read, or the root can be made. A read-only root is usable, for who loads nothing.
    bool usable() const { return kind_ == Kind::Writable || kind_ == Kind::ReadOnly; }
    /// The same as usable().
    explicit operator bool() const { return usable(); }
    /// Databases can be made there, as the first load of a market does.
    bool writable() const { return kind_ == Kind::Writable; }
    /// Why it is not writable or not usable, in words; empty when it is writable.
    std::string reason() const;

private:
    enum class Kind { Writable, ReadOnly, Unusable, Unmakable };
    RootStatus(Kind kind, int error) : kind_(kind), error_(error) {}

    static RootStatus ofExisting(const std::string& directory);

    Kind kind_;
    int error_;  // of the system; 0: none is named
};

// Handed over in registers: a host that was compiled when setting the root answered nothing has made no room for an
// answer in memory, and the symbol is the same.
static_assert(std::is_trivially_copyable_v<RootStatus> && sizeof(RootStatus) <= sizeof(void*), "fits a register");

}  // namespace persist
