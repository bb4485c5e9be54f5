#pragma once

// Running another program, and waiting for a process that is not a child. No shell is involved. Any
// thread may call these, several at once; they log nothing. A stop of the service does not
// interrupt them, but a signal to the calling thread ends WaitForProcessExit() early.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/steady_time.h"

namespace Vantrell {

constexpr size_t CaptureLimitBytes = 262144;  // a block is kept while there are fewer bytes

// Runs a program and waits for it without a time limit. The first element of `argv` is searched
// along PATH. The program has no input. Its environment is the service's own, followed by
// `extraEnv` (NAME=value). `output` gets what it writes to standard output and standard error, as
// one stream; the first CaptureLimitBytes, or a little more, are kept. The call also waits for
// every other process that holds this output open. Returns the exit code, or -1 when a signal ended
// the program. When the program could not be started: -1, and `output` is "cannot run " and its
// name. When the pipe for the output could not be made: -1, and `output` is unchanged.
int32_t RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
                   std::string& output);

// The last line of a program's output, for a message. Line ends at the end of `text` are ignored.
std::string LastLine(std::string_view text);

// Returns when the process has ended or after `limit`, and does not tell which.
void WaitForProcessExit(uint32_t pid, Milliseconds limit);

}  // namespace Vantrell
