#pragma once

// One catalogue for many machines: a publisher puts days and changes into a log, and every host that subscribes has the
// same ones. The log is a stream of NATS JetStream; docs/feed.md has the protocol, the permissions, and what happens
// when something fails.

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/instrumentcenter/CClientInstrumentCenter.h"
#include "base/instrumentcenter/CServerInstrumentCenter.h"
#include "feed/Export.h"
#include "snapshot/Snapshot.h"

namespace mxservice::feed {

class PublisherCore;
class SubscriberCore;

/// Where the log is and how it is spoken to. What is left as it is suits a server on the same machine.
struct Options {
    /// URLs of the servers, "nats://host:port" or "tls://host:port"; any of a cluster will do, several spare a start
    /// that finds one of them down.
    std::vector<std::string> servers{"nats://127.0.0.1:4222"};
    /// Which feed, where servers carry several: the stream is called "<feed>-v1", its subjects begin with "<feed>.v1.".
    /// Letters, digits, '_' and '-'.
    std::string feed = "ins";
    std::string name;             ///< of this process in the server's monitoring
    std::string user;             ///< empty: none
    std::string password;         ///< with `user`
    std::string token;            ///< instead of user and password
    std::string credentialsFile;  ///< instead of both: a user's JWT and seed
    bool tls = false;             ///< insist on TLS, also where the URLs do not say so
    std::string caFile;           ///< PEM; empty: the system's certificates
    std::string certificateFile;  ///< PEM, of this client, where the server asks for one
    std::string keyFile;          ///< PEM, the key of that certificate

    std::chrono::milliseconds requestTimeout{2000};  ///< that one question to the server may take
    /// How often the log is looked at when no bell was heard. Each time a quarter more or less, so that hosts that were
    /// started together do not ask together.
    std::chrono::milliseconds pollEvery{2000};
    /// A bound on what a day or a change may hold once it is unpacked: more is refused before memory is taken for it.
    std::uint64_t maxUnpackedBytes = std::uint64_t{4} << 30U;

    /// Subscriber: the file that keeps the last good day, so that a host starts while the server is away. Empty: none.
    std::string cacheFile;

    int replicas = 1;                              ///< publisher: of the stream, when it has to be made
    std::chrono::milliseconds publishFor{20000};   ///< publisher: how long a commit without an answer is tried again
    std::chrono::milliseconds duplicates{120000};  ///< publisher: how long the stream knows a commit again
};

/// A state of the catalogue: a day with the changes made to it since. Two hosts with equal revisions have equal
/// records.
struct Revision {
    std::string epoch;           ///< random per life of the stream: numbers of two epochs say nothing of each other
    std::uint64_t number = 0;    ///< counts days and changes from 1; 0: none
    std::uint64_t sequence = 0;  ///< of its message in the stream
    std::string tradingDay;      ///< YYYYMMDD
    std::string digest;          ///< 32 hexadecimal digits over all records; does not depend on their order

    /// The same state of the same log.
    friend bool operator==(const Revision& left, const Revision& right) {
        return left.epoch == right.epoch && left.number == right.number && left.sequence == right.sequence &&
               left.digest == right.digest;
    }
    /// Another one.
    friend bool operator!=(const Revision& left, const Revision& right) { return !(left == right); }
};

/// A day as it is handed to a center: every load with its markets and records, in order. A plain value; copies share
/// the records.
class PM_FEED_API Day {
public:
    /// One load. Records are of the catalogue's class.
    struct Call {
        SnapshotCatalogue catalogue = SnapshotCatalogue::Instruments;  ///< which load
        std::vector<std::string> markets;                              ///< of instruments
        std::vector<boost::shared_ptr<IData>> records;                 ///< none of them empty
        std::vector<std::string> keys;  ///< of catalogues that are loaded as maps: one a record, else none
    };

    /// @name The loads, with the arguments of the center's
    /// @{

    /// IInstrumentCenter::initInstruments.
    void initInstruments(const std::vector<std::string>& markets,
                         const std::vector<boost::shared_ptr<CInstrumentDetail>>& instruments);
    /// IInstrumentCenter::initEtfs.
    void initEtfs(const std::vector<boost::shared_ptr<CETFDetail>>& etfs);
    /// IInstrumentCenter::initBonds.
    void initBonds(const std::map<std::string, boost::shared_ptr<CBondInfoDetail>>& bonds);
    /// IInstrumentCenter::initTenderBondInfos.
    void initTenderBondInfos(const std::map<std::string, boost::shared_ptr<CTenderBondInfoDetail>>& tenderBonds);
    /// IInstrumentCenter::initCounterpartys.
    void initCounterpartys(const std::map<std::string, boost::shared_ptr<CCounterpartyDetail>>& counterparties);
    /// IInstrumentCenter::initOtcInstruments.
    void initOtcInstruments(const std::vector<boost::shared_ptr<COTCFundPlanInfo>>& plans);
    /// IInstrumentCenter::initIssuanceInfos.
    void initIssuanceInfos(const std::vector<boost::shared_ptr<COTCSecuritiesIssuanceInfo>>& issuances);
    /// IInstrumentCenter::initIssuancePriceInfos.
    void initIssuancePriceInfos(const std::map<std::string, boost::shared_ptr<COTCStockEnquiryPriceSetting>>& settings);
    /// @}

    /// A load as it stands. Throws std::invalid_argument where it has keys, but not one a record.
    void add(Call call);
    /// The loads in their order.
    const std::vector<Call>& calls() const { return calls_; }

    /// A snapshot's catalogues, in the order and with the markets of Snapshot::loadInto.
    static Day of(const Snapshot& snapshot);
    /// Every record under its catalogue; what later loads replace is still there.
    Snapshot snapshot() const;
    /// Does every load, in order.
    void loadInto(IInstrumentCenter& center) const;

private:
    std::vector<Call> calls_;
};

/// One change of single instruments: arguments of applyChanges.
struct Change {
    std::vector<boost::shared_ptr<CInstrumentDetail>> upserts;  ///< records to put
    std::vector<std::string> removedKeys;                       ///< key texts
};

/// What became of something that was to be published.
enum class Published : std::uint8_t {
    Done,         ///< it is in the log
    Lost,         ///< another publisher was faster: nothing was published; see Publisher::catchUp
    Refused,      ///< what was handed in cannot be published: an older day, an unknown market, no day yet
    Unreachable,  ///< the server does not answer. A commit may have been stored without our hearing of it
    Failed        ///< the server refuses: permissions, no JetStream, a log of a newer format, or a damaged one
};

/// That and why.
struct Outcome {
    Published result = Published::Done;  ///< what became of it
    Revision revision;                   ///< the log's as far as the publisher knows it
    std::string reason;                  ///< for people; empty when done

    /// Whether it was done.
    explicit operator bool() const { return result == Published::Done; }
};

/// Puts days and changes into the log. All operations wait for the server, so they belong on a thread that may; safe
/// from any thread, one after the other.
///
/// Several publishers may exist. Each commits on top of the revision that it knows, so of two that change the same
/// revision one is told that it lost. The first operation reads the log; afterwards only catchUp() does.
class PM_FEED_API Publisher {
public:
    /// Connects when it is first used.
    explicit Publisher(const Options& options);
    ~Publisher();
    Publisher(const Publisher&) = delete;
    Publisher& operator=(const Publisher&) = delete;

    /// Publishes a day, in place of whatever the log has. Refused when the log has a later trading day; the same day
    /// again is a correction. `tradingDay` is YYYYMMDD. Records must not be changed meanwhile.
    Outcome publish(const std::string& tradingDay, const Day& day);
    /// Publishes a change of single instruments. Refused when the log has no day, or not the market of an upsert; a
    /// removed key that is not there is none.
    Outcome apply(const Change& change);
    /// Reads what others have published. Done also when there is nothing yet.
    Outcome catchUp();
    /// What the next commit goes on top of.
    Revision revision() const;

private:
    std::unique_ptr<PublisherCore> core_;
};

/// What a subscriber can say of its center.
enum class State : std::uint8_t {
    Connecting,  ///< no day yet, and none to be had: the server does not answer, or nobody has published
    Loading,     ///< no day yet, the first one is being loaded
    Current,     ///< the center has what the log had when it was last looked at
    Stale,       ///< the center has its last good day; the log has a newer one, or whether it has is not known
    Failed  ///< somebody must help: refused credentials, a log of a newer format, a damaged day. What was loaded stays
};

/// "Connecting" and so on.
PM_FEED_API const char* stateName(State state);

/// What a subscriber has been through, for an operator's page.
struct Health {
    State state = State::Connecting;                 ///< of this moment
    std::string server;                              ///< URL it is connected to, without password; empty: none
    std::chrono::system_clock::time_point lastSeen;  ///< when the log last answered; 1970: never
    Revision revision;                               ///< what the center has
    std::uint64_t newest = 0;                        ///< number of the log's newest revision that is known of
    std::uint64_t lag = 0;                           ///< revisions that the center lacks, within one epoch
    std::uint64_t days = 0;                          ///< loaded, from whichever source
    std::uint64_t changes = 0;                       ///< applied one by one
    std::uint64_t reloads = 0;   ///< days loaded because the log did not go on from what the center had
    std::uint64_t corrupt = 0;   ///< messages, parts and files that were refused
    std::uint64_t failures = 0;  ///< looks at the log that brought no answer
    std::string lastFailure;     ///< text of the last one of these; stays when all is well again
};

/// Ends a handler's registration with its own life; move-only. May outlive the subscriber.
class PM_FEED_API Registration {
public:
    /// Of nothing.
    Registration() = default;
    /// For the subscriber: does `end` once.
    explicit Registration(std::function<void()> end);
    /// From then on the handler is not called. Waits for a call that the subscriber's thread is in; not in the handler
    /// itself.
    ~Registration();
    Registration(Registration&& other) noexcept;             ///< leaves `other` of nothing
    Registration& operator=(Registration&& other) noexcept;  ///< ends its own first
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

private:
    std::function<void()> end_;
};

/// Fills a center from the log and keeps it there, on a thread of its own. The center must outlive it, and nobody else
/// loads what the feed loads.
///
/// A day is one replaceInstruments, markets that it lacks included, and the loads of the other catalogues; a change is
/// one applyChanges. In the in-memory center each of the two is one version. A key that is there before and after
/// answers all the time; in the persisted center but for the instruments that stand for funds and bonds, which are gone
/// while their load writes them. Whatever goes wrong, the center keeps the last good day.
class PM_FEED_API Subscriber {
public:
    /// Starts at once; returns without having waited for anything.
    Subscriber(CServerInstrumentCenter& center, const Options& options);
    /// The same for the persisted center, whose store must be open.
    Subscriber(CClientInstrumentCenter& center, const Options& options);
    /// Ends the thread: waits for a load that is under way, not for the server; a connection that cannot be closed
    /// within a second is left to a thread of its own. Not to be done in one of its own handlers, nor in one of the
    /// center's on its thread: it could not wait for itself. Where it is done all the same, no handler is called any
    /// more, and the thread ends behind the one it is in; the center must be there until then.
    ~Subscriber();
    Subscriber(const Subscriber&) = delete;
    Subscriber& operator=(const Subscriber&) = delete;

    /// No I/O, as the next two. Current is Stale from when the log has not been looked at for three times
    /// Options::pollEvery and requestTimeout, whatever the thread hangs in (a handler, the network), or when more has
    /// been known of for a requestTimeout and is not there yet. In health() and waitCurrent as well.
    State state() const;
    /// What the center has.
    Revision revision() const;
    /// All of it.
    Health health() const;

    /// Calls `handler` after each day or change that the center has from then on, with its revision, on the
    /// subscriber's thread, without a lock. What it throws is logged and swallowed. Until it returns nothing further is
    /// loaded.
    Registration onChange(std::function<void(const Revision&)> handler);
    /// The same for each new state, with a reason for people. Not for a state that is Stale by the time alone: the
    /// thread that would call is the one that is not heard of.
    Registration onState(std::function<void(State, const std::string& reason)> handler);

    /// Waits until the state is Current, no longer than `timeout`. False when it is not.
    bool waitCurrent(std::chrono::milliseconds timeout) const;

private:
    std::unique_ptr<SubscriberCore> core_;
};

/// What a log has at one moment, as a snapshot: the day with its changes in it.
struct Reading {
    Revision revision;  ///< which state it is
    Snapshot day;       ///< every catalogue
};

/// Reads a log once, for tools: a host subscribes. Throws std::runtime_error with the reason where there is no day to
/// be had within `timeout`.
PM_FEED_API Reading read(const Options& options, std::chrono::milliseconds timeout);

}  // namespace mxservice::feed
