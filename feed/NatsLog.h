#pragma once

#include <memory>

#include "feed/Feed.h"
#include "feed/Log.h"

namespace mxservice::feed {

/// The log in a stream of NATS JetStream; the only unit that knows its library. Connects when it is first asked for
/// something, and again for as long as it takes.
std::shared_ptr<Log> makeNatsLog(const Options& options);

}  // namespace mxservice::feed
