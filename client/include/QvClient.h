// Registers, removes and lists services with the resident host, `qvhost serve`.
//
//     qv::client::Client client;
//     client.registerServices({{1, "/run/a.sock"}, {2, "tcp://127.0.0.1:9000"}});
//     for (const qv::client::Service& service : client.services()) {
//         std::cout << service.id << ' ' << service.address << '\n';
//     }
//     client.unregisterServices({2});
//
// A client has one connection to the host's socket. Every function sends one request and returns
// when the host has carried out the request. It throws Error if that fails.
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
// Time: connecting may take as long as the client's time-out, which is 30 seconds by default. The
// same holds for each request up to the end of its answer.
//
// Lost connections: the host closes the connection when it stops, or when the client is idle for
// too long. The client notices this before its next request and connects again. If the connection
// breaks during a request, or the time-out passes, the client does not know whether the host
// carried out the request. The function throws Error, and the next request connects again. A
// request may be repeated: registering or removing the same services twice has the same effect as
// once.
//
// Threads: only one thread at a time may use a client. Different clients are independent. After
// fork(), only one of the two processes may use the client.
//
// Signals: no function raises a signal, SIGPIPE included. A signal that arrives interrupts nothing.
#ifndef QV_CLIENT_H
#define QV_CLIENT_H

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(__GNUC__)
#define QV_CLIENT_EXPORT __attribute__((visibility("default")))
#else
#define QV_CLIENT_EXPORT
#endif

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
    uint64_t memory = 0;  // bytes of all requests and answers
    uint64_t memoryLimit = 0;
    std::optional<int32_t> level;           // of the plug-in's log, if a client set it
    std::map<uint32_t, uint64_t> requests;  // how many there were, by command code
    std::map<uint32_t, uint64_t> refusals;  // how many there were, by result code
};

// Tells a person in one line what was tried and why it failed.
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

class Connection;  // private to the library

constexpr std::chrono::milliseconds kDefaultTimeout = std::chrono::seconds(30);

// Makes a client wait without a bound.
constexpr std::chrono::milliseconds kNoTimeout = std::chrono::milliseconds::max();

class QV_CLIENT_EXPORT Client {
  public:
    // Connects to the host.
    explicit Client(const std::string& socketPath = defaultSocketPath(),
                    std::chrono::milliseconds timeout = kDefaultTimeout);
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    Client(Client&&) = delete;
    Client& operator=(Client&&) = delete;

    // Registers the services in this order, all or none. If an identifier has an address already,
    // the new address replaces it. All services go out in one request, and the host refuses a
    // request that is longer than its bound. Sends nothing if there are no services.
    ChangeResult registerServices(const std::vector<Service>& services);

    // Removes the services. Ignores identifiers that are not registered.
    ChangeResult unregisterServices(const std::vector<int32_t>& ids);

    // Returns all services, ascending by identifier.
    std::vector<Service> services();

    // Returns when the plug-in's file holds the directory as it is now. The file follows within
    // about a second by itself. Throws Error of kind Refused if the file does not follow.
    void sync();

    // Returns what the host tells about itself.
    HostStatus status();

    // Sets the level of the plug-in's diagnostic log, 0 (least) to 7 (most). It holds until the
    // host reloads its configuration or ends. Only root and the host's own user may set it.
    void setDebugLevel(int32_t level);

    // Returns when the host has answered.
    void ping();

  private:
    std::unique_ptr<Connection> connection_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_H
