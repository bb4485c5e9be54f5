#include "base/log_line.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "base/descriptor.h"

namespace Vantrell {

TEST(LogLine, WritesALineAtOnce) {
  int ends[2] = {};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_DIRECT), 0);  // one read returns one write
  const Descriptor readEnd(ends[0]);
  const Descriptor writeEnd(ends[1]);
  const Descriptor usual(dup(STDERR_FILENO));
  dup2(writeEnd.Number(), STDERR_FILENO);
  LogLine("%s has %d lines", "this", 1);
  dup2(usual.Number(), STDERR_FILENO);
  char line[100] = {};
  EXPECT_EQ(read(readEnd.Number(), line, sizeof line), 17);
  EXPECT_STREQ(line, "this has 1 lines\n");
}

}  // namespace Vantrell
