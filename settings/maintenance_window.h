#pragma once

// The daily window of local time in which an install may disturb the user. Read from the
// settings WindowEnabled, WindowStart and WindowEnd at every use. When in doubt it is open.
// Any thread may call everything here.

#include <string>

namespace Vantrell {

// Minutes since midnight, 0 to 1439, of a text such as "02:00". Short forms as "2:5" and blanks
// or a plus sign in front of a number are taken. `minutes` is written only on true.
bool ParseClockTime(const char* text, int* minutes);

// Whether the window holds the minute `now` of the day: its first minute yes, the minute of
// its end no. Ends that are equal make it the whole day; a start behind the end runs it over
// midnight. Always true when not `enabled`. A text that cannot be read is logged, at every
// test, and counts as open.
bool WindowContains(const std::string& start, const std::string& end, bool enabled, int now);

// For people: "02:00-05:00 local", the texts as they stand in the settings, or "disabled".
std::string WindowText();

// Sees a change of the settings and of the machine's time zone at once.
bool IsWindowOpenNow();

}  // namespace Vantrell
