#pragma once

// When the maintenance window opens next.

#include <string>

namespace Vantrell::Control {

// "open" while the window is open at the minute `now` of the day. Otherwise its next start, such as
// "today at 02:00" or "tomorrow at 02:00". A window that is always open or cannot be read is open.
std::string NextOpening(const std::string& start, const std::string& end, bool enabled, int now);

// The same by the settings and the clock of this machine.
std::string NextOpening();

}  // namespace Vantrell::Control
