// A plug-in that behaves as QVHOST_FAKE in the environment says. It records every call in the file
// that QVHOST_FAKE_RECORD names, one in each line, with the bytes of a request in hexadecimal. If
// the behaviour is @ and a path, it is read from that file at every call, so that another process
// can change it. A call that a host must not make aborts the host.
#include <QvPlugin.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

// A list of {id 5, address "a"} and {id 6, address "b"}.
constexpr char kTwoServices[] = "\x0a\x05\x08\x05\x12\x01\x61\x0a\x05\x08\x06\x12\x01\x62";

std::atomic<bool> initialized = false;
std::atomic<int> requestsInside = 0;

constexpr int kLong = 8 * 1024 * 1024;

bool told(const char* behaviour) {
    const char* const value = std::getenv("QVHOST_FAKE");
    if (value == nullptr || *value != '@') {
        return value != nullptr && std::strcmp(value, behaviour) == 0;
    }
    std::ifstream file(value + 1);
    std::string line;
    std::getline(file, line);
    return line == behaviour;
}

void mustBe(bool right) {
    if (!right) {
        std::abort();
    }
}

// Counts a request while it is executed.
class Inside {
  public:
    Inside() {
        ++requestsInside;
        mustBe(initialized);
    }
    ~Inside() { --requestsInside; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
};

// Waits until another request is executed beside this one. Returns false if none comes.
bool meetsAnother() {
    static std::mutex mutex;
    static std::condition_variable arrived;
    static int count = 0;
    std::unique_lock<std::mutex> lock(mutex);
    ++count;
    arrived.notify_all();
    constexpr std::chrono::minutes kNever(1);
    return arrived.wait_for(lock, kNever, [] { return count % 2 == 0; });
}

// Waits until somebody has opened the pipe that QVHOST_FAKE_PIPE names for writing, and closed it.
void waitAtThePipe() {
    const int pipe = open(std::getenv("QVHOST_FAKE_PIPE"), O_RDONLY | O_CLOEXEC);
    char byte = 0;
    mustBe(pipe != -1 && read(pipe, &byte, 1) == 0);
    close(pipe);
}

void record(const std::string& line) {
    const char* const path = std::getenv("QVHOST_FAKE_RECORD");
    std::FILE* const file = path == nullptr ? nullptr : std::fopen(path, "ae");
    if (file != nullptr) {
        static_cast<void>(std::fprintf(file, "%s\n", line.c_str()));
        static_cast<void>(std::fclose(file));
    }
}

void throwAsTold(const std::string& where) {
    if (told((where + " throws text").c_str())) {
        throw std::string("fail to get the lock");
    }
    if (told((where + " throws bad_alloc").c_str())) {
        throw std::bad_alloc();
    }
    if (told((where + " throws exception").c_str())) {
        throw std::runtime_error("something broke");
    }
    if (told((where + " throws number").c_str())) {
        throw 42;
    }
}

int answer(const void* bytes, int length, void** out, int* outLen) {
    *out = std::malloc(static_cast<std::size_t>(length));
    if (*out == nullptr) {
        return QV_ERROR_NO_MEMORY;
    }
    std::memcpy(*out, bytes, static_cast<std::size_t>(length));
    *outLen = length;
    record("answer");
    return QV_OK;
}

int handle(int command, const void* in, int inLen, void** out, int* outLen) {
    const Inside inside;
    char text[16];
    static_cast<void>(std::snprintf(text, sizeof text, "%04x ", static_cast<unsigned>(command)));
    std::string line = text;
    for (int i = 0; i < inLen; ++i) {
        static_cast<void>(
            std::snprintf(text, sizeof text, "%02x", static_cast<const unsigned char*>(in)[i]));
        line += text;
    }
    record(line);
    throwAsTold("request");
    if (told("request waits at the pipe")) {
        waitAtThePipe();
    }
    if (told("request waits at the pipe and takes long")) {
        waitAtThePipe();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    if (told("request meets another") && !meetsAnother()) {
        return QV_ERROR_ARGUMENT;
    }
    if (told("request fails")) {
        return QV_ERROR_NO_MEMORY;
    }
    if (told("request fails strangely")) {
        return 77;
    }
    if (command != QV_COMMAND_GET_SERVICES) {
        return QV_OK;
    }
    if (told("answers garbage")) {
        return answer("\xff\xff\xff", 3, out, outLen);
    }
    if (told("answers and fails")) {
        static_cast<void>(answer("\xff", 1, out, outLen));
        return QV_ERROR_SERIALIZE;
    }
    if (told("answers length without bytes")) {
        *outLen = 3;
        return QV_OK;
    }
    if (told("answers negative length")) {
        static_cast<void>(answer("\x0a", 1, out, outLen));
        *outLen = -1;
        return QV_OK;
    }
    if (told("answers at length")) {
        return answer(std::string(kLong, 'x').data(), kLong, out, outLen);
    }
    if (told("answers nothing")) {
        return QV_OK;
    }
    return answer(kTwoServices, sizeof kTwoServices - 1, out, outLen);
}

// The last row can be left out. The second name fills its field and has no NUL.
constexpr HandlerEntry kTable[] = {
    {QV_COMMAND_REGISTER_SERVICES, "fake register", handle},
    {QV_COMMAND_UNREGISTER_SERVICES,
     {'n', 'a', 'm', 'e', 's', ' ', 'o', 'f', ' ', 't', 'h', 'i', 'r', 't', 'y', '-', 's', 'i',
      'x', ' ', 'b', 'y', 't', 'e', 's', ' ', 'h', 'a', 'v', 'e', ' ', 'n', 'o', 'e', 'n', 'd'},
     handle},
    {QV_COMMAND_SET_DEBUG_LEVEL, "fake level", handle},
    {QV_COMMAND_GET_SERVICES, "fake get", handle},
};
constexpr int32_t kRows = sizeof kTable / sizeof kTable[0];

}  // namespace

int32_t QvPluginGetId(void) {
    return told("has another id") ? 7 : QV_PLUGIN_ID_NAMING_SERVICE;
}

int QvPluginInitialize(void) {
    record("initialize");
    mustBe(requestsInside == 0);
    throwAsTold("initialize");
    if (told("initialize waits at the pipe")) {
        waitAtThePipe();
    }
    if (told("initialize fails")) {
        return QV_ERROR_ARGUMENT;
    }
    initialized = true;
    return QV_OK;
}

void QvPluginFinalize(void) {
    record("finalize");
    mustBe(requestsInside == 0);
    initialized = false;
    throwAsTold("finalize");
}

int QvPluginGetHandlers(const HandlerEntry** handlers, int32_t* count, void** reserved) {
    *handlers = told("has no table") ? nullptr : kTable;
    *count = told("has no get row") ? kRows - 1 : kRows;
    *reserved = nullptr;
    return QV_OK;
}

int QvPluginFree(void* buffer) {
    if (buffer != nullptr) {
        record("free");
    }
    std::free(buffer);
    return QV_OK;
}
