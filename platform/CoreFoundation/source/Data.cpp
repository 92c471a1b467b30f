// SPDX-License-Identifier: Apache-2.0

#include "Data.h"

#include <CoreFoundation/CFData.h>

#include <cstring>

#include "Hash.h"
#include "TypeBehavior.h"

namespace cf {

namespace {

void endData(Object& object, Ending& /*ending*/) {
    auto& data = static_cast<Data&>(object);
    if (data.kept == Data::Bytes::Owned) {
        std::free(const_cast<UInt8*>(data.bytes));
    }
    dispose(&data, data.kept == Data::Bytes::Behind ? data.size : 0);
}

bool equalData(const Object* one, const Object* other, Comparison& /*comparison*/) {
    const auto& left = *static_cast<const Data*>(one);
    const auto& right = *static_cast<const Data*>(other);
    return left.size == right.size &&
           (left.size == 0 || std::memcmp(left.bytes, right.bytes, left.size) == 0);
}

CFHashCode hashData(const Object* object) {
    const auto& data = *static_cast<const Data*>(object);
    return hashBytes(data.size == 0 ? &data : static_cast<const void*>(data.bytes), data.size);
}

}  // namespace

const TypeBehavior kDataBehavior = {endData, equalData, hashData};

Data* makeData(std::string_view bytes, CFAllocatorRef allocator) {
    auto* const data =
        create<Data>(allocator, bytes.size(), nullptr, bytes.size(), Data::Bytes::Behind);
    if (data != nullptr) {
        data->bytes = reinterpret_cast<const UInt8*>(data + 1);
        if (!bytes.empty()) {
            std::memcpy(const_cast<UInt8*>(data->bytes), bytes.data(), bytes.size());
        }
    }
    return data;
}

Data* makeData(Buffer<char>& bytes, CFAllocatorRef allocator) {
    auto* const data = create<Data>(allocator, 0, bytes.data(), bytes.size(), Data::Bytes::Owned);
    if (data != nullptr) {
        bytes.release();
    }
    return data;
}

}  // namespace cf

namespace {

CFDataRef asReference(const cf::Data* data) {
    return reinterpret_cast<CFDataRef>(data);
}
const cf::Data& asData(CFDataRef data) {
    return *reinterpret_cast<const cf::Data*>(data);
}

}  // namespace

CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count) {
    if (count < 0 || (bytes == nullptr && count != 0)) {
        return nullptr;
    }
    return asReference(cf::makeData(
        {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(count)}, allocator));
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes, CFIndex count,
                                      CFAllocatorRef bytesDeallocator) {
    if (count < 0 || (bytes == nullptr && count != 0)) {
        return nullptr;
    }
    return asReference(cf::create<cf::Data>(
        allocator, 0, bytes, static_cast<std::size_t>(count),
        bytesDeallocator == kCFAllocatorNull ? cf::Data::Bytes::Borrowed : cf::Data::Bytes::Owned));
}

CFTypeID CFDataGetTypeID() {
    return cf::typeId(cf::Type::Data);
}

CFIndex CFDataGetLength(CFDataRef data) {
    return static_cast<CFIndex>(asData(data).size);
}

const UInt8* CFDataGetBytePtr(CFDataRef data) {
    return asData(data).bytes;
}
