// SPDX-License-Identifier: Apache-2.0

// The clients that the recorder's thread has answered after a commit. The thread takes their next
// changes:
//
//     AnsweredClients clients;
//     ...
//     clients.add(client);                     // has its answer
//     ...
//     clients.takeNextChanges(milliseconds(1));
//
// Most clients that change the directory send the next change as soon as they have the answer to
// the last one. To wake such a client's thread, which then wakes the recorder's, takes longer than
// many commits. So the recorder's thread sends the answers itself, and reads what the clients send
// next. A client that sends nothing for a moment, or anything but one short change, returns to its
// own thread. So does every client before the next commit, unless its change is part of that
// commit. Only a client that waits for the disk anyway depends on the recorder's thread meanwhile.
#ifndef QVHOST_SERVER_ANSWERED_CLIENTS_H
#define QVHOST_SERVER_ANSWERED_CLIENTS_H

#include <chrono>
#include <memory>

namespace qv::host {

// Only the recorder's thread may use an object.
class AnsweredClients {
  public:
    using Clock = std::chrono::steady_clock;

    class Client {
      public:
        Client() = default;
        virtual ~Client() = default;

        Client(const Client&) = delete;
        Client& operator=(const Client&) = delete;

      private:
        friend class AnsweredClients;

        // Takes what the client has sent. Returns false if nothing has arrived. Returns true if the
        // client's change waits for the next commit, or if the client has returned to its own
        // thread.
        virtual bool takeNextChange() noexcept = 0;

        // Returns the client to its own thread, which waits for the next request.
        virtual void giveBack() noexcept = 0;

        std::shared_ptr<Client> nextAnswered_;
    };

    // If no client sends anything for `replyTime`, all clients return to their threads. The default
    // is longer than a client on an idle computer needs from an answer to its next request.
    explicit AnsweredClients(Clock::duration replyTime = std::chrono::microseconds(20))
        : replyTime_(replyTime) {}
    ~AnsweredClients() = default;

    AnsweredClients(const AnsweredClients&) = delete;
    AnsweredClients& operator=(const AnsweredClients&) = delete;

    // Adds a client that has its answer.
    void add(std::shared_ptr<Client> client) noexcept;

    // Takes the next changes of the clients as long as they send something. Looks for no more once
    // `longest` is over, and gives the other clients back. No client is left afterwards.
    void takeNextChanges(Clock::duration longest) noexcept;

  private:
    bool takeArrived() noexcept;
    void giveBack() noexcept;
    static void remove(std::shared_ptr<Client>& place) noexcept;

    const Clock::duration replyTime_;
    // The clients in the order of their answers. Each of them holds the next one.
    std::shared_ptr<Client> first_;
    std::shared_ptr<Client>* end_ = &first_;  // where the next client is added
};

}  // namespace qv::host

#endif  // QVHOST_SERVER_ANSWERED_CLIENTS_H
