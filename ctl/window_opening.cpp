#include "ctl/window_opening.h"

#include <cstdio>

#include "settings/maintenance_window.h"

namespace Vantrell::Control {

std::string NextOpening(const std::string& start, const std::string& end, bool enabled, int now) {
  int from = 0;
  int until = 0;
  // WindowContains() would log a window that cannot be read.
  if (!ParseClockTime(start.c_str(), &from) || !ParseClockTime(end.c_str(), &until)) return "open";
  if (WindowContains(start, end, enabled, now)) return "open";
  char text[32] = {};
  snprintf(text, sizeof text, "%s at %02d:%02d", from > now ? "today" : "tomorrow", from / 60,
           from % 60);
  return text;
}

std::string NextOpening() {
  return NextOpening(WindowStart(), WindowEnd(), IsWindowEnabled(), LocalMinuteOfDay());
}

}  // namespace Vantrell::Control
