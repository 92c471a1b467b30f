// SPDX-License-Identifier: Apache-2.0

// Serves clients with functions of the test, which may send broken answers:
//
//     ScriptedServer server({[](Peer& peer) {
//         const Request request = peer.receive();
//         peer.answer(QV_OK, "", request.number);
//     }});
//     Client client(server.path());
//     client.ping();
//
// Each function serves one connection, in their order. The connection closes when the function
// returns.
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

    // Returns a whole request, or an empty one if the client closes.
    Request receive() const;

    // Returns `size` bytes of a request, which need not be all.
    std::string receiveBytes(std::size_t count) const;

    void send(const std::string& bytes) const;
    void answer(uint32_t result, const std::string& bytes, uint32_t number) const;

    // Waits until the client closes.
    void waitForEnd() const;

  private:
    int descriptor_;
};

// Returns a header that tells `length`, followed by these bytes.
std::string frameOf(uint32_t code, uint32_t length, uint32_t number, const std::string& bytes);

class ScriptedServer {
  public:
    using Script = std::function<void(Peer&)>;

    explicit ScriptedServer(std::vector<Script> scripts);

    // All clients must have closed.
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
