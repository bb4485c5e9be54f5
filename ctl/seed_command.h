#pragma once

// The command that gives a machine its first rollback copy.

#include "ctl/plain_commands.h"

namespace Vantrell::Control {

int RunSeed(const Arguments& arguments);

}  // namespace Vantrell::Control
