// SPDX-License-Identifier: Apache-2.0

// Makes the socket that clients connect to, and its file. Only one host has the socket at a time. A
// lock on a file beside the socket tells a running host from a killed host that left its socket.
#ifndef QVHOST_SERVER_LISTENING_SOCKET_H
#define QVHOST_SERVER_LISTENING_SOCKET_H

#include <QvSystem/Descriptor.h>
#include <QvSystem/FileIdentity.h>

#include <string>

namespace qv::host {

class ListeningSocket {
  public:
    // Makes the file, for the owner alone or for everybody, and the missing directories. Replaces
    // the socket of a killed host. Nobody can connect yet. Throws std::runtime_error and changes
    // nothing if another host has the socket, or if anything but a socket stands there.
    ListeningSocket(std::string path, bool forOwnerOnly);

    // Uses a socket that listens already and that somebody else removes. Throws std::runtime_error
    // if the descriptor is no such socket.
    explicit ListeningSocket(int descriptor);

    // Removes the file if it is still the one that this object made.
    ~ListeningSocket();

    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    void listen() const;

    // Gives the descriptor to the caller. The object still removes the file.
    int release();

    // Makes the file again if somebody removed or replaced it, and returns a descriptor that
    // listens there. Nobody can connect to the old descriptor any more. Returns none if the file is
    // there, or if this object did not make the socket. Throws std::runtime_error if another host
    // has taken the path meanwhile, or if the file cannot be made. Call it after release().
    system::Descriptor restore();

    const std::string& path() const { return path_; }

    // Tells whether this object made the socket.
    bool own() const { return static_cast<bool>(lock_); }

    // Removes the file if it is still the one that this object made.
    void remove() noexcept;

  private:
    void takePath();
    void takeLock();
    bool hasLock() const;
    bool hasFile() const;
    void makeWay() const;
    void bind();

    std::string path_;
    bool forOwnerOnly_ = true;
    system::Descriptor lock_;
    system::Descriptor descriptor_;
    system::FileIdentity file_;  // the one that bind() made
    bool bound_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_LISTENING_SOCKET_H
