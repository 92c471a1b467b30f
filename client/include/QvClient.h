// SPDX-License-Identifier: Apache-2.0

// Registers and finds services with the resident host, `qvhost serve`, and follows their changes.
//
//     qv::client::Client client;
//     client.registerServices({{1, "/run/a.sock"}});
//     const std::string database = client.waitFor(7);                // until it is registered
//     const std::optional<std::string> printer = client.find(8);     // or nothing
//
//     qv::client::Subscription changes = client.subscribe({7, 8});
//     while (std::optional<qv::client::Event> event = changes.next()) {
//         for (const qv::client::Service& moved : event->changed) { ... }
//     }
//
// A client has one connection to the host's socket. Every function sends one request and returns
// when the host has carried out the request. It throws Error if that fails. Waiting for services
// and a subscription have a connection of their own.
//
// Kept changes: a registration or a removal that is kept is on the host's disk. It outlives a
// killed host and a power failure. If the host cannot write to its disk, it makes the change
// nevertheless, and the function returns why the change is not kept:
//
//     const qv::client::ChangeResult result = client.registerServices({{1, "/run/a.sock"}});
//     if (!result.isKept) {
//         std::cerr << "a restart of the host may lose service 1: " << result.reason << '\n';
//     }
//
// Time: connecting may take as long as the client's time-out, which is 30 seconds by default. A
// request with its answer may take as long as the time-out of its call. This is the client's unless
// the caller names another one.
//
// Lost connections: the host closes the connection when it stops, or when the client is idle for
// too long. The client notices this before its next request and connects again. If the connection
// breaks during a request, or the time-out passes, the client does not know whether the host
// carried out the request. The function throws Error, and the next request connects again. A
// request may be repeated: registering or removing the same services twice has the same effect as
// once.
//
// Whom to trust: in a directory that others may write, anybody can listen at the path. A client
// whose ClientOptions name the host's user checks each connection before it uses the connection.
//
// Threads: only one thread at a time may use a client. Different clients are independent, and so
// are a client and its subscriptions. After fork(), only one of the two processes may use the
// client and its subscriptions.
//
// Signals: no function raises a signal, SIGPIPE included. A signal that arrives interrupts nothing.
//
// Programs in C use qv_client.h. QvClientVersion.h tells the version.
#ifndef QV_CLIENT_H
#define QV_CLIENT_H

#include <QvClientVersion.h>
#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace qv::client {

struct Service {
    int32_t id = 0;
    // UTF-8 of 1 to 4096 bytes without a zero byte, and without U+FEFF at the beginning. A listing
    // may hold other addresses, which older hosts took.
    std::string address;
};

// Tells whether a change outlives the host that made it.
struct ChangeResult {
    bool isKept = true;
    std::string reason;  // why not, for people
};

// What the host tells about itself. Its texts are for people and may hold any bytes. 0 and empty
// texts stand for what does not apply or what the host does not tell.
struct HostStatus {
    using Time = std::chrono::time_point<std::chrono::system_clock, std::chrono::seconds>;

    // The plug-in's file, which follows the directory.
    struct File {
        std::string path;
        int64_t revision = 0;  // of the directory that the file holds
        uint64_t behind = 0;   // how many changes the file lacks
        Time behindSince;
        std::string problem;  // why the last attempt to bring the file up failed
    };

    // The transactions in which the host writes changes to its disk.
    struct Commits {
        uint64_t count = 0;
        uint64_t changes = 0;      // in all transactions
        uint64_t mostChanges = 0;  // in one transaction
        std::chrono::microseconds longest{0};
        std::optional<std::chrono::microseconds> underWay;  // how long one takes already
    };

    // The saves that brought the plug-in's file up.
    struct Saves {
        uint64_t count = 0;
        std::chrono::microseconds longest{0};
        std::optional<std::chrono::microseconds> underWay;
    };

    std::string version;
    Time startTime;
    std::string start;  // what the last start or reload did
    uint64_t services = 0;
    uint64_t addressBytes = 0;  // of all services
    int64_t revision = 0;       // of the directory; counts its changes
    bool isKept = false;        // a restart finds the directory of now
    Time notKeptSince;
    std::string notKeptReason;
    File file;
    Commits commits;
    Saves saves;
    uint64_t clients = 0;  // that are connected
    uint64_t clientLimit = 0;
    uint64_t subscribers = 0;  // of these clients
    uint64_t memory = 0;       // bytes of all requests and answers
    uint64_t memoryLimit = 0;
    std::optional<int32_t> level;           // of the plug-in's log, if a client set it
    std::map<uint32_t, uint64_t> requests;  // how many there were, by command code
    std::map<uint32_t, uint64_t> refusals;  // how many there were, by result code
};

// What a host can do, as it says in its hello. 0 and an empty text stand for what it does not say.
struct HostAbilities {
    uint32_t edition = 1;  // of the protocol, as QV_PROTOCOL_EDITION of QvFrame.h
    std::string version;   // for people; may hold any bytes
    std::set<uint32_t> commands;
    uint64_t longestRequest = 0;    // bytes of a request of this user, without its header
    uint64_t mostServices = 0;      // in the directory
    uint64_t mostAddressBytes = 0;  // of all services
    uint64_t longestAddress = 0;    // bytes
    uint64_t mostIds = 0;           // of a find or a subscription
};

// Tells a person in one line what was tried and why it failed. Of the host's own words, everything
// is escaped that could forge a line or control a terminal.
class QV_CLIENT_EXPORT Error : public std::runtime_error {
  public:
    enum class Kind {
        CannotConnect,   // code() is the system's error number
        Refused,         // the host refused; code() is a QvHostResult of QvFrame.h
        Result,          // the plug-in failed; code() is a result code of QvPlugin.h
        ConnectionLost,  // code() is the system's error number, or 0 if the host closed it
        TimedOut,
        BrokenAnswer,  // the bytes that arrived are no answer to the request
        TooLong,       // the request has more bytes than the plug-in reads; nothing was sent
        Argument,      // the directory cannot hold an address; nothing was sent
        WrongHost,     // the host runs as another user, whose number is code(); nothing was sent
    };

    Error(Kind kind, int32_t code, const std::string& text);
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    ~Error() override;

    Kind kind() const noexcept { return kind_; }

    // Returns the number that Kind names, or 0 for a kind without one.
    int32_t code() const noexcept { return code_; }

  private:
    Kind kind_;
    int32_t code_;
};

// Returns the path of the socket at which the host listens by default: namingService.sock in the
// directory that QV_RUN_DIR in the environment names. Without that variable, the directory is the
// one that the build names, by default /run/Vornak/LorxCore (macOS: /var/run/Vornak/LorxCore). A
// set-id process ignores the variable.
QV_CLIENT_EXPORT std::string defaultSocketPath();

constexpr std::chrono::milliseconds kDefaultTimeout = std::chrono::seconds(30);

// Makes a client wait without a bound.
constexpr std::chrono::milliseconds kNoTimeout = std::chrono::milliseconds::max();

// Stands for the time-out in the client's options.
constexpr std::chrono::milliseconds kClientTimeout = std::chrono::milliseconds::min();

struct ClientOptions {
    std::string socketPath = defaultSocketPath();
    std::chrono::milliseconds timeout = kDefaultTimeout;

    // Makes every connection fail with Error of kind WrongHost unless the host runs as this user or
    // as root. The system tells who made the socket listen. If systemd did, this is root.
    std::optional<uid_t> hostUser;
};

// What happened to the services of a subscription.
struct Event {
    enum class Kind {
        Snapshot,      // the services are those in `registered`, and no others
        Change,        // the services changed; after Disconnected, perhaps none of them
        Disconnected,  // the host is away; a Snapshot or a Change follows when it is there again
    };

    Kind kind = Kind::Change;
    int64_t revision = 0;             // of the directory after the event; 0 for Disconnected
    std::vector<Service> registered;  // which had no address before
    std::vector<Service> changed;     // which had another address before
    std::vector<int32_t> withdrawn;   // which have no address any more
    std::string reason;               // why the host is away, in one line for people
};

class Feed;  // private to the library

// Tells of all changes to services, in their order. The first event is a Snapshot, or Disconnected
// if no host is there. Each change comes once. A subscription that is read too slowly, or for which
// a host that is back lacks the changes since, gets a Snapshot instead of the changes.
//
// A subscription connects again by itself, at growing intervals of up to two seconds. All its work
// is done in next(); it has no thread.
//
// A loop of the caller's own waits for descriptor() to become readable, together with its other
// descriptors. When it is readable, the loop calls next() without waiting until nothing comes:
//
//     pollfd entry = {changes.descriptor(), POLLIN, 0};
//     while (poll(&entry, 1, -1) > 0) {
//         while (std::optional<Event> event = changes.next(std::chrono::milliseconds(0))) { ... }
//     }
class QV_CLIENT_EXPORT Subscription {
  public:
    ~Subscription();

    // A subscription that was moved from may only be destroyed or assigned to.
    Subscription(Subscription&& other) noexcept;
    Subscription& operator=(Subscription&& other) noexcept;
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;

    // Returns the next event, or nothing if the time passes first. A host that is away or does not
    // answer in the client's time-out is an event. Throws Error of one of these kinds, and the next
    // call connects again:
    //   - Refused or Result if the host refuses the subscription, as a host without subscriptions
    //     does;
    //   - BrokenAnswer if an event contradicts the earlier ones or is none;
    //   - WrongHost as ClientOptions say.
    std::optional<Event> next(std::chrono::milliseconds timeout = kNoTimeout);

    // Returns the descriptor to wait for, which stays the same as long as the subscription exists.
    // It becomes readable for poll() and its kin when next() has something to do, which need not be
    // an event: bytes have arrived, or it is time to connect again. It belongs to the subscription
    // and serves no other purpose.
    int descriptor() const noexcept;

  private:
    friend class Client;
    explicit Subscription(std::unique_ptr<Feed> feed);

    std::unique_ptr<Feed> feed_;
};

class Connection;  // private to the library

// The last parameter of each function bounds the time of its request.
class QV_CLIENT_EXPORT Client {
  public:
    // Connects to the host.
    explicit Client(const ClientOptions& options);
    explicit Client(const std::string& socketPath = defaultSocketPath(),
                    std::chrono::milliseconds timeout = kDefaultTimeout);
    ~Client();

    // A client that was moved from may only be destroyed or assigned to.
    Client(Client&& other) noexcept;
    Client& operator=(Client&& other) noexcept;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Registers the services in this order, all or none. If an identifier has an address already,
    // the new address replaces it. All services go out in one request, and the host refuses a
    // request that is longer than its bound. Sends nothing if there are no services.
    ChangeResult registerServices(const std::vector<Service>& services,
                                  std::chrono::milliseconds timeout = kClientTimeout);

    // Removes the services. Ignores identifiers that are not registered.
    ChangeResult unregisterServices(const std::vector<int32_t>& ids,
                                    std::chrono::milliseconds timeout = kClientTimeout);

    // Returns all services, ascending by identifier.
    std::vector<Service> services(std::chrono::milliseconds timeout = kClientTimeout);

    // Returns the address of the service, or nothing if the service is not registered.
    std::optional<std::string> find(int32_t id, std::chrono::milliseconds timeout = kClientTimeout);

    // Returns those of the services that are registered, ascending by identifier. Sends nothing if
    // there are no identifiers.
    std::vector<Service> find(const std::vector<int32_t>& ids,
                              std::chrono::milliseconds timeout = kClientTimeout);

    // Returns the address of the service as soon as the service is registered. A host that is away
    // meanwhile only takes time. Throws Error of kind TimedOut if the time passes first.
    std::string waitFor(int32_t id, std::chrono::milliseconds timeout = kClientTimeout);

    // Returns the services, ascending by identifier, as soon as all of them are registered at the
    // same time. Otherwise as the function above.
    std::vector<Service> waitFor(const std::vector<int32_t>& ids,
                                 std::chrono::milliseconds timeout = kClientTimeout);

    // Returns a subscription to these services, or to all services if there are no identifiers. The
    // subscription outlives the client.
    Subscription subscribe(std::vector<int32_t> ids = {}) const;

    // Returns when the plug-in's file holds the directory as it is now. The file follows within
    // about a second by itself. Throws Error of kind Refused if the file does not follow.
    void sync(std::chrono::milliseconds timeout = kClientTimeout);

    // Returns what the host can do. Of a host of edition 1, only the edition is known.
    HostAbilities abilities(std::chrono::milliseconds timeout = kClientTimeout);

    // Returns what the host tells about itself.
    HostStatus status(std::chrono::milliseconds timeout = kClientTimeout);

    // Sets the level of the plug-in's diagnostic log, 0 (least) to 7 (most). It holds until the
    // host reloads its configuration or ends. Only root and the host's own user may set it.
    void setDebugLevel(int32_t level, std::chrono::milliseconds timeout = kClientTimeout);

    // Returns when the host has answered.
    void ping(std::chrono::milliseconds timeout = kClientTimeout);

  private:
    std::unique_ptr<Connection> connection_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_H
