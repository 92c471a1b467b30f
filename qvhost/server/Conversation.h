// SPDX-License-Identifier: Apache-2.0

// Serves one client: reads requests, has them carried out and sends the answers, in the order of
// the requests. A conversation owns itself. It lives until the client or the host ends it, and for
// as long as another thread works for it.
//
// At any time a conversation does one thing: it reads, sends, or waits for the recorder, the
// follower or the budget. Everything happens on the thread of the client, with one exception: if
// the client has sent nothing but the changes of a commit, the recorder's thread sends the answers
// and takes the client's next change. So one thread at a time uses a conversation, and it needs no
// lock. From the second such change on, what the client sends does not wake the client's thread.
//
// Consecutive changes that have arrived go to the recorder together. A request behind them waits
// until they are answered, so a client sees its own changes.
//
// A request to subscribe ends the conversation. A subscription takes the connection over.
#ifndef QVHOST_SERVER_CONVERSATION_H
#define QVHOST_SERVER_CONVERSATION_H

#include <sys/types.h>

#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/Connection.h"

namespace qv::host {

// Begins a conversation with a client of this user. The socket must belong to the context of the
// thread. All other arguments must outlive the recorder, the follower and that context. Closes the
// socket and throws std::bad_alloc or std::system_error if that fails.
void serveClient(ClientSocket socket, uid_t user, ClientThread& thread, const ServingParts& parts);

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONVERSATION_H
