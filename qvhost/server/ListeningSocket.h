// The socket that clients connect to, and the file that it is. One host has it at a time: a lock on
// a file beside it tells a host that runs from one that was killed and left its socket.
#ifndef QVHOST_SERVER_LISTENING_SOCKET_H
#define QVHOST_SERVER_LISTENING_SOCKET_H

#include <QvSystem/Descriptor.h>
#include <sys/types.h>

#include <string>

namespace qv::host {

class ListeningSocket {
  public:
    // Makes the file, and the directories it lacks, for the owner alone or for everybody. Replaces
    // what a killed host left. Nobody can connect yet. Throws std::runtime_error, with nothing
    // changed, when another host has it or when anything but a socket stands there.
    ListeningSocket(std::string path, bool forOwnerOnly);

    // A socket that listens already and is somebody else's to remove. Throws std::runtime_error
    // when it is none.
    explicit ListeningSocket(int descriptor);

    // Removes the file if it is still this one.
    ~ListeningSocket();

    ListeningSocket(const ListeningSocket&) = delete;
    ListeningSocket& operator=(const ListeningSocket&) = delete;

    void listen() const;

    // Gives the descriptor away; the file stays this object's.
    int release();

    const std::string& path() const { return path_; }

    // Whether it was made here.
    bool own() const { return static_cast<bool>(lock_); }

    // Removes the file, if it is still this one; the destructor does nothing then.
    void remove() noexcept;

  private:
    void takeLock();
    void makeWay() const;
    void bind(mode_t mode);

    std::string path_;
    system::Descriptor lock_;
    system::Descriptor descriptor_;
    dev_t device_ = 0;
    ino_t file_ = 0;
    bool bound_ = false;
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_LISTENING_SOCKET_H
