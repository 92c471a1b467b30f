// SPDX-License-Identifier: Apache-2.0

// Shows how much memory the resident host takes when many clients make it keep long messages:
//
//     memory_bench CLIENTS SERVICES PRESSURE PAUSE
//
// In a first host, as many clients send requests of 16 MiB slowly. In a second one, which holds a
// directory of 16 MiB, they ask for listings and do not read them. There are SERVICES services in
// the requests and in the directory. The clients stay for PRESSURE seconds. Prints the memory of
// the host before they connect, the most that it had, and its memory PAUSE seconds after they have
// left.

#include <QvFrame.h>
#include <QvPlugin.h>

#include <algorithm>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/io_context.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "FrameConnection.h"
#include "HostSubject.h"
#include "namingService.pb.h"

namespace {

using namespace qv::bench;
using Socket = asio::local::stream_protocol::socket;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

// The longest request, and the longest directory, that the host takes.
constexpr std::size_t kLongest = std::size_t{16} * 1024 * 1024;

// A client sends its request in so many parts.
constexpr std::size_t kParts = 80;
constexpr std::chrono::milliseconds kPartTime(100);

// Returns a message with this many services that is nearly as long as the host takes.
std::string longMessage(int services) {
    constexpr std::size_t kBytesBesides = 12;
    const std::string address(kLongest / static_cast<std::size_t>(services) - kBytesBesides, 'a');
    qor::kevra::ServiceInfoArray array;
    for (int id = 0; id < services; ++id) {
        auto* const service = array.add_services();
        service->set_id(id);
        service->set_address(address);
    }
    std::string message = array.SerializeAsString();
    if (message.size() > kLongest) {
        throw std::logic_error("the message is too long");
    }
    return message;
}

// Returns a line of the status that the system has of a process, in MiB.
double memory(const ServerProcess& process, const std::string& name) {
    std::ifstream status("/proc/" + std::to_string(process.id()) + "/status");
    for (std::string word; status >> word;) {
        double kibibytes = 0;
        if (word == name + ":" && status >> kibibytes) {
            return kibibytes / 1024;
        }
    }
    throw std::runtime_error("cannot read the memory of the host");
}

std::vector<Socket> connect(asio::io_context& context, const HostSubject& host, int count) {
    std::vector<Socket> sockets;
    for (int i = 0; i < count; ++i) {
        sockets.emplace_back(context).connect(asio::local::stream_protocol::endpoint(host.path()));
    }
    return sockets;
}

// Sends a part of the request every kPartTime, or as much of it as the host reads.
class SlowSender {
  public:
    explicit SlowSender(Socket& socket) : socket_(socket) { socket_.non_blocking(true); }

    void send(const std::string& request) {
        const std::size_t part = request.size() / kParts + 1;
        asio::error_code error;
        const asio::const_buffer rest = asio::buffer(request) + sent_;
        sent_ += asio::write(socket_, asio::buffer(rest, part), error);
    }

    bool isDone(const std::string& request) const { return sent_ == request.size(); }

  private:
    Socket& socket_;
    std::size_t sent_ = 0;
};

void sendSlowly(std::vector<Socket>& sockets, const std::string& request, Seconds pressure) {
    std::vector<SlowSender> senders(sockets.begin(), sockets.end());
    const auto end = Clock::now() + pressure;
    for (auto next = Clock::now(); next < end; next += kPartTime) {
        for (SlowSender& sender : senders) {
            sender.send(request);
        }
        std::this_thread::sleep_until(next + kPartTime);
    }
    const auto done = std::count_if(senders.begin(), senders.end(), [&](const SlowSender& sender) {
        return sender.isDone(request);
    });
    static_cast<void>(std::fprintf(stderr, "memory_bench: %d of %d requests were sent\n",
                                   static_cast<int>(done), static_cast<int>(senders.size())));
}

void askAndNotRead(std::vector<Socket>& sockets, Seconds pressure) {
    for (Socket& socket : sockets) {
        asio::write(socket, asio::buffer(frame(QV_COMMAND_GET_SERVICES, "")));
    }
    std::this_thread::sleep_for(pressure);
}

// Prints what the host takes before, at most, and after `press`.
template <class Press>
void print(const char* label, HostSubject& host, int clients, Seconds pause, Press press) {
    const double before = memory(host.process(), "VmRSS");
    {
        asio::io_context context;
        std::vector<Socket> sockets = connect(context, host, clients);
        press(sockets);
    }
    const double most = memory(host.process(), "VmHWM");
    std::this_thread::sleep_for(pause);
    const double after = memory(host.process(), "VmRSS");
    std::printf("| %d clients that %s | %.0f MiB | %.0f MiB | %.0f MiB |\n", clients, label, before,
                most, after);
}

void run(int clients, int services, Seconds pressure, Seconds pause) {
    const std::string message = longMessage(services);
    std::printf("| %d services | before | at most | %.0f s after |\n|---|---|---|---|\n", services,
                pause.count());
    {
        HostSubject host(kHostThreads, Place::Kind::Disk);
        host.hold(0);
        const std::string request = frame(QV_COMMAND_UNREGISTER_SERVICES, message);
        print("send 16 MiB slowly", host, clients, pause,
              [&](std::vector<Socket>& sockets) { sendSlowly(sockets, request, pressure); });
    }
    {
        HostSubject host(kHostThreads, Place::Kind::Disk);
        host.ask(frame(QV_COMMAND_REGISTER_SERVICES, message));
        print("do not read 16 MiB", host, clients, pause,
              [&](std::vector<Socket>& sockets) { askAndNotRead(sockets, pressure); });
    }
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 5) {
        static_cast<void>(
            std::fputs("usage: memory_bench CLIENTS SERVICES PRESSURE PAUSE\n", stderr));
        return EXIT_FAILURE;
    }
    try {
        run(std::atoi(argv[1]), std::atoi(argv[2]), Seconds(std::atof(argv[3])),
            Seconds(std::atof(argv[4])));
    } catch (const std::exception& error) {
        static_cast<void>(std::fprintf(stderr, "memory_bench: %s\n", error.what()));
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}
