// Links the client library, and needs no host to run.
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
