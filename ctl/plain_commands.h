#pragma once

// The commands that ask the service one thing, or run one program. Each prints its result, and its
// errors on standard error, and returns an exit status of this program.

#include <string>
#include <vector>

namespace Vantrell::Control {

// The words after the name of the command.
using Arguments = std::vector<std::string>;

int RunStatus(const Arguments& arguments);
int RunWatch(const Arguments& arguments);
int RunApply(const Arguments& arguments);
int RunRing(const Arguments& arguments);
int RunWindow(const Arguments& arguments);
int RunId(const Arguments& arguments);
int RunLog(const Arguments& arguments);
int RunPause(const Arguments& arguments);
int RunResume(const Arguments& arguments);

}  // namespace Vantrell::Control
