#pragma once

// The line protocol of the control socket. A connection carries one request: the service reads a
// line, sends a line and closes the connection. Only HOLD keeps its connection open. Each
// connection has its own thread. What a peer may do depends on its kernel credentials and on the
// request.

#include <string>

namespace Vantrell::ClientUpdateService {

// The body of a connection thread. Owns the connected descriptor: reads the request, serves it and
// closes the connection. Then subtracts 1 from ServiceState.connections, to which the accept loop
// has added 1.
void HandleConnection(int connection);

// Serves every request except HOLD. `line` is the request without its line end. `connection` is
// used only for the peer's credentials. Returns the reply without its line feed.
std::string HandleRequest(const std::string& line, int connection);

}  // namespace Vantrell::ClientUpdateService
