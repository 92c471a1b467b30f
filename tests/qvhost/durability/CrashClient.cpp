// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/CrashClient.h"

#include <QvFrame.h>
#include <sys/socket.h>

#include <cstddef>

namespace qv::host {

bool CrashClient::send(uint32_t command, const std::string& input) const {
    const std::string bytes = frame(command, 1, input);
    std::size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            ::send(client_.descriptor(), bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (count <= 0) {
            return false;
        }
        sent += static_cast<std::size_t>(count);
    }
    return true;
}

std::optional<RawAnswer> CrashClient::receive() const {
    unsigned char bytes[QV_FRAME_HEADER_SIZE];
    if (::recv(client_.descriptor(), bytes, sizeof bytes, MSG_WAITALL) != ssize_t{sizeof bytes}) {
        return std::nullopt;
    }
    const QvFrameHeader header = QvFrameGetHeader(bytes);
    RawAnswer answer = {header.code, header.number, std::string(header.length, '\0')};
    if (header.length != 0 && ::recv(client_.descriptor(), answer.bytes.data(), header.length,
                                     MSG_WAITALL) != ssize_t{header.length}) {
        return std::nullopt;
    }
    return answer;
}

}  // namespace qv::host
