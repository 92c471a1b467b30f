// SPDX-License-Identifier: Apache-2.0

#include "RpcMessages.h"

#include <stdexcept>

namespace qv::bench::rpc {

namespace {

enum Procedure : uint32_t { kNothing = 0, kSet = 1, kUnset = 2, kDump = 4 };

constexpr uint32_t kCall = 0;
constexpr uint32_t kRpcVersion = 2;
constexpr uint32_t kRpcbind = 100000;
constexpr uint32_t kRpcbindVersion = 4;

// Programs from this number on are free for any user.
constexpr uint32_t kFirstProgram = 0x4000'0000;
constexpr uint32_t kProgramVersion = 1;

constexpr uint32_t kLastRecord = 0x8000'0000;
constexpr std::size_t kUnit = 4;

// The head of an accepted answer: the number of the call, the kind of message, the acceptance, the
// server's credentials, and the success.
constexpr std::size_t kStatusOffset = 5 * kUnit;
constexpr std::size_t kResultOffset = 6 * kUnit;

std::string number(uint32_t value) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes += static_cast<char>(value >> shift & 0xFF);
    }
    return bytes;
}

// Rounds up to a whole unit.
std::size_t padded(std::size_t length) {
    return (length + kUnit - 1) / kUnit * kUnit;
}

std::string text(const std::string& value) {
    return number(static_cast<uint32_t>(value.size())) + value +
           std::string(padded(value.size()) - value.size(), '\0');
}

uint32_t numberAt(const std::string& bytes, std::size_t offset) {
    if (bytes.size() < kUnit || offset > bytes.size() - kUnit) {
        throw std::runtime_error("rpcbind's answer is cut");
    }
    uint32_t value = 0;
    for (std::size_t i = 0; i < kUnit; ++i) {
        value = value << 8 | static_cast<unsigned char>(bytes[offset + i]);
    }
    return value;
}

std::string call(Procedure procedure, const std::string& arguments) {
    const std::string nobody = number(0) + number(0);
    const std::string message = number(0) + number(kCall) + number(kRpcVersion) + number(kRpcbind) +
                                number(kRpcbindVersion) + number(procedure) + nobody + nobody +
                                arguments;
    return number(kLastRecord | static_cast<uint32_t>(message.size())) + message;
}

std::string mapping(int program, const std::string& address) {
    return number(kFirstProgram + static_cast<uint32_t>(program)) + number(kProgramVersion) +
           text("local") + text(address) + text("superuser");
}

}  // namespace

Mark markOf(const std::string& bytes) {
    const uint32_t mark = numberAt(bytes, 0);
    return {mark & ~kLastRecord, (mark & kLastRecord) != 0};
}

std::string nothing() {
    return call(kNothing, "");
}

std::string dump() {
    return call(kDump, "");
}

std::string set(int program, const std::string& address) {
    return call(kSet, mapping(program, address));
}

std::string unset(int program) {
    return call(kUnset, mapping(program, ""));
}

bool isAccepted(const std::string& answer) {
    return numberAt(answer, 2 * kUnit) == 0 && numberAt(answer, kStatusOffset) == 0;
}

bool isTrue(const std::string& answer) {
    return isAccepted(answer) && numberAt(answer, kResultOffset) == 1;
}

int countOf(const std::string& answer) {
    int count = 0;
    std::size_t offset = kResultOffset;
    while (numberAt(answer, offset) != 0) {
        offset += 3 * kUnit;  // a mark that an entry follows, the program, its version
        for (int i = 0; i < 3; ++i) {
            offset += kUnit + padded(numberAt(answer, offset));
        }
        ++count;
    }
    return count;
}

}  // namespace qv::bench::rpc
