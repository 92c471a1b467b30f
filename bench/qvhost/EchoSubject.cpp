// SPDX-License-Identifier: Apache-2.0

#include "EchoSubject.h"

#include <QvFrame.h>

namespace qv::bench {

EchoSubject::EchoSubject(HostSubject& host, int threads)
    : host_(host),
      process_({QV_ECHO_PROGRAM, std::to_string(threads)}, listenOn(path_)),
      connection_(path_) {}

std::vector<std::string> EchoSubject::requests(Work work, int client) {
    std::vector<std::string> requests = host_.requests(work, client);
    for (std::string& request : requests) {
        const uint32_t answerLength = headerOf(host_.ask(request)).length;
        QvFramePutNumber(reinterpret_cast<unsigned char*>(request.data()), answerLength);
    }
    return requests;
}

}  // namespace qv::bench
