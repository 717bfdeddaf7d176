#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/strand.hpp>
#include <boost/shared_ptr.hpp>

#include <memory>
#include <string>

#include "platform/Export.h"
#include "platform/utils/Singleton.h"

namespace net {

/// Handlers posted to one strand run one after the other, never at the same time.
using Strand = boost::asio::strand<boost::asio::io_context::executor_type>;

/// The platform's network engine: one event loop and the named strands on it. It owns no thread; a host that posts
/// work runs `ioContext().run()` on threads of its own. Safe from any thread. Never destroyed.
class PM_PLATFORM_API RPCEngine {
public:
    /// The process's engine; never null.
    static RPCEngine* instance();

    /// The strand of that name, made on the first request. The same name gives the same strand for the whole life of
    /// the process; different names give strands that run independently. Never null.
    boost::shared_ptr<Strand> getStrand(const std::string& name);

    /// The event loop, for a host that runs it.
    boost::asio::io_context& ioContext();

    RPCEngine(const RPCEngine&) = delete;
    RPCEngine& operator=(const RPCEngine&) = delete;

private:
    friend class utils::CSingletonT<RPCEngine>;
    RPCEngine();
    ~RPCEngine();

    struct State;
    std::unique_ptr<State> state_;
};

}  // namespace net

namespace utils {
extern template class CSingletonT<net::RPCEngine>;
}
