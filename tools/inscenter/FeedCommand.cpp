#include "tools/inscenter/FeedCommand.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>
#include <system_error>

#include "tools/inscenter/HelpTexts.h"
#include "tools/inscenter/Utf8.h"
#include "tools/inscenter/VerbOptions.h"

namespace inscenter {
namespace {

struct FeedVerbLine {
    const char* name;
    const char* about;
    const char* examples;
    FeedVerb verb;
};

constexpr std::array kFeedVerbs{
    FeedVerbLine{"publish", "Publish a snapshot as the day of every host",
                 "publish monday --server nats://feed:4222 --user publisher --password-file publisher.password\n"
                 "publish monday --day 20260302",
                 publishDay},
    FeedVerbLine{"changes", "Publish a change: instruments to put, keys to remove",
                 "changes noon\nchanges - --remove SH600001 < one.ndjson\nchanges --remove SH600001", publishChanges},
    FeedVerbLine{"watch", "States, revisions and changed instruments as a host meets them, until Ctrl-C",
                 "watch --server nats://feed:4222 --user hosts --password-file hosts.password\n"
                 "watch --count 1 --jsonl",
                 watchFeed},
    FeedVerbLine{"status", "What the feed has at the moment", "status\nstatus --format json", showFeedStatus},
    FeedVerbLine{"serve", "Write configurations of nats-server: store, cluster, TLS, one publisher, hosts that read",
                 "serve /srv/feed\nserve /srv/feed --peers a:6222,b:6222,c:6222\n"
                 "serve /srv/feed --tls-cert /etc/feed.pem --tls-key /etc/feed.key --ca /etc/ca.pem",
                 writeServerConfiguration}};

// One query for all verbs: only one of them runs, and what two of them take is the same option to both.

void addServers(CLI::App& app, FeedQuery& query) {
    addList(app, "--server", query.servers, "URLs of servers, one or several of a cluster; on this machine by default")
        ->type_name("URL");
    addFeedAccess(app, query);
}

/// What is wrong with the name of a feed, which stands in names and subjects of the server; or nothing.
std::string wrongName(const std::string& name) {
    constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-";
    return name.empty() || name.find_first_not_of(kLetters) != std::string::npos
               ? "a name has letters, digits, _ and -, not " + printable(name)
               : "";
}

std::string wrongPeer(const std::string& peer) {
    constexpr const char* kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789.-";
    constexpr int kMostPort = 65535;
    const std::size_t colon = std::min(peer.find(':'), peer.size());
    const std::string port = peer.substr(std::min(colon + 1, peer.size()));
    int number = 0;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), number);
    const bool right = colon > 0 && peer.find_first_not_of(kLetters) == colon && error == std::errc() &&
                       end == port.data() + port.size() && number > 0 && number <= kMostPort;
    return right ? "" : printable(peer) + " is no HOST:PORT";
}

void addServing(CLI::App& app, FeedQuery& query) {
    app.add_option("DIR", query.directory, "Directory for configuration and store, also on every peer")->required();
    app.add_option("--port", query.port, "For clients; 4222 by default")->type_name("N")->check(CLI::Range(1, 65535));
    addList(app, "--peers", query.peers, "Servers of a cluster, each by its name and the port of its routes")
        ->type_name("HOST:PORT")
        ->check(wrongPeer);
    auto* const certificate =
        app.add_option("--tls-cert", query.certificate, "PEM file on each server, its certificate");
    auto* const key = app.add_option("--tls-key", query.key, "PEM file, its key");
    certificate->type_name("FILE")->needs(key);
    key->type_name("FILE")->needs(certificate);
    app.add_option("--ca", query.authority, "PEM file of who signs the certificates; peers need it")
        ->type_name("FILE")
        ->needs(certificate);
}

}  // namespace

bool isFeed(const std::string& name) {
    return name.starts_with("nats://") || name.starts_with("tls://");
}

void addFeedAccess(CLI::App& app, FeedQuery& query) {
    app.add_option("--user", query.user, "Of the feed's server, where the URL names none")->type_name("NAME");
    app.add_option("--password-file", query.passwordFile, "File whose first line is that user's password")
        ->type_name("FILE");
    app.add_option("--creds", query.credentials, "File with a user's credentials, where servers use such")
        ->type_name("FILE");
    app.add_option("--ca", query.authority, "PEM file of who signs the servers' certificates; the system's by default")
        ->type_name("FILE");
}

void addFeedCommands(CLI::App& app, const char* group, FeedQuery& query, const std::function<void(FeedVerb)>& chosen) {
    CLI::App* const feed = app.add_subcommand("feed", "One day for many machines, over NATS JetStream")->group(group);
    feed->require_subcommand(1);
    feed->footer(exampleLines("inscenter feed ", "serve /srv/feed\npublish monday\nstatus"));
    for (const FeedVerbLine& verb : kFeedVerbs) {
        CLI::App* const sub = feed->add_subcommand(verb.name, verb.about)->group("Commands");
        sub->footer(exampleLines("inscenter feed ", verb.examples));
        sub->callback([chosen, run = verb.verb] { chosen(run); });
        sub->add_option("--name", query.feed, "Name of the feed; ins by default")->type_name("NAME")->check(wrongName);
        // The one verb that asks no server; the name above is in the permissions that it writes.
        if (verb.verb == writeServerConfiguration) {
            addServing(*sub, query);
            continue;
        }
        addServers(*sub, query);
        if (verb.verb == publishDay || verb.verb == publishChanges) {
            sub->add_flag("--despite-issues", query.despiteIssues,
                          "Publish also when lines or files had to be skipped");
        }
        if (verb.verb == publishDay) {
            sub->add_option("DIR", query.source, "Directory of the snapshot; - for standard input")->required();
            sub->add_option("--day", query.day, "Trading day; by default that of the records, if they agree on one")
                ->type_name("YYYYMMDD");
            sub->add_option("--replicas", query.replicas, "Of the stream, where it has to be made; 1 by default")
                ->type_name("N")
                ->check(CLI::Range(1, 5));  // servers keep no more
        } else if (verb.verb == publishChanges) {
            sub->add_option("DIR", query.source, "Directory with the instruments to put; - for standard input");
            sub->add_option("--remove", query.removed, "Keys to remove")
                ->type_name("KEY")
                ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
        } else if (verb.verb == watchFeed) {
            sub->add_option("--count", query.count, "End after so many revisions")->type_name("N");
        }
    }
}

}  // namespace inscenter
