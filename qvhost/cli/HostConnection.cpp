#include "cli/HostConnection.h"

#include <cerrno>

namespace qv::host {

std::string socketPath(const CommonOptions& options) {
    return options.socket.empty() ? client::defaultSocketPath() : options.socket;
}

client::Client connectToHost(const CommonOptions& options) {
    try {
        return client::Client(socketPath(options));
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

}  // namespace qv::host
