// Serves one client: reads requests, has them executed and sends the answers. A conversation owns
// itself and lives until the client or the host ends it. At any time it either reads, executes or
// writes, so it needs no lock, although its thread may change.
#ifndef QVHOST_SERVER_CONVERSATION_H
#define QVHOST_SERVER_CONVERSATION_H

#include "server/ClientList.h"
#include "server/ClientSocket.h"
#include "server/ClientThreads.h"
#include "server/PluginService.h"
#include "server/Settings.h"

namespace qv::host {

// Begins a conversation. The socket must belong to the context of the thread. All other arguments
// must outlive that context. Closes the socket and throws std::bad_alloc or std::system_error if
// that fails.
void serveClient(ClientSocket socket, ClientThreads& threads, ClientThread& thread,
                 ClientList& clients, PluginService& service, const ServerSettings& settings);

}  // namespace qv::host

#endif  // QVHOST_SERVER_CONVERSATION_H
