// SPDX-License-Identifier: Apache-2.0

#include "server/Access.h"

#include <fmt/format.h>
#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <limits>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <type_traits>

#ifndef SO_PEERCRED
#include <sys/ucred.h>
#include <sys/un.h>
#endif

namespace qv::host {

namespace {

[[noreturn]] void failWith(int error, const std::string& attempt) {
    throw std::system_error(error, std::generic_category(), attempt);
}

template <typename List, typename Value>
bool holds(const List& list, const Value& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

// Returns the number in a text. The largest number is none: it stands for no user or group in the
// system's calls.
template <typename Id>
std::optional<Id> numberIn(const std::string& text) {
    static_assert(std::is_unsigned_v<Id>);
    Id id = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc() || stop != end || id == std::numeric_limits<Id>::max()) {
        return std::nullopt;
    }
    return id;
}

#ifdef SO_PEERGROUPS
// Returns the supplementary groups of the process, which may be none.
std::vector<gid_t> furtherGroupsOf(int socket) {
    std::vector<gid_t> groups(32);
    for (;;) {
        socklen_t size = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(socket, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) == 0) {
            groups.resize(size / sizeof(gid_t));
            return groups;
        }
        if (errno != ERANGE) {
            failWith(errno, "cannot ask for a client's groups");
        }
        groups.resize(size / sizeof(gid_t));
    }
}
#endif

}  // namespace

Peer peerOf(int socket) {
    Peer peer;
#ifdef SO_PEERCRED
    ucred credentials = {};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        failWith(errno, "cannot ask for a client's user");
    }
    peer.user = credentials.uid;
    peer.groups = {credentials.gid};
#ifdef SO_PEERGROUPS
    const std::vector<gid_t> further = furtherGroupsOf(socket);
    peer.groups.insert(peer.groups.end(), further.begin(), further.end());
#endif
#else
    gid_t group = 0;
    if (getpeereid(socket, &peer.user, &group) != 0) {
        failWith(errno, "cannot ask for a client's user");
    }
    peer.groups = {group};
    xucred credentials = {};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket, SOL_LOCAL, LOCAL_PEERCRED, &credentials, &size) == 0) {
        peer.groups.insert(peer.groups.end(), credentials.cr_groups,
                           credentials.cr_groups + credentials.cr_ngroups);
    }
#endif
    return peer;
}

bool isPrivileged(uid_t user, uid_t owner) {
    return user == owner || user == 0;
}

bool mayUse(const Peer& peer, uid_t owner, const AccessRules& rules) {
    return isPrivileged(peer.user, owner) || holds(rules.users, peer.user) ||
           std::any_of(peer.groups.begin(), peer.groups.end(),
                       [&](gid_t group) { return holds(rules.groups, group); });
}

uid_t userNamed(const std::string& name) {
    // A name may consist of digits, so look for a name first.
    if (const passwd* const user = getpwnam(name.c_str())) {
        return user->pw_uid;
    }
    if (const std::optional<uid_t> id = numberIn<uid_t>(name)) {
        return *id;
    }
    throw std::runtime_error(fmt::format("no user '{}'", name));
}

gid_t groupNamed(const std::string& name) {
    if (const group* const found = getgrnam(name.c_str())) {
        return found->gr_gid;
    }
    if (const std::optional<gid_t> id = numberIn<gid_t>(name)) {
        return *id;
    }
    throw std::runtime_error(fmt::format("no group '{}'", name));
}

}  // namespace qv::host
