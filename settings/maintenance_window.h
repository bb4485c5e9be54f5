#pragma once

// The maintenance window: the daily period of local time in which the service may install by
// itself. It is read from the settings WindowEnabled, WindowStart and WindowEnd at every use. A
// window that cannot be read is open. Any thread may call these functions.

#include <string>

namespace Vantrell {

// The settings, or their defaults. Only an exact "0" disables the window; "false" and "no" do not.
bool IsWindowEnabled();
std::string WindowStart();
std::string WindowEnd();

// The minute of the day, 0 to 1439, in the time zone that the machine has now.
int LocalMinuteOfDay();

// Reads a text such as "02:00" as minutes since midnight, 0 to 1439. Accepts short forms such as
// "2:5", and blanks or a plus sign before a number. Writes `minutes` only on true.
[[nodiscard]] bool ParseClockTime(const char* text, int* minutes);

// Whether the minute `now` of the day is within the window. The minute of the start is within it,
// the minute of the end is not. A start after the end means a window over midnight; two equal times
// mean the whole day. Always true when not `enabled`. If a text cannot be read, each call logs it
// and returns true.
[[nodiscard]] bool WindowContains(const std::string& start, const std::string& end, bool enabled,
                                  int now);

// The window as a text for people: the two settings as they are written, such as "02:00-05:00
// local", or "disabled".
std::string WindowText();

// Whether the window is open at this moment. A change of the settings or of the machine's time zone
// takes effect at the next call.
[[nodiscard]] bool IsWindowOpenNow();

}  // namespace Vantrell
