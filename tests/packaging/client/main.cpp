// SPDX-License-Identifier: Apache-2.0

// Uses the client library without a host: prints the path of the socket and fails to connect.
#include <QvClient.h>
#include <QvFrame.h>

#include <cstdio>

int main() {
    std::printf("%s\n", qv::client::defaultSocketPath().c_str());
    try {
        const qv::client::Client client("/nowhere/socket");
    } catch (const qv::client::Error& error) {
        return error.kind() == qv::client::Error::Kind::CannotConnect ? 0 : 1;
    }
    return 1;
}
