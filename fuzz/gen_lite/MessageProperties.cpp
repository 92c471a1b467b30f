// SPDX-License-Identifier: Apache-2.0

#include "gen_lite/MessageProperties.h"

#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl_lite.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "gen_lite/AllMessages.h"

namespace qv::fuzz {
namespace {

void require(bool holds, const char* type, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "%s: %s\n", type, what);
        std::abort();
    }
}

template <class T>
void check(const std::uint8_t* data, std::size_t size) {
    const char* const type = T::kTypeName;
    const int length = static_cast<int>(size);
    T message;
    const bool parsed = message.ParsePartialFromArray(data, length);
    const std::string encoded = message.SerializePartialAsString();
    require(encoded.size() == message.ByteSizeLong(), type,
            "the size differs from the size of the encoding");
    require(encoded.size() <= 10 * size, type, "the encoding is longer than the input allows");

    T again;
    require(again.ParsePartialFromString(encoded), type, "the parse of its encoding fails");
    require(again.SerializePartialAsString() == encoded, type,
            "its encoding is read as another message");
    require(again.IsInitialized() == message.IsInitialized(), type, "a required field is lost");

    const T copy(message);
    require(copy.SerializePartialAsString() == encoded, type, "a copy differs");
    T merged;
    merged.MergeFrom(message);
    require(merged.SerializePartialAsString() == encoded, type,
            "a merge into an empty message differs");
    T doubled(message);
    doubled.MergeFrom(copy);
    T twice;
    require(twice.ParsePartialFromString(encoded + encoded), type,
            "the parse of two encodings fails");
    require(doubled.SerializePartialAsString() == twice.SerializePartialAsString(), type,
            "a merge and a parse of both encodings differ");
    T moved(std::move(doubled));
    moved.Swap(&merged);
    require(moved.SerializePartialAsString() == encoded, type, "a swap changes the message");
    message.Clear();
    require(message.ByteSizeLong() == 0, type, "a cleared message is not empty");

    google::protobuf::Arena arena;
    T* const onArena = google::protobuf::Arena::CreateMessage<T>(&arena);
    google::protobuf::MessageLite* const base = onArena;
    require(base->ParsePartialFromArray(data, length) == parsed &&
                base->SerializePartialAsString() == encoded,
            type, "the parse through the base class differs");
    google::protobuf::io::ArrayInputStream stream(data, length, 3);
    require(base->ParsePartialFromZeroCopyStream(&stream) == parsed &&
                base->SerializePartialAsString() == encoded,
            type, "the parse of a stream differs");
    google::protobuf::io::CodedInputStream input(data, length);
    require(
        (again.ParsePartialFromCodedStream(&input) && input.ConsumedEntireMessage()) == parsed &&
            again.SerializePartialAsString() == encoded,
        type, "the parse of a coded stream differs");
}

struct Type {
    const char* name;
    void (*check)(const std::uint8_t* data, std::size_t size);
};

template <class... T>
struct Table {
    static constexpr Type kTypes[] = {{T::kTypeName, check<T>}...};
};

constexpr auto& kTypes = tests::AllMessages<Table>::kTypes;

}  // namespace

std::size_t messageTypeCount() {
    return std::size(kTypes);
}

std::size_t messageTypeIndex(const std::string& name) {
    std::size_t index = 0;
    while (index < messageTypeCount() && kTypes[index].name != "qor.kevra." + name) {
        ++index;
    }
    return index;
}

void checkMessageProperties(std::size_t type, const std::uint8_t* data, std::size_t size) {
    kTypes[type % messageTypeCount()].check(data, size);
}

void checkMessageProperties(const std::uint8_t* data, std::size_t size) {
    if (size != 0) {
        checkMessageProperties(data[0], data + 1, size - 1);
    }
}

}  // namespace qv::fuzz
