// SPDX-License-Identifier: Apache-2.0

#include "runtime/Message.h"

namespace qor::kevra::wire {
namespace {

// Reads past the fields of a group and its end tag. Returns false if the group is malformed or cut.
bool skipGroup(CodedInputStream* input, int number) {
    while (const std::uint32_t tag = input->ReadTag()) {
        if (WireFormat::GetTagWireType(tag) == WireFormat::WIRETYPE_END_GROUP) {
            return WireFormat::GetTagFieldNumber(tag) == number;
        }
        if (!skipField(input, tag)) {
            return false;
        }
    }
    return false;
}

}  // namespace

void setLimits(CodedInputStream* input) {
    if (input->BytesUntilTotalBytesLimit() < 0) {
        input->SetTotalBytesLimit(kInputLimit);
    }
    if (input->RecursionBudget() == CodedInputStream::GetDefaultRecursionLimit()) {
        input->SetRecursionLimit(kRecursionLimit);
    }
}

bool skipField(CodedInputStream* input, std::uint32_t tag) {
    switch (WireFormat::GetTagWireType(tag)) {
        case WireFormat::WIRETYPE_VARINT: {
            std::uint64_t value = 0;
            return input->ReadVarint64(&value);
        }
        case WireFormat::WIRETYPE_FIXED64: {
            std::uint64_t value = 0;
            return input->ReadLittleEndian64(&value);
        }
        case WireFormat::WIRETYPE_LENGTH_DELIMITED: {
            std::uint32_t length = 0;
            return input->ReadVarint32(&length) && input->Skip(static_cast<int>(length));
        }
        case WireFormat::WIRETYPE_START_GROUP: {
            if (!input->IncrementRecursionDepth() ||
                !skipGroup(input, WireFormat::GetTagFieldNumber(tag))) {
                return false;
            }
            input->DecrementRecursionDepth();
            return true;
        }
        case WireFormat::WIRETYPE_FIXED32: {
            std::uint32_t value = 0;
            return input->ReadLittleEndian32(&value);
        }
        default:
            return false;
    }
}

std::string readRemaining(const char** position, ParseContext* context) {
    // The context pads the input. Only Done() tells where the input ends, so this reads each byte
    // separately.
    std::string bytes;
    while (bytes.size() <= kInputLimit && !context->Done(position)) {
        bytes.push_back(**position);
        ++*position;
    }
    return bytes;
}

}  // namespace qor::kevra::wire
