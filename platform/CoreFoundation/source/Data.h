// Data, as the readers and the writer see it.
#ifndef COREFOUNDATION_DATA_H
#define COREFOUNDATION_DATA_H

#include <CoreFoundation/CFBase.h>

#include <string_view>

#include "Buffer.h"
#include "Object.h"

namespace cf {

struct Data : Object {
    // What becomes of the bytes at the data's end.
    enum class Bytes : std::uint8_t {
        Behind,    // they stand behind the object and go with it
        Borrowed,  // they are somebody else's
        Owned,     // they are freed
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

// Null where there is no memory.
Data* makeData(std::string_view bytes, CFAllocatorRef allocator = nullptr);

// Takes the buffer's memory over; where there is no memory for the object, the buffer keeps it.
Data* makeData(Buffer<char>& bytes, CFAllocatorRef allocator = nullptr);

}  // namespace cf

#endif  // COREFOUNDATION_DATA_H
