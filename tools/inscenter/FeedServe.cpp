// A configuration of nats-server for feeds: store, cluster, TLS, and users of whom one may publish.

#include <fmt/format.h>
#include <fmt/ostream.h>

#include <filesystem>
#include <fstream>
#include <iomanip>
#include <random>
#include <system_error>

#include "tools/inscenter/FeedVerbs.h"
#include "tools/inscenter/Snapshot.h"

namespace inscenter {
namespace {

/// Of hexadecimal digits, so that it stands in a URL as it is.
std::string password() {
    std::random_device random;
    return fmt::format("{:08x}{:08x}{:08x}", random(), random(), random());
}

/// A text of the configuration's language; paths may hold anything.
std::string quoted(const std::string& text) {
    return fmt::format("{}", fmt::streamed(std::quoted(text)));
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

/// It listens on every address, by the port alone: the name in a route is what others reach it by, which need not be an
/// address of this machine.
std::string clusterOf(const FeedQuery& query) {
    std::string routes;
    for (const std::string& peer : query.peers) {
        routes += "\n    " + quoted("nats://" + peer);
    }
    const std::string& own = query.peers.front();
    return fmt::format("cluster {{\n  name: feed\n  listen: {}\n  routes: [{}\n  ]\n}}\n",
                       quoted("0.0.0.0" + own.substr(std::min(own.rfind(':'), own.size()))), routes);
}

}  // namespace

int writeServerConfiguration(const FeedQuery& query, Output& output, Console& /*console*/) {
    const std::filesystem::path directory = std::filesystem::absolute(query.directory);
    const std::filesystem::path file = directory / "nats-server.conf";
    std::error_code error;
    std::filesystem::create_directories(directory, error);  // why it failed the file below will say
    if (std::filesystem::exists(file)) {
        throw UnreadableInput(file.string() + ": is there already, with the passwords that hosts may use");
    }
    const std::string publisher = password();
    const std::string hosts = password();
    std::string text = fmt::format(
        "# Feeds of instruments. Start: nats-server -c {}\n"
        "server_name: {}\nport: {}\n"
        "# Large enough for a part of a day and its headers.\nmax_payload: 1MB\n"
        "jetstream {{\n  store_dir: {}\n"
        "}}\n",
        file.string(), quoted(query.peers.empty() ? "feed-1" : query.peers.front()), query.port,
        quoted((directory / "store").string()));
    if (!query.peers.empty()) {
        text += clusterOf(query);
    }
    if (!query.certificate.empty()) {
        text +=
            fmt::format("tls {{\n  cert_file: {}\n  key_file: {}\n}}\n", quoted(query.certificate), quoted(query.key));
    }
    text += fmt::format("authorization {{\n  users: [\n{}{}  ]\n}}\n", userOf("publisher", publisher, query.feed, true),
                        userOf("hosts", hosts, query.feed, false));
    // For its owner alone from the first byte on: it holds the passwords.
    std::ofstream(file).close();
    std::filesystem::permissions(file, std::filesystem::perms::owner_read | std::filesystem::perms::owner_write, error);
    std::ofstream out(file);
    out << text;
    out.close();
    requireWritten(out, file.string());
    const std::string scheme = query.certificate.empty() ? "nats" : "tls";
    output.blocks({{"start", "publisher", "hosts"},
                   {{fmt::format("nats-server -c {}", file.string()),
                     fmt::format("{}://publisher:{}@HOST:{}", scheme, publisher, query.port),
                     fmt::format("{}://hosts:{}@HOST:{}", scheme, hosts, query.port)}}});
    return 0;
}

}  // namespace inscenter
