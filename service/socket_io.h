#pragma once

// Sending on a connection of the control socket. Any thread may call it; it logs nothing.

#include <string>

namespace Vantrell::ClientUpdateService {

// Sends the whole text. Errors are ignored: the peer has gone, or does not read.
void SendAll(int connection, const std::string& text);

}  // namespace Vantrell::ClientUpdateService
