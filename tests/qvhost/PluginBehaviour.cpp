// SPDX-License-Identifier: Apache-2.0

#include "qvhost/PluginBehaviour.h"

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <new>
#include <stdexcept>

namespace qv::tests {

namespace {

std::atomic<bool> isInitialized = false;
std::atomic<int> requestsInside = 0;

// Waits until somebody has opened the pipe for writing, and closed it.
void waitAtThePipe() {
    const int pipe = open(std::getenv("QVHOST_FAKE_PIPE"), O_RDONLY | O_CLOEXEC);
    char byte = 0;
    mustBe(pipe != -1 && read(pipe, &byte, 1) == 0);
    close(pipe);
}

void disturb(const std::string& where) {
    if (isTold(where + " throws text")) {
        throw std::string("fail to get the lock");
    }
    if (isTold(where + " throws bad_alloc")) {
        throw std::bad_alloc();
    }
    if (isTold(where + " throws exception")) {
        throw std::runtime_error("something broke");
    }
    if (isTold(where + " throws number")) {
        throw 42;
    }
    if (isTold(where + " waits at the pipe")) {
        waitAtThePipe();
    }
}

}  // namespace

bool isTold(const std::string& behaviour) {
    const char* const value = std::getenv("QVHOST_FAKE");
    if (value == nullptr || *value != '@') {
        return value != nullptr && value == behaviour;
    }
    std::ifstream file(value + 1);
    std::string line;
    std::getline(file, line);
    return line == behaviour;
}

void record(const std::string& line) {
    const char* const path = std::getenv("QVHOST_FAKE_RECORD");
    std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "ae");
    if (file != nullptr) {
        static_cast<void>(std::fprintf(file, "%s\n", line.c_str()));
        static_cast<void>(std::fclose(file));
    }
}

void mustBe(bool right) {
    if (!right) {
        std::abort();
    }
}

bool beginInitialize() {
    record("initialize");
    mustBe(requestsInside == 0);
    disturb("initialize");
    isInitialized = !isTold("initialize fails");
    return isInitialized;
}

void beginFinalize() {
    record("finalize");
    mustBe(requestsInside == 0);
    isInitialized = false;
    disturb("finalize");
}

Request::Request(int command, const void* in, int inLen) {
    mustBe(isInitialized);
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof text, "%04x ", static_cast<unsigned>(command)));
    std::string line = text;
    for (int i = 0; i < inLen; ++i) {
        static_cast<void>(
            std::snprintf(text, sizeof text, "%02x", static_cast<const unsigned char*>(in)[i]));
        line += text;
    }
    record(line);
    ++requestsInside;
    try {
        disturb("request");
    } catch (...) {
        --requestsInside;
        throw;
    }
}

Request::~Request() {
    --requestsInside;
}

}  // namespace qv::tests
