#ifndef ZORVEL_VIEW_REQUEST_HPP
#define ZORVEL_VIEW_REQUEST_HPP

#include "view/connection.hpp"
#include "view/web_socket.hpp"

namespace zorvel {

/// Reads a request of HTTP from a connection that has arrived. One that asks for a WebSocket gets
/// one, any other one answer. When there are too many connections, the oldest whose request has not
/// come makes way, or else this one is refused. `isLocal`: it came by the file system.
void serveRequest(Connections& connections, WebSocket::Socket socket, bool isLocal);

}  // namespace zorvel

#endif
