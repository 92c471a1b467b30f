// SPDX-License-Identifier: Apache-2.0

#include "server/Farewell.h"

#include <QvFrame.h>
#include <sys/socket.h>

#include <cerrno>
#include <string>

namespace qv::host {

void sayGoodbye(int socket) {
    static_cast<void>(::shutdown(socket, SHUT_RDWR));
    // The loop ends, because nothing more arrives.
    char ignored[4096];
    ssize_t count = 0;
    do {
        count = ::recv(socket, ignored, sizeof ignored, MSG_DONTWAIT);
    } while (count > 0 || (count == -1 && errno == EINTR));
}

void turnAway(int socket, uint32_t code, std::string_view text) {
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, {code, static_cast<uint32_t>(text.size()), 0});
    std::string frame(reinterpret_cast<const char*>(header), sizeof header);
    frame += text;
    static_cast<void>(::send(socket, frame.data(), frame.size(), MSG_DONTWAIT));
    sayGoodbye(socket);
}

}  // namespace qv::host
