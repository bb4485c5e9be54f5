#include "ctl/window_opening.h"

#include <gtest/gtest.h>

namespace Vantrell::Control {

TEST(NextOpening, IsTheNextStartOfAWindowThatIsShut) {
  struct Case {
    const char* behaviour;
    const char* start;
    const char* end;
    bool enabled;
    int now;
    const char* expected;
  };
  for (const Case& given : {
           Case{"before the start", "02:00", "05:00", true, 119, "today at 02:00"},
           Case{"at the start", "02:00", "05:00", true, 120, "open"},
           Case{"at the end", "2:0", "05:00", true, 300, "tomorrow at 02:00"},
           Case{"over midnight, after it", "22:30", "03:00", true, 179, "open"},
           Case{"over midnight, at the end", "22:30", "03:00", true, 180, "today at 22:30"},
           Case{"equal times", "04:00", "04:00", true, 239, "open"},
           Case{"disabled", "02:00", "05:00", false, 720, "open"},
           Case{"unreadable", "02:00", "5", true, 720, "open"},
       }) {
    EXPECT_EQ(NextOpening(given.start, given.end, given.enabled, given.now), given.expected)
        << given.behaviour;
  }
}

}  // namespace Vantrell::Control
