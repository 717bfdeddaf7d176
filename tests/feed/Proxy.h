#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace mxservice::feed {

inline sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return address;
}

/// Takes connections in a server's place, asks for TLS, and says no more.
class MuteServer {
public:
    explicit MuteServer(int port) : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const sockaddr_in address = loopback(port);
        const int yes = 1;
        ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
        EXPECT_EQ(::bind(listener_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        ::listen(listener_, 64);
        thread_ = std::thread([this] { run(); });
    }
    ~MuteServer() {
        stopped_ = true;
        thread_.join();
        ::close(listener_);
    }
    MuteServer(const MuteServer&) = delete;
    MuteServer& operator=(const MuteServer&) = delete;

    int greeted() const { return greeted_; }

private:
    void run() {
        const std::string greeting =
            "INFO {\"server_id\":\"mute\",\"version\":\"2.9.0\",\"proto\":1,\"headers\":true,"
            "\"max_payload\":1048576,\"tls_required\":true}\r\n";
        std::vector<int> clients;
        while (!stopped_) {
            pollfd watched{listener_, POLLIN, 0};
            if (::poll(&watched, 1, 20) > 0) {
                clients.push_back(::accept(listener_, nullptr, nullptr));
                greeted_ += ::send(clients.back(), greeting.data(), greeting.size(), MSG_NOSIGNAL) > 0 ? 1 : 0;
            }
        }
        std::for_each(clients.begin(), clients.end(), ::close);
    }

    const int listener_;
    std::atomic<int> greeted_{0};
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

/// Passes bytes between clients and a server on this machine; on demand it keeps them for itself, and nobody is told.
class Proxy {
public:
    /// `narrow`: the system keeps next to nothing of what clients send on its way here.
    explicit Proxy(int serverPort, bool narrow = false)
        : serverPort_(serverPort), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        if (narrow) {
            const int window = 2304;
            const int segment = 536;
            ::setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &window, sizeof window);
            ::setsockopt(listener_, IPPROTO_TCP, TCP_MAXSEG, &segment, sizeof segment);
        }
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        ::bind(listener_, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(listener_, 64);
        ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &size);
        port_ = ntohs(address.sin_port);
        thread_ = std::thread([this] { run(); });
    }
    ~Proxy() {
        stopped_ = true;
        thread_.join();
        ::close(listener_);
    }
    Proxy(const Proxy&) = delete;
    Proxy& operator=(const Proxy&) = delete;

    std::string url() const { return "nats://127.0.0.1:" + std::to_string(port_); }
    /// What clients send, what the server sends.
    std::atomic<bool> swallowUp{false};
    std::atomic<bool> swallowDown{false};
    /// What clients send is not even read.
    std::atomic<bool> takesNothing{false};

private:
    struct Pair {
        int client;
        int server;
    };

    void run() {
        std::vector<Pair> pairs;
        while (!stopped_) {
            std::vector<pollfd> watched{{listener_, POLLIN, 0}};
            for (const Pair& pair : pairs) {
                watched.push_back({pair.client, static_cast<short>(takesNothing ? 0 : POLLIN), 0});
                watched.push_back({pair.server, POLLIN, 0});
            }
            ::poll(watched.data(), watched.size(), 20);
            for (std::size_t i = pairs.size(); i-- > 0;) {
                const bool alive = pass(watched[2 * i + 1], pairs[i].server, swallowUp) &&
                                   pass(watched[2 * i + 2], pairs[i].client, swallowDown);
                if (!alive) {
                    end(pairs[i]);
                    pairs.erase(pairs.begin() + static_cast<std::ptrdiff_t>(i));
                }
            }
            if ((watched.front().revents & POLLIN) != 0) {
                const int client = ::accept(listener_, nullptr, nullptr);
                const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                const sockaddr_in address = loopback(serverPort_);
                pairs.push_back({client, server});
                if (::connect(server, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
                    end(pairs.back());
                    pairs.pop_back();
                }
            }
        }
        std::for_each(pairs.begin(), pairs.end(), end);
    }

    static void end(const Pair& pair) {
        ::close(pair.client);
        ::close(pair.server);
    }

    static bool pass(const pollfd& from, int to, bool swallow) {
        if (from.revents == 0) {
            return true;
        }
        std::array<char, 65536> bytes;
        const ssize_t got = ::recv(from.fd, bytes.data(), bytes.size(), 0);
        for (ssize_t sent = 0; got > 0 && !swallow && sent < got;) {
            const ssize_t now = ::send(to, bytes.data() + sent, static_cast<std::size_t>(got - sent), MSG_NOSIGNAL);
            if (now <= 0) {
                return false;
            }
            sent += now;
        }
        return got > 0;
    }

    const int serverPort_;
    const int listener_;
    int port_ = 0;
    std::atomic<bool> stopped_{false};
    std::thread thread_;
};

}  // namespace mxservice::feed
