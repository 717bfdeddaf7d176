#pragma once

#include <array>
#include <mutex>

namespace persist {

class LmdbEnvironment;

/// The environments of this process that stay open for writing between two writes: the few that were written last.
/// Opening one for writing and back takes a tenth of a millisecond, a third of a small commit; but the library keeps 3
/// MB of lists for each that is open for writing, which is more than a client keeps of most markets.
class LmdbWriters {
public:
    static LmdbWriters& instance();

    /// Has it stay open for writing; the one that was not written for longest stays so no longer.
    void keep(LmdbEnvironment& environment);
    /// To be called before it goes, or when it is to be opened anew.
    void forget(LmdbEnvironment& environment);

private:
    std::mutex lock_;
    std::array<LmdbEnvironment*, 4> latest_{};  // first the one written last
};

}  // namespace persist
