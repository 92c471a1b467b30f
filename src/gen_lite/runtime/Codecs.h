// SPDX-License-Identifier: Apache-2.0

// Reads and writes the values of each type of numbers, which all are varints.
//
// A codec is a stateless class with these members:
//   Value      is the type that accessors take and return.
//   read       reads one value. Returns false if the input is malformed or cut, and leaves the
//              value alone then.
//   isKnown    returns whether a value that was read is kept. An enum drops the numbers that it
//              does not name.
//   check      ends the process if a setter gets a value that the type does not have.
//   size       returns the size of an encoded value without its tag.
//   write      writes an encoded value without its tag.
#ifndef QV_GEN_LITE_RUNTIME_CODECS_H
#define QV_GEN_LITE_RUNTIME_CODECS_H

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/wire_format_lite.h>

#include <cstddef>
#include <cstdint>

#include "runtime/Checks.h"

namespace qor::kevra::wire {

using WireFormat = google::protobuf::internal::WireFormatLite;
using google::protobuf::io::CodedInputStream;

template <class V, WireFormat::FieldType type, std::size_t (*sizeOf)(V),
          std::uint8_t* (*writeTo)(V, std::uint8_t*)>
struct VarintCodec {
    using Value = V;

    static bool read(CodedInputStream* input, V* value) {
        return WireFormat::ReadPrimitive<V, type>(input, value);
    }
    static bool isKnown(V) { return true; }
    static void check(V) {}
    static std::size_t size(V value) { return sizeOf(value); }
    static std::uint8_t* write(V value, std::uint8_t* target) { return writeTo(value, target); }
};

using Int32 = VarintCodec<std::int32_t, WireFormat::TYPE_INT32, WireFormat::Int32Size,
                          WireFormat::WriteInt32NoTagToArray>;
using Int64 = VarintCodec<std::int64_t, WireFormat::TYPE_INT64, WireFormat::Int64Size,
                          WireFormat::WriteInt64NoTagToArray>;
using UInt32 = VarintCodec<std::uint32_t, WireFormat::TYPE_UINT32, WireFormat::UInt32Size,
                           WireFormat::WriteUInt32NoTagToArray>;
using UInt64 = VarintCodec<std::uint64_t, WireFormat::TYPE_UINT64, WireFormat::UInt64Size,
                           WireFormat::WriteUInt64NoTagToArray>;

inline std::size_t boolSize(bool) {
    return WireFormat::kBoolSize;
}

// Reads true if one of the low 32 bits is set, and ignores the higher bits.
struct Bool
    : VarintCodec<bool, WireFormat::TYPE_BOOL, boolSize, WireFormat::WriteBoolNoTagToArray> {
    static bool read(CodedInputStream* input, bool* value) {
        std::uint32_t number = 0;
        if (!input->ReadVarint32(&number)) {
            return false;
        }
        *value = number != 0;
        return true;
    }
};

// The generated code specialises this for each enum. It defines isValid(int), and kCheck, the text
// of the enum's fatal check.
template <class E>
struct EnumTraits;

template <class E>
struct Enum {
    using Value = E;

    static bool read(CodedInputStream* input, E* value) {
        int number = 0;
        if (!WireFormat::ReadPrimitive<int, WireFormat::TYPE_ENUM>(input, &number)) {
            return false;
        }
        *value = static_cast<E>(number);
        return true;
    }
    static bool isKnown(E value) { return EnumTraits<E>::isValid(value); }
    static void check(E value) {
        if (!isKnown(value)) {
            failCheck(EnumTraits<E>::kCheck);
        }
    }
    static std::size_t size(E value) { return WireFormat::EnumSize(value); }
    static std::uint8_t* write(E value, std::uint8_t* target) {
        return WireFormat::WriteEnumNoTagToArray(value, target);
    }
};

}  // namespace qor::kevra::wire

#endif  // QV_GEN_LITE_RUNTIME_CODECS_H
