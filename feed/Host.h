#pragma once

#include <memory>
#include <vector>

#include "feed/Feed.h"

namespace mxservice::feed {

/// A center that is being filled; by one thread.
class Host {
public:
    Host() = default;
    virtual ~Host() = default;
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    virtual void load(const Day& day, const std::vector<Change>& changes) = 0;
    virtual void apply(const Change& change) = 0;
};

std::unique_ptr<Host> hostOf(CServerInstrumentCenter& center);
std::unique_ptr<Host> hostOf(CClientInstrumentCenter& center);

}  // namespace mxservice::feed
