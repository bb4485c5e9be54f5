#pragma once

// Recognition of the desktop client. Only the kernel's link to the executable of a process decides;
// nothing that the process itself can set is used. Any thread may call these; they log nothing. The
// kernel may give the pid to another process between the answer and the caller's next step.

#include <sys/types.h>

#include <string_view>

namespace Vantrell {

// Where the package installs the client.
constexpr char ClientBinaryPath[] = "/usr/bin/vantrell-harbor";

// True for the client, and for a client whose file has been replaced on disk since it started. If
// `wasDeleted` is given, it tells these two apart. It is written for every process whose link can
// be read, client or not, and otherwise unchanged: the caller must initialise it.
[[nodiscard]] bool IsClientProcess(pid_t pid, bool* wasDeleted = nullptr);

// The same decision for the text of such a link.
[[nodiscard]] bool IsClientImage(std::string_view link, bool* wasDeleted = nullptr);

}  // namespace Vantrell
