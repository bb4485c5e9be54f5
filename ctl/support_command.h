#pragma once

// The command that collects the facts for a support ticket.

#include "ctl/plain_commands.h"

namespace Vantrell::Control {

int RunSupport(const Arguments& arguments);

}  // namespace Vantrell::Control
