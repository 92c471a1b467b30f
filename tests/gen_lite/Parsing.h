// SPDX-License-Identifier: Apache-2.0

// Parses messages from hexadecimal text, and through every function that reads a message.
#ifndef QV_TESTS_PARSING_H
#define QV_TESTS_PARSING_H

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/message_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>

#include "gen_lite/Hex.h"

namespace qv::tests {

// Silences the runtime's log. The runtime reports each missing required field there.
class Quiet {
  public:
    Quiet() : handler_(google::protobuf::SetLogHandler(nullptr)) {}
    ~Quiet() { google::protobuf::SetLogHandler(handler_); }
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;

  private:
    google::protobuf::LogHandler* handler_;
};

template <class T>
T parsed(const std::string& hex) {
    T message;
    EXPECT_TRUE(message.ParseFromString(fromHex(hex))) << hex;
    return message;
}

inline std::string encodedHex(const google::protobuf::MessageLite& message) {
    return toHex(message.SerializePartialAsString());
}

// A way to parse a message. Replaces the message's contents, and returns whether the bytes are well
// formed and complete.
template <class T>
struct Road {
    const char* name;
    bool (*parse)(T* message, const std::string& bytes);
};

template <class T>
inline constexpr Road<T> kRoads[] = {
    {"ParseFromArray",
     [](T* message, const std::string& bytes) {
         return message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
     }},
    {"ParseFromString",
     [](T* message, const std::string& bytes) { return message->ParseFromString(bytes); }},
    {"ParsePartialFromString",
     [](T* message, const std::string& bytes) {
         return message->ParsePartialFromString(bytes) && message->IsInitialized();
     }},
    {"MessageLiteParseFromString",
     [](T* message, const std::string& bytes) {
         google::protobuf::MessageLite* const base = message;
         return base->ParseFromString(bytes);
     }},
    {"MessageLiteParseFromCodedStream",
     [](T* message, const std::string& bytes) {
         google::protobuf::MessageLite* const base = message;
         google::protobuf::io::CodedInputStream input(
             reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
         return base->ParseFromCodedStream(&input) && input.ConsumedEntireMessage();
     }},
    {"ParseFromIstream",
     [](T* message, const std::string& bytes) {
         std::istringstream stream(bytes);
         return message->ParseFromIstream(&stream);
     }},
    {"ParseFromZeroCopyStream",
     [](T* message, const std::string& bytes) {
         google::protobuf::io::ArrayInputStream stream(bytes.data(), static_cast<int>(bytes.size()),
                                                       bytes.size() < 4096 ? 1 : 4096);
         return message->ParseFromZeroCopyStream(&stream);
     }},
    {"ParseFromCodedArray",
     [](T* message, const std::string& bytes) {
         google::protobuf::io::CodedInputStream input(
             reinterpret_cast<const std::uint8_t*>(bytes.data()), static_cast<int>(bytes.size()));
         return message->ParseFromCodedStream(&input) && input.ConsumedEntireMessage();
     }},
    {"ParseFromCodedStream", [](T* message, const std::string& bytes) {
         google::protobuf::io::ArrayInputStream stream(bytes.data(), static_cast<int>(bytes.size()),
                                                       bytes.size() < 4096 ? 3 : 4096);
         google::protobuf::io::CodedInputStream input(&stream);
         return message->ParseFromCodedStream(&input) && input.ConsumedEntireMessage();
     }}};

}  // namespace qv::tests

#endif  // QV_TESTS_PARSING_H
