// SPDX-License-Identifier: Apache-2.0

#include "Wire.h"

#include <google/protobuf/wire_format_lite.h>

#include "KevraCommonMsg.pb.h"
#include "QvClient.h"

namespace qv::client {

std::string serialised(const google::protobuf::MessageLite& message) {
    // The plug-in would read the first 64 MiB only, and report success.
    if (message.ByteSizeLong() > qor::kevra::wire::kInputLimit) {
        throw Error(Error::Kind::TooLong, 0, "the request is too long for a message");
    }
    return message.SerializeAsString();
}

bool hasFewFields(const std::string& bytes, std::uint32_t most) {
    using google::protobuf::internal::WireFormatLite;
    const int size = static_cast<int>(bytes.size());
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(bytes.data()), size);
    input.SetTotalBytesLimit(size);
    std::uint32_t count = 0;
    while (const std::uint32_t tag = input.ReadTag()) {
        if (++count > most || !WireFormatLite::SkipField(&input, tag)) {
            return false;
        }
    }
    return true;
}

}  // namespace qv::client
