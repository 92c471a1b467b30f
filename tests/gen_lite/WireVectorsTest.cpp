// What each message holds after a parse of well-formed and of damaged input, as it was measured on
// the runtime that the product's components were built with. On every road into a message.

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>
#include <google/protobuf/stubs/logging.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "gen_lite/AllMessages.h"
#include "gen_lite/Hex.h"

namespace qv::tests {
namespace {

struct Vector {
    std::string input;
    bool parsed;
    bool initialized;
    std::string encoded;
};

// Each test is a process of its own, which reads the vectors of the one type that it tests.
std::vector<Vector> vectorsOf(const std::string& type) {
    std::vector<Vector> vectors;
    const std::string beginning = "{\"type\":\"" + type + "\",";
    std::ifstream file(QV_TEST_DATA_DIR "/wire.jsonl");
    for (std::string line; std::getline(file, line);) {
        if (line.compare(0, beginning.size(), beginning) != 0) {
            continue;
        }
        const auto json = nlohmann::json::parse(line);
        vectors.push_back(
            {fromHex(json["input"]), json["parsed"], json["initialized"], json["encoded"]});
    }
    return vectors;
}

// Roads into a message. Each replaces its contents and reports whether the bytes were good and
// complete.
template <class T>
bool parseArray(T* message, const std::string& bytes) {
    return message->ParseFromArray(bytes.data(), static_cast<int>(bytes.size()));
}
template <class T>
bool parseString(T* message, const std::string& bytes) {
    return message->ParseFromString(bytes);
}
template <class T>
bool parsePartialString(T* message, const std::string& bytes) {
    return message->ParsePartialFromString(bytes) && message->IsInitialized();
}
template <class T>
bool parseThroughBase(T* message, const std::string& bytes) {
    google::protobuf::MessageLite* base = message;
    return base->ParseFromString(bytes);
}
template <class T>
bool parseStream(T* message, const std::string& bytes) {
    std::istringstream stream(bytes);
    return message->ParseFromIstream(&stream);
}
template <class T>
bool parseByteByByte(T* message, const std::string& bytes) {
    google::protobuf::io::ArrayInputStream stream(bytes.data(), static_cast<int>(bytes.size()), 1);
    return message->ParseFromZeroCopyStream(&stream);
}
template <class T>
bool parseCodedStream(T* message, const std::string& bytes) {
    google::protobuf::io::ArrayInputStream stream(bytes.data(), static_cast<int>(bytes.size()), 3);
    google::protobuf::io::CodedInputStream input(&stream);
    return message->ParseFromCodedStream(&input) && input.ConsumedEntireMessage();
}

template <class T>
class WireVectors : public testing::Test {
  protected:
    static void check(bool (*parse)(T*, const std::string&)) {
        // A missing required field is reported there; these inputs lack many.
        auto* const handler = google::protobuf::SetLogHandler(nullptr);
        const auto vectors = vectorsOf(MessageName::GetName<T>(0));
        EXPECT_FALSE(vectors.empty());
        T message;
        for (const Vector& vector : vectors) {
            EXPECT_EQ(parse(&message, vector.input), vector.parsed) << toHex(vector.input);
            EXPECT_EQ(message.IsInitialized(), vector.initialized) << toHex(vector.input);
            EXPECT_EQ(toHex(message.SerializePartialAsString()), vector.encoded)
                << toHex(vector.input);
            T copy(message);
            EXPECT_EQ(toHex(copy.SerializePartialAsString()), vector.encoded)
                << toHex(vector.input);
            EXPECT_EQ(static_cast<std::size_t>(copy.ByteSize()), vector.encoded.size() / 2);
        }
        google::protobuf::SetLogHandler(handler);
    }
};

TYPED_TEST_SUITE(WireVectors, AllMessages<testing::Types>, MessageName);

TYPED_TEST(WireVectors, FromArray) {
    this->check(parseArray<TypeParam>);
}
TYPED_TEST(WireVectors, FromString) {
    this->check(parseString<TypeParam>);
}
TYPED_TEST(WireVectors, PartialFromString) {
    this->check(parsePartialString<TypeParam>);
}
TYPED_TEST(WireVectors, ThroughTheBaseClass) {
    this->check(parseThroughBase<TypeParam>);
}
TYPED_TEST(WireVectors, FromStream) {
    this->check(parseStream<TypeParam>);
}
TYPED_TEST(WireVectors, FromStreamByteByByte) {
    this->check(parseByteByByte<TypeParam>);
}
TYPED_TEST(WireVectors, FromCodedStream) {
    this->check(parseCodedStream<TypeParam>);
}

}  // namespace
}  // namespace qv::tests
