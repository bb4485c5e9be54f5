#pragma once

// The command that has the service check for a release now.

#include "ctl/plain_commands.h"

namespace Vantrell::Control {

// With --wait it returns when the check has ended, or after ten minutes.
int RunCheck(const Arguments& arguments);

}  // namespace Vantrell::Control
