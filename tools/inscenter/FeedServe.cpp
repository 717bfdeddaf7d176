// Configurations of nats-server for feeds: store, cluster, TLS, and users of whom one may publish.

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iomanip>
#include <random>
#include <set>
#include <string_view>
#include <system_error>

#include "tools/inscenter/ExitCodes.h"
#include "tools/inscenter/FeedVerbs.h"
#include "tools/inscenter/Snapshot.h"
#include "tools/inscenter/System.h"
#include "tools/inscenter/Utf8.h"

namespace inscenter {
namespace {

constexpr std::size_t kMostReplicas = 5;   // of a stream, as servers allow them
constexpr const char* kNameless = "HOST";  // of a server that is alone, whose name nobody has said

/// Of hexadecimal digits, so that it stands in a URL as it is.
std::string password() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}", random(), random(), random());
}

struct Passwords {
    std::string publisher = password();
    std::string hosts = password();
    std::string routes = password();
};

/// What is written, and how whoever has it begins.
struct Part {
    std::string who;
    std::filesystem::path file;
    std::string text;
    std::string command;
};

std::string hostOf(const std::string& peer) {
    return peer.substr(0, peer.rfind(':'));
}

std::string portOf(const std::string& peer) {
    return peer.substr(peer.rfind(':') + 1);
}

/// A text of the configuration's language; paths may hold anything.
std::string quoted(const std::string& text) {
    return fmt::format("{}", fmt::streamed(std::quoted(text)));
}

/// A word of a shell's command line.
std::string shellWord(const std::filesystem::path& path) {
    constexpr std::string_view kPlain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789/._-+:\\";
    std::string text = textOf(path);
    if (text.find_first_not_of(kPlain) == std::string::npos) {
        return text;
    }
    std::string word = "'";
    for (const char character : text) {
        word += character == '\'' ? std::string("'\\''") : std::string(1, character);
    }
    return word + '\'';
}

/// From wherever the servers are started.
std::string quotedFile(const std::string& file) {
    return quoted(textOf(std::filesystem::absolute(pathOf(file))));
}

std::string userOf(const std::string& name, const std::string& secret, const std::string& feed, bool publishes) {
    // Reading is asking: a request to the stream's interface, the answer to an inbox. The bell is only heard.
    std::string allowed = fmt::format(
        "\"$JS.API.DIRECT.GET.{0}-v1\", \"$JS.API.DIRECT.GET.{0}-v1.>\", \"$JS.API.STREAM.MSG.GET.{0}-v1\"", feed);
    if (publishes) {
        allowed += fmt::format(
            ",\n        \"{0}.v1.log\", \"{0}.v1.part.>\", \"$JS.API.STREAM.INFO.{0}-v1\",\n"
            "        \"$JS.API.STREAM.CREATE.{0}-v1\", \"$JS.API.STREAM.PURGE.{0}-v1\"",
            feed);
    }
    return fmt::format(
        "    {{ user: {}, password: {}, permissions: {{\n"
        "      publish: [ {} ]\n"
        "      subscribe: [ \"_INBOX.>\", \"{}.v1.bell\" ] }} }}\n",
        name, quoted(secret), allowed, feed);
}

/// Nothing where there is no certificate; `authority`: who has signed those that the others have to show.
std::string tlsOf(const FeedQuery& query, const std::string& authority) {
    if (query.certificate.empty()) {
        return {};
    }
    return fmt::format("tls {{\n  cert_file: {}\n  key_file: {}\n{}}}\n", quotedFile(query.certificate),
                       quotedFile(query.key),
                       authority.empty() ? "" : fmt::format("  ca_file: {}\n", quotedFile(authority)));
}

/// Whoever joins as a route is no client and has no permissions, so that it needs a password of its own, and with TLS a
/// certificate: servers look at those of routes in both directions. A server listens on every address, by the port
/// alone: its name is what others reach it by, which need not be an address of this machine.
std::string clusterOf(const FeedQuery& query, const std::string& own, const std::string& secret) {
    std::string routes;
    for (const std::string& peer : query.peers) {
        routes += fmt::format("\n    \"nats://routes:{}@{}\"", secret, peer);
    }
    return fmt::format(
        "# By name, or what servers and clients tell each other are addresses that no certificate has.\n"
        "client_advertise: \"{}:{}\"\n"
        "cluster {{\n  name: feed\n  listen: \"0.0.0.0:{}\"\n  advertise: {}\n"
        "  authorization {{ user: routes, password: {}, timeout: 2 }}\n{}  routes: [{}\n  ]\n}}\n",
        hostOf(own), query.port, portOf(own), quoted(own), quoted(secret), tlsOf(query, query.authority), routes);
}

/// `own`: the peer that it is for; empty: the only server.
std::string configurationOf(const FeedQuery& query, const std::filesystem::path& directory, const std::string& own,
                            const Passwords& passwords) {
    return fmt::format(
        "# Feeds of instruments.\n"
        "server_name: {}\nport: {}\n"
        "# Large enough for a part of a day and its headers.\nmax_payload: 1MB\n"
        "jetstream {{\n  store_dir: {}\n}}\n"
        "{}{}authorization {{\n  users: [\n{}{}  ]\n}}\n",
        quoted(own.empty() ? "feed-1" : hostOf(own)), query.port, quoted(textOf(directory / "store")),
        own.empty() ? "" : clusterOf(query, own, passwords.routes), tlsOf(query, ""),
        userOf("publisher", passwords.publisher, query.feed, true),
        userOf("hosts", passwords.hosts, query.feed, false));
}

/// The command of a user; `words`: what only this one takes.
Part userPart(const FeedQuery& query, const std::filesystem::path& directory, const std::string& user,
              const std::string& secret, const std::string& words) {
    std::string urls;
    const char* const scheme = query.certificate.empty() ? "nats" : "tls";
    for (const std::string& peer : query.peers.empty() ? std::vector<std::string>{kNameless} : query.peers) {
        urls += fmt::format("{}{}://{}:{}", urls.empty() ? "" : ",", scheme, hostOf(peer), query.port);
    }
    const std::filesystem::path file = directory / (user + ".password");
    std::string command =
        fmt::format("inscenter feed {} --server {} --user {} --password-file {}", words, urls, user, shellWord(file));
    if (!query.authority.empty()) {
        command += " --ca " + shellWord(std::filesystem::absolute(pathOf(query.authority)));
    }
    if (query.feed != FeedQuery().feed) {
        command += " --name " + query.feed;
    }
    return {user, file, secret + '\n', command};
}

/// What single options cannot see.
void requireSense(const FeedQuery& query) {
    std::set<std::string> hosts;
    for (const std::string& peer : query.peers) {
        if (!hosts.insert(hostOf(peer)).second) {
            throw UnreadableInput("--peers: " + hostOf(peer) + " stands there twice; each is a machine of its own");
        }
        if (portOf(peer) == std::to_string(query.port)) {
            throw UnreadableInput("--peers: " + peer + " has the port of clients");
        }
    }
    if (query.peers.size() == 1) {
        throw UnreadableInput("--peers: a cluster has several; without the option, a server is alone");
    }
    if (!query.peers.empty() && !query.certificate.empty() && query.authority.empty()) {
        throw UnreadableInput("--peers with a certificate needs --ca: servers look at those of each other");
    }
}

/// All or, where one is there already, none: what has the old passwords would be left with them.
void write(const std::vector<Part>& parts) {
    for (const Part& part : parts) {
        if (std::filesystem::exists(part.file)) {
            throw UnreadableInput(textOf(part.file) + ": is there already, with the passwords that hosts may use");
        }
    }
    for (const Part& part : parts) {
        makePrivateFile(part.file);
        errno = 0;
        std::ofstream out(part.file, std::ios::binary);
        out << part.text;
        out.close();
        requireWritten(out, textOf(part.file));
    }
}

}  // namespace

int writeServerConfiguration(const FeedQuery& query, Output& output, Console& /*console*/) {
    requireSense(query);
    const std::filesystem::path directory = std::filesystem::absolute(pathOf(query.directory));
    const Passwords passwords;
    std::vector<Part> parts;
    const auto addServer = [&](const std::string& own, const std::string& name) {
        const std::filesystem::path file = directory / (name + ".conf");
        parts.push_back({own.empty() ? "server" : hostOf(own), file, configurationOf(query, directory, own, passwords),
                         "nats-server -c " + shellWord(file)});
    };
    for (const std::string& peer : query.peers) {
        addServer(peer, hostOf(peer));
    }
    if (query.peers.empty()) {
        addServer("", "nats-server");
    }
    const std::string replicas =
        query.peers.empty() ? "" : fmt::format(" --replicas {}", std::min(query.peers.size(), kMostReplicas));
    parts.push_back(userPart(query, directory, "publisher", passwords.publisher, "publish DIR" + replicas));
    parts.push_back(userPart(query, directory, "hosts", passwords.hosts, "watch"));
    std::error_code ignored;  // the first file says why it cannot be made
    std::filesystem::create_directories(directory, ignored);
    write(parts);
    Table table{{"who", "file", "command"}, {}};
    for (const Part& part : parts) {
        table.rows.push_back({part.who, textOf(part.file), part.command});
    }
    output.blocks(table);
    return exitcode::kAnswered;
}

}  // namespace inscenter
