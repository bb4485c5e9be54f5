#pragma once

// The client's side of the control socket. It logs nothing.

#include <string>

namespace Vantrell::Control {

// Sends one request line and reads the reply. `reply` is one line without its line feed, in
// printable form. False when no reply comes within 20 s: `error` is then a sentence with cause and
// cure.
[[nodiscard]] bool AskService(const std::string& request, std::string& reply, std::string& error);

}  // namespace Vantrell::Control
