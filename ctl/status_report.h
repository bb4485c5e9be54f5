#pragma once

// The two forms of a MachineStatus: lines for people and one JSON object for programs.

#include <string>

#include "ctl/machine_status.h"

namespace Vantrell::Control {

// Lines with a line feed each.
std::string StatusText(const MachineStatus& status);

// One line with a line feed.
std::string StatusJson(const MachineStatus& status);

}  // namespace Vantrell::Control
