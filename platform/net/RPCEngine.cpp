#include "platform/net/RPCEngine.h"

#include <boost/make_shared.hpp>

#include <map>
#include <mutex>

namespace net {

struct RPCEngine::State {
    boost::asio::io_context context;
    std::mutex lock;  // guards strandByName
    std::map<std::string, boost::shared_ptr<Strand>> strandByName;
};

RPCEngine::RPCEngine() : state_(std::make_unique<State>()) {}

RPCEngine::~RPCEngine() = default;

RPCEngine* RPCEngine::instance() {
    return utils::CSingletonT<RPCEngine>::instance();
}

boost::shared_ptr<Strand> RPCEngine::getStrand(const std::string& name) {
    // Strands are never let go of: a name stands for one strand for good, also when nobody holds it meanwhile.
    const std::lock_guard guard(state_->lock);
    boost::shared_ptr<Strand>& strand = state_->strandByName[name];
    if (!strand) {
        strand = boost::make_shared<Strand>(boost::asio::make_strand(state_->context));
    }
    return strand;
}

boost::asio::io_context& RPCEngine::ioContext() {
    return state_->context;
}

}  // namespace net

namespace utils {
template class CSingletonT<net::RPCEngine>;
}
