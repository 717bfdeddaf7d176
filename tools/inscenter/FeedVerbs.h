#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "snapshot/Snapshot.h"
#include "tools/inscenter/Console.h"
#include "tools/inscenter/Output.h"

namespace inscenter {

/// Where a feed is, and what is to be done with it.
struct FeedQuery {
    std::vector<std::string> servers;  ///< URLs; empty: the one on this machine
    std::string feed = "ins";
    std::string user;
    std::string passwordFile;  ///< whose first line is the password
    std::string credentials;   ///< file of a user's JWT and seed
    std::string authority;     ///< PEM of who signs the servers' certificates

    std::string source;                ///< snapshot to publish, or file of instruments
    bool despiteIssues = false;        ///< publish what could be read of it
    std::string day;                   ///< YYYYMMDD; empty: that of the records
    std::vector<std::string> removed;  ///< keys to remove
    std::optional<std::size_t> count;  ///< of revisions to watch

    // For the server's configuration.
    std::string directory;
    int port = 4222;
    int replicas = 1;                ///< of streams that publishers make
    std::vector<std::string> peers;  ///< "host:port" of the routes of each server of a cluster; empty: one server
    std::string certificate;         ///< PEM files, by their names where the servers run
    std::string key;
};

/// Does its work and answers the exit code.
using FeedVerb = int (*)(const FeedQuery&, Output&, Console&);

int publishDay(const FeedQuery& query, Output& output, Console& console);
int publishChanges(const FeedQuery& query, Output& output, Console& console);
int watchFeed(const FeedQuery& query, Output& output, Console& console);
int showFeedStatus(const FeedQuery& query, Output& output, Console& console);
/// Writes the configurations of servers; needs no server, and no library of the feed's.
int writeServerConfiguration(const FeedQuery& query, Output& output, Console& console);

/// Whether the name of a snapshot is the URL of a feed.
bool isFeed(const std::string& name);
/// User, password and certificates with which readFeed() asks, from then on.
void setFeedAccess(const FeedQuery& query);
/// The day that the feed at the URL has at the moment, with the number of records of each catalogue. Throws
/// UnreadableInput.
mxservice::Snapshot readFeed(const std::string& url);

}  // namespace inscenter
