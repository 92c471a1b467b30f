// SPDX-License-Identifier: Apache-2.0

// Decides who may use the host: root, its own user, and those whom the rules name.
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

// The user and groups of the process at the other end of a socket, as they were when it connected.
struct Peer {
    uid_t user = 0;
    std::vector<gid_t> groups;  // the primary group is the first
};

// Returns the credentials that the system tells. Throws std::system_error.
Peer peerOf(int socket);

// Tells whether the user is root or the host's own user.
bool isPrivileged(uid_t user, uid_t owner);

bool mayUse(const Peer& peer, uid_t owner, const AccessRules& rules);

// Each takes a name or a number and returns the number, which need not belong to anybody. Throws
// std::runtime_error, with a line for a person, if there is no user or group of this name.
uid_t userNamed(const std::string& name);
gid_t groupNamed(const std::string& name);

}  // namespace qv::host

#endif  // QVHOST_SERVER_ACCESS_H
