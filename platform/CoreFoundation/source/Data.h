// SPDX-License-Identifier: Apache-2.0

// Declares data for the readers and the writer.
#ifndef COREFOUNDATION_DATA_H
#define COREFOUNDATION_DATA_H

#include <CoreFoundation/CFBase.h>

#include <string_view>

#include "Buffer.h"
#include "Object.h"

namespace cf {

struct Data : Object {
    // States who owns the bytes.
    enum class Bytes : std::uint8_t {
        Behind,    // The bytes follow the object in its own memory.
        Borrowed,  // The caller owns the bytes.
        Owned,     // The data frees the bytes when it is destroyed.
    };

    Data(const void* itsBytes, std::size_t count, Bytes where)
        : Object(Type::Data),
          kept(where),
          bytes(static_cast<const UInt8*>(itsBytes)),
          size(count) {}

    Bytes kept;
    const UInt8* bytes;
    std::size_t size;
};

inline const Data* asData(const Object* object) {
    return static_cast<const Data*>(object);
}

// Creates data that holds a copy of the bytes. Returns null if memory runs out.
Data* makeData(std::string_view bytes, CFAllocatorRef allocator = nullptr);

// Creates data that takes over the buffer's memory. Returns null if memory runs out; the buffer
// keeps its memory then.
Data* makeData(Buffer<char>& bytes, CFAllocatorRef allocator = nullptr);

}  // namespace cf

#endif  // COREFOUNDATION_DATA_H
