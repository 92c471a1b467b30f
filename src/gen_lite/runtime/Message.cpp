#include "runtime/Message.h"

namespace qor::kevra::wire {
namespace {

// Reads past the fields of a group, up to and with its end tag.
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
    // Byte by byte, because only Done() knows where the input really ends: the context pads what it
    // hands out, and padding must not be taken for input.
    std::string bytes;
    while (bytes.size() <= kInputLimit && !context->Done(position)) {
        bytes.push_back(**position);
        ++*position;
    }
    return bytes;
}

}  // namespace qor::kevra::wire
