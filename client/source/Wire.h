// SPDX-License-Identifier: Apache-2.0

// Serialises and parses messages of any type.
#ifndef QV_CLIENT_WIRE_H
#define QV_CLIENT_WIRE_H

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <string>

namespace qv::client {

// Throws Error if the message would be too long.
std::string serialised(const google::protobuf::MessageLite& message);

// Tells whether a message has at most `most` fields, not counting those of messages inside. A
// message of a few bytes for each field would take much more memory than it is long.
bool hasFewFields(const std::string& bytes, std::uint32_t most);

// The most services that the library takes from a host, which is many more than a host keeps.
constexpr std::uint32_t kMostServices = 2'000'000;

// Parses the bytes, which may be more than a parse reads by default.
template <typename Message>
bool parse(Message& message, const std::string& bytes) {
    const int size = static_cast<int>(bytes.size());
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
    input.SetTotalBytesLimit(size);
    return message.ParseFromCodedStream(&input) && input.ConsumedEntireMessage();
}

}  // namespace qv::client

#endif  // QV_CLIENT_WIRE_H
