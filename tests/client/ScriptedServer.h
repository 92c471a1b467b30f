// A server that does with its clients what a test says, broken answers included:
//
//     ScriptedServer server({[](Peer& peer) {
//         const Request request = peer.receive();
//         peer.answer(QV_OK, "", request.number);
//     }});
//     Client client(server.path());
//     client.ping();
//
// Each connection is another function's, in their order; it is closed when the function returns.
#ifndef QV_TESTS_SCRIPTED_SERVER_H
#define QV_TESTS_SCRIPTED_SERVER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "support/TemporaryDirectory.h"

namespace qv::tests {

struct Request {
    uint32_t command = 0;
    uint32_t number = 0;
    std::string input;
};

class Peer {
  public:
    explicit Peer(int descriptor) : descriptor_(descriptor) {}

    // A whole request; of no command and without a number when the client goes away.
    Request receive() const;

    // So many bytes, of a request that is not read to its end.
    std::string receiveBytes(std::size_t count) const;

    void send(const std::string& bytes) const;
    void answer(uint32_t result, const std::string& bytes, uint32_t number) const;

    // Until the client goes away.
    void waitForEnd() const;

  private:
    int descriptor_;
};

// A header that says `length`, and these bytes.
std::string frameOf(uint32_t code, uint32_t length, uint32_t number, const std::string& bytes);

class ScriptedServer {
  public:
    using Script = std::function<void(Peer&)>;

    explicit ScriptedServer(std::vector<Script> scripts);

    // The clients must be gone.
    ~ScriptedServer();

    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ScriptedServer(ScriptedServer&&) = delete;
    ScriptedServer& operator=(ScriptedServer&&) = delete;

    std::string path() const { return directory_.path("host.sock"); }

  private:
    TemporaryDirectory directory_;
    int listening_;
    std::thread thread_;
};

// Listens at the path. Throws std::system_error.
int listenAt(const std::string& path, int backlog);

}  // namespace qv::tests

#endif  // QV_TESTS_SCRIPTED_SERVER_H
