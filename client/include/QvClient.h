// The naming service as its clients see it: the services that a resident host, `qvhost serve`,
// keeps.
//
//     qv::client::Client client;
//     client.registerServices({{1, "/run/a.sock"}, {2, "tcp://127.0.0.1:9000"}});
//     for (const qv::client::Service& service : client.services()) {
//         std::cout << service.id << ' ' << service.address << '\n';
//     }
//     client.unregisterServices({2});
//
// A client is one connection over the host's socket. Every function sends one request and returns
// when the host has carried it out, or throws Error.
//
// Time: connecting, and each request from its beginning to the end of its answer, may take as long
// as the time-out that the client was made with, 30 seconds unless said otherwise.
//
// Lost connections: a host that stops, or that finds a client idle for too long, closes the
// connection. A client notices that before it sends its next request, and connects anew. A
// connection that breaks during a request is an error, because nobody can tell whether the request
// was carried out; so is a time-out. The request after it connects anew. Repeating a request does
// no harm: one that changes nothing is carried out like any other.
//
// Threads: a client may be used by one thread at a time; different clients are independent. A
// client does not survive fork() in both processes.
//
// Signals: none is raised, SIGPIPE included, and one that arrives interrupts nothing.
#ifndef QV_CLIENT_H
#define QV_CLIENT_H

#include <chrono>
#include <cstdint>
#include <memory>
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
    // Any bytes. The directory cannot be saved as long as it holds an address that is not UTF-8,
    // and of an address with a zero byte only what stands in front of that is saved.
    std::string address;
};

// What went wrong, as one line for a person: what was tried, and why it failed.
class QV_CLIENT_EXPORT Error : public std::runtime_error {
  public:
    enum class Kind {
        CannotConnect,   // code() is the system's error number
        Refused,         // by the host; code() is a QvHostResult of QvFrame.h, what() its words
        Result,          // by the plug-in; code() is its result code, of QvPlugin.h
        ConnectionLost,  // code() is the system's error number; 0 when the host closed it
        TimedOut,
        BrokenAnswer,  // what came is no answer to the request
        TooLong,       // the request has more bytes than the plug-in reads; nothing was sent
    };

    Error(Kind kind, int32_t code, const std::string& text);
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    ~Error() override;

    Kind kind() const noexcept { return kind_; }

    // See Kind; 0 where nothing is said there.
    int32_t code() const noexcept { return code_; }

  private:
    Kind kind_;
    int32_t code_;
};

// Where the host listens unless it was told otherwise: namingService.sock in the directory that
// QV_RUN_DIR names, and else in /run/Vornak/LorxCore (macOS: /var/run/Vornak/LorxCore), or where
// the build has it. A set-id process ignores the variable.
QV_CLIENT_EXPORT std::string defaultSocketPath();

class Connection;  // the library's own

constexpr std::chrono::milliseconds kDefaultTimeout = std::chrono::seconds(30);

// Waits as long as it takes.
constexpr std::chrono::milliseconds kNoTimeout = std::chrono::milliseconds::max();

class QV_CLIENT_EXPORT Client {
  public:
    // Connects.
    explicit Client(const std::string& socketPath = defaultSocketPath(),
                    std::chrono::milliseconds timeout = kDefaultTimeout);
    ~Client();

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;
    Client(Client&&) = delete;
    Client& operator=(Client&&) = delete;

    // In this order; a later address for an identifier replaces an earlier one. One request, and so
    // one save of the directory: many services are faster together. The host bounds how long a
    // request may be, and refuses a longer one. Without services nothing is sent.
    void registerServices(const std::vector<Service>& services);

    // An identifier that is not registered does no harm.
    void unregisterServices(const std::vector<int32_t>& ids);

    // All of them, ascending by identifier.
    std::vector<Service> services();

    // Of the plug-in's diagnostic log: 0 (least) to 7 (most).
    void setDebugLevel(int32_t level);

    // Succeeds when the host answers.
    void ping();

  private:
    std::unique_ptr<Connection> connection_;
};

}  // namespace qv::client

#endif  // QV_CLIENT_H
