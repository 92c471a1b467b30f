// SPDX-License-Identifier: Apache-2.0

#include "cli/HostConnection.h"

#include <cerrno>

#include "StandardStreams.h"
#include "cli/ExitStatus.h"
#include "cli/Times.h"

namespace qv::host {

std::string socketPath(const CommonOptions& options) {
    return options.socket.empty() ? client::defaultSocketPath() : options.socket;
}

client::Client connectToHost(const CommonOptions& options) {
    try {
        return client::Client(socketPath(options), options.timeout.empty()
                                                       ? client::kDefaultTimeout
                                                       : milliseconds(options.timeout));
    } catch (const client::Error& error) {
        const bool isAbsent = error.kind() == client::Error::Kind::CannotConnect &&
                              (error.code() == ENOENT || error.code() == ECONNREFUSED);
        if (!isAbsent) {
            throw;
        }
        throw client::Error(error.kind(), error.code(),
                            std::string(error.what()) + " (is `qvhost serve` running?)");
    }
}

int reportChange(const client::ChangeResult& result, const std::string& effect) {
    if (result.isKept) {
        return kSuccess;
    }
    reportError("not kept: " + result.reason + "; " + effect);
    return kFailure;
}

}  // namespace qv::host
