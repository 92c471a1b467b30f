// Who may use the host: its own user and root, and whoever the rules name.
#ifndef QVHOST_SERVER_ACCESS_H
#define QVHOST_SERVER_ACCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace qv::host {

struct AccessRules {
    std::vector<uid_t> users;
    std::vector<gid_t> groups;

    bool forOwnerOnly() const { return users.empty() && groups.empty(); }
};

// The process at the other end of a socket, as it was when it connected.
struct Peer {
    uid_t user = 0;
    std::vector<gid_t> groups;  // its own first
};

// Throws std::system_error.
Peer peerOf(int socket);

bool mayUse(const Peer& peer, uid_t owner, const AccessRules& rules);

// From a name or a number. A number need not be anybody's. Throws std::runtime_error, with a line
// for a person, when there is no such user or group.
uid_t userNamed(const std::string& name);
gid_t groupNamed(const std::string& name);

}  // namespace qv::host

#endif  // QVHOST_SERVER_ACCESS_H
