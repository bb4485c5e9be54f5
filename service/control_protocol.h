#pragma once

// The local door of the service: on each connection one line in, one line out, close. HOLD
// alone keeps its connection. Each connection has a thread of its own; what a peer may do
// follows from its kernel credentials, request by request.

#include <string>

namespace Vantrell::ClientUpdateService {

// Thread body: owns the connected descriptor, reads the request, serves it, closes, and takes
// itself off ServiceState.connections, to which the accept loop added it.
void HandleConnection(int connection);

// Serves everything but HOLD. `line` is the request without its line end; `connection` is only
// asked for the peer's credentials. Returns the reply without its line feed.
std::string HandleRequest(const std::string& line, int connection);

// Sends every byte, or as many as the peer takes; a failure is nobody's business.
void SendAll(int connection, const std::string& text);

}  // namespace Vantrell::ClientUpdateService
