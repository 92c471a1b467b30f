// SPDX-License-Identifier: Apache-2.0

#include "RedisSubject.h"

#include <unistd.h>

#include <asio/buffer.hpp>
#include <asio/completion_condition.hpp>
#include <asio/error.hpp>
#include <asio/read.hpp>
#include <asio/read_until.hpp>
#include <asio/system_error.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <thread>

#include "Changes.h"
#include "RespMessages.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

// This is the server under another name. Debian has this name in a package that starts no service.
constexpr char kProgram[] = "/usr/bin/redis-check-rdb";

// Returns a link to the program under the name that makes it the server.
std::string serverIn(const Place& place) {
    if (access(kProgram, X_OK) != 0) {
        throw std::system_error(errno, std::generic_category(), kProgram);
    }
    std::string server = place.path("redis-server");
    std::filesystem::create_symlink(kProgram, server);
    return server;
}

std::string keyOf(int id) {
    return "service:" + std::to_string(id);
}

}  // namespace

// Redis neither takes snapshots nor rewrites its file, so that nothing delays its changes.
RedisSubject::RedisSubject()
    : process_({serverIn(place_), "--port", "0", "--unixsocket", path_, "--dir", place_.path(),
                "--logfile", place_.path("redis.log"), "--appendonly", "yes", "--appendfsync",
                "always", "--save", "", "--auto-aof-rewrite-percentage", "0"},
               {}) {
    connect();
}

// Redis opens its socket itself, and does not say when.
void RedisSubject::connect() {
    for (asio::error_code error;;) {
        socket_.connect(asio::local::stream_protocol::endpoint(path_), error);
        if (!error) {
            return;
        }
        if (process_.hasEnded()) {
            throw asio::system_error(error, "redis-server ended before it served");
        }
        socket_.close();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

void RedisSubject::hold(int count) {
    ask(resp::command({"FLUSHALL"}));
    std::vector<std::string> words = {"MSET"};
    for (int id = 0; id < count; ++id) {
        words.push_back(keyOf(id));
        words.push_back(addressOf(id));
    }
    ask(resp::command(words));
    if (ask(resp::command({"DBSIZE"})) != ":" + std::to_string(count) + resp::kEnd) {
        throw std::runtime_error("Redis does not have the keys that it was given");
    }
    held_ = count;
}

std::vector<std::string> RedisSubject::requests(Work work, int client) {
    std::vector<std::string> requests;
    switch (work) {
        case Work::Ping:
            return {resp::command({"PING"})};
        case Work::Find:
            for (const int id : ownServices(client, held_)) {
                requests.push_back(resp::command({"GET", keyOf(id)}));
            }
            return requests;
        case Work::Change:
            for (const Change& change : changesOf(client, held_)) {
                requests.push_back(resp::command({"SET", keyOf(change.id), change.address}));
            }
            return requests;
        case Work::Publication:
            return {resp::command({"PUBLISH", kChannel, addressOf(held_ - 1)})};
        case Work::Listing:
        case Work::UnchangedRegistration:
            break;
    }
    throw std::logic_error("Redis is not measured with this work");
}

std::string RedisSubject::ask(const std::string& request) {
    asio::write(socket_, asio::buffer(request));
    std::string answer;
    const std::size_t line = asio::read_until(socket_, asio::dynamic_buffer(answer), resp::kEnd);
    if (answer.front() == resp::kError || answer == resp::kNothing) {
        throw std::runtime_error("Redis refused a command: " + answer);
    }
    if (answer.front() == resp::kString) {
        const std::size_t size = line + std::stoul(answer.substr(1)) + std::strlen(resp::kEnd);
        asio::read(socket_, asio::dynamic_buffer(answer),
                   asio::transfer_exactly(size - answer.size()));
    }
    return answer;
}

std::unique_ptr<RedisSubject> startRedis(const char* program) {
    try {
        return std::make_unique<RedisSubject>();
    } catch (const std::exception& error) {
        static_cast<void>(
            std::fprintf(stderr, "%s: Redis does not run: %s\n", program, error.what()));
        return nullptr;
    }
}

}  // namespace qv::bench
