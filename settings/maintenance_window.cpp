#include "settings/maintenance_window.h"

#include <cstdio>
#include <ctime>

#include "base/log_line.h"
#include "settings/settings_file.h"

namespace Vantrell {

bool IsWindowEnabled() { return ReadSetting("WindowEnabled", "1") != "0"; }
std::string WindowStart() { return ReadSetting("WindowStart", "02:00"); }
std::string WindowEnd() { return ReadSetting("WindowEnd", "05:00"); }

int LocalMinuteOfDay() {
  const time_t now = time(nullptr);
  struct tm local = {};
  // localtime_r() reads the time zone file only at its first use; tzset() reads it again.
  tzset();
  localtime_r(&now, &local);
  return local.tm_hour * 60 + local.tm_min;
}

bool ParseClockTime(const char* text, int* minutes) {
  int hour = 0;
  int minute = 0;
  char rest = 0;
  // The third conversion finds any text after the minutes.
  if (sscanf(text, "%d:%d%c", &hour, &minute, &rest) != 2) return false;
  if (hour < 0 || hour > 23 || minute < 0 || minute > 59) return false;
  *minutes = hour * 60 + minute;
  return true;
}

bool WindowContains(const std::string& start, const std::string& end, bool enabled, int now) {
  if (!enabled) return true;
  int from = 0;
  int until = 0;
  if (!ParseClockTime(start.c_str(), &from) || !ParseClockTime(end.c_str(), &until)) {
    LogLine("[Update] window '%s'-'%s' is unreadable; treating the window as open", start.c_str(),
            end.c_str());
    return true;
  }
  if (from == until) return true;
  if (from < until) return from <= now && now < until;
  return from <= now || now < until;
}

std::string WindowText() {
  if (!IsWindowEnabled()) return "disabled";
  return WindowStart() + "-" + WindowEnd() + " local";
}

bool IsWindowOpenNow() {
  const int now = LocalMinuteOfDay();
  const bool enabled = IsWindowEnabled();
  const std::string end = WindowEnd();
  const std::string start = WindowStart();
  return WindowContains(start, end, enabled, now);
}

}  // namespace Vantrell
