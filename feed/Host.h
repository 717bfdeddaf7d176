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

/// The instruments of a day with its changes, as one list for who is no host. All listings, as the persisted center
/// groups them; the in-memory one would leave out those that the last of a code replaces. But who has a key that
/// several markets share is decided otherwise in a change than in a list: of such a key there is the one record that
/// hosts have.
std::vector<boost::shared_ptr<CInstrumentDetail>> instrumentsOf(const Day& day, std::vector<Change> changes);

std::unique_ptr<Host> hostOf(CServerInstrumentCenter& center);
std::unique_ptr<Host> hostOf(CClientInstrumentCenter& center);

}  // namespace mxservice::feed
