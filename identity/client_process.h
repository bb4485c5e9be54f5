#pragma once

// Whether a process is the desktop client. Decided by the kernel's link to its executable and
// by nothing that the process could say about itself. No state; any thread; logs nothing. A
// pid may be reused between the answer and what the caller does next.

#include <sys/types.h>

#include <string_view>

namespace Vantrell {

// Where the package installs the client.
constexpr char ClientBinaryPath[] = "/usr/bin/vantrell-harbor";

// True for the client, also for one whose file was replaced on disk meanwhile: `wasDeleted`,
// if given, tells the two apart. It is written for every process whose link can be read,
// client or not, and left as it was otherwise: set it before the call.
bool IsClientProcess(pid_t pid, bool* wasDeleted = nullptr);

// The same judgement on the text of such a link.
bool IsClientImage(std::string_view link, bool* wasDeleted = nullptr);

}  // namespace Vantrell
