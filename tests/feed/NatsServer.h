#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/TemporaryStore.h"

// Servers, processes and sockets of tests, all on the loopback interface.

namespace mxservice::feed {

inline int freePort() {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(socket, reinterpret_cast<sockaddr*>(&address), size), 0);
    ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(socket);
    return ntohs(address.sin_port);
}

inline bool connects(int socket, int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    return ::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
}

inline bool accepts(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = connects(socket, port);
    ::close(socket);
    return connected;
}

/// Looks again and again until `holds`, up to a minute; what it waits for is the only thing that ends it early.
template <class Holds>
bool eventually(Holds holds, std::chrono::seconds most = std::chrono::seconds(60)) {
    const auto until = std::chrono::steady_clock::now() + most;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > until) {
            return false;
        }
        ::poll(nullptr, 0, 2);
    }
    return true;
}

/// What a server says first to whoever connects: one line.
inline std::string greetingAt(int port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    std::string line;
    if (connects(socket, port)) {
        for (char letter = 0; letter != '\n' && ::recv(socket, &letter, 1, 0) == 1;) {
            line += letter;
        }
    }
    ::close(socket);
    return line;
}

inline std::string contentOf(const std::string& file) {
    std::ifstream text(file);
    return {std::istreambuf_iterator<char>(text), {}};
}

/// A process, killed with the object.
class Process {
public:
    explicit Process(std::vector<std::string> words, const std::string& output = "/dev/null") {
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) {
            ::posix_spawn_file_actions_addopen(&actions, stream, output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        }
        std::vector<char*> arguments;
        for (std::string& word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        EXPECT_EQ(::posix_spawnp(&id_, words.front().c_str(), &actions, nullptr, arguments.data(), environ), 0)
            << words.front();
        ::posix_spawn_file_actions_destroy(&actions);
    }
    ~Process() {
        if (id_ > 0) {
            kill();
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;

    void signal(int signal) const { ::kill(id_, signal); }
    void kill() {
        signal(SIGKILL);
        wait();
    }
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(id_, 0), &status, 0);
        return status;
    }
    pid_t id() const { return id_; }

private:
    pid_t id_ = 0;
};

/// Servers with JetStream, alone or as a cluster. Each keeps its ports and its store when it is killed and started
/// again.
class NatsServers {
public:
    /// `more`: lines of configuration for each.
    explicit NatsServers(int count, std::string more = {}) : more_(std::move(more)) {
        for (int i = 0; i < count; ++i) {
            members_.push_back({freePort(), freePort(), freePort(), nullptr});
        }
        for (int i = 0; i < count; ++i) {
            start(i);
        }
    }

    std::string url(int member) const { return "nats://127.0.0.1:" + std::to_string(port(member)); }
    std::vector<std::string> urls() const {
        std::vector<std::string> urls;
        for (int i = 0; i < count(); ++i) {
            urls.push_back(url(i));
        }
        return urls;
    }
    int port(int member) const { return members_[static_cast<std::size_t>(member)].port; }
    int count() const { return static_cast<int>(members_.size()); }
    Process& process(int member) { return *members_[static_cast<std::size_t>(member)].process; }

    void start(int member) {
        const std::filesystem::path file = directory_.path() / ("server" + std::to_string(member) + ".conf");
        std::ofstream out(file);
        out << "server_name: n" << member << "\nhost: 127.0.0.1\nport: " << port(member)
            << "\nhttp: 127.0.0.1:" << members_[static_cast<std::size_t>(member)].page << "\njetstream { store_dir: \""
            << store(member).string() << "\" }\n";
        if (count() > 1) {
            out << "cluster { name: feed, host: 127.0.0.1, port: " << members_[static_cast<std::size_t>(member)].route
                << ", routes: [";
            for (const Member& other : members_) {
                out << "\n  nats://127.0.0.1:" << other.route;
            }
            out << "\n] }\n";
        }
        out << more_;
        out.close();
        members_[static_cast<std::size_t>(member)].process = std::make_unique<Process>(
            std::vector<std::string>{"nats-server", "-c", file.string()}, (directory_.path() / "log").string());
        if (!eventually([&] { return accepts(port(member)); }, std::chrono::seconds(20))) {
            throw std::runtime_error("nats-server does not start: " + contentOf((directory_.path() / "log").string()));
        }
    }
    void kill(int member) { process(member).kill(); }
    void wipe(int member) { std::filesystem::remove_all(store(member)); }

    /// Which member leads the stream, or -1.
    int leader(const std::string& stream) const {
        for (int i = 0; i < count(); ++i) {
            const std::string page = get(i, "/jsz?streams=1&config=0&consumers=0");
            const auto at = page.find("\"name\": \"" + stream + "\"");
            const auto leader = at == std::string::npos ? at : page.find("\"leader\": \"n", at);
            if (leader != std::string::npos) {
                return page[leader + std::string("\"leader\": \"n").size()] - '0';
            }
        }
        return -1;
    }
    /// What the first server answers to a request of its own interface.
    std::string ask(const std::string& subject, const std::string& payload) const {
        return exchange(port(0),
                        "CONNECT {\"verbose\":false}\r\nSUB _INBOX.test 1\r\nPUB " + subject + " _INBOX.test " +
                            std::to_string(payload.size()) + "\r\n" + payload + "\r\n",
                        "}\r\n");
    }
    /// Bytes of memory that a server has.
    std::size_t memory(int member) const {
        std::ifstream statistics("/proc/" + std::to_string(members_[static_cast<std::size_t>(member)].process->id()) +
                                 "/statm");
        std::size_t pages = 0;
        statistics >> pages >> pages;
        return pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    }

private:
    struct Member {
        int port;
        int route;
        int page;  // of its monitoring
        std::unique_ptr<Process> process;
    };

    std::filesystem::path store(int member) const { return directory_.path() / ("store" + std::to_string(member)); }

    std::string get(int member, const std::string& path) const {
        return exchange(members_[static_cast<std::size_t>(member)].page, "GET " + path + " HTTP/1.0\r\n\r\n", "");
    }
    /// What comes back, up to the end of the connection or, behind the first line, to `last`.
    static std::string exchange(int port, const std::string& request, const std::string& last) {
        const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        std::string page;
        if (connects(socket, port) && ::send(socket, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
            const auto isLast = [&] {
                return !last.empty() && page.size() >= last.size() && page.find("MSG ") != std::string::npos &&
                       page.compare(page.size() - last.size(), last.size(), last) == 0;
            };
            char bytes[4096];
            for (ssize_t got = 1; got > 0 && !isLast();) {
                got = ::recv(socket, bytes, sizeof bytes, 0);
                page.append(bytes, got > 0 ? static_cast<std::size_t>(got) : 0);
            }
        }
        ::close(socket);
        return page;
    }

    const TemporaryDirectory directory_{TemporaryDirectory::inMemory()};
    const std::string more_;
    std::vector<Member> members_;
};

}  // namespace mxservice::feed
