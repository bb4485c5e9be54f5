#pragma once

// The one way in which the service starts another program, and the wait for a process that is
// no child of it. No shell is involved. Any thread may call these, several at once; they log
// nothing and do not look at a stop of the service.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Vantrell {

// Runs a program, found along PATH by the first element of `argv`, and waits for it without a
// time limit, and for whoever else holds its output open. It has no input and inherits the
// environment, with `extraEnv` (NAME=value) behind it. `output` is what it wrote on standard
// output and standard error, as one stream, of which the first 256 KiB or a little more are
// kept. The result is its exit code, or -1 when a signal ended it. When it could not be started
// the result is -1 and `output` "cannot run " and the program, or `output` as it was where
// there was not even a pipe.
int32_t RunProcess(const std::vector<std::string>& argv, const std::vector<std::string>& extraEnv,
                   std::string& output);

// The last line of a tool's output, for a message: trailing line ends do not count.
std::string LastLine(std::string_view text);

// Returns when the process is gone or `limitMs` have passed, and does not tell which.
void WaitForProcessExit(uint32_t pid, uint32_t limitMs);

}  // namespace Vantrell
